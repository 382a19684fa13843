// The engine's iteration, driven the way a headless caller drives it: a
// project folder is loaded, the evaluators and the target are filled from it
// and run() is called on the test's own thread. Exact behaviour is checked on
// one-parameter toy models (k = x1, dA/dt = -k*A after a unit bolus, four
// observations), whose observation expression is chosen per test:
//
//   "2+0*A"         the same output for every k: every step is exactly zero
//                   and every SSR ties with the previous one;
//   "A"             an ordinary fit with real steps;
//   "k+0*LOG(1-k)"  the output is k itself, and NaN for k > 1, so a point
//                   just below 1 that is pulled upwards fails at every step.
//
// The last test is a whole run on the oral-absorption example.
#include "engine/ambrel_method.h"
#include "model/ParameterSpecification.h"
#include "project/ProjectModel.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const QString kBanner = QStringLiteral("<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<");
const QString kTimePrefix = QStringLiteral("Total Computation time so far (in min): ");

void dropDebugMessages(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type != QtDebugMsg && type != QtInfoMsg)
        std::fprintf(stderr, "%s\n", qPrintable(message));
}

bool writeFile(const QString &path, const QString &text)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    file.write(text.toUtf8());
    return true;
}

// A toy project in dir: k = x1 with domain [0.1, 2], a bolus of dose into A
// at t = 0, and observations of expression at t = 1, 2, 3, 4, all observed
// as the value observed.
ProjectModel toyProject(const QTemporaryDir &dir, const QString &expression, double observed,
                        double dose = 1.0)
{
    const QString model = dir.path() + "/model/";
    QDir().mkpath(model);
    QString observations;
    for (int t = 1; t <= 4; ++t)
        observations += QString("%1,%2,%3\n").arg(t).arg(expression).arg(observed, 0, 'g', 17);
    writeFile(model + "ODE_expression.txt", "dAdt = -k*A\n");
    writeFile(model + "parameter_specifications.csv", "0.1,2,0,100\n");
    writeFile(model + "reparaDefinition.txt", "k=x1\n");
    writeFile(model + "reparaInverse.txt", "x1=k\n");
    writeFile(model + "dose_events.txt", QString("0,A,%1,0,bolus\n").arg(dose));
    writeFile(model + "observations.txt", observations);
    return loadProjectModel(dir.path());
}

model_ode stageModel(const ProjectModel &project, bool rosenbrock)
{
    model_ode model(project.system, project.doseEvents, project.observations);
    model.useRosenbrock = rosenbrock ? 1 : 0;
    model.rosenbrockRelativeTolerance = 0.1;
    return model;
}

// Fills the engine as the workbench does before a run; nothing is written
// to disk (no project folder).
void configure(ambrel_method &engine, const ProjectModel &project, const DoubleMatrix &cluster, int stage1,
               int stage2)
{
    engine.evaluator.stage1 = stageModel(project, true);
    engine.evaluator.stage2 = stageModel(project, false);
    engine.evaluator.g = project.g;
    engine.evaluator.parameterNames = project.system.parameterNames;
    engine.evaluator.observations = project.observations;
    engine.target = project.observedValues;
    const SearchDomain domain =
            searchDomain(project.gInverse, project.searchVariableCount, project.parameterRows);
    engine.domainLower = domain.lower;
    engine.domainUpper = domain.upper;
    engine.settings.stage1Iterations = stage1;
    engine.settings.stage2Iterations = stage2;
    engine.result = compResult();
    engine.result.X = {cluster};
}

DoubleMatrix column(const QVector<double> &values)
{
    DoubleMatrix rows;
    for (double v : values)
        rows << QVector<double>{v};
    return rows;
}

double ssrOf(const QVector<double> &output, const QVector<double> &target)
{
    if (output.size() != target.size())
        return kNaN;
    double sum = 0;
    for (int j = 0; j < output.size(); ++j)
        sum += (output[j] - target[j]) * (output[j] - target[j]);
    return sum;
}

bool closeTo(double value, double expected, double relative = 1e-12)
{
    return std::abs(value - expected) <= relative * std::abs(expected);
}

