#include "engine/InitialCluster.h"
#include "test_support.h"

#include <QtTest>

namespace {

// Screens a cluster whose first evaluation gave the SSR values ssr (NaN: the
// point failed) for points of p parameters in [-1, 7] x [-1, 3] x ...; each
// output row holds its own SSR. Re-sampling rounds are answered from answers
// (rounds past its end fail); asked receives the number of points per round.
struct Screening {
    QVector<OutputRows> answers;
    QVector<Matrix> asked;
    InitialClusterScreeningInput input;

    Screening(const QVector<double> &ssr, std::size_t p, int maxTries = 100, bool stricter = false)
    {
        input.X0 = Matrix(std::size_t(ssr.size()), p, 0.5);
        for (double value : ssr)
            input.outputs << (std::isnan(value) ? QVector<double>() : QVector<double>{value});
        input.domainLower = Vector(p, -1.0);
        input.domainUpper = Vector(p, 3.0);
        input.domainUpper[0] = 7.0;
        input.maxTries = maxTries;
        input.stricterCriteria = stricter;
        input.ssr = [](const QVector<double> &row) { return row.value(0, kNaN); };
        input.evaluate = [this](const Matrix &points) {
            asked << points;
            return asked.size() <= answers.size() ? answers[asked.size() - 1]
                                                  : OutputRows(int(points.size1()), {kNaN});
        };
    }
    InitialClusterScreeningResult run(unsigned seed)
    {
        std::mt19937_64 generator(seed);
        return screenInitialCluster(input, generator);
    }
    QVector<int> askedCounts() const
    {
        QVector<int> counts;
        for (const Matrix &points : asked)
            counts << int(points.size1());
        return counts;
    }
};

QString only(int alive, int n)
{
    return QString("Only %1 out of %2 model evaluations were successful").arg(alive).arg(n);
}

} // namespace

class TestInitialCluster : public QObject {
    Q_OBJECT

private slots:
    void allSuccessfulButTooFew();
    void exactThresholdsAreRejected();
    void resamplingDrawsAndPlacement();
    void triesUsedUp();
    void helpers();
};

// Fewer points than parameters aborts even when every point succeeded (a
// full cluster that may go on is the engine tests' everyday case).
void TestInitialCluster::allSuccessfulButTooFew()
{
    Screening tooFew({1, 2}, 3);
    QTest::ignoreMessage(QtDebugMsg, "sortedtempSSR.size():  2");
    QTest::ignoreMessage(QtDebugMsg, "numAlive:  2");
    const InitialClusterScreeningResult refused = tooFew.run(1);
    QVERIFY(refused.abortASAP && tooFew.asked.isEmpty());
    QCOMPARE(refused.logLines,
             QStringList({only(2, 2),
                          "The number of points in initial cluster is too few, go back to Step "
                          "3-2 and increase it to be larger than number of parameters.",
                          "2 out of 2model evaluations were successful"}));
}

// First SSRs {1, 1000, 5, 2}: 1000 is exactly 1000 x min and is rejected.
// Stricter: the median (index 2 of {1, 2, 5, 1000}) is 5 and stays 5, so a
// new 5 is rejected again and a new 4.9 accepted.
void TestInitialCluster::exactThresholdsAreRejected()
{
    Screening plain({1, 1000, 5, 2}, 2);
    plain.answers = {{{999.5}}};
    InitialClusterScreeningResult result = plain.run(2);
    QCOMPARE(plain.askedCounts(), QVector<int>{1});
    QCOMPARE(result.logLines, QStringList({only(3, 4), only(4, 4)}));
    QCOMPARE(result.replacedRows, QVector<int>{1});
    QCOMPARE(result.accepted, QVector<bool>(4, true));

    Screening stricter({1, 1000, 5, 2}, 2, 100, true);
    stricter.answers = {{{4.9}, {5.0}}, {{3.0}}};
    result = stricter.run(2);
    QCOMPARE(stricter.askedCounts(), QVector<int>({2, 1}));
    QCOMPARE(result.logLines, QStringList({only(2, 4), only(3, 4), only(4, 4)}));
    QCOMPARE(result.replacedRows, QVector<int>({1, 2}));
    QCOMPARE(result.accepted, QVector<bool>(4, true));
    QVERIFY(!result.abortASAP);
}

