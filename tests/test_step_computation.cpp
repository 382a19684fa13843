#include "engine/StepComputation.h"
#include "test_support.h"

#include <boost/numeric/ublas/matrix_proxy.hpp>

#include <QRegularExpression>
#include <QtTest>

#include <cstring>
#include <random>

namespace {

// A cluster and outputs of the linear model Y = X J^T + b, with y* = J x* + b.
struct LinearProblem {
    Matrix X, Y, J;
    Vector b, xStar;
    StepSettings settings;
};

LinearProblem linearProblem(std::size_t n, std::size_t p, std::size_t m, unsigned seed)
{
    std::mt19937_64 generator(seed);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    const auto fill = [&](auto &values, double scale) {
        std::generate(values.begin(), values.end(), [&] { return scale * unit(generator); });
    };
    LinearProblem problem{Matrix(n, p), Matrix(n, m), Matrix(m, p), Vector(m), Vector(p), {}};
    fill(problem.X.data(), 3.0);
    fill(problem.J.data(), 2.0);
    fill(problem.b, 1.0);
    fill(problem.xStar, 1.0);
    for (std::size_t i = 0; i < n; ++i)
        ublas::row(problem.Y, i) = ublas::prod(problem.J, ublas::row(problem.X, i)) + problem.b;
    problem.settings.target = ublas::prod(problem.J, problem.xStar) + problem.b;
    problem.settings.domainLower = Vector(p, -3.0);
    problem.settings.domainUpper = Vector(p, 3.0);
    problem.settings.targetPerturbation = 0.0;
    return problem;
}

// Equal within an absolute tolerance; NaN matches nothing.
template<typename A, typename B>
bool near(const A &actual, const B &expected, double tolerance)
{
    return actual.size() == expected.size() &&
           std::equal(actual.begin(), actual.end(), expected.begin(),
                      [&](double a, double b) { return std::fabs(a - b) <= tolerance; });
}

bool matricesNear(const Matrix &actual, const Matrix &expected, double tolerance)
{
    return actual.size1() == expected.size1() && near(actual.data(), expected.data(), tolerance);
}

// Point i's step lands on x*, the exact minimiser of the linear model.
bool reachesTarget(const LinearProblem &problem, const StepResult &result, std::size_t i)
{
    return near(Vector(ublas::row(problem.X, i) + ublas::row(result.steps, i)), problem.xStar, 1e-8);
}

} // namespace

class TestStepComputation : public QObject {
    Q_OBJECT

private slots:
    void localJacobianOfLinearModel();
    void weights_data();
    void weights();
    void weightingOfTheLocalFit();
    void globalModelPullsInvalidPoints();
    void perturbedTargetStaysInItsBand();
    void identicalPointsGiveNaNSteps();
    void stepsAreTheSameBitsOnAnyThreadCount();
};

void TestStepComputation::localJacobianOfLinearModel()
{
    for (bool uniform : {false, true}) {
        LinearProblem problem = linearProblem(12, 3, 5, 11);
        problem.settings.uniformNeighbourhood = uniform;
        const QVector<bool> mask(12, true);
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression("^Matrix calc time  [0-9.e+-]+$"));
        const StepResult result = computeSteps(problem.X, problem.Y, mask, Vector(12, 0.0), problem.settings);
        // Every local fit of an exactly linear model recovers J; with
        // lambda = 0 the Gauss-Newton step lands on x*.
        QVERIFY(matricesNear(result.lastJacobian, problem.J, 1e-9));
        for (std::size_t i = 0; i < 12; ++i)
            QVERIFY2(reachesTarget(problem, result, i), qPrintable(QString::number(i)));
    }
}

void TestStepComputation::weights_data()
{
    QTest::addColumn<bool>("uniform");
    QTest::addColumn<QVector<double>>("expected"); // row-major 4 x 4
    const double inf = std::numeric_limits<double>::infinity();
    // Ranges 2 and 4: (0,0)-(1,0) and (0,0)-(0,2) are 1/4 apart, (1,0)-(0,2)
    // 1/2; point 3 is invalid; point 4 duplicates point 0.
    QTest::newRow("distance") << false << QVector<double>{0, 4, 4, 0, inf, 4, 0, 2,   0, 4, 4, 2, 0,
                                                          0, 4, 0, 0, 0,   0, 0, inf, 4, 4, 0, 0};
    QTest::newRow("uniform") << true << QVector<double>{0, 1, 1, 0, 1, 1, 0, 1, 0, 1, 1, 1, 0,
                                                        0, 1, 0, 0, 0, 0, 0, 1, 1, 1, 0, 0};
}

