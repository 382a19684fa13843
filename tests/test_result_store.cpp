#include "project/ResultStore.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

QByteArray fileContent(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return "<unreadable>";
    return file.readAll();
}

QStringList filesIn(const QString &folder)
{
    QStringList names = QDir(folder).entryList(QDir::Files);
    names.sort();
    return names;
}

// Equal to 16 significant digits; NaN matches NaN.
bool same(double a, double b)
{
    if (std::isnan(a) || std::isnan(b))
        return std::isnan(a) && std::isnan(b);
    return std::abs(a - b) <= 1e-15 * std::abs(a);
}

bool same(const QVector<double> &a, const QVector<double> &b)
{
    if (a.size() != b.size())
        return false;
    for (int i = 0; i < a.size(); ++i)
        if (!same(a[i], b[i]))
            return false;
    return true;
}

bool same(const DoubleMatrix &a, const DoubleMatrix &b)
{
    if (a.size() != b.size())
        return false;
    for (int i = 0; i < a.size(); ++i)
        if (!same(a[i], b[i]))
            return false;
    return true;
}

bool same(const QVector<DoubleMatrix> &a, const QVector<DoubleMatrix> &b)
{
    if (a.size() != b.size())
        return false;
    for (int i = 0; i < a.size(); ++i)
        if (!same(a[i], b[i]))
            return false;
    return true;
}

// One iteration's entries for a cluster of 3 points, 2 parameters and
// 4 observations, with values that need all 16 digits; point 1 failed.
void appendIteration(compResult &result, int k, double shift = 0)
{
    const double s = k + 1 + shift;
    DoubleMatrix x, y, parameter;
    for (int i = 0; i < 3; ++i) {
        x << QVector<double>{s / 3 + i, -s * 1e-300 - i};
        parameter << QVector<double>{std::exp(s / 7 + i), 1.0 / (s + i)};
        if (i == 1)
            y << QVector<double>(4, kNaN);
        else
            y << QVector<double>{s * M_PI, s / 11, 1e20 * s + i, -s};
    }
    result.X << x;
    result.Y << y;
    result.Parameter << parameter;
    result.SSR << QVector<double>{0.1 * s, kNaN, 2.0 / (3 * s)};
    result.lambda << QVector<double>{1.0 / s, 1e10 * s, 0.5};
    result.solutions = {{{0.0, 1.0 / s}, {2.0 / 3, 4.5 * s}}, {}, {{s, 1e-7 / s}, {1, 2}}};
    result.solutionTimes = {0, 1.0 / 3, 2};
    result.log << QStringLiteral("iteration %1").arg(k) << QStringLiteral("median: %1").arg(s);
    result.updateSortIndex();
}

} // namespace

class TestResultStore : public QObject {
    Q_OBJECT

private slots:
    void iterationFilesHaveTheirNamesAndLayouts();
    void writeThenLoadRestoresTheRecord();
    void reloadStopsAtTheFirstGap();
    void outputHistoryStreamRoundTrip();
    void logFileIsReplacedNotAppended();
    void restartOverwritesLaterIterations();
    void abortAtIterationZeroWritesOnlyTheLog();
    void historyMoveTakesTheRunsFiles();
};

void TestResultStore::iterationFilesHaveTheirNamesAndLayouts()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString folder = dir.path();
    const QString results = folder + QStringLiteral("/compResult");

    compResult result;
    appendIteration(result, 0);
    writeIterationFiles(folder, result);
    appendIteration(result, 1);
    writeIterationFiles(folder, result);

    // Point 1 has no solution, so it has no ODE_sol file.
    QCOMPARE(filesIn(results),
             (QStringList{"ODE_sol_0_0.csv", "ODE_sol_0_2.csv", "ODE_sol_1_0.csv", "ODE_sol_1_2.csv",
                          "Parameter_0.csv", "Parameter_1.csv", "R_0.csv", "R_1.csv", "X_0.csv", "X_1.csv",
                          "Y_0.csv", "Y_1.csv", "computation_log.txt", "lambda_0.csv", "lambda_1.csv",
                          "ode_time.csv", "sortIndex.csv"}));

    // Per-point vectors are one row; matrices one row per point; NaN as "nan".
    QCOMPARE(fileContent(results + "/R_1.csv"), QByteArray("0.2,nan,0.3333333333333333\n"));
    QCOMPARE(fileContent(results + "/lambda_0.csv"), QByteArray("1,10000000000,0.5\n"));
    QCOMPARE(fileContent(results + "/ode_time.csv"), QByteArray("0,0.3333333333333333,2\n"));
    QCOMPARE(fileContent(results + "/ODE_sol_1_0.csv"), QByteArray("0,0.5\n0.6666666666666666,9\n"));
    QCOMPARE(fileContent(results + "/Y_0.csv").split('\n').size(), 3 + 1);
    QCOMPARE(fileContent(results + "/Y_0.csv").split('\n')[1], QByteArray("nan,nan,nan,nan"));
    // Sorted by the newest SSR, failed point last, as integers.
    QCOMPARE(fileContent(results + "/sortIndex.csv"), QByteArray("0,2,1\n"));
    QCOMPARE(fileContent(results + "/computation_log.txt"),
             QByteArray("iteration 0\nmedian: 1\niteration 1\nmedian: 2\n"));
    QVERIFY(!QFile::exists(results + "/Y.dat"));

    writeEndOfRunFiles(folder, result);
    QVERIFY(QFile::exists(results + "/Y.dat"));
}