// Rows 1 and 3 fail. Round 0 returns the wrong number of rows and is
// discarded; round 1's two points go to rows 1 and 3 in order. Draws go
// parameter by parameter: first coordinates of both new points, then second.
void TestInitialCluster::resamplingDrawsAndPlacement()
{
    Screening screening({1, kNaN, 2, kNaN, 4}, 2);
    screening.answers = {{{1.0}}, {{2.0}, {3.0}}};
    const InitialClusterScreeningResult result = screening.run(42);
    QCOMPARE(screening.askedCounts(), QVector<int>({2, 2}));
    QCOMPARE(result.rounds, 2);
    QCOMPARE(result.logLines, QStringList({only(3, 5), only(3, 5), only(5, 5)}));
    QCOMPARE(result.replacedRows, QVector<int>({1, 3}));
    QCOMPARE(result.outputs[3], QVector<double>{3.0});
    QCOMPARE(result.ssr, QVector<double>({1, 2, 2, 3, 4}));

    std::mt19937_64 reference(42);
    const double widths[] = {8.0, 4.0};
    for (const Matrix &points : screening.asked)
        for (std::size_t q = 0; q < 2; ++q)
            for (std::size_t a = 0; a < 2; ++a)
                QCOMPARE(points(a, q), -1.0 + uniformUnit(reference) * widths[q]);
    for (std::size_t q = 0; q < 2; ++q) {
        QCOMPARE(result.X0(1, q), screening.asked[1](0, q));
        QCOMPARE(result.X0(3, q), screening.asked[1](1, q));
        QCOMPARE(result.X0(0, q), 0.5);
    }
}

void TestInitialCluster::triesUsedUp()
{
    // Nothing ever succeeds: maxTries + 1 rounds, the last one not logged.
    Screening never({kNaN, kNaN, kNaN}, 2, 3);
    QTest::ignoreMessage(QtDebugMsg, "numAlive:  0");
    InitialClusterScreeningResult result = never.run(3);
    QCOMPARE(never.askedCounts(), QVector<int>({3, 3, 3, 3}));
    QVERIFY(result.abortASAP);
    QCOMPARE(result.logLines,
             QStringList({only(0, 3), only(0, 3), only(0, 3), only(0, 3),
                          "Model evaluation is not possible, double-check the model definition "
                          "and reasonableness of the initial cluster."}));

    // Enough survivors: the run goes on with the rejected points frozen.
    Screening enough({1, 2, kNaN, 3, 5000}, 2, 1);
    result = enough.run(4);
    QVERIFY(!result.abortASAP);
    QCOMPARE(result.numAlive, 3);
    QCOMPARE(result.accepted, QVector<bool>({true, true, false, true, false}));
    QCOMPARE(result.logLines, QStringList({only(3, 5), only(3, 5)}));

    // Too few survivors for the number of parameters.
    Screening few({1, kNaN, kNaN, kNaN}, 3, 0);
    QTest::ignoreMessage(QtDebugMsg, "numAlive:  1");
    result = few.run(5);
    QVERIFY(result.abortASAP);
    QCOMPARE(few.askedCounts(), QVector<int>{3});
    QCOMPARE(result.logLines, QStringList({only(1, 4),
                                           "Too many model evaluations have not-a-number as results, please "
                                           "shrink the size of the initial cluster.",
                                           "1 out of 4model evaluations were successful"}));
}

void TestInitialCluster::helpers()
{
    QCOMPARE(sumOfSquaredResiduals({1, 2, 4}, {0, 4, 1}), 1.0 + 4.0 + 9.0);
    QVERIFY(std::isnan(sumOfSquaredResiduals({1, 2}, {1, 2, 3})));
    QVERIFY(std::isnan(sumOfSquaredResiduals({kNaN}, {1})));
    QCOMPARE(unitFromBits(std::uint64_t(1) << 63), 0.5);
    // The largest draws round to 1.0 and are pulled back below it.
    QCOMPARE(unitFromBits(~std::uint64_t(0)), std::nextafter(1.0, 0.0));
}

QTEST_APPLESS_MAIN(TestInitialCluster)
#include "test_initial_cluster.moc"
