#include "analysis/ClusterStatistics.h"
#include "analysis/Grouping.h"
#include "analysis/PlotThinning.h"
#include "analysis/PointSelection.h"
#include "analysis/ResultFrame.h"
#include "analysis/SsrEnvelope.h"
#include "analysis/Uncertainty.h"
#include "project/ProjectModel.h"

#include <QtTest>

#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

// Two tight groups of 20 points around (0, 0) and (10, 10), interleaved.
DoubleMatrix twoGroups()
{
    DoubleMatrix rows;
    for (int i = 0; i < 20; ++i) {
        const double jitter = 0.1 * std::sin(i * 1.7);
        rows << QVector<double>{jitter, -jitter} << QVector<double>{10 + jitter, 10 + 0.1 * std::cos(i)};
    }
    return rows;
}

} // namespace

class ResultAnalysisTest : public QObject {
    Q_OBJECT

private slots:
    void percentileRule_data();
    void percentileRule();
    void kMeansSeparatesGroupsDeterministically();
    void kMeansEdgeCases();
    void groupCountBySilhouette();
    void groupSummaries();
    void correlationAgainstHandComputation();
    void summariesAndQuartiles();
    void lowerEnvelope();
    void thinning();
    void standardErrorsOfLinearModel();
    void uncertaintyRefusals();
    void modelJacobianLinearisesTheModel();
    void frameFromModelOrNumbered();
};

void ResultAnalysisTest::percentileRule_data()
{
    QTest::addColumn<QVector<double>>("ssr");
    QTest::addColumn<int>("percentile");
    QTest::addColumn<double>("tolerance"); // NaN: no tolerance
    QTest::addColumn<QVector<int>>("points");
    QTest::addColumn<int>("best");

    const QVector<double> five{5, 1, 4, 2, 3};
    // n = 5, 60 %: position 5 * 60 / 100 - 1 = 2, the third smallest.
    QTest::newRow("position") << five << 60 << 3.0 << QVector<int>{1, 3, 4} << 1;
    QTest::newRow("whole numbers") << five << 39 << 1.0 << QVector<int>{1} << 1; // 195 / 100 - 1 = 0
    QTest::newRow("below the first entry") << five << 19 << kNaN << QVector<int>{1, 3, 4, 2, 0} << 1;
    QTest::newRow("100") << five << 100 << 5.0 << QVector<int>{1, 3, 4, 2, 0} << 1;
    QTest::newRow("0") << five << 0 << kNaN << QVector<int>{1, 3, 4, 2, 0} << 1;
    QTest::newRow("one point") << QVector<double>{7} << 50 << kNaN << QVector<int>{0} << 0;
    QTest::newRow("ties at the tolerance")
            << QVector<double>{1, 2, 2, 3} << 50 << 2.0 << QVector<int>{0, 1, 2} << 0;
    // Only finite values enter the list: NaN and Inf are never selected by
    // a tolerance, and a position past the finite values selects everything.
    const QVector<double> failed{2, kNaN, 1, kInf};
    QTest::newRow("failed points") << failed << 50 << 2.0 << QVector<int>{2, 0} << 2;
    QTest::newRow("past the finite values") << failed << 75 << kNaN << QVector<int>{2, 0, 1, 3} << 2;
    QTest::newRow("all failed") << QVector<double>{kNaN, kNaN} << 100 << kNaN << QVector<int>{0, 1} << -1;
    QTest::newRow("no points") << QVector<double>{} << 100 << kNaN << QVector<int>{} << -1;
}

void ResultAnalysisTest::percentileRule()
{
    QFETCH(QVector<double>, ssr);
    QFETCH(int, percentile);
    QFETCH(double, tolerance);
    QFETCH(QVector<int>, points);
    QFETCH(int, best);

    const PointSelection selection = selectByPercentile(ssr, percentile);
    QCOMPARE(selection.hasTolerance, !std::isnan(tolerance));
    if (selection.hasTolerance)
        QCOMPARE(selection.tolerance, tolerance);
    QCOMPARE(selection.points, points);
    QCOMPARE(selection.best, best);
}

