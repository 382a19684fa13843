#include "TableWidgetFiles.h"

#include <QFile>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

namespace {

QString textAt(const QTableWidget &table, int row, int column)
{
    const QTableWidgetItem *item = table.item(row, column);
    return item ? item->text() : QStringLiteral("<none>");
}

QByteArray fileContent(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return "<unreadable>";
    return file.readAll();
}

} // namespace

class TableWidgetsTest : public QObject {
    Q_OBJECT

private slots:
    void matrixToTableWidensAndPads();
    void headersAdjustCounts();
    void tableToMatrices();
    void writeAndReadBack();
    void writeWithHeaders();
    void readMissingFileKeepsTable();
};

void TableWidgetsTest::matrixToTableWidensAndPads()
{
    QTableWidget table(5, 7);
    table.setItem(0, 2, new QTableWidgetItem("stale"));
    matrixToTable(&table, DoubleMatrix{{1, 2}, {3.14159265, 4, 5}, {6}});

    QCOMPARE(table.rowCount(), 3);
    QCOMPARE(table.columnCount(), 3);
    QCOMPARE(textAt(table, 0, 1), QString("2"));
    QCOMPARE(textAt(table, 0, 2), QString("<none>")); // column added after row 0 was filled
    QCOMPARE(textAt(table, 1, 0), QString("3.14159"));
    QCOMPARE(textAt(table, 2, 1), QString("NaN"));
    QCOMPARE(textAt(table, 2, 2), QString("NaN"));

    matrixToTable(&table, IntMatrix{{7, -8}});
    QCOMPARE(table.rowCount(), 1);
    QCOMPARE(textAt(table, 0, 1), QString("-8"));

    matrixToTable(&table, StringMatrix{{"x", "y", "z"}, {"w"}});
    QCOMPARE(table.columnCount(), 3);
    QCOMPARE(textAt(table, 1, 0), QString("w"));
    QCOMPARE(textAt(table, 1, 2), QString("NaN")); // widened by row 0 before row 1
    QCOMPARE(textAt(table, 0, 2), QString("z"));
}

void TableWidgetsTest::headersAdjustCounts()
{
    QTableWidget table(2, 2);
    setHorizontalHeaders(&table, {"Time", "Compartment", "Dosage"});
    QCOMPARE(table.columnCount(), 3);
    QCOMPARE(table.horizontalHeaderItem(2)->text(), QString("Dosage"));
    setVerticalHeaders(&table, {"CL", "V", "ka", "F"});
    QCOMPARE(table.rowCount(), 4);
    QCOMPARE(table.verticalHeaderItem(3)->text(), QString("F"));
}

void TableWidgetsTest::tableToMatrices()
{
    QTableWidget table(2, 3);
    table.setItem(0, 0, new QTableWidgetItem("1 000"));
    table.setItem(0, 1, new QTableWidgetItem(" "));
    table.setItem(0, 2, new QTableWidgetItem("abc"));
    table.setItem(1, 0, new QTableWidgetItem("2.5"));

    const DoubleMatrix values = tableToDoubleMatrix(&table);
    QCOMPARE(values.size(), 2);
    QCOMPARE(values[0][0], 1000.0);
    QVERIFY(std::isnan(values[0][1]));
    QCOMPARE(values[0][2], 0.0);
    QCOMPARE(values[1][0], 2.5);
    QVERIFY(std::isnan(values[1][1]));

    QCOMPARE(tableToStringMatrix(&table),
             (StringMatrix{{"1 000", "", "abc"}, {"2.5", "", ""}}));
}

void TableWidgetsTest::writeAndReadBack()
{
    QTableWidget table(2, 2);
    table.setItem(0, 0, new QTableWidgetItem("a"));
    table.setItem(1, 0, new QTableWidgetItem("c"));
    table.setItem(1, 1, new QTableWidgetItem("d"));

    QTemporaryDir dir;
    const QString path = dir.filePath("table.csv");
    writeTable(path, &table);
    QCOMPARE(fileContent(path), QByteArray("a, \nc,d"));

    QTableWidget read(9, 9);
    readTable(path, &read);
    QCOMPARE(read.rowCount(), 2);
    QCOMPARE(read.columnCount(), 2);
    QCOMPARE(textAt(read, 0, 1), QString(" "));
    QCOMPARE(tableToStringMatrix(&read), (StringMatrix{{"a", ""}, {"c", "d"}}));
}

void TableWidgetsTest::writeWithHeaders()
{
    QTableWidget table(2, 2);
    setHorizontalHeaders(&table, {"h1", "h2"});
    table.setItem(0, 0, new QTableWidgetItem("a"));
    table.setItem(0, 1, new QTableWidgetItem("b"));
    table.setItem(1, 0, new QTableWidgetItem("c"));
    table.setVerticalHeaderItem(0, new QTableWidgetItem("r1"));

    QTemporaryDir dir;
    const QString path = dir.filePath("headers.csv");
    writeTableWithHeaders(path, &table);
    QCOMPARE(fileContent(path), QByteArray(" ,h1,h2\nr1,a,b\n ,c,"));
}

void TableWidgetsTest::readMissingFileKeepsTable()
{
    QTableWidget table(1, 2);
    table.setItem(0, 0, new QTableWidgetItem("keep"));
    QTemporaryDir dir;
    readTable(dir.filePath("missing.csv"), &table);
    QCOMPARE(table.rowCount(), 1);
    QCOMPARE(table.columnCount(), 2);
    QCOMPARE(textAt(table, 0, 0), QString("keep"));
    QCOMPARE(textAt(table, 0, 1), QString("<none>"));
}

QTEST_MAIN(TableWidgetsTest)
#include "test_table_widgets.moc"
