#pragma once

#include "ResultView.h"

#include <QString>

class QWidget;

// The files of "save plot as CSV" and "save plot as PDF".

// The labelled-column text of a drawn plot.
QString plotCsvText(const PlotTable &table);
void writePlotCsv(const QString &path, const PlotTable &table);

// Renders the widget (the charts and tables of a view) onto one landscape A4
// page, scaled to fit under the title. False when the file cannot be written.
bool writeWidgetPdf(const QString &path, QWidget *content, const QString &title);

// A save dialog proposing the file; empty when cancelled. The filter is that
// of CSV or PDF files by the proposed name's suffix.
QString askSavePath(QWidget *parent, const QString &proposedPath);