void ResultAnalysisTest::kMeansSeparatesGroupsDeterministically()
{
    const DoubleMatrix rows = twoGroups();
    const Grouping grouping = kMeans(rows, 2);
    QCOMPARE(grouping.groupCount, 2);
    QVERIFY(grouping.converged);
    QVERIFY(grouping.passes <= 100);
    for (int r = 0; r < rows.size(); ++r)
        QCOMPARE(grouping.groupOf[r], r % 2); // numbered by first row: row 0 is in group 0
    QVERIFY(std::abs(grouping.centres[1][0] - 10) < 0.1);

    const Grouping again = kMeans(rows, 2);
    QCOMPARE(again.groupOf, grouping.groupOf);
    QCOMPARE(again.centres, grouping.centres);

    // Five groups on two blobs still never mixes the blobs.
    const Grouping five = kMeans(rows, 5);
    QCOMPARE(five.groupCount, 5);
    for (int r = 2; r < rows.size(); ++r)
        for (int s = r % 2 ? 0 : 1; s < rows.size(); s += 2)
            QVERIFY(five.groupOf[r] != five.groupOf[s]);
}

void ResultAnalysisTest::kMeansEdgeCases()
{
    // More groups than distinct rows; a row with NaN takes no group.
    const DoubleMatrix rows{{1, 1}, {1, 1}, {kNaN, 0}, {3, 1}, {1, 1}};
    const Grouping grouping = kMeans(rows, 5);
    QCOMPARE(grouping.groupCount, 2);
    QCOMPARE(grouping.groupOf, (QVector<int>{0, 0, -1, 1, 0}));

    QCOMPARE(kMeans(DoubleMatrix{{kNaN}}, 3).groupCount, 0);
    QCOMPARE(kMeans(DoubleMatrix{}, 3).groupCount, 0);

    // A pass limit is kept: a chain that needs many passes stops at it.
    DoubleMatrix chain;
    for (int i = 0; i < 200; ++i)
        chain << QVector<double>{std::pow(1.05, i)};
    const Grouping limited = kMeans(chain, 4, 2);
    QCOMPARE(limited.passes, 2);
    QVERIFY(!limited.converged);
    QVERIFY(kMeans(chain, 4).passes <= 100);
}

void ResultAnalysisTest::groupCountBySilhouette()
{
    const GroupCountChoice two = chooseGroupCount(twoGroups());
    QCOMPARE(two.groups, 2);
    QCOMPARE(two.silhouettes.size(), 10);
    QVERIFY(std::isnan(two.silhouettes[0]));
    QVERIFY(two.silhouettes[1] > 0.9);

    DoubleMatrix three = twoGroups();
    for (int i = 0; i < 15; ++i)
        three << QVector<double>{-10 + 0.05 * i, 10};
    QCOMPARE(chooseGroupCount(three).groups, 3);

    // An even spread has no group structure worth naming.
    DoubleMatrix grid;
    for (int i = 0; i < 15; ++i)
        for (int j = 0; j < 15; ++j)
            grid << QVector<double>{double(i), double(j)};
    QCOMPARE(chooseGroupCount(grid).groups, 1);
    QCOMPARE(chooseGroupCount(DoubleMatrix{{1.0}}).groups, 1);
}

void ResultAnalysisTest::groupSummaries()
{
    const DoubleMatrix rows{{0}, {10}, {0.2}, {10.4}, {0.1}};
    const Grouping grouping = kMeans(rows, 2);
    const DoubleMatrix parameters{{1, 5}, {2, 6}, {3, 7}, {4, 8}, {5, 9}};
    const QVector<GroupSummary> groups = summariseGroups(grouping, parameters, {3, 1, kNaN, 2, 0.5});
    QCOMPARE(groups.size(), 2);
    QCOMPARE(groups[0].size, 3);
    QCOMPARE(groups[0].bestRow, 4);
    QCOMPARE(groups[0].bestSsr, 0.5);
    QCOMPARE(groups[0].median, (QVector<double>{3, 7}));
    QCOMPARE(groups[1].size, 2);
    QCOMPARE(groups[1].bestRow, 1);
    QCOMPARE(groups[1].median, (QVector<double>{3, 7}));
}

