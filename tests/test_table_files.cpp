#include "project/TableFiles.h"
#include "test_support.h"

#include <QtTest>

namespace {

// Cells written as rows of texts; "<none>" stands for a cell without item.
TableCells cellsOf(const StringMatrix &rows)
{
    TableCells cells;
    cells.setRowCount(rows.size());
    cells.setColumnCount(rows.isEmpty() ? 0 : rows.first().size());
    for (int r = 0; r < rows.size(); ++r)
        for (int c = 0; c < rows[r].size(); ++c)
            if (rows[r][c] != QLatin1String("<none>"))
                cells.setCell(r, c, rows[r][c]);
    return cells;
}

StringMatrix describe(const TableCells &cells)
{
    StringMatrix rows;
    for (const auto &row : cells.rows) {
        QStringList texts;
        for (const auto &cell : row)
            texts << (cell ? *cell : QStringLiteral("<none>"));
        rows << texts;
    }
    return rows;
}

} // namespace

Q_DECLARE_METATYPE(StringMatrix)
Q_DECLARE_METATYPE(DoubleMatrix)

class TableFilesTest : public QObject {
    Q_OBJECT

private slots:
    void tableText_data();
    void tableText();
    void fillFromText_data();
    void fillFromText();
    void fillFromDoubleMatrix();
    void cellNumbers_data();
    void cellNumbers();
    void matrixWriters();
    void unwritableFileLogsOnly();
    void missingFileLeavesTargetUnchanged();
    void labelledColumns();
};

// The text written, and the strings read back from the file.
void TableFilesTest::tableText_data()
{
    QTest::addColumn<StringMatrix>("cells");
    QTest::addColumn<QString>("text");
    QTest::addColumn<StringMatrix>("readBack");

    QTest::newRow("2x2, no line end after the last row")
            << StringMatrix{{"a", "b"}, {"c", "d"}} << "a,b\nc,d" << StringMatrix{{"a", "b"}, {"c", "d"}};
    QTest::newRow("missing last cell of an upper row")
            << StringMatrix{{"a", "<none>"}, {"c", "d"}} << "a, \nc,d" << StringMatrix{{"a", ""}, {"c", "d"}};
    QTest::newRow("missing middle cell of the last row has no blank")
            << StringMatrix{{"a", "b", "c"}, {"d", "<none>", "f"}} << "a,b,c\nd,,f"
            << StringMatrix{{"a", "b", "c"}, {"d", "", "f"}};
    QTest::newRow("missing last cell of the last row writes nothing")
            << StringMatrix{{"a", "b"}, {"c", "<none>"}} << "a,b\nc," << StringMatrix{{"a", "b"}, {"c", ""}};
    QTest::newRow("a comma inside a cell splits it") << StringMatrix{{"x,y", "z"}, {"1", "2"}} << "x,y,z\n1,2"
                                                     << StringMatrix{{"x", "y", "z"}, {"1", "2", "NA"}};
    QTest::newRow("no rows") << StringMatrix{} << "" << StringMatrix{};
}

void TableFilesTest::tableText()
{
    QFETCH(StringMatrix, cells);
    QFETCH(QString, text);
    QFETCH(StringMatrix, readBack);
    QCOMPARE(::tableText(cellsOf(cells)), text);

    QTemporaryDir dir;
    const QString path = dir.filePath("table.csv");
    writeTable(path, cellsOf(cells));
    QCOMPARE(fileContent(path), text.toUtf8());
    TableCells read;
    QVERIFY(readTable(path, read));
    QCOMPARE(tableStringMatrix(read), readBack);
}

void TableFilesTest::fillFromText_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<StringMatrix>("cells");

    QTest::newRow("columns from the last line, widened by a longer one")
            << QStringList{"a,b,c,d,e", "a,b", "a,b,c"}
            << StringMatrix{
                       {"a", "b", "c", "d", "e"}, {"a", "b", "NA", "NA", "NA"}, {"a", "b", "c", "NA", "NA"}};
    QTest::newRow("rows before the widening have no items in new columns")
            << QStringList{"a", "a,b,c,d", "a,b"}
            << StringMatrix{{"a", "NA", "<none>", "<none>"}, {"a", "b", "c", "d"}, {"a", "b", "NA", "NA"}};
    QTest::newRow("empty fields are kept")
            << QStringList{",x,", ", ,"} << StringMatrix{{"", "x", ""}, {"", " ", ""}};
}

void TableFilesTest::fillFromText()
{
    QFETCH(QStringList, lines);
    QFETCH(StringMatrix, cells);

    TableCells table = cellsOf({{"old", "old", "old", "old", "old", "old", "old"}});
    fillTableFromText(table, lines);
    QCOMPARE(describe(table), cells);
}