void TestStepComputation::weights()
{
    QFETCH(bool, uniform);
    QFETCH(QVector<double>, expected);
    Matrix X(5, 2, 0.0);
    X(1, 0) = X(3, 0) = 1.0;
    X(2, 1) = X(3, 1) = 2.0;
    Vector upper(2, 2.0);
    upper[1] = 4.0;
    const Matrix W = neighbourhoodWeights(X, {true, true, true, false, true}, Vector(2, 0.0), upper, uniform);
    for (int i = 0; i < 5; ++i)
        for (int k = 0; k < 5; ++k)
            QVERIFY2(W(i, k) == expected[i * 5 + k],
                     qPrintable(QString("W(%1,%2) = %3").arg(i).arg(k).arg(W(i, k))));

    Matrix Y(2, 2, 1.0);
    Y(0, 1) = kNaN;
    Y(1, 0) = std::numeric_limits<double>::infinity();
    QCOMPARE(validOutputs(Y), QVector<bool>({false, false}));
    Y(0, 1) = -std::numeric_limits<double>::max();
    Y(1, 0) = 0.0;
    QCOMPARE(validOutputs(Y), QVector<bool>({true, true}));
}

void TestStepComputation::weightingOfTheLocalFit()
{
    // y = x^2 around x = 1 with neighbours at 0, 2, 3 (offsets -1, 1, 2,
    // output changes -1, 3, 8) and an invalid point at index 0.
    // Weights 1/offset^2: slope sum(dy/dx) / 3 = 8/3; uniform: 20/6.
    Matrix X(5, 1), Y(5, 1);
    const double xs[] = {0.5, 1.0, 0.0, 2.0, 3.0};
    for (int i = 0; i < 5; ++i)
        Y(i, 0) = (X(i, 0) = xs[i]) * xs[i];
    Y(0, 0) = kNaN;
    StepSettings settings;
    settings.target = Vector(1, 4.0);
    settings.domainLower = Vector(1, 0.0);
    settings.domainUpper = Vector(1, 4.0);
    const QVector<bool> mask{false, true, false, false, false};
    const double lambda = 1.0;
    for (bool uniform : {false, true}) {
        settings.uniformNeighbourhood = uniform;
        const double slope = uniform ? 20.0 / 6.0 : 8.0 / 3.0;
        const StepResult result = computeSteps(X, Y, mask, Vector(5, lambda), settings);
        QCOMPARE(result.lastJacobian.size1(), std::size_t(1));
        QVERIFY(std::fabs(result.lastJacobian(0, 0) - slope) < 1e-12);
        // J^T J = slope^2 > 1 is scaled by (lambda + 1).
        const double expectedStep = slope * (4.0 - 1.0) / (slope * slope * (lambda + 1.0));
        QVERIFY(std::fabs(result.steps(1, 0) - expectedStep) < 1e-12);
        // Valid points with the mask clear are not moved.
        QCOMPARE(result.steps(2, 0), 0.0);
        QCOMPARE(result.steps(4, 0), 0.0);
    }
}

void TestStepComputation::globalModelPullsInvalidPoints()
{
    LinearProblem problem = linearProblem(10, 2, 3, 5);
    QVector<bool> mask(10, true);
    for (std::size_t j = 0; j < 3; ++j)
        problem.Y(9, j) = kNaN;
    problem.Y(2, 1) = std::numeric_limits<double>::infinity();
    mask[2] = mask[9] = false;
    mask[5] = false;

    const StepResult result = computeSteps(problem.X, problem.Y, mask, Vector(10, 0.0), problem.settings);
    // The invalid points follow the global linear model, fitted on the
    // masked points only, to the target; their outputs poison nothing.
    for (std::size_t i : {0, 1, 2, 3, 4, 6, 7, 8, 9})
        QVERIFY(reachesTarget(problem, result, i));
    QVERIFY(near(ublas::row(result.steps, 5), Vector(2, 0.0), 0.0));
    // The last point is invalid: the global Jacobian is the last one kept.
    QVERIFY(matricesNear(result.lastJacobian, problem.J, 1e-9));

    const Matrix model = globalLinearModel(problem.X, problem.Y, mask);
    QVERIFY(matricesNear(ublas::subrange(model, 0, 3, 0, 2), problem.J, 1e-9));
    QVERIFY(near(ublas::column(model, 2), problem.b, 1e-9));

    // An invalid point is pulled whatever its mask: with its infinite output
    // in the global fit the step is not a number rather than no step.
    mask[2] = true;
    const StepResult poisoned = computeSteps(problem.X, problem.Y, mask, Vector(10, 0.0), problem.settings);
    QVERIFY(std::isnan(poisoned.steps(2, 0)));

    // Without masked points the global fit is empty and pulls nowhere.
    const StepResult idle =
            computeSteps(problem.X, problem.Y, QVector<bool>(10, false), Vector(10, 0.0), problem.settings);
    QCOMPARE(idle.steps(9, 0), 0.0);
}

