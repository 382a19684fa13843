#include "project/ResultStore.h"
#include "test_support.h"

#include <QDateTime>
#include <QtTest>

namespace {

QStringList filesIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::Files, QDir::Name);
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

// A run of the given iterations written as the engine writes it: the
// iteration files after each iteration, the end-of-run files at the end.
compResult writtenRun(const QString &folder, int iterations, bool ended = true)
{
    compResult result;
    for (int k = 0; k < iterations; ++k) {
        appendIteration(result, k);
        writeIterationFiles(folder, result);
    }
    if (ended)
        writeEndOfRunFiles(folder, result);
    return result;
}

} // namespace

class TestResultStore : public QObject {
    Q_OBJECT

private slots:
    void iterationFilesHaveTheirNamesAndLayouts();
    void writeThenLoadRestoresTheRecord();
    void reloadStopsAtTheFirstGap();
    void tornFilesFallBackToTheNewestCompleteIteration();
    void logFileIsReplacedNotAppended();
    void restartOverwritesLaterIterations();
    void abortAtIterationZeroWritesOnlyTheLog();
    void historyMoveTakesTheRunsFiles();
};

void TestResultStore::iterationFilesHaveTheirNamesAndLayouts()
{
    QTemporaryDir dir;
    const QString results = dir.path() + "/compResult/";
    const compResult result = writtenRun(dir.path(), 2, false);
    // Point 1 has no solution, so it has no ODE_sol file.
    QCOMPARE(filesIn(results),
             (QStringList{"ODE_sol_0_0.csv", "ODE_sol_0_2.csv", "ODE_sol_1_0.csv", "ODE_sol_1_2.csv",
                          "Parameter_0.csv", "Parameter_1.csv", "R_0.csv", "R_1.csv", "X_0.csv", "X_1.csv",
                          "Y_0.csv", "Y_1.csv", "computation_log.txt", "lambda_0.csv", "lambda_1.csv",
                          "ode_time.csv", "sortIndex.csv"}));
    // Per-point vectors are one row; matrices one row per point; NaN as "nan".
    QCOMPARE(fileContent(results + "R_1.csv"), QByteArray("0.2,nan,0.3333333333333333\n"));
    QCOMPARE(fileContent(results + "lambda_0.csv"), QByteArray("1,10000000000,0.5\n"));
    QCOMPARE(fileContent(results + "ode_time.csv"), QByteArray("0,0.3333333333333333,2\n"));
    QCOMPARE(fileContent(results + "ODE_sol_1_0.csv"), QByteArray("0,0.5\n0.6666666666666666,9\n"));
    const QList<QByteArray> y0 = fileContent(results + "Y_0.csv").split('\n');
    QVERIFY(y0.size() == 3 + 1 && y0[1] == "nan,nan,nan,nan");
    // Sorted by the newest SSR, failed point last, as integers.
    QCOMPARE(fileContent(results + "sortIndex.csv"), QByteArray("0,2,1\n"));
    QCOMPARE(fileContent(results + "computation_log.txt"),
             QByteArray("iteration 0\nmedian: 1\niteration 1\nmedian: 2\n"));
    QVERIFY(!QFile::exists(results + "Y.dat"));
    writeEndOfRunFiles(dir.path(), result);
    QVERIFY(QFile::exists(results + "Y.dat"));
}

void TestResultStore::writeThenLoadRestoresTheRecord()
{
    QTemporaryDir dir;
    const compResult written = writtenRun(dir.path(), 3);
    compResult loaded;
    loaded.X << DoubleMatrix{{42}}; // replaced, not appended to
    QVERIFY(loadResult(dir.path(), loaded));
    QVERIFY(closeTo(loaded.X, written.X, 1e-15));
    QVERIFY(closeTo(loaded.Y, written.Y, 1e-15));
    QVERIFY(closeTo(loaded.Parameter, written.Parameter, 1e-15));
    QVERIFY(closeTo(loaded.SSR, written.SSR, 1e-15));
    QVERIFY(closeTo(loaded.lambda, written.lambda, 1e-15));
    QCOMPARE(loaded.sortIndex, written.sortIndex);
    QVERIFY(closeTo(loaded.solutionTimes, written.solutionTimes, 1e-15));
    QCOMPARE(loaded.log, written.log);
    // The newest solutions, with an empty entry for the point without a file.
    QVERIFY(closeTo(loaded.solutions, written.solutions, 1e-15));

    // The outputs stream is binary: every value comes back bit for bit. A cut
    // file is refused and leaves the target alone.
    QVector<DoubleMatrix> outputs;
    QVERIFY(readOutputHistory(resultFilePath(dir.path(), "Y.dat"), outputs));
    QVERIFY(closeTo(outputs, written.Y));
    QFile file(resultFilePath(dir.path(), "Y.dat"));
    QVERIFY(file.resize(file.size() - 5));
    QVERIFY(!readOutputHistory(file.fileName(), outputs));
    QCOMPARE(outputs.size(), 3);
    QVERIFY(!readOutputHistory(resultFilePath(dir.path(), "missing.dat"), outputs));
}

