// The batch tool started by mpirun: the same result as one process, refusal
// when the ranks read different models, and a clean stop on Ctrl-C.
#include "batch_test_support.h"
#include "test_support.h"

#include <QDirIterator>
#include <QProcess>
#include <QtTest>

#include <csignal>

namespace {

// A tolerance other than the default: the other ranks must take rank 0's.
const QStringList kShortRun = {
        "--stage1-iterations", "6",   "--stage2-iterations", "2", "--points", "40", "--seed", "17",
        "--stage1-reltol",     "1e-4"};

// mpirun as a test may start it: as root, with more ranks than processors,
// and without the single-copy transfer that containers often forbid.
void prepareMpirun(QProcess &process)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("OMPI_ALLOW_RUN_AS_ROOT", "1");
    environment.insert("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1");
    environment.insert("OMPI_MCA_btl_vader_single_copy_mechanism", "none");
    process.setProcessEnvironment(environment);
    process.setProgram(MPIEXEC);
}

// One run command per rank group: {{"-np", "2", AMBREL_BATCH, "run", ...}, ...}.
Outcome mpirun(const QList<QStringList> &groups)
{
    QProcess process;
    prepareMpirun(process);
    QStringList arguments{"--oversubscribe"};
    for (const QStringList &group : groups)
        arguments << (arguments.size() > 1 ? QStringList{":"} : QStringList()) << group;
    process.setArguments(arguments);
    process.start();
    return finished(process);
}

// Every result file by name; the log without its elapsed-time lines.
QMap<QString, QByteArray> resultFiles(const QString &project)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(project + "/compResult", QDir::Files);
    while (it.hasNext()) {
        const QString path = it.next();
        QByteArray content = fileContent(path);
        if (it.fileName() == "computation_log.txt") {
            QList<QByteArray> lines = content.split('\n');
            lines.erase(std::remove_if(
                                lines.begin(), lines.end(),
                                [](const QByteArray &l) { return l.startsWith("Total Computation time"); }),
                        lines.end());
            content = lines.join('\n');
        }
        files.insert(it.fileName(), content);
    }
    return files;
}

} // namespace

class TestBatchMpi : public QObject {
    Q_OBJECT

private slots:
    void init();
    void twoRanksGiveTheSingleProcessBytes();
    void ranksWithDifferentModelsRefuseTheRun();
    void interruptStopsEveryRank();
};

void TestBatchMpi::init()
{
    if (!QFileInfo(MPIEXEC).isExecutable())
        QSKIP("mpirun is not installed (Debian: openmpi-bin); the MPI runs are not tested");
}

void TestBatchMpi::twoRanksGiveTheSingleProcessBytes()
{
    QTemporaryDir dir;
    const QString alone = copyExample(dir, "oral-absorption");
    const Outcome one = batch(QStringList{"run", alone} + kShortRun);
    QCOMPARE(one.exitCode, 0);
    QVERIFY(QDir(dir.path()).rename("oral-absorption", "alone"));

    const QString ranked = copyExample(dir, "oral-absorption");
    const Outcome two = mpirun({QStringList{"-np", "2", AMBREL_BATCH, "run", ranked} + kShortRun});
    QCOMPARE(two.exitCode, 0);
    // Both ranks evaluated points: "Evaluated on 2 ranks: A + B points".
    const QRegularExpressionMatch counts =
            QRegularExpression("Evaluated on 2 ranks: (\\d+) \\+ (\\d+) points").match(two.err);
    QVERIFY2(counts.hasMatch(), qPrintable(two.err));
    QVERIFY(counts.captured(1).toInt() > 0 && counts.captured(2).toInt() > 0);
    // The same output but for the run's wall time.
    const QRegularExpression wallTime("Wall time: [^\n]*\n");
    QCOMPARE(QString(two.out).remove(wallTime), QString(one.out).remove(wallTime));

    const QMap<QString, QByteArray> expected = resultFiles(dir.path() + "/alone");
    const QMap<QString, QByteArray> actual = resultFiles(ranked);
    QVERIFY(expected.contains("X_7.csv") && expected.contains("computation_log.txt"));
    QCOMPARE(actual.keys(), expected.keys());
    for (const QString &name : expected.keys())
        QVERIFY2(actual[name] == expected[name], qPrintable(name + " differs"));
}

void TestBatchMpi::ranksWithDifferentModelsRefuseTheRun()
{
    QTemporaryDir dir;
    copyExample(dir, "oral-absorption");
    QVERIFY(QDir(dir.path()).rename("oral-absorption", "changed"));
    const QString changed = dir.path() + "/changed";
    // The first observation a little later: a different model output.
    const QString observations = changed + "/model/observations.txt";
    QVERIFY(writeFile(observations, QString::fromUtf8(fileContent(observations)).replace("0.25,", "0.3,")));
    const QString original = copyExample(dir, "oral-absorption");

    Outcome o = mpirun({{"-np", "1", AMBREL_BATCH, "run", original, "--points", "20"},
                        {"-np", "1", AMBREL_BATCH, "run", changed, "--points", "20"}});
    QVERIFY(o.exitCode != 0);
    QVERIFY2(o.err.contains(QString("Rank 1 read a different model from %1 than rank 0").arg(original)),
             qPrintable(o.err));
    QVERIFY(o.err.contains("The run is refused."));
    QVERIFY(!QFile::exists(original + "/compResult/X_0.csv"));

    o = mpirun({{"-np", "1", AMBREL_BATCH, "run", original, "--points", "20"},
                {"-np", "1", AMBREL_BATCH, "run", dir.path() + "/missing"}});
    QVERIFY(o.exitCode != 0);
    QVERIFY2(o.err.contains("Rank 1 could not read the project"), qPrintable(o.err));
    QVERIFY(o.err.contains("No such project folder"));
    QVERIFY(!QFile::exists(original + "/compResult/X_0.csv"));
}

// Ctrl-C reaches mpirun: every rank ends and the finished iterations stay on
// disk. mpirun follows its SIGTERM with SIGKILL after a second, so on a
// loaded machine rank 0 may not get to say how to continue. With a longer
// delay mpirun stops forwarding output at once and sends SIGTERM only after
// the delay: rank 0, its output no longer read, must still stop at the
// SIGTERM and write the end-of-run files (Y.dat) instead of blocking on its
// progress lines until it is killed.
void TestBatchMpi::interruptStopsEveryRank()
{
    for (const QStringList &delay : {QStringList(), QStringList{"--mca", "odls_base_sigkill_timeout", "3"}}) {
        QTemporaryDir dir;
        const QString project = copyExample(dir, "oral-absorption");
        QProcess process;
        prepareMpirun(process);
        process.setArguments(QStringList{"--oversubscribe"} + delay +
                             QStringList{"-np", "2", AMBREL_BATCH, "run", project, "--stage1-iterations",
                                         "100000", "--points", "200"});
        process.start();
        QVERIFY(readOutputUntil(process, "iteration 1:").contains("iteration 1:"));
        ::kill(pid_t(process.processId()), SIGINT);
        QVERIFY(process.waitForFinished(60000));
        QVERIFY(QFile::exists(project + "/compResult/X_1.csv"));
        if (!delay.isEmpty())
            QVERIFY(QFile::exists(project + "/compResult/Y.dat"));
    }
}

QTEST_GUILESS_MAIN(TestBatchMpi)
#include "test_batch_mpi.moc"