void TestStepComputation::perturbedTargetStaysInItsBand()
{
    // y = 2x + 1 on valid points, y* = 5: an invalid point aims at
    // t in [4.5, 5.5], so it lands in [1.75, 2.25].
    Matrix X(4, 1), Y(4, 1);
    for (int i = 0; i < 4; ++i)
        Y(i, 0) = 2.0 * (X(i, 0) = i) + 1.0;
    Y(3, 0) = kNaN;
    StepSettings settings;
    settings.target = Vector(1, 5.0);
    settings.domainLower = Vector(1, 0.0);
    settings.domainUpper = Vector(1, 4.0);
    settings.targetPerturbation = 0.1;
    std::srand(7);
    double lowest = 10.0, highest = -10.0;
    for (int round = 0; round < 200; ++round) {
        const StepResult result =
                computeSteps(X, Y, QVector<bool>{true, true, true, false}, Vector(4, 0.0), settings);
        const double landed = X(3, 0) + result.steps(3, 0);
        lowest = std::min(lowest, landed);
        highest = std::max(highest, landed);
    }
    QVERIFY2(lowest >= 1.75 - 1e-12 && highest <= 2.25 + 1e-12,
             qPrintable(QString("%1 %2").arg(lowest).arg(highest)));
    QVERIFY2(highest - lowest > 0.4, qPrintable(QString("%1 %2").arg(lowest).arg(highest)));
}

void TestStepComputation::identicalPointsGiveNaNSteps()
{
    LinearProblem problem = linearProblem(8, 2, 3, 9);
    ublas::row(problem.X, 6) = ublas::row(problem.X, 1);
    ublas::row(problem.Y, 6) = ublas::row(problem.Y, 1);
    const StepResult result =
            computeSteps(problem.X, problem.Y, QVector<bool>(8, true), Vector(8, 0.0), problem.settings);
    QVERIFY(std::isnan(result.steps(1, 0)));
    QVERIFY(std::isnan(result.steps(6, 0)));
    for (std::size_t i : {0, 2, 3, 4, 5, 7})
        QVERIFY(reachesTarget(problem, result, i));
}

// The points are shared out among threads in chunks, their local fits in
// blocks and their neighbours in tiles: none of it may change a bit. Random
// clusters larger than a tile, with failed points (NaN and infinite outputs,
// mask set or clear), clear masks, duplicate points and both neighbourhoods.
void TestStepComputation::stepsAreTheSameBitsOnAnyThreadCount()
{
    const auto sameBits = [](const Matrix &a, const Matrix &b) {
        return a.size1() == b.size1() && a.size2() == b.size2() &&
               std::memcmp(a.data().begin(), b.data().begin(), a.data().size() * sizeof(double)) == 0;
    };
    for (unsigned seed = 1; seed <= 6; ++seed) {
        std::mt19937_64 generator(seed);
        const std::size_t n = 150 + generator() % 200, p = 1 + generator() % 6, m = 1 + generator() % 30;
        LinearProblem problem = linearProblem(n, p, m, seed);
        problem.settings.uniformNeighbourhood = seed % 3 == 0;
        problem.settings.targetPerturbation = 0.1;
        QVector<bool> mask(static_cast<int>(n));
        Vector lambda(n);
        for (std::size_t i = 0; i < n; ++i) {
            mask[int(i)] = generator() % 6 != 0;
            lambda[i] = std::pow(10.0, double(generator() % 7) - 3.0);
            problem.Y(i, generator() % m) += std::sin(double(i)); // not exactly linear
            if (generator() % 9 == 0)
                problem.Y(i, generator() % m) = generator() % 2 ? kNaN : -HUGE_VAL;
        }
        ublas::row(problem.X, n - 2) = ublas::row(problem.X, 3);

        std::srand(seed);
        const StepResult serial = computeSteps(problem.X, problem.Y, mask, lambda, problem.settings, 1);
        const int nextDraw = std::rand();
        for (int threads : {2, 3, 5}) {
            std::srand(seed);
            const StepResult parallel =
                    computeSteps(problem.X, problem.Y, mask, lambda, problem.settings, threads);
            QVERIFY2(sameBits(parallel.steps, serial.steps), qPrintable(QString("seed %1").arg(seed)));
            QVERIFY(sameBits(parallel.lastJacobian, serial.lastJacobian));
            QCOMPARE(std::rand(), nextDraw); // as many draws, taken in the same order
        }
    }
}

QTEST_APPLESS_MAIN(TestStepComputation)
#include "test_step_computation.moc"
