// The result files' number text, their whole-file replacement and the
// background writer of the engine.
#include "project/AtomicFile.h"
#include "project/NumberText.h"
#include "project/ResultStore.h"
#include "project/ResultWriter.h"
#include "project/TableFiles.h"
#include "test_support.h"

#include <QTextStream>
#include <QtTest>
#include <sys/stat.h>

#include <atomic>
#include <cstring>
#include <random>
#include <thread>

namespace {

// The text stream writer the files were written with before: 16 significant
// digits in the C locale. The reference for every number text.
QByteArray streamText(double value)
{
    QString text;
    QTextStream stream(&text);
    stream.setRealNumberPrecision(16);
    stream << value;
    stream.flush();
    return text.toLatin1();
}

QByteArray numberText(double value)
{
    char text[kMaxNumberText];
    return QByteArray(text, int(appendNumber(text, value) - text));
}

// Doubles of every kind: random bit patterns (subnormals, huge, tiny),
// short decimals, and values exactly half-way between two 16-digit texts
// (N 2^-j with N 5^j of 17 digits), where rounding to even and rounding away
// from zero differ.
std::vector<double> assortedDoubles(std::size_t count)
{
    std::vector<double> values = {0.0,  -0.0, 1.0,    -1.0,   kNaN, -kNaN,  HUGE_VAL, -HUGE_VAL, 1e16,   1e15,
                                  1e-5, 1e-4, 1e-300, 5e-324, 0.1,  1.5e-7, 1e100,    2.5,       9.5e-5, 0.5};
    std::mt19937_64 generator(17);
    while (values.size() < count) {
        double value;
        switch (values.size() % 3) {
        case 0: {
            const std::uint64_t bits = generator();
            std::memcpy(&value, &bits, sizeof value);
            break;
        }
        case 1:
            value = double(std::int64_t(generator() % 2000001) - 1000000) /
                    std::pow(10.0, double(generator() % 22));
            break;
        default: {
            const int j = 1 + int(generator() % 27);
            const double scale = std::pow(5.0, j);
            const std::uint64_t lowest = std::uint64_t(1e16 / scale) + 1;
            const std::uint64_t highest = std::min<std::uint64_t>(std::uint64_t(1e17 / scale), 1ull << 53);
            if (highest <= lowest)
                continue;
            value = std::ldexp(double((lowest + generator() % (highest - lowest)) | 1u), -j);
            if (generator() % 2)
                value = -value;
        }
        }
        values.push_back(value);
    }
    return values;
}

// A record of n points with two parameters, three outputs and solutions of
// four rows, iteration k; values of every kind. From iteration 1 on, every
// fifth point keeps its solution (a frozen point) and the next one is solved
// again to the same values (a refused step).
void appendIteration(compResult &record, int k, int n)
{
    std::mt19937_64 generator(std::uint64_t(k) + 1);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    DoubleMatrix x, y, parameter;
    QVector<double> ssr, lambda;
    record.solutions.resize(n);
    for (int i = 0; i < n; ++i) {
        x << QVector<double>{unit(generator), 1e-300 * unit(generator)};
        parameter << QVector<double>{std::exp(10 * unit(generator)), 1.0 / (i + 1)};
        y << (i % 7 == 3 ? QVector<double>(3, kNaN)
                         : QVector<double>{1e20 * unit(generator), unit(generator), double(k)});
        ssr << (i % 7 == 3 ? kNaN : std::fabs(unit(generator)));
        lambda << std::pow(10.0, k - i % 5);
        const DoubleMatrix solution(4, QVector<double>{unit(generator), double(i), 1e-7 * k});
        if (k == 0 || i % 5 > 1)
            record.solutions[i] = solution;
        else if (i % 5 == 1)
            record.solutions[i] = DoubleMatrix(record.solutions[i].begin(), record.solutions[i].end());
    }
    record.X << x;
    record.Y << y;
    record.Parameter << parameter;
    record.SSR << ssr;
    record.lambda << lambda;
    record.solutionTimes = {0, 0.5, 1.0 / 3, 24};
    record.log << QStringLiteral("iteration %1").arg(k) << QString::fromUtf8("µ ß");
    record.updateSortIndex();
}

// Every file of the folder by name and content, temporary files included.
QMap<QString, QByteArray> folderContent(const QString &folder)
{
    QMap<QString, QByteArray> content;
    const QDir dir(folder);
    for (const QString &name : dir.entryList(QDir::Files | QDir::Hidden))
        content[name] = fileContent(dir.filePath(name));
    return content;
}

} // namespace

