#include "project/TableCells.h"

#include <limits>

void TableCells::setRowCount(int rowCount)
{
    rowCount = qMax(0, rowCount);
    const int oldCount = rows.size();
    rows.resize(rowCount);
    for (int r = oldCount; r < rowCount; ++r)
        rows[r] = QVector<Cell>(columns);
}

void TableCells::setColumnCount(int columnCount)
{
    columns = qMax(0, columnCount);
    for (QVector<Cell> &row : rows)
        row.resize(columns);
}

namespace {

QString cellText(double value)
{
    return QString::number(value, 'g', 6);
}
QString cellText(qint32 value)
{
    return QString::number(value);
}
QString cellText(const QString &value)
{
    return value;
}

template<typename Matrix>
void fillFromMatrix(TableCells &table, const Matrix &matrix)
{
    table.setRowCount(matrix.size());
    if (matrix.isEmpty())
        return;
    table.setColumnCount(matrix.last().size());
    for (int r = 0; r < matrix.size(); ++r) {
        const auto &row = matrix[r];
        if (row.size() > table.columnCount())
            table.setColumnCount(row.size());
        for (int c = 0; c < table.columnCount(); ++c)
            table.setCell(r, c, c < row.size() ? cellText(row[c]) : QStringLiteral("NaN"));
    }
}

} // namespace

void fillTableCells(TableCells &table, const DoubleMatrix &matrix)
{
    fillFromMatrix(table, matrix);
}
void fillTableCells(TableCells &table, const IntMatrix &matrix)
{
    fillFromMatrix(table, matrix);
}
void fillTableCells(TableCells &table, const StringMatrix &matrix)
{
    fillFromMatrix(table, matrix);
}

StringMatrix tableStringMatrix(const TableCells &table)
{
    StringMatrix result;
    result.reserve(table.rowCount());
    for (const QVector<TableCells::Cell> &row : table.rows) {
        QStringList texts;
        texts.reserve(row.size());
        for (const TableCells::Cell &cell : row)
            texts << ((!cell || *cell == QLatin1String(" ")) ? QString("") : *cell);
        result << texts;
    }
    return result;
}

double lenientCellNumber(const QString &text)
{
    const QString joined = text.split(QLatin1Char(' '), Qt::SkipEmptyParts).join(QString());
    return joined.toDouble(); // 0 when the text is no number
}

DoubleMatrix tableDoubleMatrix(const TableCells &table)
{
    DoubleMatrix result;
    result.reserve(table.rowCount());
    for (const QVector<TableCells::Cell> &row : table.rows) {
        QVector<double> values;
        values.reserve(row.size());
        for (const TableCells::Cell &cell : row) {
            if (!cell || *cell == QLatin1String(" "))
                values << std::numeric_limits<double>::quiet_NaN();
            else
                values << lenientCellNumber(*cell);
        }
        result << values;
    }
    return result;
}
