#pragma once

#include "project/TableCells.h"

class QTableWidget;

// The QTableWidget side of the table helpers. Each function copies the
// widget's cells into the widget-free TableCells form, lets the core functions
// do the work and copies the result back, so the conversion and file-format
// rules exist once (project/TableCells, project/TableFiles).

// The widget's size and display texts; a cell without item is std::nullopt.
TableCells tableCells(const QTableWidget *table);
// Resizes the widget to the cells and gives every cell that holds a text a
// new item with it; cells without item lose any item they had.
void setTableCells(QTableWidget *table, const TableCells &cells);

void matrixToTable(QTableWidget *table, const DoubleMatrix &matrix);
void matrixToTable(QTableWidget *table, const IntMatrix &matrix);
void matrixToTable(QTableWidget *table, const StringMatrix &matrix);

// Header labels; the column count (horizontal) or the row count (vertical)
// becomes the number of labels.
void setHorizontalHeaders(QTableWidget *table, const QStringList &headers);
void setVerticalHeaders(QTableWidget *table, const QStringList &headers);

StringMatrix tableToStringMatrix(const QTableWidget *table);
DoubleMatrix tableToDoubleMatrix(const QTableWidget *table);

// Debug line "Error, unable to open" when the file cannot be written.
void writeTable(const QString &path, const QTableWidget *table);
void writeTableWithHeaders(const QString &path, const QTableWidget *table);
// Leaves the widget unchanged when the file is missing or unreadable.
void readTable(const QString &path, QTableWidget *table);