class TestResultWriter : public QObject {
    Q_OBJECT

private slots:
    void numberTextIsTheStreamText();
    void filesAreTheStreamWritersBytes();
    void backgroundWriterWritesWhatDirectWritesWrite();
    void readerDuringWritingSeesOnlyCompleteFiles();
    void atomicWriteReplacesOrFailsCleanly();
};

void TestResultWriter::numberTextIsTheStreamText()
{
    int mismatches = 0;
    for (double value : assortedDoubles(100000)) {
        if (numberText(value) != streamText(value) && ++mismatches <= 5)
            qWarning("%.17g: %s, stream %s", value, numberText(value).constData(),
                     streamText(value).constData());
    }
    QCOMPARE(mismatches, 0);
    // The half-way cases round away from zero.
    QCOMPARE(numberText(std::ldexp(993629804823781.0, -2)), QByteArray("248407451205945.3"));
    QCOMPARE(numberText(-std::ldexp(993629804823781.0, -2)), QByteArray("-248407451205945.3"));

    for (int value : {0, -1, 42, 2147483647, -2147483647 - 1}) {
        char text[kMaxNumberText];
        QCOMPARE(QByteArray(text, int(appendNumber(text, value) - text)), QByteArray::number(value));
    }
}

// Each matrix file holds exactly what the stream writer wrote: the values
// joined by "," and every row ended by "\n".
void TestResultWriter::filesAreTheStreamWritersBytes()
{
    QTemporaryDir dir;
    compResult record;
    appendIteration(record, 0, 40);
    writeIterationFiles(dir.path(), record);
    const auto expected = [](const DoubleMatrix &matrix) {
        QByteArray text;
        for (const QVector<double> &row : matrix) {
            for (int c = 0; c < row.size(); ++c)
                text += (c ? "," : "") + streamText(row[c]);
            text += '\n';
        }
        return text;
    };
    const QString folder = dir.path() + "/compResult/";
    QCOMPARE(fileContent(folder + "X_0.csv"), expected(record.X[0]));
    QCOMPARE(fileContent(folder + "Y_0.csv"), expected(record.Y[0]));
    QCOMPARE(fileContent(folder + "Parameter_0.csv"), expected(record.Parameter[0]));
    QCOMPARE(fileContent(folder + "R_0.csv"), expected({record.SSR[0]}));
    QCOMPARE(fileContent(folder + "lambda_0.csv"), expected({record.lambda[0]}));
    QCOMPARE(fileContent(folder + "ODE_sol_0_39.csv"), expected(record.solutions[39]));
    QCOMPARE(fileContent(folder + "ode_time.csv"), QByteArray("0,0.5,0.3333333333333333,24\n"));
    QCOMPARE(fileContent(folder + "computation_log.txt"), QString("iteration 0\nµ ß\n").toUtf8());
    // No temporary file stays behind.
    QCOMPARE(QDir(folder).entryList({".*"}, QDir::Files | QDir::Hidden), QStringList());
}