// The log's statistics blocks: for each "iterNumber" line, the lines from
// the empty line before it up to the time line that ends the iteration.
QVector<QStringList> iterationBlocks(const QStringList &log)
{
    QVector<QStringList> blocks;
    for (int i = 0; i < log.size(); ++i) {
        if (!log[i].startsWith("         iterNumber: "))
            continue;
        QStringList block;
        for (int j = i - 2; j < log.size(); ++j) {
            block << log[j];
            if (log[j].startsWith(kTimePrefix))
                break;
        }
        blocks << block;
    }
    return blocks;
}

struct SignalRecord {
    QVector<int> maxEvaluations;
    QVector<int> additionalEvaluations;
    int results = 0;
    int completed = 0;
};

void record(ambrel_method &engine, SignalRecord &seen)
{
    QObject::connect(&engine, &ambrel_method::max_modelEval, [&seen](int v) { seen.maxEvaluations << v; });
    QObject::connect(&engine, &ambrel_method::additional_modelEval,
                     [&seen](int v) { seen.additionalEvaluations << v; });
    QObject::connect(&engine, &ambrel_method::current_computation_result,
                     [&seen](const compResult &) { ++seen.results; });
    QObject::connect(&engine, &ambrel_method::calculationCompleted, [&seen] { ++seen.completed; });
}

} // namespace

class TestAmbrelMethod : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void tiesAreAcceptedLogAndProgress();
    void everyStepIsJudgedByItsOwnSsr();
    void changedWeightsKeepTies();
    void stageSwitchKeepsClusterAndResetsLambda();
    void rejectedPointFreezesAboveTheLimit();
    void failedPointsAndTheUpperQuartile();
    void abortAtIterationZero();
    void abortLater_data();
    void abortLater();
    void rerunContinuesTheHistories();
    void rerunWithNothingStored();
    void outcomeOfEachEnding();
    void endToEndOralAbsorption();
};

void TestAmbrelMethod::initTestCase()
{
    qInstallMessageHandler(dropDebugMessages);
}

// Constant outputs: no step moves, every SSR ties and is accepted, so lambda
// falls by 10 per iteration and is reset at the first Stage 2 iteration.
// The log is compared line by line; the seen carry the documented values.
void TestAmbrelMethod::tiesAreAcceptedLogAndProgress()
{
    QTemporaryDir dir;
    // Residual 555.5555... at four observations: SSR 1234567.8.
    const ProjectModel project = toyProject(dir, "2+0*A", 557.5555327777773);
    QVERIFY2(project.isValid(), qPrintable(problemTexts(project.problems).join("; ")));
    ambrel_method engine;
    const DoubleMatrix cluster = column({0.3, 0.6, 0.9, 1.2});
    configure(engine, project, cluster, 3, 2);
    SignalRecord seen;
    record(engine, seen);
    engine.run();

    const compResult &r = engine.result;
    QCOMPARE(r.X.size(), 5);
    QCOMPARE(r.SSR.size(), 5);
    QCOMPARE(r.lambda.size(), 5);
    const QVector<double> expectedLambda{1, 0.1, 0.01, 1, 0.1};
    for (int k = 0; k < 5; ++k) {
        QCOMPARE(r.X[k], cluster);
        for (int i = 0; i < 4; ++i) {
            QVERIFY(closeTo(r.lambda[k][i], expectedLambda[k]));
            QVERIFY(closeTo(r.SSR[k][i], 1234567.8, 1e-9));
        }
    }

    QCOMPARE(seen.maxEvaluations, QVector<int>{20});
    QCOMPARE(seen.additionalEvaluations, (QVector<int>{5, 9, 13, 17, 21}));
    QCOMPARE(seen.results, 5);
    QCOMPARE(seen.completed, 1);
    QVERIFY(!engine.running);

    QCOMPARE(r.log.first(), QString("Only 4 out of 4 model evaluations were successful"));
    const QVector<QStringList> blocks = iterationBlocks(r.log);
    QCOMPARE(blocks.size(), 5);
    for (int k = 0; k < 5; ++k) {
        const QStringList &block = blocks[k];
        QCOMPARE(block.size(), 11);
        const QStringList expected{QString(),
                                   kBanner,
                                   "         iterNumber: " + QString::number(k),
                                   kBanner,
                                   "===Current Cluster Stat===",
                                   "min: 1.23457e+06",
                                   "1/4 percentile: 1.23457e+06",
                                   "median: 1.23457e+06",
                                   "3/4 percentile: 1.23457e+06",
                                   "number of improved points: 4/4"};
        QCOMPARE(block.mid(0, 10), expected);
        QVERIFY(block[10].startsWith(kTimePrefix));
        bool ok = false;
        const double minutes = block[10].mid(kTimePrefix.size()).toDouble(&ok);
        QVERIFY(ok && minutes >= 0 && minutes < 1);
    }
    // Nothing but the screening line and the five blocks.
    QCOMPARE(r.log.size(), 1 + 5 * 11);
}

