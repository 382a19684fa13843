#include "engine/InitialCluster.h"

#include <QtTest>

#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

// Each output row holds its own SSR, so tests set SSR values directly.
double rowValue(const QVector<double> &row)
{
    return row.isEmpty() ? kNaN : row[0];
}

// An evaluation that answers round after round from a script and records
// the points it was asked for.
struct ScriptedEvaluation {
    QVector<OutputRows> answers; // one per round; rounds past the end fail
    QVector<Matrix> asked;

    OutputRows operator()(const Matrix &points)
    {
        asked << points;
        const int round = asked.size() - 1;
        if (round < answers.size())
            return answers[round];
        return OutputRows(int(points.size1()), QVector<double>{kNaN});
    }
};

InitialClusterScreeningInput inputWith(const QVector<double> &ssr, std::size_t parameters,
                                       ScriptedEvaluation &evaluation)
{
    InitialClusterScreeningInput input;
    input.X0 = Matrix(std::size_t(ssr.size()), parameters, 0.5);
    for (double value : ssr)
        input.outputs << (std::isnan(value) ? QVector<double>() : QVector<double>{value});
    input.domainLower = Vector(parameters, -1.0);
    input.domainUpper = Vector(parameters, 3.0);
    input.domainUpper[0] = 7.0;
    input.ssr = rowValue;
    input.evaluate = [&evaluation](const Matrix &points) { return evaluation(points); };
    return input;
}

QString only(int alive, int n)
{
    return QString("Only %1 out of %2 model evaluations were successful").arg(alive).arg(n);
}

QVector<int> askedCounts(const ScriptedEvaluation &evaluation)
{
    QVector<int> counts;
    for (const Matrix &points : evaluation.asked)
        counts << int(points.size1());
    return counts;
}

} // namespace

class TestInitialCluster : public QObject {
    Q_OBJECT

private slots:
    void allSuccessful();
    void exactThresholdsAreRejected_data();
    void exactThresholdsAreRejected();
    void resamplingDrawsAndPlacement();
    void triesUsedUp();
    void helpers();
};

void TestInitialCluster::allSuccessful()
{
    ScriptedEvaluation evaluation;
    std::mt19937_64 generator(1);
    QTest::ignoreMessage(QtDebugMsg, "sortedtempSSR.size():  4");
    const InitialClusterScreeningResult result =
            screenInitialCluster(inputWith({3, 1, 4, 2}, 2, evaluation), generator);
    QCOMPARE(result.logLines, QStringList{only(4, 4)});
    QVERIFY(!result.abortASAP);
    QCOMPARE(result.rounds, 0);
    QVERIFY(evaluation.asked.isEmpty());
    QCOMPARE(result.accepted, QVector<bool>(4, true));

    // Fewer points than parameters aborts even when every point succeeded.
    QTest::ignoreMessage(QtDebugMsg, "numAlive:  2");
    const InitialClusterScreeningResult tooFew =
            screenInitialCluster(inputWith({1, 2}, 3, evaluation), generator);
    QVERIFY(tooFew.abortASAP);
    QCOMPARE(tooFew.logLines,
             QStringList({only(2, 2),
                          "The number of points in initial cluster is too few, go back to Step 3-2 "
                          "and increase it to be larger than number of parameters.",
                          "2 out of 2model evaluations were successful"}));
}

void TestInitialCluster::exactThresholdsAreRejected_data()
{
    QTest::addColumn<bool>("stricter");
    QTest::addColumn<QVector<OutputRows>>("answers");
    QTest::addColumn<QVector<int>>("expectedAsked");
    QTest::addColumn<QStringList>("expectedLog");

    // First SSRs {1, 1000, 5, 2}: 1000 is exactly 1000 x min.
    QTest::newRow("plain") << false << QVector<OutputRows>{{{999.5}}} << QVector<int>{1}
                           << QStringList{only(3, 4), only(4, 4)};
    // Median (index 2 of {1, 2, 5, 1000}) is 5 and stays 5: a new 5 is
    // rejected again, a new 4.9 accepted.
    QTest::newRow("stricter") << true << QVector<OutputRows>{{{4.9}, {5.0}}, {{3.0}}} << QVector<int>{2, 1}
                              << QStringList{only(2, 4), only(3, 4), only(4, 4)};
}

void TestInitialCluster::exactThresholdsAreRejected()
{
    QFETCH(bool, stricter);
    QFETCH(QVector<OutputRows>, answers);
    QFETCH(QVector<int>, expectedAsked);
    QFETCH(QStringList, expectedLog);

    ScriptedEvaluation evaluation;
    evaluation.answers = answers;
    InitialClusterScreeningInput input = inputWith({1, 1000, 5, 2}, 2, evaluation);
    input.stricterCriteria = stricter;
    std::mt19937_64 generator(2);
    const InitialClusterScreeningResult result = screenInitialCluster(input, generator);
    QCOMPARE(askedCounts(evaluation), expectedAsked);
    QCOMPARE(result.logLines, expectedLog);
    QCOMPARE(result.accepted, QVector<bool>(4, true));
    QVERIFY(!result.abortASAP);
    QCOMPARE(result.replacedRows, stricter ? QVector<int>({1, 2}) : QVector<int>({1}));
}

