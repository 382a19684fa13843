#pragma once

#include "model/EventTables.h"
#include "project/TableCells.h"

#include <QString>
#include <QStringList>
#include <QVector>

// The simulation tab's messages that are not the model's own, as red
// fragments for the error pane.

// Time points that give no point, or a range of too many points.
QString timePointsErrorHtml(const QString &text, bool tooMany);
QString noOdeSystemHtml();
QString missingExpressionHtml(const QStringList &stateNames);
QString missingParameterColumnsHtml(const QStringList &missing, const QStringList &parameterNames);
QString noParameterSetHtml();
// "Error in Simulation Parameter Table " in red, then "Could not evaluate
// the simulation parameter expression." and the row, column header and text
// of each cell (cells in table order, texts the table's display texts).
QString parameterTableErrorsHtml(const QVector<CellPosition> &invalid, const QStringList &headers,
                                 const StringMatrix &texts);