// An ordinary fit. Every proposal is re-evaluated here with the same
// evaluator: a point moves to its proposal exactly when the proposal's SSR is
// not NaN and not above the previous SSR, and its lambda follows (/10, x10).
void TestAmbrelMethod::everyStepIsJudgedByItsOwnSsr()
{
    QTemporaryDir dir;
    const ProjectModel project = toyProject(dir, "A", std::exp(-0.7 * 2.0));
    QVERIFY(project.isValid());
    ambrel_method engine;
    const int n = 8, iterations = 10;
    configure(engine, project, column({0.1, 0.3, 0.5, 0.8, 1.0, 1.3, 1.6, 1.9}), iterations, 0);
    // The proposals: X_k as it stands when iteration k has been evaluated.
    QVector<DoubleMatrix> proposals;
    QObject::connect(&engine, &ambrel_method::additional_modelEval,
                     [&] { proposals << engine.result.X.last(); });
    engine.run();

    const compResult &r = engine.result;
    QCOMPARE(r.X.size(), iterations);
    QCOMPARE(proposals.size(), iterations);
    const QVector<QStringList> blocks = iterationBlocks(r.log);
    QCOMPARE(blocks.size(), iterations);
    int accepted = 0, rejected = 0;
    for (int k = 1; k < iterations; ++k) {
        int improved = 0;
        for (int i = 0; i < n; ++i) {
            const double previous = r.SSR[k - 1][i];
            const PointEvaluation evaluated = engine.evaluator.evaluatePoint(proposals[k][i]);
            const double proposed = ssrOf(evaluated.outputs, engine.target);
            const QString where =
                    QString("k=%1 i=%2 prev=%3 new=%4").arg(k).arg(i).arg(previous).arg(proposed);
            if (!(proposed > previous || std::isnan(proposed))) {
                ++accepted;
                ++improved;
                QVERIFY2(r.X[k][i] == proposals[k][i], qPrintable(where));
                QVERIFY2(r.SSR[k][i] == proposed, qPrintable(where));
                QVERIFY2(r.Y[k][i] == evaluated.outputs, qPrintable(where));
                QVERIFY2(closeTo(r.lambda[k][i], r.lambda[k - 1][i] / 10), qPrintable(where));
            } else {
                ++rejected;
                QVERIFY2(r.X[k][i] == r.X[k - 1][i], qPrintable(where));
                QVERIFY2(r.SSR[k][i] == previous, qPrintable(where));
                QVERIFY2(r.Y[k][i] == r.Y[k - 1][i], qPrintable(where));
                QVERIFY2(r.Parameter[k][i] == r.Parameter[k - 1][i], qPrintable(where));
                QVERIFY2(closeTo(r.lambda[k][i], r.lambda[k - 1][i] * 10), qPrintable(where));
            }
        }
        QCOMPARE(blocks[k][9], QString("number of improved points: %1/%2").arg(improved).arg(n));
    }
    // Both branches were exercised.
    QVERIFY2(accepted > 0 && rejected > 0,
             qPrintable(QString("%1 accepted, %2 rejected").arg(accepted).arg(rejected)));
}

// The weights of iteration k are in force from iteration k + 1 on, for the
// new SSR and for the previous one alike: tying outputs stay ties when the
// weights change, and the stored SSR carries the weights of its iteration.
void TestAmbrelMethod::changedWeightsKeepTies()
{
    QTemporaryDir dir;
    const ProjectModel project = toyProject(dir, "2+0*A", 3.0);
    ambrel_method engine;
    configure(engine, project, column({0.2, 0.5, 0.9, 1.2}), 4, 0);
    engine.settings.weightsPerIteration = {{1, 1, 1, 1}, {4, 4, 4, 4}, {1, 0, 0, 0}};
    engine.run();

    const compResult &r = engine.result;
    const QVector<double> expectedSsr{4, 4, 16, 1};
    for (int k = 0; k < 4; ++k)
        for (int i = 0; i < 4; ++i) {
            QVERIFY(closeTo(r.lambda[k][i], std::pow(10.0, -k)));
            QCOMPARE(r.SSR[k][i], expectedSsr[k]);
        }
}

