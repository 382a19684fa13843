// A batch run killed (SIGKILL) at random moments: every result file is
// either complete or absent, and the run can be restarted to its end.
#include "project/ResultStore.h"
#include "test_support.h"

#include <QProcess>
#include <QtTest>

#include <random>

namespace {

const int kPoints = 60;
const int kIterations = 24; // Stage 1 + Stage 2

QStringList runArguments(const QString &project, bool restart)
{
    QStringList arguments{"run",
                          project,
                          "--points",
                          QString::number(kPoints),
                          "--stage1-iterations",
                          "20",
                          "--stage2-iterations",
                          "4",
                          "--seed",
                          "5",
                          "--threads",
                          "2"};
    if (restart)
        arguments << "--restart";
    return arguments;
}

// Every line of a matrix file, or a reason why the file is not whole.
QString matrixLines(const QString &path, QList<QByteArray> &lines)
{
    const QByteArray content = fileContent(path);
    if (!content.endsWith('\n'))
        return QStringLiteral("%1 does not end with a line end").arg(path);
    lines = content.left(content.size() - 1).split('\n');
    return QString();
}

// The reason why the matrix file is not whole: rows x columns, where a
// columns of -1 asks only that every row be as long as the first.
QString checkMatrix(const QString &path, int rows, int columns)
{
    QList<QByteArray> lines;
    QString problem = matrixLines(path, lines);
    if (!problem.isEmpty())
        return problem;
    if (rows >= 0 && lines.size() != rows)
        return QStringLiteral("%1 has %2 rows").arg(path).arg(lines.size());
    const int width = columns >= 0 ? columns : int(lines.first().count(',')) + 1;
    for (const QByteArray &line : lines)
        if (line.count(',') + 1 != width)
            return QStringLiteral("%1 has a row of %2 cells").arg(path).arg(line.count(',') + 1);
    return QString();
}

// The first reason found why a file of the result folder is not whole.
QString incompleteResultFile(const QString &project)
{
    const QDir folder(project + "/compResult");
    const int observations = fileContent(folder.filePath("ode_time.csv")).count(',') + 1;
    for (const QString &name : folder.entryList(QDir::Files)) {
        const QString path = folder.filePath(name);
        QString problem;
        if (name.startsWith("X_") || name.startsWith("Y_") || name.startsWith("Parameter_"))
            problem = checkMatrix(path, kPoints, -1);
        else if (name.startsWith("R_") || name.startsWith("lambda_") || name == "sortIndex.csv")
            problem = checkMatrix(path, 1, kPoints);
        else if (name.startsWith("ODE_sol_"))
            problem = checkMatrix(path, observations, -1);
        else if (name == "ode_time.csv")
            problem = checkMatrix(path, 1, -1);
        else if (name == "computation_log.txt" && !fileContent(path).endsWith('\n'))
            problem = name + " does not end with a line end";
        else if (name == "Y.dat") {
            QVector<DoubleMatrix> outputs;
            if (!readOutputHistory(path, outputs))
                problem = QStringLiteral("Y.dat cannot be read");
        }
        if (!problem.isEmpty())
            return problem;
    }
    return QString();
}

} // namespace

class TestBatchKill : public QObject {
    Q_OBJECT

private slots:
    void killedRunLeavesWholeFilesAndRestarts();
};

void TestBatchKill::killedRunLeavesWholeFilesAndRestarts()
{
    QTemporaryDir dir;
    const QString project = copyExample(dir, "oral-absorption");
    const QString results = project + "/compResult";
    std::mt19937 generator(QRandomGenerator::global()->generate());

    for (int round = 0; round < 4; ++round) {
        const bool restart = QFile::exists(results + "/X_0.csv");
        const int delayMs = 100 + int(generator() % 700);
        QProcess process;
        process.start(AMBREL_BATCH, runArguments(project, restart));
        QVERIFY(process.waitForStarted());
        if (!process.waitForFinished(delayMs)) {
            process.kill(); // SIGKILL
            QVERIFY(process.waitForFinished(10000));
        }
        const QString problem = incompleteResultFile(project);
        QVERIFY2(problem.isEmpty(), qPrintable(QStringLiteral("round %1, killed after %2 ms (%3): %4")
                                                       .arg(round)
                                                       .arg(delayMs)
                                                       .arg(restart ? "restart" : "fresh run")
                                                       .arg(problem)));
    }

    // The last restart runs to the end.
    QProcess process;
    process.start(AMBREL_BATCH, runArguments(project, QFile::exists(results + "/X_0.csv")));
    QVERIFY(process.waitForFinished(120000));
    QVERIFY2(process.exitCode() == 0, process.readAllStandardError().constData());
    QVERIFY(QFile::exists(results + QStringLiteral("/X_%1.csv").arg(kIterations - 1)));
    QVERIFY(QFile::exists(results + "/Y.dat"));
    const QString problem = incompleteResultFile(project);
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
}

QTEST_GUILESS_MAIN(TestBatchKill)
#include "test_batch_kill.moc"
