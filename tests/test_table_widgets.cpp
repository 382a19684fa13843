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

} // namespace

class TableWidgetsTest : public QObject {
    Q_OBJECT

private slots:
    void matrixToTableWidensAndPads();
    void fileRoundTrip();
};

void TableWidgetsTest::matrixToTableWidensAndPads()
{
    QTableWidget table(5, 7);
    table.setItem(0, 2, new QTableWidgetItem("stale"));
    matrixToTable(&table, DoubleMatrix{{1, 2}, {3.14159265, 4, 5}, {6}});
    QCOMPARE(table.rowCount(), 3);
    QCOMPARE(table.columnCount(), 3);
    QCOMPARE(textAt(table, 0, 2), QString("<none>")); // column added after row 0 was filled
    QCOMPARE(textAt(table, 1, 0), QString("3.14159"));
    QCOMPARE(textAt(table, 2, 2), QString("NaN"));

    table.setItem(0, 1, new QTableWidgetItem(" "));
    table.setItem(1, 0, new QTableWidgetItem("1 000"));
    table.setItem(1, 1, new QTableWidgetItem("abc"));
    const DoubleMatrix values = tableToDoubleMatrix(&table);
    QVERIFY(std::isnan(values[0][1]) && std::isnan(values[0][2]));
    QCOMPARE(values[1][0], 1000.0);
    QCOMPARE(values[1][1], 0.0);

    setHorizontalHeaders(&table, {"Time", "Compartment", "Dosage", "Duration"});
    QCOMPARE(table.columnCount(), 4);
    setVerticalHeaders(&table, {"CL", "V"});
    QCOMPARE(table.rowCount(), 2);
    QCOMPARE(table.verticalHeaderItem(1)->text(), QString("V"));
}

void TableWidgetsTest::fileRoundTrip()
{
    QTableWidget table(2, 2);
    table.setItem(0, 0, new QTableWidgetItem("a"));
    table.setItem(1, 0, new QTableWidgetItem("c"));
    table.setItem(1, 1, new QTableWidgetItem("d"));
    setHorizontalHeaders(&table, {"h1", "h2"});
    table.setVerticalHeaderItem(0, new QTableWidgetItem("r1"));

    QTemporaryDir dir;
    const QString path = dir.filePath("table.csv");
    writeTable(path, &table);
    writeTableWithHeaders(dir.filePath("headers.csv"), &table);
    QFile headers(dir.filePath("headers.csv"));
    QVERIFY(headers.open(QIODevice::ReadOnly));
    QCOMPARE(headers.readAll(), QByteArray(" ,h1,h2\nr1,a, \n ,c,d"));

    QTableWidget read(9, 9);
    readTable(path, &read);
    QCOMPARE(read.rowCount(), 2);
    QCOMPARE(read.columnCount(), 2);
    QCOMPARE(textAt(read, 0, 1), QString(" "));
    QCOMPARE(tableToStringMatrix(&read), (StringMatrix{{"a", ""}, {"c", "d"}}));

    readTable(dir.filePath("missing.csv"), &read);
    QCOMPARE(tableToStringMatrix(&read), (StringMatrix{{"a", ""}, {"c", "d"}}));
}

QTEST_MAIN(TableWidgetsTest)
#include "test_table_widgets.moc"