// The last Stage 1 cluster is evaluated again by Stage 2 unchanged. Here the
// Stage 2 model gets ten times the dose, so every SSR rises at the switch; no
// point is rejected for it and lambda restarts from its initial value.
void TestAmbrelMethod::stageSwitchKeepsClusterAndResetsLambda()
{
    QTemporaryDir dir, doubled;
    const ProjectModel project = toyProject(dir, "A", std::exp(-0.7 * 2.0));
    const ProjectModel stage2Project = toyProject(doubled, "A", std::exp(-0.7 * 2.0), 10.0);
    QVERIFY(project.isValid() && stage2Project.isValid());
    ambrel_method engine;
    const int n = 6;
    configure(engine, project, column({0.2, 0.5, 0.9, 1.2, 1.5, 1.8}), 3, 3);
    engine.evaluator.stage2 = stageModel(stage2Project, false);
    engine.settings.initialLambda = 0.5;
    engine.run();

    const compResult &r = engine.result;
    QCOMPARE(r.X.size(), 6);
    QVERIFY(r.X[1] != r.X[0] || r.X[2] != r.X[1]); // Stage 1 did step
    QCOMPARE(r.X[3], r.X[2]);
    for (int i = 0; i < n; ++i) {
        QVERIFY2(r.SSR[3][i] > r.SSR[2][i], qPrintable(QString("point %1").arg(i)));
        QCOMPARE(r.SSR[3][i], ssrOf(r.Y[3][i], engine.target));
        QCOMPARE(r.lambda[3][i], 0.5);
        // Ten times the dose, ten times the amount (within the Stage 1 tolerance).
        for (int j = 0; j < r.Y[3][i].size(); ++j)
            QVERIFY(std::abs(r.Y[3][i][j] / r.Y[2][i][j] - 10.0) < 3.0);
        QVERIFY(closeTo(r.lambda[4][i], 0.05) || closeTo(r.lambda[4][i], 5.0));
    }
    QCOMPARE(iterationBlocks(r.log)[3][9], QString("number of improved points: 6/6"));
}

// The point at k = 1 - 1e-14 is pulled towards 3 and fails at every
// proposal: lambda grows tenfold per iteration. Past 1e10 the point is frozen:
// not evaluated, so its lambda keeps growing; had it been evaluated, its
// unchanged proposal would tie and divide lambda again.
void TestAmbrelMethod::rejectedPointFreezesAboveTheLimit()
{
    QTemporaryDir dir;
    const ProjectModel project = toyProject(dir, "k+0*LOG(1-k)", 3.0);
    QVERIFY(project.isValid());
    ambrel_method engine;
    const double edge = 1.0 - 1e-14;
    configure(engine, project, column({0.2, 0.4, 0.6, edge}), 14, 0);
    engine.run();

    const compResult &r = engine.result;
    QCOMPARE(r.lambda.size(), 14);
    for (int k = 0; k < 14; ++k) {
        QVERIFY2(closeTo(r.lambda[k][3], std::pow(10.0, k), 1e-9),
                 qPrintable(QString("k=%1 lambda=%2").arg(k).arg(r.lambda[k][3])));
        QCOMPARE(r.X[k][3][0], edge);
        QVERIFY(closeTo(r.SSR[k][3], 4 * (3 - edge) * (3 - edge)));
    }
}

// A point that fails at iteration 0 and whose re-sampled replacement fails
// too stays in the cluster with NaN: three values for four points, so the
// upper quartile is reported as NaN. The failed point keeps its place and its
// lambda grows.
void TestAmbrelMethod::failedPointsAndTheUpperQuartile()
{
    QTemporaryDir dir;
    const ProjectModel project = toyProject(dir, "k+0*LOG(1-k)", 3.0);
    QVERIFY(project.isValid());
    ambrel_method engine;
    configure(engine, project, column({0.6, 0.4, 0.2, 1.7}), 3, 0);
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
        QVERIFY(closeTo(r.lambda[k][3], std::pow(10.0, k)));
        QCOMPARE(blocks[k][8], QString("3/4 percentile: NaN"));
        for (int i = 0; i < 3; ++i)
            QVERIFY(!std::isnan(r.SSR[k][i]));
    }
}