void ResultAnalysisTest::correlationAgainstHandComputation()
{
    // x = 1..4, y = 2, 4, 5, 4: Sxy = 3.5, Sxx = 5, Syy = 4.75.
    const DoubleMatrix rows{{1, 2, 7}, {2, 4, 7}, {99, 99, 99}, {3, 5, 7}, {4, 4, 7}, {kNaN, 1, 7}};
    const DoubleMatrix r = correlationMatrix(rows, {0, 1, 3, 4, 5}, 3);
    QCOMPARE(r.size(), 3);
    QVERIFY(std::abs(r[0][1] - 3.5 / std::sqrt(5 * 4.75)) < 1e-12);
    QCOMPARE(r[1][0], r[0][1]);
    QCOMPARE(r[0][0], 1.0);
    QVERIFY(std::isnan(r[2][2]) && std::isnan(r[0][2])); // no spread
    // Fewer than two complete points.
    QVERIFY(std::isnan(correlationMatrix(rows, {0}, 2)[0][1]));
}

void ResultAnalysisTest::summariesAndQuartiles()
{
    const DoubleMatrix rows{{4, 1}, {1, kNaN}, {3, 2}, {2, 5}};
    const QVector<ColumnSummary> s = summariseColumns(rows, {0, 1, 2, 3}, 2, 2);
    QCOMPARE(s[0].best, 3.0);
    QCOMPARE(s[0].median, 2.5);
    QCOMPARE(s[0].minimum, 1.0);
    QCOMPARE(s[0].maximum, 4.0);
    QCOMPARE(s[1].median, 2.0);

    const QVector<SsrQuartiles> q = ssrQuartiles({{4, 1, 3, 2, kNaN}, {kNaN}});
    QCOMPARE(q[0].minimum, 1.0);
    QCOMPARE(q[0].lowerQuartile, 1.75);
    QCOMPARE(q[0].median, 2.5);
    QCOMPARE(q[0].upperQuartile, 3.25);
    QCOMPARE(q[0].finiteCount, 4);
    QVERIFY(std::isnan(q[1].median));
    QCOMPARE(q[1].finiteCount, 0);
}

void ResultAnalysisTest::lowerEnvelope()
{
    // A profile (v - 50)^2 under a cloud of worse points.
    QVector<double> values, ssr;
    for (int v = 0; v < 100; ++v) {
        values << v << v;
        ssr << (v - 50) * (v - 50) << (v - 50) * (v - 50) + 100 + v;
    }
    values << kNaN << 3;
    ssr << 0 << kNaN;
    const QVector<QPointF> envelope = ::lowerEnvelope(values, ssr, 10, false);
    QCOMPARE(envelope.size(), 10);
    for (int b = 0; b < 10; ++b) {
        // Each bin of width 9.9 keeps its point closest to 50.
        const double x = envelope[b].x();
        QCOMPARE(envelope[b].y(), (x - 50) * (x - 50));
        QVERIFY(b == 0 || x > envelope[b - 1].x());
    }
    QVERIFY(envelope.contains(QPointF(50, 0)));

    const QVector<QPointF> logEnvelope = ::lowerEnvelope({-1, 0, 1, 3, 100}, {0, 0, 3, 2, 1}, 2, true);
    QCOMPARE(logEnvelope, (QVector<QPointF>{{3, 2}, {100, 1}}));
    QVERIFY(::lowerEnvelope({kNaN}, {1}, 5, false).isEmpty());
}

