#include "TableWidgetFiles.h"

#include "project/TableFiles.h"

#include <QTableWidget>

namespace {

TableCells::Cell itemText(const QTableWidgetItem *item)
{
    if (!item)
        return std::nullopt;
    return item->data(Qt::DisplayRole).toString();
}

template<typename Matrix>
void fillFromMatrix(QTableWidget *table, const Matrix &matrix)
{
    TableCells cells = tableCells(table);
    fillTableCells(cells, matrix);
    setTableCells(table, cells);
}

} // namespace

TableCells tableCells(const QTableWidget *table)
{
    TableCells cells;
    cells.setColumnCount(table->columnCount());
    cells.setRowCount(table->rowCount());
    for (int r = 0; r < table->rowCount(); ++r)
        for (int c = 0; c < table->columnCount(); ++c)
            cells.rows[r][c] = itemText(table->item(r, c));
    return cells;
}

void setTableCells(QTableWidget *table, const TableCells &cells)
{
    table->setRowCount(cells.rowCount());
    table->setColumnCount(cells.columnCount());
    for (int r = 0; r < cells.rowCount(); ++r) {
        for (int c = 0; c < cells.columnCount(); ++c) {
            const TableCells::Cell &cell = cells.cell(r, c);
            if (cell)
                table->setItem(r, c, new QTableWidgetItem(*cell));
            else
                delete table->takeItem(r, c);
        }
    }
}

void matrixToTable(QTableWidget *table, const DoubleMatrix &matrix)
{
    fillFromMatrix(table, matrix);
}
void matrixToTable(QTableWidget *table, const IntMatrix &matrix)
{
    fillFromMatrix(table, matrix);
}
void matrixToTable(QTableWidget *table, const StringMatrix &matrix)
{
    fillFromMatrix(table, matrix);
}

void setHorizontalHeaders(QTableWidget *table, const QStringList &headers)
{
    table->setColumnCount(headers.size());
    table->setHorizontalHeaderLabels(headers);
}

void setVerticalHeaders(QTableWidget *table, const QStringList &headers)
{
    table->setRowCount(headers.size());
    table->setVerticalHeaderLabels(headers);
}

StringMatrix tableToStringMatrix(const QTableWidget *table)
{
    return tableStringMatrix(tableCells(table));
}

DoubleMatrix tableToDoubleMatrix(const QTableWidget *table)
{
    return tableDoubleMatrix(tableCells(table));
}

void writeTable(const QString &path, const QTableWidget *table)
{
    writeTable(path, tableCells(table));
}

void writeTableWithHeaders(const QString &path, const QTableWidget *table)
{
    QVector<TableCells::Cell> horizontal;
    for (int c = 0; c < table->columnCount(); ++c)
        horizontal << itemText(table->horizontalHeaderItem(c));
    QVector<TableCells::Cell> vertical;
    for (int r = 0; r < table->rowCount(); ++r)
        vertical << itemText(table->verticalHeaderItem(r));
    writeTableWithHeaders(path, tableCells(table), horizontal, vertical);
}

void readTable(const QString &path, QTableWidget *table)
{
    TableCells cells = tableCells(table);
    if (readTable(path, cells))
        setTableCells(table, cells);
}