void TestAmbrelMethod::abortAtIterationZero()
{
    QTemporaryDir dir;
    const ProjectModel project = toyProject(dir, "A", std::exp(-0.7 * 2.0));
    ambrel_method engine;
    configure(engine, project, column({0.2, 0.5, 0.9, 1.2}), 4, 1);
    SignalRecord seen;
    record(engine, seen);
    QObject::connect(&engine, &ambrel_method::additional_modelEval, &engine, &ambrel_method::abort);
    engine.run();

    const compResult &r = engine.result;
    QVERIFY(r.X.isEmpty() && r.Y.isEmpty() && r.SSR.isEmpty() && r.lambda.isEmpty() && r.Parameter.isEmpty());
    QCOMPARE(seen.additionalEvaluations, QVector<int>{5});
    QCOMPARE(seen.results, 0);
    QCOMPARE(seen.completed, 1);
    QVERIFY(!engine.running);
    QVERIFY(iterationBlocks(r.log).isEmpty());
}

void TestAmbrelMethod::abortLater_data()
{
    QTest::addColumn<bool>("afterStatistics");
    QTest::addColumn<int>("kept");
    // Right after iteration 2's evaluation: iteration 2 is dropped.
    QTest::newRow("after evaluation") << false << 2;
    // After iteration 2 is complete: no step is made, iteration 3 is
    // evaluated and dropped.
    QTest::newRow("after the result") << true << 3;
}

void TestAmbrelMethod::abortLater()
{
    QFETCH(bool, afterStatistics);
    QFETCH(int, kept);
    QTemporaryDir dir;
    const ProjectModel project = toyProject(dir, "A", std::exp(-0.7 * 2.0));
    ambrel_method engine;
    const int n = 4;
    configure(engine, project, column({0.2, 0.5, 0.9, 1.2}), 5, 1);
    SignalRecord seen;
    record(engine, seen);
    DoubleMatrix evaluatedAfterAbort;
    bool aborted = false;
    if (afterStatistics) {
        QObject::connect(&engine, &ambrel_method::current_computation_result, [&](const compResult &r) {
            if (r.X.size() == 3) {
                engine.abort();
                aborted = true;
            }
        });
        QObject::connect(&engine, &ambrel_method::additional_modelEval, [&] {
            if (aborted)
                evaluatedAfterAbort = engine.result.X.last();
        });
    } else {
        QObject::connect(&engine, &ambrel_method::additional_modelEval, [&](int value) {
            if (value == 3 * n + 1)
                engine.abort();
        });
    }
    engine.run();

    const compResult &r = engine.result;
    QCOMPARE(r.X.size(), kept);
    QCOMPARE(r.Y.size(), kept);
    QCOMPARE(r.SSR.size(), kept);
    QCOMPARE(r.lambda.size(), kept);
    QCOMPARE(r.Parameter.size(), kept);
    QCOMPARE(seen.results, kept);
    QCOMPARE(seen.completed, 1);
    // Every evaluation done is reported, the dropped one included.
    QCOMPARE(seen.additionalEvaluations.size(), kept + 1);
    QCOMPARE(seen.additionalEvaluations.last(), (kept + 1) * n + 1);
    const QVector<QStringList> blocks = iterationBlocks(r.log);
    QCOMPARE(blocks.size(), kept);
    QCOMPARE(blocks.last()[2], "         iterNumber: " + QString::number(kept - 1));
    if (afterStatistics)
        QCOMPARE(evaluatedAfterAbort, r.X[2]); // the step was not applied
    QVERIFY(!engine.running);
}

