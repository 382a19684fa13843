// The batch tool against hostile and careless input: every case ends quickly
// with a clear message and the right exit status, never a crash or a hang.
#include "batch_test_support.h"
#include "test_support.h"

#include <QProcess>
#include <QtTest>

namespace {

const QStringList kShortRun{
        "--stage1-iterations", "4", "--stage2-iterations", "2", "--points", "30", "--seed", "5"};

bool writeBytes(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

bool cutFile(const QString &path, qint64 keep)
{
    QFile file(path);
    return file.exists() && file.resize(keep);
}

} // namespace

class TestBatchHostileInput : public QObject {
    Q_OBJECT

private slots:
    void restartAfterTornFiles();
    void negativeDoseDurationStopsBeforeTheRun();
    void runawayDoseFailsFast();
    void timePointListsAreBounded();
    void unclearModelFilesGetTheirMessage();
    void modellerAids();
};

// A kill during a write leaves X_k cut inside a row or Y_k empty; the restart
// used to crash assigning outputs to rows that did not exist.
void TestBatchHostileInput::restartAfterTornFiles()
{
    QTemporaryDir dir;
    const QString project = copyExample(dir, "oral-absorption");
    QCOMPARE(batch(QStringList{"run", project} + kShortRun).exitCode, 0);
    // A fresh run with nothing earlier leaves no empty history folder.
    QVERIFY(!QDir(project + "/history").exists());

    const QString results = project + "/compResult/";
    QVERIFY(cutFile(results + "X_5.csv", QFileInfo(results + "X_5.csv").size() / 2));
    QVERIFY(cutFile(results + "Y_4.csv", 0));
    Outcome o = batch({"run", project, "--stage1-iterations", "4", "--stage2-iterations", "3", "--restart"});
    QVERIFY(!o.crashed);
    QCOMPARE(o.exitCode, 0);
    QVERIFY2(o.err.contains("Incomplete result files (cut off by an interrupted write): X_5.csv, Y_4.csv."),
             qPrintable(o.err));
    QVERIFY(o.err.contains("Restarting from iteration 4 of the stored result."));
    QVERIFY(o.out.contains("Best sum of squares: "));
    QVERIFY(QFileInfo(results + "Y_6.csv").size() > 0);

    // A stored result that does not fit the model is refused, not iterated.
    QVERIFY(writeFile(results + "X_0.csv", "1,2\n3,4\n"));
    o = batch({"run", project, "--restart"});
    QCOMPARE(o.exitCode, 2);
    QVERIFY(o.err.contains("X_0.csv does not fit the model"));
}

void TestBatchHostileInput::negativeDoseDurationStopsBeforeTheRun()
{
    QTemporaryDir dir;
    const QString project = copyExample(dir, "oral-absorption");
    QVERIFY(writeFile(project + "/model/dose_events.txt", "0,Ag,320,-5,oral dose"));
    const Outcome o = batch(QStringList{"run", project} + kShortRun);
    QCOMPARE(o.exitCode, 2);
    QVERIFY(o.err.contains(
            "Error on 1th dose event: Infusion administration duration cannot be less than 0."));
    QVERIFY(!QFile::exists(project + "/compResult/X_0.csv"));
    // The set-value code -99 is not a duration.
    QVERIFY(writeFile(project + "/model/dose_events.txt", "0,Ag,320,-99,set"));
    QVERIFY(!batch(QStringList{"run", project} + kShortRun).err.contains("cannot be less than 0"));
}

// A dose of 1e308 overflows the states: every evaluation fails at once, the
// screening refuses the run, instead of every evaluation running to the
// 100-second limit.
void TestBatchHostileInput::runawayDoseFailsFast()
{
    QTemporaryDir dir;
    const QString project = copyExample(dir, "oral-absorption");
    QVERIFY(writeFile(project + "/model/dose_events.txt", "0,Ag,1e308,0,oral dose"));
    const Outcome o = batch(QStringList{"run", project} + kShortRun);
    QCOMPARE(o.exitCode, 1);
    QVERIFY(o.err.contains("Model evaluation is not possible"));
}

void TestBatchHostileInput::timePointListsAreBounded()
{
    QTemporaryDir dir;
    const QString project = copyExample(dir, "oral-absorption");
    const QStringList simulate{"simulate",         project,  "--expression", "Ac", "--parameters",
                               "CL=4,V=40,ka=1.2", "--times"};
    Outcome o = batch(simulate + QStringList{"0:1e-300:10"});
    QCOMPARE(o.exitCode, 2);
    QVERIFY(o.err.contains("would make more than 1000000 points"));
    o = batch(simulate + QStringList{"0:1:inf"});
    QCOMPARE(o.exitCode, 2);
    QVERIFY(o.err.contains("hold \"inf\", which is not a finite number"));
    o = batch(simulate + QStringList{"0:1:1000000"}); // 1000001 points
    QCOMPARE(o.exitCode, 2);
    QCOMPARE(batch(simulate + QStringList{"0:6:24"}).exitCode, 0);
}

void TestBatchHostileInput::unclearModelFilesGetTheirMessage()
{
    QTemporaryDir dir;
    const QString project = copyExample(dir, "oral-absorption");
    const QString model = project + "/model/";
    const QByteArray ode = fileContent(model + "ODE_expression.txt");

    QVERIFY(writeFile(model + "ODE_expression.txt", ""));
    Outcome o = batch({"run", project});
    QCOMPARE(o.exitCode, 2);
    QVERIFY(o.err.contains("The ODE system holds no equations"));
    QVERIFY(!o.err.contains("Missing model file"));

    // An executable's first bytes: NUL bytes and invalid UTF-8.
    const char elf[] = "\x7f"
                       "ELF\x02\x01\x01\x00\x00\xff\xfe";
    QVERIFY(writeBytes(model + "ODE_expression.txt", QByteArray(elf, sizeof elf - 1)));
    o = batch({"run", project});
    QCOMPARE(o.exitCode, 2);
    QVERIFY(o.err.contains("model/ODE_expression.txt is not a text file"));

    QVERIFY(writeFile(model + "ODE_expression.txt", QString::fromUtf8(ode)));
    const char doses[] = "0,Ag,3\x00"
                         "20,0\n\xc3\x28,Ag,1,0";
    QVERIFY(writeBytes(model + "dose_events.txt", QByteArray(doses, sizeof doses - 1)));
    o = batch({"run", project});
    QCOMPARE(o.exitCode, 2);
    QVERIFY(o.err.contains("model/dose_events.txt is not a text file"));

    // Unbalanced parentheses: a warning naming the equation; the run goes on.
    QVERIFY(writeFile(model + "dose_events.txt", "0,Ag,320,0,oral dose"));
    QVERIFY(writeFile(model + "ODE_expression.txt", "dAgdt = (-ka*Ag\ndAcdt = ka*Ag - CL/V*Ac"));
    o = batch(QStringList{"run", project} + kShortRun);
    QVERIFY(o.err.contains("Warning: the right hand side of dAgdt has unbalanced parentheses"));
}

void TestBatchHostileInput::modellerAids()
{
    // Every command answers --help with its options; run's show the defaults.
    Outcome o = batch({"run", "--help"});
    QCOMPARE(o.exitCode, 0);
    QVERIFY(o.out.contains("--stage1-iterations N") && o.out.contains("(default 50)"));
    QVERIFY(o.out.contains("(default 250)"));
    QVERIFY(batch({"simulate", "--help"}).out.contains("--integrator"));
    QVERIFY(batch({"export", "DIR", "--help"}).out.contains("usage: ambrel-batch export DIR"));

    QTemporaryDir dir;
    const QString project = copyExample(dir, "oral-absorption");
    o = batch(QStringList{"run", project} + kShortRun);
    QCOMPARE(o.exitCode, 0);
    // The specification rows with their names, in the sorted order.
    QVERIFY(o.out.contains(QRegularExpression("1 CL +\\[0.5, 20\\] +\\[0, 100\\]")));
    QVERIFY(o.out.contains(QRegularExpression("3 ka +\\[0.1, 5\\] +\\[0, 20\\]")));
    QVERIFY(o.out.contains(QRegularExpression("Points within 1 % of the best sum of squares: \\d+ of 30")));
    QVERIFY(o.out.contains("Wall time: "));
    // The second run uses the stored cluster and says so.
    o = batch(QStringList{"run", project} + kShortRun);
    QVERIFY(o.out.contains("Using the stored initial cluster model/initial_cluster.txt (30 points)"));

    // A domain that reaches a theoretical bound is warned about.
    QVERIFY(writeFile(project + "/model/parameter_specifications.csv",
                      "0,20,0,100\n5,100,0,500\n0.1,5,0,20"));
    o = batch(QStringList{"run", project} + kShortRun);
    QVERIFY(o.out.contains("Warning: the domain of interest of CL reaches its theoretical bound"));
}

QTEST_GUILESS_MAIN(TestBatchHostileInput)
#include "test_batch_hostile_input.moc"