// Six significant digits, NaN values as "nan" and cells beyond a short row as
// "NaN" (the widening itself is the same as for text, above).
void TableFilesTest::fillFromDoubleMatrix()
{
    TableCells table = cellsOf({{"old"}, {"old"}, {"old"}});
    fillTableCells(table, DoubleMatrix{{1234567.0, 0.1, 1.0 / 3.0, -2.5e-7, kNaN}, {1}});
    QCOMPARE(describe(table), (StringMatrix{{"1.23457e+06", "0.1", "0.333333", "-2.5e-07", "nan"},
                                            {"1", "NaN", "NaN", "NaN", "NaN"}}));
}

void TableFilesTest::cellNumbers_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<double>("value");

    QTest::newRow("blank inside a number") << "1 000" << 1000.0;
    QTest::newRow("not a number") << "abc" << 0.0;
    QTest::newRow("empty text is 0, not missing") << "" << 0.0;
    QTest::newRow("negative exponent") << "-1.5E-2" << -0.015;
}

void TableFilesTest::cellNumbers()
{
    QFETCH(QString, text);
    QFETCH(double, value);
    QCOMPARE(lenientCellNumber(text), value);
    const DoubleMatrix matrix = tableDoubleMatrix(cellsOf({{text}}));
    QCOMPARE(matrix.value(0).value(0), value);
    // A missing cell and the writer's placeholder " " are missing values.
    QVERIFY(closeTo(tableDoubleMatrix(cellsOf({{" ", "<none>"}})), DoubleMatrix{{kNaN, kNaN}}));
}

void TableFilesTest::matrixWriters()
{
    QTemporaryDir dir;
    const QString doublePath = dir.filePath("d.csv");
    writeDoubleMatrix(doublePath, {{0.1, 1.0 / 3.0, -2.5e-20}, {}, {123456789012345678.0, 2}});
    QCOMPARE(fileContent(doublePath),
             QByteArray("0.1,0.3333333333333333,-2.5e-20\n\n1.234567890123457e+17,2\n"));
    const QString intPath = dir.filePath("i.csv");
    writeIntMatrix(intPath, {{1, -2}, {2147483647}, {}});
    QCOMPARE(fileContent(intPath), QByteArray("1,-2\n2147483647\n\n"));

    QVERIFY(writeFile(dir.filePath("lenient.csv"), "1, 2 ,abc\n\n3"));
    QCOMPARE(readDoubleMatrix(dir.filePath("lenient.csv")), (DoubleMatrix{{1, 2, 0}, {0}, {3}}));
    QCOMPARE(::textToDoubleMatrix("1,2\n3, 4 ,x\n\n5\n"), (DoubleMatrix{{1, 2}, {3, 4, 0}, {5}}));
}

void TableFilesTest::unwritableFileLogsOnly()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("no/such/folder/x.csv");

    QTest::ignoreMessage(QtDebugMsg, "Error, unable to save");
    writeDoubleMatrix(path, {{1}});
    QTest::ignoreMessage(QtDebugMsg, "Error, unable to save");
    writeIntMatrix(path, {{1}});
    QTest::ignoreMessage(QtDebugMsg, "Error, unable to open");
    writeTable(path, cellsOf({{"a"}}));
    QTest::ignoreMessage(QtDebugMsg, "Error, unable to open");
    writeTableWithHeaders(path, cellsOf({{"a"}}), {}, {});
    QTest::ignoreMessage(QtDebugMsg, "Error, unable to save");
    writeLabelledColumns(path, {"time"}, {{1}});
    QVERIFY(!QFile::exists(path));
}

void TableFilesTest::missingFileLeavesTargetUnchanged()
{
    QTemporaryDir dir;
    TableCells table = cellsOf({{"a", "<none>"}, {"c", "d"}});
    QVERIFY(!readTable(dir.filePath("missing.csv"), table));
    QCOMPARE(describe(table), (StringMatrix{{"a", "<none>"}, {"c", "d"}}));
    QVERIFY(readDoubleMatrix(dir.filePath("missing.csv")).isEmpty());

    // An empty file has no lines: no rows, columns as they were.
    QVERIFY(writeFile(dir.filePath("empty.csv"), QString()));
    QVERIFY(readTable(dir.filePath("empty.csv"), table));
    QCOMPARE(table.rowCount(), 0);
    QCOMPARE(table.columnCount(), 2);
}

void TableFilesTest::labelledColumns()
{
    const QString text =
            labelledColumnsText({"time", "1", "2"}, {{0, 0.5, 1}, {10, 20.5, 1.0 / 3.0}, {1e-7, 1234567}});
    QCOMPARE(text, QString(",time,1,2\n"
                           ",0,10,1e-07\n"
                           ",0.5,20.5,1.23457e+06\n"
                           ",1,0.333333,\n"));
    QCOMPARE(labelledColumnsText({"a"}, {{1, 2}}, {"first", "second"}), QString(",a\nfirst,1\nsecond,2\n"));
}

QTEST_GUILESS_MAIN(TableFilesTest)
#include "test_table_files.moc"
