// The engine's iteration, driven the way a headless caller drives it, on
// one-parameter toy models (k = x1, dA/dt = -k*A after a unit bolus, four
// observations) whose observation expression is chosen per test:
//   "2+0*A"         the same output for every k: every step is exactly zero
//                   and every SSR ties with the previous one;
//   "A"             an ordinary fit with real steps;
//   "k+0*LOG(1-k)"  the output is k itself and NaN for k > 1, so a point just
//                   below 1 that is pulled upwards fails at every step.
#include "engine/EngineSetup.h"
#include "engine/InitialCluster.h"
#include "engine/ambrel_method.h"
#include "test_support.h"

#include <QtTest>

namespace {

const QString kBanner = QStringLiteral("<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<");
const QString kTimePrefix = QStringLiteral("Total Computation time so far (in min): ");

ProjectModel toyProject(const QString &expression, double observed, double dose = 1.0)
{
    StringMatrix observations;
    for (int t = 1; t <= 4; ++t)
        observations << QStringList{QString::number(t), expression, QString::number(observed, 'g', 17)};
    return buildProject("dAdt = -k*A", {{"0.1", "2", "0", "100"}}, "k=x1", "x1=k",
                        {{"0", "A", QString::number(dose), "0"}}, observations);
}

const double kFitted = std::exp(-0.7 * 2.0); // "A" observed as at k = 0.7, t = 2

void configure(ambrel_method &engine, const ProjectModel &project, const QVector<double> &cluster, int stage1,
               int stage2)
{
    RunSettings settings;
    settings.stage1Iterations = stage1;
    settings.stage2Iterations = stage2;
    configureEngine(engine, project, settings);
    engine.result = compResult();
    engine.result.X = {{}};
    for (double k : cluster)
        engine.result.X[0] << QVector<double>{k};
}

// The log's statistics blocks of 11 lines, from the empty line before each
// "iterNumber" line to the time line that ends the iteration.
QVector<QStringList> iterationBlocks(const QStringList &log)
{
    QVector<QStringList> blocks;
    for (int i = 2; i < log.size(); ++i)
        if (log[i].startsWith("         iterNumber: "))
            blocks << log.mid(i - 2, 11);
    return blocks;
}

struct SignalRecord {
    QVector<int> maxEvaluations;
    QVector<int> additionalEvaluations;
    int results = 0;
    int completed = 0;
    QStringList endings;

    explicit SignalRecord(ambrel_method &engine)
    {
        QObject::connect(&engine, &ambrel_method::runFinished, [this] { endings << "runFinished"; });
        QObject::connect(&engine, &ambrel_method::max_modelEval, [this](int v) { maxEvaluations << v; });
        QObject::connect(&engine, &ambrel_method::additional_modelEval,
                         [this](int v) { additionalEvaluations << v; });
        QObject::connect(&engine, &ambrel_method::current_computation_result,
                         [this](const compResult &) { ++results; });
        QObject::connect(&engine, &ambrel_method::calculationCompleted, [this] {
            ++completed;
            endings << "calculationCompleted";
        });
    }
};

} // namespace

class TestAmbrelMethod : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { QLoggingCategory::setFilterRules("default.debug=false\ndefault.info=false"); }
    void tiesAreAcceptedLogAndProgress();
    void everyStepIsJudgedByItsOwnSsr();
    void changedWeightsKeepTies();
    void stageSwitchKeepsClusterAndResetsLambda();
    void rejectedPointFreezesAboveTheLimit();
    void failedPointsAndTheUpperQuartile();
    void abortLater_data();
    void abortLater();
    void rerunContinuesTheHistories();
    void refusedAtScreening();
};