void TestResultStore::reloadStopsAtTheFirstGap()
{
    QTemporaryDir dir;
    const QString results = dir.path() + "/compResult/";
    const compResult written = writtenRun(dir.path(), 4);
    QVERIFY(QFile::remove(results + "X_2.csv"));
    // The newest solution set lacks point 0; the set is still found.
    QVERIFY(QFile::remove(results + "ODE_sol_3_0.csv"));

    // Every history is cut back to the iterations before the gap in X, and
    // the note says so.
    compResult loaded;
    QString note;
    QVERIFY(loadResult(dir.path(), loaded, {}, &note));
    QCOMPARE(loaded.X.size(), 2);
    QCOMPARE(loaded.Y.size(), 2);
    QCOMPARE(loaded.lambda.size(), 2);
    QCOMPARE(loaded.SSR.size(), 2);
    QVERIFY(note.contains("newest complete iteration being 1"));
    QCOMPARE(loaded.solutions.size(), 3);
    QVERIFY(loaded.solutions[0].isEmpty());
    QVERIFY(closeTo(loaded.solutions[2], written.solutions[2], 1e-15));
    // The readers of single iterations follow the same scan.
    QCOMPARE(storedIterationCount(dir.path(), IterationFile::X), 2);
    QVERIFY(closeTo(readIterationFile(dir.path(), IterationFile::Y, 3), written.Y[3], 1e-15));
    QVERIFY(closeTo(readIterationFile(dir.path(), IterationFile::Lambda, 1), DoubleMatrix{written.lambda[1]},
                    1e-15));
    QVERIFY(readIterationFile(dir.path(), IterationFile::X, 2).isEmpty());

    // Without R_0 no iteration is complete: only the first cluster remains.
    QVERIFY(QFile::remove(results + "R_0.csv"));
    QCOMPARE(storedIterationCount(dir.path(), IterationFile::SSR), 0);
    QVERIFY(loadResult(dir.path(), loaded));
    QCOMPARE(loaded.X.size(), 1);
    QVERIFY(loaded.Y.isEmpty() && loaded.SSR.isEmpty());

    // Without any X file nothing counts as a stored result.
    QVERIFY(QFile::remove(results + "X_0.csv"));
    QVERIFY(!loadResult(dir.path(), loaded));
    QVERIFY(loaded.X.isEmpty());
}

// What a kill during a write leaves: a file cut inside a row, an empty file.
// The reload uses the iterations before it, and so does a shape that does
// not fit the model.
void TestResultStore::tornFilesFallBackToTheNewestCompleteIteration()
{
    QTemporaryDir dir;
    const QString results = dir.path() + "/compResult/";
    const compResult written = writtenRun(dir.path(), 4);
    QFile y3(results + "Y_3.csv");
    QVERIFY(y3.resize(y3.size() - 7));
    QFile solution(results + "ODE_sol_3_2.csv");
    QVERIFY(solution.resize(0));

    compResult loaded;
    QString note;
    QVERIFY(loadResult(dir.path(), loaded, {}, &note));
    QCOMPARE(loaded.X.size(), 4); // X_3 is whole: a restart repeats iteration 3
    QCOMPARE(loaded.Y.size(), 3);
    QCOMPARE(loaded.SSR.size(), 3);
    QVERIFY(closeTo(loaded.X[3], written.X[3], 1e-15));
    QVERIFY(note.contains("Y_3.csv"));
    QVERIFY(note.contains("newest complete iteration being 2"));
    QCOMPARE(loaded.sortIndex, (QVector<int>{2, 0, 1})); // from SSR_2, not the stored index of 3
    QVERIFY(loaded.solutions[2].isEmpty());

    // A cut row in an earlier X keeps only the iterations before it.
    QFile x1(results + "X_1.csv");
    QVERIFY(x1.resize(x1.size() - 3));
    QVERIFY(loadResult(dir.path(), loaded, {}, &note));
    QCOMPARE(loaded.X.size(), 1);
    QCOMPARE(loaded.Y.size(), 1);

    // Against a model with five observations no iteration fits; with three
    // search variables not even the first cluster does.
    QTemporaryDir other;
    writtenRun(other.path(), 2);
    ResultShape shape;
    shape.searchVariables = 2;
    shape.outputs = 5;
    QVERIFY(loadResult(other.path(), loaded, shape, &note));
    QCOMPARE(loaded.X.size(), 1);
    QVERIFY(loaded.Y.isEmpty());
    shape.searchVariables = 3;
    QVERIFY(!loadResult(other.path(), loaded, shape, &note));
    QVERIFY(note.contains("X_0.csv does not fit the model"));

    // A stored sort index that is not a permutation of the points (the
    // fuzzer's 7.8e15, a repeat) is computed afresh from the SSRs.
    for (const char *stored : {"0,7777777777777777,1\n", "0,0,2\n"}) {
        QVERIFY(writeFile(other.path() + "/compResult/sortIndex.csv", stored));
        QVERIFY(loadResult(other.path(), loaded));
        QCOMPARE(loaded.sortIndex, (QVector<int>{0, 2, 1}));
    }
}

