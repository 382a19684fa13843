// The engine runner as the window uses it, with an event loop on the test's
// thread: runs on the worker thread, stops, a second run on the same engine,
// and destruction in the middle of a run.
#include "engine/EngineRunner.h"
#include "engine/EngineSetup.h"

#include <QMutex>
#include <QtTest>

#include <random>

namespace {

QMutex warningsMutex;
QStringList warnings;

void keepWarnings(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtDebugMsg || type == QtInfoMsg)
        return;
    QMutexLocker lock(&warningsMutex);
    warnings << message;
}

// Fills the engine for a fresh run on the oral-absorption example, from the
// test's thread while the runner is idle.
void prepareRun(ambrel_method &engine, int stage1, int stage2)
{
    static const ProjectModel project = loadProjectModel(AMBREL_EXAMPLES_DIR "/oral-absorption");
    RunSettings settings;
    settings.stage1Iterations = stage1;
    settings.stage2Iterations = stage2;
    settings.integratorMessages = nullptr;
    configureEngine(engine, project, settings);
    std::mt19937_64 generator(7);
    engine.result = compResult();
    engine.result.X << sampleInitialCluster(projectSearchDomain(project), 40, generator);
}

// Far more Stage 1 iterations than a test waits for: such a run ends only
// when it is stopped.
const int kLongRun = 100000;

// What reaches the test's thread from the engine, by queued connections as
// it reaches the window.
struct Received : QObject {
    QVector<RunOutcome> outcomes;
    int results = 0;
    int completed = 0;

    explicit Received(ambrel_method *engine)
    {
        connect(engine, &ambrel_method::runFinished, this, [this](const RunOutcome &o) { outcomes << o; });
        connect(engine, &ambrel_method::current_computation_result, this, [this] { ++results; });
        connect(engine, &ambrel_method::calculationCompleted, this, [this] { ++completed; });
    }
    RunOutcome nextOutcome()
    {
        if (!QTest::qWaitFor([this] { return !outcomes.isEmpty(); }, 60000))
            return {RunOutcome::Status::Failed, -1, 0, 0, {"no runFinished"}};
        return outcomes.takeFirst();
    }
    bool awaitResult()
    {
        return QTest::qWaitFor([this] { return results > 0; }, 60000);
    }
};

} // namespace

class TestEngineRunner : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { qInstallMessageHandler(keepWarnings); }
    void stopThenRunAgainOnTheWorkerThread();
    void destroyedWhileRunning();
};

void TestEngineRunner::stopThenRunAgainOnTheWorkerThread()
{
    EngineRunner runner;
    ambrel_method *engine = runner.engine();
    Received received(engine);
    QThread *evaluatedOn = nullptr;
    QObject::connect(
            engine, &ambrel_method::additional_modelEval, engine,
            [&] { evaluatedOn = QThread::currentThread(); }, Qt::DirectConnection);

    // A stop requested before the queued run has begun still stops it.
    prepareRun(*engine, kLongRun, 0);
    QVERIFY(runner.start(false));
    runner.requestStop();
    RunOutcome outcome = received.nextOutcome();
    QCOMPARE(int(outcome.status), int(RunOutcome::Status::Aborted));
    QCOMPARE(outcome.iterationsDone, 0);
    QVERIFY(!runner.isRunning());

    // Stopped once the first iteration has arrived.
    prepareRun(*engine, kLongRun, 0);
    received.results = 0;
    QVERIFY(runner.start(false));
    QVERIFY(runner.isRunning());
    QVERIFY(!runner.start(true)); // one run at a time
    QVERIFY(received.awaitResult());
    runner.requestStop();
    outcome = received.nextOutcome();
    QCOMPARE(int(outcome.status), int(RunOutcome::Status::Aborted));
    QVERIFY(outcome.iterationsDone >= 1 && outcome.iterationsDone < kLongRun);
    QCOMPARE(engine->result.X.size(), outcome.iterationsDone);
    QVERIFY(evaluatedOn != nullptr && evaluatedOn != QThread::currentThread());

    // The same engine, refilled while idle, runs to the end.
    prepareRun(*engine, 4, 1);
    QVERIFY(runner.start(false));
    outcome = received.nextOutcome();
    QCOMPARE(int(outcome.status), int(RunOutcome::Status::Finished));
    QCOMPARE(outcome.iterationsDone, 5);
    QCOMPARE(engine->result.SSR.size(), 5);
    QVERIFY(QTest::qWaitFor([&] { return received.completed == 3; }, 10000));
    QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join('\n')));
}

void TestEngineRunner::destroyedWhileRunning()
{
    auto *runner = new EngineRunner;
    Received received(runner->engine());
    prepareRun(*runner->engine(), kLongRun, 0);
    QVERIFY(runner->start(false));
    QVERIFY(received.awaitResult());
    QVERIFY(runner->isRunning());
    QElapsedTimer timer;
    timer.start();
    delete runner; // a running thread destroyed would end the program here
    QVERIFY(timer.elapsed() < 30000);
    QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join('\n')));
}

QTEST_GUILESS_MAIN(TestEngineRunner)
#include "test_engine_runner.moc"