// Constant outputs: every SSR ties and is accepted, so lambda falls by 10 per
// iteration and is reset at the first Stage 2 iteration.
void TestAmbrelMethod::tiesAreAcceptedLogAndProgress()
{
    // Residual 555.5555... at four observations: SSR 1234567.8.
    const ProjectModel project = toyProject("2+0*A", 557.5555327777773);
    QVERIFY2(project.isValid(), qPrintable(problemsOf(project)));
    ambrel_method engine;
    configure(engine, project, {0.3, 0.6, 0.9, 1.2}, 3, 2);
    const DoubleMatrix cluster = engine.result.X[0];
    SignalRecord seen(engine);
    const RunOutcome outcome = engine.run();

    const compResult &r = engine.result;
    QCOMPARE(r.X.size(), 5);
    const QVector<double> expectedLambda{1, 0.1, 0.01, 1, 0.1};
    for (int k = 0; k < 5; ++k) {
        QCOMPARE(r.X[k], cluster);
        QVERIFY(closeTo(r.lambda[k], QVector<double>(4, expectedLambda[k]), 1e-12));
        QVERIFY(closeTo(r.SSR[k], QVector<double>(4, 1234567.8), 1e-9));
    }
    QCOMPARE(seen.maxEvaluations, QVector<int>{20});
    QCOMPARE(seen.additionalEvaluations, (QVector<int>{5, 9, 13, 17, 21}));
    QCOMPARE(seen.results, 5);
    QCOMPARE(seen.endings, (QStringList{"runFinished", "calculationCompleted"}));
    QVERIFY(!engine.running);
    QCOMPARE(int(outcome.status), int(RunOutcome::Status::Finished));
    QCOMPARE(outcome.iterationsDone, 5);
    QCOMPARE(outcome.modelEvaluations, qint64(5 * 4));
    QVERIFY(outcome.wallSeconds > 0 && outcome.wallSeconds < 60 && outcome.messages.isEmpty());
    QCOMPARE(engine.outcome().iterationsDone, 5);

    // The screening line and five blocks, nothing else.
    QCOMPARE(r.log.first(), QString("Only 4 out of 4 model evaluations were successful"));
    QCOMPARE(r.log.size(), 1 + 5 * 11);
    const QVector<QStringList> blocks = iterationBlocks(r.log);
    QCOMPARE(blocks.size(), 5);
    for (int k = 0; k < 5; ++k) {
        const QString v = "1.23457e+06";
        QCOMPARE(blocks[k].mid(0, 5), (QStringList{"", kBanner, "         iterNumber: " + QString::number(k),
                                                   kBanner, "===Current Cluster Stat==="}));
        QCOMPARE(blocks[k].mid(5, 5),
                 (QStringList{"min: " + v, "1/4 percentile: " + v, "median: " + v, "3/4 percentile: " + v,
                              "number of improved points: 4/4"}));
        QVERIFY(blocks[k][10].startsWith(kTimePrefix));
        bool ok = false;
        const double minutes = blocks[k][10].mid(kTimePrefix.size()).toDouble(&ok);
        QVERIFY(ok && minutes >= 0 && minutes < 1);
    }
}

// Every proposal is re-evaluated with the same evaluator: a point moves to its
// proposal exactly when the proposal's SSR is not NaN and not above the
// previous SSR, and its lambda follows (/10, x10).
void TestAmbrelMethod::everyStepIsJudgedByItsOwnSsr()
{
    ambrel_method engine;
    const int n = 8, iterations = 10;
    configure(engine, toyProject("A", kFitted), {0.1, 0.3, 0.5, 0.8, 1.0, 1.3, 1.6, 1.9}, iterations, 0);
    QVector<DoubleMatrix> proposals; // X_k as it stands when iteration k has been evaluated
    QObject::connect(&engine, &ambrel_method::additional_modelEval,
                     [&] { proposals << engine.result.X.last(); });
    engine.run();

    const compResult &r = engine.result;
    QCOMPARE(r.X.size(), iterations);
    QCOMPARE(proposals.size(), iterations);
    const QVector<QStringList> blocks = iterationBlocks(r.log);
    int accepted = 0, rejected = 0;
    for (int k = 1; k < iterations; ++k) {
        int improved = 0;
        for (int i = 0; i < n; ++i) {
            const double previous = r.SSR[k - 1][i];
            const PointEvaluation evaluated = engine.evaluator.evaluatePoint(proposals[k][i]);
            const double proposed = sumOfSquaredResiduals(evaluated.outputs, engine.target);
            const QString where =
                    QString("k=%1 i=%2 prev=%3 new=%4").arg(k).arg(i).arg(previous).arg(proposed);
            if (!(proposed > previous || std::isnan(proposed))) {
                ++accepted;
                ++improved;
                QVERIFY2(r.X[k][i] == proposals[k][i] && r.SSR[k][i] == proposed &&
                                 r.Y[k][i] == evaluated.outputs &&
                                 closeTo(r.lambda[k][i], r.lambda[k - 1][i] / 10, 1e-12),
                         qPrintable(where));
            } else {
                ++rejected;
                QVERIFY2(r.X[k][i] == r.X[k - 1][i] && r.SSR[k][i] == previous &&
                                 r.Y[k][i] == r.Y[k - 1][i] && r.Parameter[k][i] == r.Parameter[k - 1][i] &&
                                 closeTo(r.lambda[k][i], r.lambda[k - 1][i] * 10, 1e-12),
                         qPrintable(where));
            }
        }
        QCOMPARE(blocks[k][9], QString("number of improved points: %1/%2").arg(improved).arg(n));
    }
    QVERIFY(accepted > 0 && rejected > 0);
}