// The file is not truncated: a shorter log overwrites only its own length.
void TestResultStore::logFileIsReplacedNotAppended()
{
    QTemporaryDir dir;
    QDir().mkpath(dir.path() + "/compResult");
    const QString path = resultFilePath(dir.path(), "computation_log.txt");
    writeComputationLog(dir.path(), {"start", "iteration 0"});
    writeComputationLog(dir.path(), {"start", "iteration 0", "iteration 1", "é"});
    QCOMPARE(fileContent(path), QByteArray("start\niteration 0\niteration 1\n\xc3\xa9\n"));
    writeComputationLog(dir.path(), {"START"});
    QCOMPARE(fileContent(path), QByteArray("START\niteration 0\niteration 1\n\xc3\xa9\n"));
}

// A restart repeats iteration 1 from the reloaded record and goes on: its
// files replace those of the first run; iteration 3, not reached again, stays.
void TestResultStore::restartOverwritesLaterIterations()
{
    QTemporaryDir dir;
    const compResult first = writtenRun(dir.path(), 4);
    compResult restarted;
    QVERIFY(loadResult(dir.path(), restarted));
    restarted.truncateHistories(1);
    for (int k = 1; k < 3; ++k) {
        appendIteration(restarted, k, 0.5);
        writeIterationFiles(dir.path(), restarted);
    }
    QVERIFY(!QDir(dir.path() + "/history").exists());
    compResult loaded;
    QVERIFY(loadResult(dir.path(), loaded));
    const QVector<DoubleMatrix> expected{first.X[0], restarted.X[1], restarted.X[2], first.X[3]};
    QVERIFY(closeTo(loaded.X, expected, 1e-15));
    QVERIFY(closeTo(loaded.SSR[2], restarted.SSR[2], 1e-15));
    QCOMPARE(restarted.log.mid(0, first.log.size()), first.log);
    QCOMPARE(loaded.log, restarted.log);
}

// Abort at iteration 0: the engine cut the histories back to nothing but still
// holds the solutions of its evaluation.
void TestResultStore::abortAtIterationZeroWritesOnlyTheLog()
{
    QTemporaryDir dir;
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
    QVERIFY(loaded.Y.isEmpty() && loaded.solutions.isEmpty());
}

void TestResultStore::historyMoveTakesTheRunsFiles()
{
    QTemporaryDir dir;
    const QString results = dir.path() + "/compResult";
    writtenRun(dir.path(), 12);
    QVERIFY(writeFile(results + "/jacobian_0.csv", QString())); // the window's own file stays
    QStringList moved = filesIn(results);
    const QByteArray x11 = fileContent(results + "/X_11.csv");

    const auto stamp = [] {
        return "compResult " + QDateTime::currentDateTimeUtc().toString().replace(':', '_');
    };
    const QString before = stamp(), target = moveResultsToHistory(dir.path()), after = stamp();
    QVERIFY2(target == dir.path() + "/history/" + before || target == dir.path() + "/history/" + after,
             qPrintable(target));

    QCOMPARE(filesIn(results), (QStringList{"Y.dat", "jacobian_0.csv"}));
    moved.removeAll("Y.dat");
    moved.removeAll("jacobian_0.csv");
    QCOMPARE(moved.size(), 12 * 5 + 12 * 2 + 3);
    QCOMPARE(filesIn(target), moved);
    QCOMPARE(fileContent(target + "/X_11.csv"), x11);

    // Nothing of the earlier run is left to reload but its outputs stream.
    compResult loaded;
    QVERIFY(!loadResult(dir.path(), loaded));
    QVERIFY(loaded.log.isEmpty());

    // A fresh run with nothing to move leaves no empty history folder.
    QTemporaryDir fresh;
    moveResultsToHistory(fresh.path());
    QVERIFY(!QDir(fresh.path() + "/history").exists());
}

QTEST_GUILESS_MAIN(TestResultStore)
#include "test_result_store.moc"