void ResultAnalysisTest::thinning()
{
    QVector<QPointF> points;
    for (int i = 0; i < 10000; ++i)
        points << QPointF(i % 100, i / 100);
    // The margin never takes an axis of non-negative values below 0.
    const PlotRange range = rangeOf(points, false, false);
    QVERIFY(range.xMin == 0 && range.xMax > 99);
    QVERIFY(rangeOf({{-1, 1}, {99, 2}}, false, false).xMin < -1);
    QCOMPARE(niceAxis(rangeOf({{-1e-12, 1}, {99, 2}}, false, false).xMin, 99).low, 0.0);
    const QVector<QPointF> thinned = thinToCells(points, range, 20, 10);
    QVERIFY(thinned.size() <= 200 && thinned.size() >= 150);
    QCOMPARE(thinned.first(), points.first());

    const QVector<QPointF> logPoints{{-1, 1}, {1, 0}, {1, 1}, {kNaN, 1}};
    QCOMPARE(plottable(logPoints, true, true), (QVector<QPointF>{{1, 1}}));
    const PlotRange single = rangeOf({{2, 3}}, false, true);
    QVERIFY(single.xMin < 2 && single.xMax > 2 && single.yMin > 0 && single.yMin < 3);

    const NiceAxis time = niceAxis(0, 25.2);
    QCOMPARE(time.low, 0.0);
    QCOMPARE(time.high, 30.0);
    QCOMPARE(time.ticks, 7);
    const NiceAxis small = niceAxis(-0.013, 0.0101);
    QVERIFY(small.low <= -0.013 && small.high >= 0.0101 && small.ticks <= 7);
    QVERIFY(logAxisUseful(0.1, 1.2));
    QVERIFY(!logAxisUseful(4, 40));
    QVERIFY(!logAxisUseful(0, 100));
}

void ResultAnalysisTest::standardErrorsOfLinearModel()
{
    // y = a + b t by least squares; J = [1, t].
    const QVector<double> t{0, 1, 2, 3, 4, 5};
    const QVector<double> y{1.1, 2.9, 5.2, 6.8, 9.1, 11.0};
    const int n = t.size();
    double tMean = 0, yMean = 0;
    for (int i = 0; i < n; ++i) {
        tMean += t[i] / n;
        yMean += y[i] / n;
    }
    double sxx = 0, sxy = 0, sumT2 = 0;
    for (int i = 0; i < n; ++i) {
        sxx += (t[i] - tMean) * (t[i] - tMean);
        sxy += (t[i] - tMean) * (y[i] - yMean);
        sumT2 += t[i] * t[i];
    }
    const double b = sxy / sxx, a = yMean - b * tMean;
    double ssr = 0;
    DoubleMatrix j;
    for (int i = 0; i < n; ++i) {
        ssr += std::pow(y[i] - a - b * t[i], 2);
        j << QVector<double>{1, t[i]};
    }
    const double s2 = ssr / (n - 2);

    // Parameters a and k = exp(x2) at x2 = log(b): SE(k) = k SE(x2) = b SE(b) by the delta method.
    ParsedEquations g = parseTransformation("a=x1\nk=EXP(x2)", {"a", "k"}, 2);
    QVERIFY(g.errors.isEmpty());
    const DoubleMatrix G = transformationJacobian(g, {"a", "k"}, {a, std::log(b)});
    QVERIFY(std::abs(G[1][1] - b) < 1e-6 * b);
    // J in x: the column of x2 is dy/dx2 = t * b.
    DoubleMatrix jx = j;
    for (QVector<double> &row : jx)
        row[1] *= b;

    const AsymptoticUncertainty u = asymptoticUncertainty(jx, ssr, G);
    QCOMPARE(u.status, AsymptoticUncertainty::Status::Ok);
    QCOMPARE(u.degreesOfFreedom, 4);
    QVERIFY(std::abs(u.residualVariance - s2) < 1e-12);
    const double seA = std::sqrt(s2 * sumT2 / (n * sxx)), seB = std::sqrt(s2 / sxx);
    QVERIFY(std::abs(u.parameterStandardErrors[0] - seA) < 1e-6 * seA);
    QVERIFY(std::abs(u.parameterStandardErrors[1] - seB) < 1e-6 * seB);
    const double correlation = -s2 * tMean / sxx / (seA * seB);
    QVERIFY(std::abs(u.parameterCorrelation[0][1] - correlation) < 1e-6);
    QCOMPARE(u.parameterCorrelation[1][1], 1.0);
}