// The weights of iteration k are in force from iteration k + 1 on, for the
// new SSR and the previous one alike: ties stay ties when the weights change.
void TestAmbrelMethod::changedWeightsKeepTies()
{
    ambrel_method engine;
    configure(engine, toyProject("2+0*A", 3.0), {0.2, 0.5, 0.9, 1.2}, 4, 0);
    engine.settings.weightsPerIteration = {{1, 1, 1, 1}, {4, 4, 4, 4}, {1, 0, 0, 0}};
    engine.run();

    const QVector<double> expectedSsr{4, 4, 16, 1};
    for (int k = 0; k < 4; ++k) {
        QVERIFY(closeTo(engine.result.lambda[k], QVector<double>(4, std::pow(10.0, -k)), 1e-12));
        QCOMPARE(engine.result.SSR[k], QVector<double>(4, expectedSsr[k]));
    }
}

// The last Stage 1 cluster is evaluated again by Stage 2 unchanged. Here the
// Stage 2 model gets ten times the dose, so every SSR rises at the switch; no
// point is rejected for it and lambda restarts from its initial value.
void TestAmbrelMethod::stageSwitchKeepsClusterAndResetsLambda()
{
    const ProjectModel tenfold = toyProject("A", kFitted, 10.0);
    ambrel_method engine;
    const int n = 6;
    configure(engine, toyProject("A", kFitted), {0.2, 0.5, 0.9, 1.2, 1.5, 1.8}, 3, 3);
    engine.evaluator.stage2 = model_ode(tenfold.system, tenfold.doseEvents, tenfold.observations);
    engine.evaluator.stage2.useRosenbrock = 0;
    engine.settings.initialLambda = 0.5;
    engine.run();

    const compResult &r = engine.result;
    QCOMPARE(r.X.size(), 6);
    QVERIFY(r.X[1] != r.X[0] || r.X[2] != r.X[1]); // Stage 1 did step
    QCOMPARE(r.X[3], r.X[2]);
    for (int i = 0; i < n; ++i) {
        QVERIFY2(r.SSR[3][i] > r.SSR[2][i], qPrintable(QString("point %1").arg(i)));
        QCOMPARE(r.SSR[3][i], sumOfSquaredResiduals(r.Y[3][i], engine.target));
        QCOMPARE(r.lambda[3][i], 0.5);
        QVERIFY(closeTo(r.lambda[4][i], 0.05, 1e-12) || closeTo(r.lambda[4][i], 5.0, 1e-12));
    }
    QCOMPARE(iterationBlocks(r.log)[3][9], QString("number of improved points: 6/6"));
}

// The point at k = 1 - 1e-14 fails at every proposal: lambda grows tenfold per
// iteration. Past 1e10 the point is frozen: not evaluated, so its lambda keeps
// growing; had it been evaluated, its unchanged proposal would tie and divide
// lambda again.
void TestAmbrelMethod::rejectedPointFreezesAboveTheLimit()
{
    ambrel_method engine;
    const double edge = 1.0 - 1e-14;
    configure(engine, toyProject("k+0*LOG(1-k)", 3.0), {0.2, 0.4, 0.6, edge}, 14, 0);
    engine.run();

    const compResult &r = engine.result;
    QCOMPARE(r.lambda.size(), 14);
    for (int k = 0; k < 14; ++k) {
        QVERIFY2(closeTo(r.lambda[k][3], std::pow(10.0, k), 1e-9),
                 qPrintable(QString("k=%1 lambda=%2").arg(k).arg(r.lambda[k][3])));
        QCOMPARE(r.X[k][3][0], edge);
        QVERIFY(closeTo(r.SSR[k][3], 4 * (3 - edge) * (3 - edge), 1e-12));
    }
}

