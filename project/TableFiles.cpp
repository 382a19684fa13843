#include "project/TableFiles.h"

#include "project/AtomicFile.h"
#include "project/NumberText.h"

#include <QDebug>
#include <QFile>
#include <QTextStream>

namespace {

// The text is formed in memory and the file written at once, through a
// temporary file (write(data, size) does that), so that a reader never sees
// part of it.
template<typename Matrix, typename Write>
void writeMatrix(const Matrix &matrix, Write write)
{
    std::string text;
    appendMatrixText(text, matrix);
    if (!write(text.data(), text.size()))
        qDebug() << "Error, unable to save";
}

auto toPath(const QString &path)
{
    return [&path](const char *data, std::size_t size) { return writeFileAtomically(path, data, size); };
}

auto toFolder(const AtomicFolder &folder, const QString &fileName)
{
    return [&](const char *data, std::size_t size) { return folder.write(fileName, data, size); };
}

// Lines of a text file, or false when it is missing or cannot be opened.
bool readLines(const QString &path, QStringList &lines)
{
    QFile file(path);
    if (!file.exists() || !file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    QTextStream stream(&file);
    stream.setCodec("UTF-8");
    while (!stream.atEnd())
        lines << stream.readLine();
    return true;
}

QVector<double> lenientRow(const QStringList &fields)
{
    QVector<double> values;
    values.reserve(fields.size());
    for (const QString &field : fields)
        values << lenientCellNumber(field);
    return values;
}

const QString &headerText(const QVector<TableCells::Cell> &headers, int index)
{
    static const QString missing(QStringLiteral(" "));
    if (index < headers.size() && headers[index])
        return *headers[index];
    return missing;
}

// The rows of the table text; each row is preceded by prefixOfRow(r).
template<typename Prefix>
void appendTableRows(QString &text, const TableCells &table, Prefix prefixOfRow)
{
    const int rowCount = table.rowCount();
    const int lastColumn = table.columnCount() - 1;
    for (int r = 0; r < rowCount; ++r) {
        const bool lastRow = r == rowCount - 1;
        text += prefixOfRow(r);
        for (int c = 0; c < lastColumn; ++c) {
            const TableCells::Cell &cell = table.cell(r, c);
            if (cell)
                text += *cell + QLatin1Char(',');
            else
                text += lastRow ? QStringLiteral(",") : QStringLiteral(" ,");
        }
        // The last column (or, for a table without columns, the row's end).
        const TableCells::Cell *last = lastColumn >= 0 ? &table.cell(r, lastColumn) : nullptr;
        if (last && *last)
            text += **last;
        else if (!lastRow)
            text += QLatin1Char(' ');
        if (!lastRow)
            text += QLatin1Char('\n');
    }
}

void writeText(const QString &path, const QString &text, const char *failureMessage)
{
    if (!writeTextAtomically(path, text))
        qDebug() << failureMessage;
}

} // namespace

DoubleMatrix textToDoubleMatrix(const QString &text)
{
    DoubleMatrix result;
    const QStringList lines = text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : lines)
        result << lenientRow(line.split(QLatin1Char(',')));
    return result;
}

void writeDoubleMatrix(const QString &path, const DoubleMatrix &matrix)
{
    writeMatrix(matrix, toPath(path));
}
void writeIntMatrix(const QString &path, const IntMatrix &matrix)
{
    writeMatrix(matrix, toPath(path));
}
void writeDoubleMatrix(const AtomicFolder &folder, const QString &fileName, const DoubleMatrix &matrix)
{
    writeMatrix(matrix, toFolder(folder, fileName));
}
void writeIntMatrix(const AtomicFolder &folder, const QString &fileName, const IntMatrix &matrix)
{
    writeMatrix(matrix, toFolder(folder, fileName));
}

DoubleMatrix readDoubleMatrix(const QString &path)
{
    DoubleMatrix result;
    QStringList lines;
    if (!readLines(path, lines))
        return result;
    for (const QString &line : lines)
        result << lenientRow(line.split(QLatin1Char(',')));
    return result;
}

QString tableText(const TableCells &table)
{
    QString text;
    appendTableRows(text, table, [](int) { return QString(); });
    return text;
}

QString tableTextWithHeaders(const TableCells &table, const QVector<TableCells::Cell> &horizontalHeaders,
                             const QVector<TableCells::Cell> &verticalHeaders)
{
    QString text = QStringLiteral(" ,");
    QStringList headers;
    for (int c = 0; c < table.columnCount(); ++c)
        headers << headerText(horizontalHeaders, c);
    text += headers.join(QLatin1Char(',')) + QLatin1Char('\n');
    appendTableRows(text, table, [&](int r) { return headerText(verticalHeaders, r) + QLatin1Char(','); });
    return text;
}

void writeTable(const QString &path, const TableCells &table)
{
    writeText(path, tableText(table), "Error, unable to open");
}

void writeTableWithHeaders(const QString &path, const TableCells &table,
                           const QVector<TableCells::Cell> &horizontalHeaders,
                           const QVector<TableCells::Cell> &verticalHeaders)
{
    writeText(path, tableTextWithHeaders(table, horizontalHeaders, verticalHeaders), "Error, unable to open");
}

void fillTableFromText(TableCells &table, const QStringList &lines)
{
    table.setRowCount(lines.size());
    if (lines.isEmpty())
        return;
    table.setColumnCount(lines.last().split(QLatin1Char(',')).size());
    for (int r = 0; r < lines.size(); ++r) {
        const QStringList fields = lines[r].split(QLatin1Char(','));
        if (fields.size() > table.columnCount())
            table.setColumnCount(fields.size());
        for (int c = 0; c < table.columnCount(); ++c)
            table.setCell(r, c, c < fields.size() ? fields[c] : QStringLiteral("NA"));
    }
}

bool readTable(const QString &path, TableCells &table)
{
    QStringList lines;
    if (!readLines(path, lines))
        return false;
    fillTableFromText(table, lines);
    return true;
}

QString labelledColumnsText(const QStringList &columnNames, const DoubleMatrix &columns,
                            const QStringList &rowLabels)
{
    QStringList header{QString()};
    for (int c = 0; c < columns.size(); ++c)
        header << columnNames.value(c);
    QString text = header.join(QLatin1Char(',')) + QLatin1Char('\n');

    int rowCount = 0;
    for (const QVector<double> &column : columns)
        rowCount = qMax(rowCount, column.size());
    for (int r = 0; r < rowCount; ++r) {
        QStringList line{rowLabels.value(r)};
        for (const QVector<double> &column : columns)
            line << (r < column.size() ? QString::number(column[r], 'g', 6) : QString());
        text += line.join(QLatin1Char(',')) + QLatin1Char('\n');
    }
    return text;
}

void writeLabelledColumns(const QString &path, const QStringList &columnNames, const DoubleMatrix &columns,
                          const QStringList &rowLabels)
{
    writeText(path, labelledColumnsText(columnNames, columns, rowLabels), "Error, unable to save");
}