void TestResultStore::writeThenLoadRestoresTheRecord()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    compResult written;
    for (int k = 0; k < 3; ++k) {
        appendIteration(written, k);
        writeIterationFiles(dir.path(), written);
    }
    writeEndOfRunFiles(dir.path(), written);

    compResult loaded;
    loaded.X << DoubleMatrix{{42}}; // replaced, not appended to
    QVERIFY(loadResult(dir.path(), loaded));
    QVERIFY(same(loaded.X, written.X));
    QVERIFY(same(loaded.Y, written.Y));
    QVERIFY(same(loaded.Parameter, written.Parameter));
    QVERIFY(same(loaded.SSR, written.SSR));
    QVERIFY(same(loaded.lambda, written.lambda));
    QCOMPARE(loaded.sortIndex, written.sortIndex);
    QVERIFY(same(loaded.solutionTimes, written.solutionTimes));
    QCOMPARE(loaded.log, written.log);
    // The newest solutions, with an empty entry for the point without a file.
    QVERIFY(same(loaded.solutions, written.solutions));
    QCOMPARE(loaded.solutions.size(), 3);
    QVERIFY(loaded.solutions[1].isEmpty());
}

void TestResultStore::reloadStopsAtTheFirstGap()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString results = dir.path() + QStringLiteral("/compResult/");
    compResult written;
    for (int k = 0; k < 4; ++k) {
        appendIteration(written, k);
        writeIterationFiles(dir.path(), written);
    }
    QVERIFY(QFile::remove(results + "X_2.csv"));
    QVERIFY(QFile::remove(results + "R_0.csv"));
    // The newest solution set lacks point 0; the set is still found.
    QVERIFY(QFile::remove(results + "ODE_sol_3_0.csv"));

    compResult loaded;
    QVERIFY(loadResult(dir.path(), loaded));
    QCOMPARE(loaded.X.size(), 2);
    QCOMPARE(loaded.Y.size(), 4);
    QCOMPARE(loaded.lambda.size(), 4);
    QVERIFY(loaded.SSR.isEmpty());
    QCOMPARE(loaded.solutions.size(), 3);
    QVERIFY(loaded.solutions[0].isEmpty());
    QVERIFY(same(loaded.solutions[2], written.solutions[2]));
    // The readers of single iterations follow the same scan.
    QCOMPARE(storedIterationCount(dir.path(), IterationFile::X), 2);
    QCOMPARE(storedIterationCount(dir.path(), IterationFile::SSR), 0);
    QVERIFY(same(readIterationFile(dir.path(), IterationFile::Y, 3), written.Y[3]));
    QVERIFY(same(readIterationFile(dir.path(), IterationFile::Lambda, 1), {written.lambda[1]}));
    QVERIFY(readIterationFile(dir.path(), IterationFile::X, 2).isEmpty());

    // Without any X file nothing counts as a stored result.
    QVERIFY(QFile::remove(results + "X_0.csv"));
    QVERIFY(!loadResult(dir.path(), loaded));
    QVERIFY(loaded.X.isEmpty());
}

void TestResultStore::outputHistoryStreamRoundTrip()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    compResult written;
    appendIteration(written, 0);
    appendIteration(written, 1);
    writeEndOfRunFiles(dir.path(), written);

    // Binary, so every value comes back bit for bit (NaN as NaN).
    QVector<DoubleMatrix> outputs;
    QVERIFY(readOutputHistory(resultFilePath(dir.path(), "Y.dat"), outputs));
    QCOMPARE(outputs.size(), 2);
    for (int k = 0; k < 2; ++k)
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 4; ++j) {
                const double a = outputs[k][i][j], b = written.Y[k][i][j];
                QVERIFY(a == b || (std::isnan(a) && std::isnan(b)));
            }

    // A cut file is refused and leaves the target alone.
    QFile file(resultFilePath(dir.path(), "Y.dat"));
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.resize(file.size() - 5));
    file.close();
    QVERIFY(!readOutputHistory(file.fileName(), outputs));
    QCOMPARE(outputs.size(), 2);
    QVERIFY(!readOutputHistory(resultFilePath(dir.path(), "missing.dat"), outputs));
}

void TestResultStore::logFileIsReplacedNotAppended()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QDir().mkpath(dir.path() + "/compResult");
    const QString path = resultFilePath(dir.path(), "computation_log.txt");

    writeComputationLog(dir.path(), {"start", "iteration 0"});
    writeComputationLog(dir.path(), {"start", "iteration 0", "iteration 1", "é"});
    QCOMPARE(fileContent(path), QByteArray("start\niteration 0\niteration 1\n\xc3\xa9\n"));

    // The file is not truncated: a shorter log overwrites only its own length.
    writeComputationLog(dir.path(), {"START"});
    QCOMPARE(fileContent(path), QByteArray("START\niteration 0\niteration 1\n\xc3\xa9\n"));
}