// A point that fails at iteration 0 and whose re-sampled replacement fails too
// stays in the cluster with NaN: three values for four points, so the upper
// quartile is NaN. The failed point keeps its place and its lambda grows.
void TestAmbrelMethod::failedPointsAndTheUpperQuartile()
{
    ambrel_method engine;
    configure(engine, toyProject("k+0*LOG(1-k)", 3.0), {0.6, 0.4, 0.2, 1.7}, 3, 0);
    engine.domainLower = {1.5}; // re-sampling only where the model fails
    engine.domainUpper = {2.0};
    engine.settings.maxInitialTries = 0;
    engine.run();

    const compResult &r = engine.result;
    QCOMPARE(r.log.first(), QString("Only 3 out of 4 model evaluations were successful"));
    const QVector<QStringList> blocks = iterationBlocks(r.log);
    QCOMPARE(blocks.size(), 3);
    QCOMPARE(blocks[0].mid(4, 6),
             (QStringList{"===Current Cluster Stat===", "min: 23.04", "1/4 percentile: 27.04",
                          "median: 31.36", "3/4 percentile: NaN", "number of improved points: 3/4"}));
    const double replaced = r.X[0][3][0];
    QVERIFY(replaced >= 1.5 && replaced < 2.0);
    for (int k = 0; k < 3; ++k) {
        QVERIFY(std::isnan(r.SSR[k][3]));
        QCOMPARE(r.X[k][3][0], replaced);
        QVERIFY(closeTo(r.lambda[k][3], std::pow(10.0, k), 1e-12));
        QCOMPARE(blocks[k][8], QString("3/4 percentile: NaN"));
        for (int i = 0; i < 3; ++i)
            QVERIFY(!std::isnan(r.SSR[k][i]));
    }
}

void TestAmbrelMethod::abortLater_data()
{
    QTest::addColumn<bool>("afterStatistics");
    QTest::addColumn<int>("kept");
    // Right after the evaluation of iteration kept, which is dropped.
    QTest::newRow("at iteration 0") << false << 0;
    QTest::newRow("after evaluation") << false << 2;
    // After iteration 2 is complete: no step is made, iteration 3 is
    // evaluated and dropped.
    QTest::newRow("after the result") << true << 3;
}

void TestAmbrelMethod::abortLater()
{
    QFETCH(bool, afterStatistics);
    QFETCH(int, kept);
    ambrel_method engine;
    const int n = 4;
    configure(engine, toyProject("A", kFitted), {0.2, 0.5, 0.9, 1.2}, 5, 1);
    SignalRecord seen(engine);
    DoubleMatrix evaluatedAfterAbort;
    bool aborted = false;
    QObject::connect(&engine, &ambrel_method::current_computation_result, [&](const compResult &r) {
        aborted = afterStatistics && r.X.size() == 3;
        if (aborted)
            engine.abort();
    });
    QObject::connect(&engine, &ambrel_method::additional_modelEval, [&](int value) {
        if (aborted)
            evaluatedAfterAbort = engine.result.X.last();
        if (!afterStatistics && value == (kept + 1) * n + 1)
            engine.abort();
    });
    const RunOutcome outcome = engine.run();

    const compResult &r = engine.result;
    for (int size : {r.X.size(), r.Y.size(), r.SSR.size(), r.lambda.size(), r.Parameter.size(), seen.results})
        QCOMPARE(size, kept);
    QCOMPARE(seen.completed, 1);
    // Every evaluation done is reported and counted, the dropped one included.
    QCOMPARE(seen.additionalEvaluations.size(), kept + 1);
    QCOMPARE(seen.additionalEvaluations.last(), (kept + 1) * n + 1);
    QCOMPARE(int(outcome.status), int(RunOutcome::Status::Aborted));
    QCOMPARE(outcome.iterationsDone, kept);
    QCOMPARE(outcome.modelEvaluations, qint64((kept + 1) * n));
    QVERIFY(outcome.messages.isEmpty());
    const QVector<QStringList> blocks = iterationBlocks(r.log);
    QCOMPARE(blocks.size(), kept);
    if (kept > 0)
        QCOMPARE(blocks.last()[2], "         iterNumber: " + QString::number(kept - 1));
    if (afterStatistics)
        QCOMPARE(evaluatedAfterAbort, r.X[2]); // the step was not applied
    if (kept == 0) {                           // a restart has nothing to repeat and ends at once
        engine.rerun();
        QVERIFY(r.X.isEmpty() && seen.results == 0 && seen.completed == 2);
    }
}