// The engine hands the record over and goes on changing it: the files are
// those of the record as it was handed over, the same bytes as a direct write.
void TestResultWriter::backgroundWriterWritesWhatDirectWritesWrite()
{
    QTemporaryDir direct, background;
    QVERIFY(QDir().mkpath(background.path() + "/compResult"));
    QVERIFY(writeFile(background.path() + "/compResult/.X_0.csv.partial", "left by a killed run"));
    compResult record;
    ResultWriter writer;
    for (int k = 0; k < 4; ++k) {
        appendIteration(record, k, 100);
        writeIterationFiles(direct.path(), record);
        writer.write(background.path(), record);
        // What the next iteration does to the record meanwhile.
        record.X << record.X[k];
        for (QVector<double> &row : record.X[k + 1])
            row[0] += 1;
        if (k < 3)
            record.X.removeLast();
    }
    // The end of the run: the step's cluster dropped, a last log line.
    record.truncateHistories(4);
    record.log << "Total Computation time so far (in min): 0.1";
    writeEndOfRunFiles(direct.path(), record);
    writer.writeEndOfRun(background.path(), record);
    QCOMPARE(folderContent(background.path() + "/compResult"), folderContent(direct.path() + "/compResult"));
#ifdef __linux__
    // Unchanged solutions were not written again: their files share the data.
    const auto inode = [&](const char *name) {
        struct stat status;
        return stat(QFile::encodeName(background.path() + "/compResult/" + name).constData(), &status) == 0
                       ? status.st_ino
                       : 0;
    };
    QVERIFY(inode("ODE_sol_3_5.csv") != 0);
    QCOMPARE(inode("ODE_sol_3_5.csv"), inode("ODE_sol_0_5.csv"));
    QCOMPARE(inode("ODE_sol_3_6.csv"), inode("ODE_sol_2_6.csv"));
    QVERIFY(inode("ODE_sol_3_7.csv") != inode("ODE_sol_2_7.csv"));
#endif

    // An abort drops the iteration in progress; the files stay the same too.
    appendIteration(record, 4, 100);
    writer.write(background.path(), record);
    writeIterationFiles(direct.path(), record);
    appendIteration(record, 5, 100);
    record.truncateHistories(5);
    writeEndOfRunFiles(direct.path(), record);
    writer.writeEndOfRun(background.path(), record);
    QCOMPARE(folderContent(background.path() + "/compResult"), folderContent(direct.path() + "/compResult"));
}

// A reload while the writer works: every file that exists is complete.
void TestResultWriter::readerDuringWritingSeesOnlyCompleteFiles()
{
    QTemporaryDir dir;
    const int points = 150;
    const QString folder = dir.path() + "/compResult";
    std::atomic<bool> done{false};
    std::thread writing([&] {
        compResult record;
        ResultWriter writer;
        for (int k = 0; k < 5; ++k) {
            appendIteration(record, k, points);
            writer.write(dir.path(), record);
        }
        writer.wait();
        done = true;
    });

    int reads = 0;
    bool sawEveryRow = true;
    while (!done || reads == 0) {
        const QDir results(folder);
        for (const QString &name : results.entryList({"X_*.csv", "ODE_sol_*.csv", "R_*.csv"}, QDir::Files)) {
            const DoubleMatrix matrix = readDoubleMatrix(results.filePath(name));
            const int rows = name.startsWith("X_") ? points : name.startsWith("R_") ? 1 : 4;
            const int columns = name.startsWith("X_") ? 2 : name.startsWith("R_") ? points : 3;
            // Nothing removes result files here, so an empty one is half written.
            ++reads;
            sawEveryRow = sawEveryRow && matrix.size() == rows &&
                          std::all_of(matrix.begin(), matrix.end(),
                                      [&](const QVector<double> &row) { return row.size() == columns; });
        }
        compResult loaded;
        if (loadResult(dir.path(), loaded))
            for (const DoubleMatrix &x : loaded.X)
                sawEveryRow = sawEveryRow && x.size() == points;
    }
    writing.join();
    QVERIFY(reads > 0);
    QVERIFY(sawEveryRow);
}

void TestResultWriter::atomicWriteReplacesOrFailsCleanly()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("a.csv");
    QVERIFY(writeFileAtomically(path, "old\n", 4));
    QVERIFY(writeFileAtomically(path, "new content\n", 12));
    QCOMPARE(fileContent(path), QByteArray("new content\n"));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"a.csv"});

    QVERIFY(!writeFileAtomically(dir.filePath("missing/a.csv"), "x", 1));
    QVERIFY(!QFile::exists(dir.filePath("missing")));

    // A log shorter than its file keeps the file's tail, as the in-place
    // rewrite did.
    QVERIFY(QDir().mkpath(dir.path() + "/compResult"));
    QVERIFY(writeFile(dir.path() + "/compResult/computation_log.txt", "one\ntwo\nthree\n"));
    writeComputationLog(dir.path(), {"ONE"});
    QCOMPARE(fileContent(dir.path() + "/compResult/computation_log.txt"), QByteArray("ONE\ntwo\nthree\n"));
}

QTEST_APPLESS_MAIN(TestResultWriter)
#include "test_result_writer.moc"
