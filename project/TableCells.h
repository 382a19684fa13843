#pragma once

#include "model/Matrices.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>

// The cells of a table widget without the widget: a grid of rowCount x
// columnCount cells, each either an item with its display text or no item
// (std::nullopt). Resizing behaves like QTableWidget: cells that stay inside
// the grid keep their content, new cells have no item. Every table conversion
// and the table file format work on this form, so that they can be tested
// without a display; the widget side only copies cells in and out.
struct TableCells {
    using Cell = std::optional<QString>;

    QVector<QVector<Cell>> rows; // rows.size() == rowCount(), each of columnCount()
    int columns = 0;

    int rowCount() const { return rows.size(); }
    int columnCount() const { return columns; }
    void setRowCount(int rowCount);
    void setColumnCount(int columnCount);

    const Cell &cell(int row, int column) const { return rows[row][column]; }
    void setCell(int row, int column, const QString &text) { rows[row][column] = text; }
    void clearCell(int row, int column) { rows[row][column].reset(); }
};

// Matrix to table: the row count becomes the number of rows (nothing more
// happens for an empty matrix), the column count the length of the last row.
// A longer row widens the table (columns only grow, so rows filled before the
// widening have no items in the new columns); a cell beyond a row's end gets
// "NaN". Doubles are written in format "g" with 6 significant digits.
void fillTableCells(TableCells &table, const DoubleMatrix &matrix);
void fillTableCells(TableCells &table, const IntMatrix &matrix);
void fillTableCells(TableCells &table, const StringMatrix &matrix);

// Display texts; a cell without item and a cell holding exactly " " (the
// file writer's placeholder for a missing cell) give "".
StringMatrix tableStringMatrix(const TableCells &table);

// A cell without item or holding exactly " " gives NaN; otherwise the text
// with every blank removed is converted, and text that is no number gives 0
// without any report (validation belongs to the owners of the tables).
DoubleMatrix tableDoubleMatrix(const TableCells &table);

// The lenient cell conversion used above and by the matrix readers.
double lenientCellNumber(const QString &text);