// A run stopped after iteration 2 is continued by a fresh engine from the
// stored record: iteration 2 is repeated with the lambda stored for it and
// the run goes on to the end. With tying outputs every iteration divides
// lambda by 10, so a lambda not restored from the record would show.
void TestAmbrelMethod::rerunContinuesTheHistories()
{
    QTemporaryDir dir;
    const ProjectModel project = toyProject(dir, "2+0*A", 3.0);
    const DoubleMatrix cluster = column({0.2, 0.5, 0.9, 1.2});
    const int n = 4;
    compResult stored;
    {
        ambrel_method first;
        configure(first, project, cluster, 6, 0);
        QObject::connect(&first, &ambrel_method::additional_modelEval, [&](int value) {
            if (value == 4 * n + 1)
                first.abort();
        });
        first.run();
        stored = first.result;
    }
    QCOMPARE(stored.X.size(), 3);
    QVERIFY(closeTo(stored.lambda[2][0], 0.01));

    ambrel_method second;
    configure(second, project, cluster, 6, 0);
    second.result = stored;
    SignalRecord seen;
    record(second, seen);
    second.rerun();

    const compResult &r = second.result;
    QCOMPARE(r.X.size(), 6);
    QCOMPARE(r.SSR.size(), 6);
    QCOMPARE(r.lambda.size(), 6);
    for (int k = 0; k < 2; ++k) {
        QCOMPARE(r.X[k], stored.X[k]);
        QCOMPARE(r.SSR[k], stored.SSR[k]);
        QCOMPARE(r.lambda[k], stored.lambda[k]);
    }
    for (int k = 2; k < 6; ++k)
        for (int i = 0; i < n; ++i)
            QVERIFY2(closeTo(r.lambda[k][i], std::pow(10.0, -k - 1)),
                     qPrintable(QString("k=%1: %2").arg(k).arg(r.lambda[k][i])));
    QCOMPARE(seen.maxEvaluations, QVector<int>{24});
    QCOMPARE(seen.additionalEvaluations, (QVector<int>{13, 17, 21, 25}));
    // The log goes on after the stored one.
    QCOMPARE(r.log.mid(0, stored.log.size()), stored.log);
    QVector<QStringList> blocks = iterationBlocks(r.log);
    QCOMPARE(blocks.size(), 3 + 4);
    QCOMPARE(blocks[3][2], QString("         iterNumber: 2"));
    QCOMPARE(blocks[6][2], QString("         iterNumber: 5"));
}

// After an abort at iteration 0 the record holds no cluster: a restart has
// nothing to repeat and ends at once, as a run ends.
void TestAmbrelMethod::rerunWithNothingStored()
{
    QTemporaryDir dir;
    const ProjectModel project = toyProject(dir, "A", std::exp(-0.7 * 2.0));
    ambrel_method engine;
    configure(engine, project, column({0.2, 0.5, 0.9, 1.2}), 3, 1);
    QObject::connect(&engine, &ambrel_method::additional_modelEval, &engine, &ambrel_method::abort);
    engine.run();
    QVERIFY(engine.result.X.isEmpty());

    SignalRecord seen;
    record(engine, seen);
    engine.rerun();
    QVERIFY(engine.result.X.isEmpty() && engine.result.SSR.isEmpty());
    QCOMPARE(seen.results, 0);
    QCOMPARE(seen.completed, 1);
    QVERIFY(!engine.running);
}

// The outcome that run() returns, keeps and sends: a finished, an aborted
// and a refused run. Constant outputs keep every point alive, so every
// iteration integrates all n rows.
void TestAmbrelMethod::outcomeOfEachEnding()
{
    QTemporaryDir dir;
    const ProjectModel tie = toyProject(dir, "2+0*A", 3.0);
    ambrel_method engine;
    configure(engine, tie, column({0.2, 0.5, 0.9, 1.2}), 3, 1);
    QVector<RunOutcome> sent;
    QStringList order;
    QObject::connect(&engine, &ambrel_method::runFinished, [&](const RunOutcome &o) {
        sent << o;
        order << "runFinished";
    });
    QObject::connect(&engine, &ambrel_method::calculationCompleted, [&] { order << "calculationCompleted"; });
    RunOutcome finished = engine.run();
    QCOMPARE(int(finished.status), int(RunOutcome::Status::Finished));
    QCOMPARE(finished.iterationsDone, 4);
    QCOMPARE(finished.modelEvaluations, qint64(4 * 4));
    QVERIFY(finished.wallSeconds > 0 && finished.wallSeconds < 60);
    QVERIFY(finished.messages.isEmpty());
    QCOMPARE(sent.size(), 1);
    QCOMPARE(sent[0].iterationsDone, engine.outcome().iterationsDone);
    QCOMPARE(order, (QStringList{"runFinished", "calculationCompleted"}));

    // Stopped right after iteration 1's evaluation: that iteration is dropped
    // but its evaluation counted.
    configure(engine, tie, column({0.2, 0.5, 0.9, 1.2}), 3, 1);
    const auto stop = QObject::connect(&engine, &ambrel_method::additional_modelEval, [&](int value) {
        if (value == 2 * 4 + 1)
            engine.abort();
    });
    const RunOutcome aborted = engine.run();
    QObject::disconnect(stop);
    QCOMPARE(int(aborted.status), int(RunOutcome::Status::Aborted));
    QCOMPARE(aborted.iterationsDone, 1);
    QCOMPARE(aborted.modelEvaluations, qint64(2 * 4));
    QVERIFY(aborted.messages.isEmpty());

    // Every point fails and so does the one re-sampling round allowed.
    const ProjectModel failing = toyProject(dir, "k+0*LOG(1-k)", 3.0);
    configure(engine, failing, column({1.6, 1.8}), 3, 1);
    engine.domainLower = {1.5};
    engine.domainUpper = {2.0};
    engine.settings.maxInitialTries = 0;
    const RunOutcome refused = engine.run();
    QCOMPARE(int(refused.status), int(RunOutcome::Status::RefusedAtScreening));
    QCOMPARE(refused.iterationsDone, 0);
    QCOMPARE(refused.modelEvaluations, qint64(2 + 2));
    QCOMPARE(refused.messages,
             QStringList{"Model evaluation is not possible, double-check the model definition "
                         "and reasonableness of the initial cluster."});
    QVERIFY(engine.result.log.contains(refused.messages.first()));
    QCOMPARE(sent.size(), 3);
    QCOMPARE(int(sent.last().status), int(RunOutcome::Status::RefusedAtScreening));
}