// A run stopped after iteration 2 is continued by a fresh engine from the
// stored record: iteration 2 is repeated with the lambda stored for it and
// the run goes on. With ties every iteration divides lambda by 10, so a lambda
// not restored from the record would show.
void TestAmbrelMethod::rerunContinuesTheHistories()
{
    const ProjectModel project = toyProject("2+0*A", 3.0);
    const int n = 4;
    compResult stored;
    {
        ambrel_method first;
        configure(first, project, {0.2, 0.5, 0.9, 1.2}, 6, 0);
        QObject::connect(&first, &ambrel_method::additional_modelEval, [&](int value) {
            if (value == 4 * n + 1)
                first.abort();
        });
        first.run();
        stored = first.result;
    }
    QCOMPARE(stored.X.size(), 3);

    ambrel_method second;
    configure(second, project, {0.2, 0.5, 0.9, 1.2}, 6, 0);
    second.result = stored;
    SignalRecord seen(second);
    second.rerun();

    const compResult &r = second.result;
    QCOMPARE(r.X.size(), 6);
    QCOMPARE(r.SSR.size(), 6);
    QCOMPARE(r.X.mid(0, 2), stored.X.mid(0, 2));
    QCOMPARE(r.SSR.mid(0, 2), stored.SSR.mid(0, 2));
    QCOMPARE(r.lambda.mid(0, 2), stored.lambda.mid(0, 2));
    for (int k = 2; k < 6; ++k)
        QVERIFY2(closeTo(r.lambda[k], QVector<double>(n, std::pow(10.0, -k - 1)), 1e-12),
                 qPrintable(QString("k=%1: %2").arg(k).arg(r.lambda[k][0])));
    QCOMPARE(seen.maxEvaluations, QVector<int>{24});
    QCOMPARE(seen.additionalEvaluations, (QVector<int>{13, 17, 21, 25}));
    // The log goes on after the stored one.
    QCOMPARE(r.log.mid(0, stored.log.size()), stored.log);
    const QVector<QStringList> blocks = iterationBlocks(r.log);
    QCOMPARE(blocks.size(), 3 + 4);
    QCOMPARE(blocks[3][2], QString("         iterNumber: 2"));
    QCOMPARE(blocks[6][2], QString("         iterNumber: 5"));
}

// Every point fails and so does the one re-sampling round allowed.
void TestAmbrelMethod::refusedAtScreening()
{
    ambrel_method engine;
    configure(engine, toyProject("k+0*LOG(1-k)", 3.0), {1.6, 1.8}, 3, 1);
    engine.domainLower = {1.5};
    engine.domainUpper = {2.0};
    engine.settings.maxInitialTries = 0;
    QVector<RunOutcome> sent;
    QObject::connect(&engine, &ambrel_method::runFinished, [&](const RunOutcome &o) { sent << o; });
    const RunOutcome refused = engine.run();
    QCOMPARE(int(refused.status), int(RunOutcome::Status::RefusedAtScreening));
    QCOMPARE(refused.iterationsDone, 0);
    QCOMPARE(refused.modelEvaluations, qint64(2 + 2));
    QCOMPARE(refused.messages,
             QStringList{"Model evaluation is not possible, double-check the model definition "
                         "and reasonableness of the initial cluster."});
    QVERIFY(engine.result.log.contains(refused.messages.first()));
    QCOMPARE(sent.size(), 1);
    QCOMPARE(sent[0].messages, refused.messages);
}

QTEST_GUILESS_MAIN(TestAmbrelMethod)
#include "test_ambrel_method.moc"