void ResultAnalysisTest::uncertaintyRefusals()
{
    using Status = AsymptoticUncertainty::Status;
    const DoubleMatrix identity{{1, 0}, {0, 1}};
    QCOMPARE(asymptoticUncertainty({}, 1, identity).status, Status::NoJacobian);
    QCOMPARE(asymptoticUncertainty({{1, 2}, {3, 4}}, 1, identity).status, Status::TooFewObservations);
    QCOMPARE(asymptoticUncertainty({{1, 2}, {2, 4}, {3, 6}}, 1, identity).status, Status::Singular);
    QCOMPARE(asymptoticUncertainty({{1, 2}, {2, kNaN}, {3, 6}}, 1, identity).status, Status::Unusable);
    // A fixed parameter (no search variable moves it) has a zero standard error.
    const AsymptoticUncertainty fixed = asymptoticUncertainty({{1}, {2}, {3}}, 2, {{1}, {0}});
    QCOMPARE(fixed.status, Status::Ok);
    QCOMPARE(fixed.parameterStandardErrors[1], 0.0);
    QVERIFY(std::isnan(fixed.parameterCorrelation[0][1]));
}

void ResultAnalysisTest::modelJacobianLinearisesTheModel()
{
    const ProjectModel model = loadProjectModel(AMBREL_EXAMPLES_DIR "/oral-absorption");
    QVERIFY(model.isValid());
    // The data were made with CL = 4, V = 40, ka = 1.2.
    const QVector<double> x = applyInverseTransformation(model.gInverse, 3, {4, 40, 1.2});
    const ModelJacobian at = modelJacobian(model, x);
    QVERIFY(at.ok);
    QCOMPARE(at.jacobian.size(), model.observedValues.size());
    QVERIFY(at.ssr < 1e-6);

    // y(x + d) = y(x) + J d to first order.
    const QVector<double> d{2e-3, -1e-3, 1.5e-3};
    QVector<double> moved = x;
    for (int q = 0; q < 3; ++q)
        moved[q] += d[q];
    const QVector<double> y = modelJacobian(model, moved).outputs;
    double largestChange = 0;
    for (int j = 0; j < y.size(); ++j)
        largestChange = std::max(largestChange, std::abs(y[j] - at.outputs[j]));
    QVERIFY(largestChange > 1e-4);
    for (int j = 0; j < y.size(); ++j) {
        double predicted = at.outputs[j];
        for (int q = 0; q < 3; ++q)
            predicted += at.jacobian[j][q] * d[q];
        QVERIFY2(std::abs(y[j] - predicted) < 0.01 * largestChange, qPrintable(QString::number(j)));
    }

    QVERIFY(!modelJacobian(model, {0, 0}).ok);
    QVERIFY(!modelJacobian(ProjectModel(), {}).ok);
}

void ResultAnalysisTest::frameFromModelOrNumbered()
{
    const ProjectModel model = loadProjectModel(AMBREL_EXAMPLES_DIR "/oral-absorption");
    compResult result;
    result.X = {{{0.1, 0.2, 0.3}}};
    result.Parameter = {{{1, 2, 3}}};
    result.Y = {DoubleMatrix{QVector<double>(model.observations.size(), 1.0)}};
    result.solutions = {{{1, 2}}};
    const ResultFrame frame = describeResult(result, model);
    QVERIFY(frame.modelFits);
    QCOMPARE(frame.parameterNames, model.system.parameterNames);
    QCOMPARE(frame.searchNames, model.system.parameterNames);
    QCOMPARE(frame.stateNames, model.system.stateVariableNames);
    QCOMPARE(frame.observationTimes.first(), 0.25);
    QCOMPARE(frame.distinctVariables(), QStringList{"Ac/V"});
    QCOMPARE(frame.observationsOf("Ac/V").size(), 13);

    // A record of another shape is numbered and has no observations.
    result.Parameter = {{{1, 2}}};
    result.Y = {{{1.0}}};
    const ResultFrame other = describeResult(result, model);
    QVERIFY(!other.modelFits);
    QCOMPARE(other.parameterNames, (QStringList{"P1", "P2"}));
    QCOMPARE(other.searchNames, (QStringList{"x1", "x2", "x3"}));
    QVERIFY(std::isnan(other.observedValues[0]));

    QVERIFY(useLogScale({1, 100, 0, kNaN}));
    QVERIFY(useLogScale({0.5, 20, 0, 100}));
    QVERIFY(!useLogScale({5, 20, 0, 100}));
    QVERIFY(!useLogScale({0.5, 20, -1, 100}));
    QVERIFY(!useLogScale({0.5, 20, kNaN, kNaN}));
}

QTEST_GUILESS_MAIN(ResultAnalysisTest)
#include "test_result_analysis.moc"