void TestResultStore::restartOverwritesLaterIterations()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    compResult result;
    for (int k = 0; k < 4; ++k) {
        appendIteration(result, k);
        writeIterationFiles(dir.path(), result);
    }
    writeEndOfRunFiles(dir.path(), result);
    const QByteArray x0 = fileContent(resultFilePath(dir.path(), "X_0.csv"));
    const QByteArray x2 = fileContent(resultFilePath(dir.path(), "X_2.csv"));

    // A restart repeats iteration 1 from the reloaded record and goes on.
    compResult restarted;
    QVERIFY(loadResult(dir.path(), restarted));
    restarted.truncateHistories(1);
    for (int k = 1; k < 3; ++k) {
        appendIteration(restarted, k, 0.5);
        writeIterationFiles(dir.path(), restarted);
    }

    QCOMPARE(fileContent(resultFilePath(dir.path(), "X_0.csv")), x0);
    QVERIFY(fileContent(resultFilePath(dir.path(), "X_2.csv")) != x2);
    QVERIFY(!QDir(dir.path() + "/history").exists());

    compResult loaded;
    QVERIFY(loadResult(dir.path(), loaded));
    // Iteration 3 of the first run was not reached again and is still there.
    QCOMPARE(loaded.X.size(), 4);
    QVERIFY(same(loaded.X[0], result.X[0]));
    QVERIFY(same(loaded.X[1], restarted.X[1]));
    QVERIFY(same(loaded.SSR[2], restarted.SSR[2]));
    QVERIFY(same(loaded.X[3], result.X[3]));
    // The reloaded log carried on into the restarted log.
    QCOMPARE(loaded.log.mid(0, result.log.size()), result.log);
    QCOMPARE(loaded.log, restarted.log);
}

void TestResultStore::abortAtIterationZeroWritesOnlyTheLog()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    // Abort at iteration 0: the engine cut the histories back to nothing but
    // still holds the solutions of its evaluation.
    compResult result;
    appendIteration(result, 0);
    result.truncateHistories(0);
    result.sortIndex.clear();
    result.solutionTimes.clear();
    result.log = QStringList{"screening failed"};

    writeEndOfRunFiles(dir.path(), result);
    QCOMPARE(filesIn(dir.path() + "/compResult"), QStringList{"computation_log.txt"});
    QCOMPARE(fileContent(resultFilePath(dir.path(), "computation_log.txt")),
             QByteArray("screening failed\n"));

    compResult loaded;
    QVERIFY(!loadResult(dir.path(), loaded));
    QCOMPARE(loaded.log, result.log);
    QVERIFY(loaded.Y.isEmpty());
    QVERIFY(loaded.solutions.isEmpty());
}

void TestResultStore::historyMoveTakesTheRunsFiles()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString results = dir.path() + QStringLiteral("/compResult");
    compResult result;
    for (int k = 0; k < 12; ++k) {
        appendIteration(result, k);
        writeIterationFiles(dir.path(), result);
    }
    writeEndOfRunFiles(dir.path(), result);
    // The window's own file stays.
    QFile jacobian(results + "/jacobian_0.csv");
    QVERIFY(jacobian.open(QIODevice::WriteOnly));
    jacobian.close();
    const QStringList before = filesIn(results);
    const QByteArray x11 = fileContent(results + "/X_11.csv");

    const QString stampBefore = QDateTime::currentDateTimeUtc().toString().replace(':', '_');
    const QString target = moveResultsToHistory(dir.path());
    const QString stampAfter = QDateTime::currentDateTimeUtc().toString().replace(':', '_');

    const QString name = QFileInfo(target).fileName();
    QVERIFY2(name == "compResult " + stampBefore || name == "compResult " + stampAfter, qPrintable(name));
    QVERIFY(!name.contains(':'));
    QVERIFY(name.contains('_'));
    QCOMPARE(QFileInfo(target).dir().absolutePath(), QDir(dir.path() + "/history").absolutePath());

    QCOMPARE(filesIn(results), (QStringList{"Y.dat", "jacobian_0.csv"}));
    QStringList moved = before;
    moved.removeAll("Y.dat");
    moved.removeAll("jacobian_0.csv");
    QCOMPARE(filesIn(target), moved);
    QCOMPARE(moved.size(), 12 * 5 + 12 * 2 + 3);
    QCOMPARE(fileContent(target + "/X_11.csv"), x11);

    // Nothing of the earlier run is left to reload but its outputs stream.
    compResult loaded;
    QVERIFY(!loadResult(dir.path(), loaded));
    QVERIFY(loaded.log.isEmpty());
}

QTEST_GUILESS_MAIN(TestResultStore)
#include "test_result_store.moc"