void TestInitialCluster::resamplingDrawsAndPlacement()
{
    // Rows 1 and 3 fail. Round 0 returns the wrong number of rows and is
    // discarded; round 1's two points go to rows 1 and 3 in order.
    ScriptedEvaluation evaluation;
    evaluation.answers = {{{1.0}}, {{2.0}, {3.0}}};
    InitialClusterScreeningInput input = inputWith({1, kNaN, 2, kNaN, 4}, 2, evaluation);
    std::mt19937_64 generator(42);
    std::mt19937_64 reference(42);
    const InitialClusterScreeningResult result = screenInitialCluster(input, generator);

    QCOMPARE(askedCounts(evaluation), QVector<int>({2, 2}));
    QCOMPARE(result.rounds, 2);
    QCOMPARE(result.logLines, QStringList({only(3, 5), only(3, 5), only(5, 5)}));
    QCOMPARE(result.replacedRows, QVector<int>({1, 3}));
    QCOMPARE(result.outputs[1], QVector<double>{2.0});
    QCOMPARE(result.outputs[3], QVector<double>{3.0});
    QCOMPARE(result.ssr, QVector<double>({1, 2, 2, 3, 4}));

    // Draws go parameter by parameter: first coordinates of both new points,
    // then second coordinates; domain [-1, 7] x [-1, 3].
    const double widths[] = {8.0, 4.0};
    for (const Matrix &points : evaluation.asked) {
        for (std::size_t q = 0; q < 2; ++q)
            for (std::size_t a = 0; a < 2; ++a)
                QCOMPARE(points(a, q), -1.0 + uniformUnit(reference) * widths[q]);
    }
    const Matrix &placed = evaluation.asked[1];
    for (std::size_t q = 0; q < 2; ++q) {
        QCOMPARE(result.X0(1, q), placed(0, q));
        QCOMPARE(result.X0(3, q), placed(1, q));
        QCOMPARE(result.X0(0, q), 0.5);
    }
}

void TestInitialCluster::triesUsedUp()
{
    // Nothing ever succeeds: maxTries + 1 rounds, the last one not logged.
    {
        ScriptedEvaluation evaluation;
        InitialClusterScreeningInput input = inputWith({kNaN, kNaN, kNaN}, 2, evaluation);
        input.maxTries = 3;
        std::mt19937_64 generator(3);
        QTest::ignoreMessage(QtDebugMsg, "numAlive:  0");
        const InitialClusterScreeningResult result = screenInitialCluster(input, generator);
        QCOMPARE(askedCounts(evaluation), QVector<int>({3, 3, 3, 3}));
        QVERIFY(result.abortASAP);
        QCOMPARE(result.logLines,
                 QStringList({only(0, 3), only(0, 3), only(0, 3), only(0, 3),
                              "Model evaluation is not possible, double-check the model definition "
                              "and reasonableness of the initial cluster."}));
    }
    // Enough survivors: the run goes on with the rejected points frozen.
    {
        ScriptedEvaluation evaluation;
        InitialClusterScreeningInput input = inputWith({1, 2, kNaN, 3, 5000}, 2, evaluation);
        input.maxTries = 1;
        std::mt19937_64 generator(4);
        const InitialClusterScreeningResult result = screenInitialCluster(input, generator);
        QVERIFY(!result.abortASAP);
        QCOMPARE(result.numAlive, 3);
        QCOMPARE(result.rounds, 2);
        QCOMPARE(result.accepted, QVector<bool>({true, true, false, true, false}));
        QCOMPARE(result.logLines, QStringList({only(3, 5), only(3, 5)}));
    }
    // Too few survivors for the number of parameters.
    {
        ScriptedEvaluation evaluation;
        InitialClusterScreeningInput input = inputWith({1, kNaN, kNaN, kNaN}, 3, evaluation);
        input.maxTries = 0;
        std::mt19937_64 generator(5);
        QTest::ignoreMessage(QtDebugMsg, "numAlive:  1");
        const InitialClusterScreeningResult result = screenInitialCluster(input, generator);
        QVERIFY(result.abortASAP);
        QCOMPARE(askedCounts(evaluation), QVector<int>{3});
        QCOMPARE(result.logLines,
                 QStringList({only(1, 4),
                              "Too many model evaluations have not-a-number as results, please "
                              "shrink the size of the initial cluster.",
                              "1 out of 4model evaluations were successful"}));
    }
}

void TestInitialCluster::helpers()
{
    QCOMPARE(sumOfSquaredResiduals({1, 2, 4}, {0, 4, 1}), 1.0 + 4.0 + 9.0);
    QVERIFY(std::isnan(sumOfSquaredResiduals({1, 2}, {1, 2, 3})));
    QVERIFY(std::isnan(sumOfSquaredResiduals({}, {1})));
    QVERIFY(std::isnan(sumOfSquaredResiduals({kNaN}, {1})));

    QCOMPARE(unitFromBits(0), 0.0);
    QCOMPARE(unitFromBits(std::uint64_t(1) << 63), 0.5);
    // The largest draws round to 1.0 and are pulled back below it.
    QCOMPARE(unitFromBits(~std::uint64_t(0)), std::nextafter(1.0, 0.0));
    QVERIFY(unitFromBits(~std::uint64_t(0) - 1024) < 1.0);
}

QTEST_APPLESS_MAIN(TestInitialCluster)
#include "test_initial_cluster.moc"