// A whole run on the example: 250 points drawn uniformly in the search
// domain. The data come from CL = 4, V = 40, ka = 1.2; CL = 4, V = 3.333,
// ka = 0.1 (absorption and elimination rates swapped) gives the same curve.
void TestAmbrelMethod::endToEndOralAbsorption()
{
    const ProjectModel project = loadProjectModel(AMBREL_EXAMPLES_DIR "/oral-absorption");
    QVERIFY2(project.isValid(), qPrintable(problemTexts(project.problems).join("; ")));
    QCOMPARE(project.system.parameterNames, (QStringList{"CL", "V", "ka"}));
    const SearchDomain domain =
            searchDomain(project.gInverse, project.searchVariableCount, project.parameterRows);
    std::mt19937_64 generator(20240611);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const int n = 250;
    DoubleMatrix cluster(n);
    for (QVector<double> &row : cluster)
        for (int q = 0; q < 3; ++q)
            row << domain.lower[q] + unit(generator) * (domain.upper[q] - domain.lower[q]);

    ambrel_method engine;
    configure(engine, project, cluster, 40, 10);
    QElapsedTimer timer;
    timer.start();
    engine.run();
    const qint64 elapsed = timer.elapsed();

    const compResult &r = engine.result;
    QCOMPARE(r.X.size(), 50);
    const QVector<QVector<double>> truths{{4, 40, 1.2}, {4, 40.0 * 0.1 / 1.2, 0.1}};
    auto distanceTo = [](const QVector<double> &parameters, const QVector<double> &truth) {
        double worst = 0;
        for (int q = 0; q < 3; ++q)
            worst = std::max(worst, std::abs(parameters[q] / truth[q] - 1));
        return worst;
    };
    auto nearest = [&](const QVector<double> &parameters) {
        return std::min(distanceTo(parameters, truths[0]), distanceTo(parameters, truths[1]));
    };
    const QVector<double> &best = r.Parameter.last()[r.sortIndex.first()];
    int near = 0;
    for (const QVector<double> &parameters : r.Parameter.last())
        near += nearest(parameters) < 0.02 ? 1 : 0;
    const QString summary = QString("best CL=%1 V=%2 ka=%3 (SSR %4), %5 of %6 points within 2%, %7 ms")
                                    .arg(best[0])
                                    .arg(best[1])
                                    .arg(best[2])
                                    .arg(r.SSR.last()[r.sortIndex.first()])
                                    .arg(near)
                                    .arg(n)
                                    .arg(elapsed);
    qWarning("%s", qPrintable(summary));
    QVERIFY2(nearest(best) < 0.02, qPrintable(summary));
    QVERIFY2(near >= n / 2, qPrintable(summary));
}

QTEST_GUILESS_MAIN(TestAmbrelMethod)
#include "test_ambrel_method.moc"
