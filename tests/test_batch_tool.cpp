// The batch tool as a user runs it: exit codes, messages and outputs.
#include "batch_test_support.h"
#include "test_support.h"

#include <QProcess>
#include <QtTest>

#include <csignal>

class TestBatchTool : public QObject {
    Q_OBJECT

private slots:
    void invalidInputExitsWithStatus2();
    void runFindsTheOralParametersAndSimulates();
    void exitStatusFollowsTheRunsOutcome();
    void seededRunsRepeatExactly();
};

void TestBatchTool::invalidInputExitsWithStatus2()
{
    QTemporaryDir dir;
    const QString project = copyExample(dir, "oral-absorption");
    Outcome o = batch({"run", project, "--points"});
    QCOMPARE(o.exitCode, 2);
    QVERIFY(o.err.contains("--points needs a value"));
    o = batch({"run", project, "--bogus"});
    QCOMPARE(o.exitCode, 2);
    o = batch({"run", dir.path() + "/missing"});
    QCOMPARE(o.exitCode, 2);
    o = batch({"simulate", project, "--expression", "Ac/V", "--times", "0:1:2", "--parameters",
               "CL=4,V=40,kx=1"});
    QCOMPARE(o.exitCode, 2);
    QVERIFY(o.err.contains("Unknown parameter name: kx"));

    // A malformed model file: the system's own message, tags removed, and no result.
    QVERIFY(writeFile(project + "/model/ODE_expression.txt", "dAgdt = -ka*Ag\ndAgdt = ka*Ag"));
    o = batch({"run", project});
    QCOMPARE(o.exitCode, 2);
    QVERIFY(o.err.contains("There are more than two equations with the same left hand side."));
    QVERIFY(!o.err.contains("<font"));
    QVERIFY(!QFile::exists(project + "/compResult/X_0.csv"));
}

void TestBatchTool::runFindsTheOralParametersAndSimulates()
{
    QTemporaryDir dir;
    const QString project = copyExample(dir, "oral-absorption");
    const Outcome run = batch(
            {"run", project, "--stage1-iterations", "15", "--stage2-iterations", "3", "--points", "60"});
    QCOMPARE(run.exitCode, 0);
    QVERIFY(QFile::exists(project + "/model/initial_cluster.txt"));
    QVERIFY(QFile::exists(project + "/compResult/X_17.csv"));
    QVERIFY(QFile::exists(project + "/compResult/Y.dat"));
    // Non-terminal output: one statistics line per iteration.
    QCOMPARE(run.out.count("iteration "), 18);

    // Parameters default to the stored best point: the curve is reproduced.
    const Outcome sim =
            batch({"simulate", project, "--expression", "Ac/V", "--expression", "Ag", "--times", "4,2"});
    QCOMPARE(sim.exitCode, 0);
    const QStringList lines = sim.out.trimmed().split('\n');
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines[0], QString("time,Ac/V,Ag"));
    const QStringList at2 = lines[1].split(',');
    QCOMPARE(at2[0], QString("2"));
    QVERIFY(std::abs(at2[1].toDouble() - 6.35356) < 0.01 * 6.35356);
    // Ag depends on which of the two equivalent curves (ka and CL/V swapped) was found.
    QVERIFY(at2[2].toDouble() > 0 && at2[2].toDouble() < 320);
}

void TestBatchTool::exitStatusFollowsTheRunsOutcome()
{
    QTemporaryDir dir;
    const QString project = copyExample(dir, "oral-absorption");
    // Two points for three parameters: the screening refuses the run.
    const Outcome refused = batch({"run", project, "--points", "2"});
    QCOMPARE(refused.exitCode, 1);
    QVERIFY(refused.err.contains("The number of points in initial cluster is too few, go back to Step 3-2 "
                                 "and increase it to be larger than number of parameters."));
    QVERIFY(refused.err.contains("No iteration finished."));
    QVERIFY(!refused.out.contains("Best sum of squares"));

    // Ctrl-C once the first iteration is reported: stopped, restartable.
    QFile::remove(project + "/model/initial_cluster.txt");
    QProcess process;
    process.start(AMBREL_BATCH, {"run", project, "--stage1-iterations", "100000", "--points", "40"});
    QString out = readOutputUntil(process, "iteration 0:");
    QVERIFY(out.contains("iteration 0:"));
    ::kill(pid_t(process.processId()), SIGINT);
    QVERIFY(process.waitForFinished(60000));
    out += QString::fromUtf8(process.readAllStandardOutput());
    QCOMPARE(process.exitCode(), 130);
    QVERIFY(out.contains("Best sum of squares: "));
    QVERIFY(out.contains(QString("; continue with: ambrel-batch run %1 --restart").arg(project)));
}

QTEST_GUILESS_MAIN(TestBatchTool)
#include "test_batch_tool.moc"

// Everything random in a run (the sampled cluster, re-sampling, the step
// perturbations) follows --seed, so two runs give the same bytes.
void TestBatchTool::seededRunsRepeatExactly()
{
    QList<QByteArray> results;
    for (const QString name : {"a", "b"}) {
        QTemporaryDir runDir;
        const QString project = copyExample(runDir, "oral-absorption");
        const Outcome run = batch({"run", project, "--stage1-iterations", "6", "--stage2-iterations", "2",
                                   "--points", "40", "--seed", "17"});
        QCOMPARE(run.exitCode, 0);
        results << fileContent(project + "/model/initial_cluster.txt") +
                           fileContent(project + "/compResult/X_7.csv") +
                           fileContent(project + "/compResult/R_7.csv");
    }
    QVERIFY(results[0].size() > 100);
    QCOMPARE(results[0], results[1]);
}
