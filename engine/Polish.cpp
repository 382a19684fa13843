#include "Polish.h"

#include "analysis/Grouping.h"
#include "engine/ambrel_method.h"
#include "project/PolishSummary.h"
#include "project/ResultStore.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QtConcurrent>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

// Relative difference steps in the model parameters.
const double kForwardStep = 1e-5;
const double kCentralStep = 1e-3;
// The iterations with forward differences end once the relative offset is
// below kNearOffset (near the minimum for their accuracy); those with central
// differences settle the point.
const int kForwardIterations = 40;
const double kNearOffset = 1e-3;
const int kCentralIterations = 10;

// The typical size of a coordinate's moves: its size, or a tenth of its
// domain width near zero.
QVector<double> coordinateScales(const QVector<double> &x, const QVector<double> &lower,
                                 const QVector<double> &upper)
{
    QVector<double> scales;
    for (int q = 0; q < x.size(); ++q) {
        const double width = std::abs(upper.value(q, 0.0) - lower.value(q, 0.0));
        const double scale = std::max(std::abs(x[q]), 0.1 * (std::isfinite(width) ? width : 0.0));
        scales << (scale > 0 ? scale : 1.0);
    }
    return scales;
}

// The weighted residuals sqrt(w_j) (y_j - y*_j) of the polishing model.
class WeightedResiduals {
public:
    // parallel: evaluate the shifted points of a Jacobian on the thread pool
    // (otherwise one after the other, when the groups run side by side).
    WeightedResiduals(const PolishInput &input, bool parallel)
        : m_input(input)
        , m_parallel(parallel)
    {
    }

    bool residuals(const QVector<double> &outputs, QVector<double> &r) const
    {
        const QVector<double> &target = m_input.target;
        if (outputs.size() != target.size())
            return false;
        r.resize(target.size());
        for (int j = 0; j < target.size(); ++j) {
            const double w = j < m_input.weights.size() ? m_input.weights[j] : 1.0;
            r[j] = std::sqrt(w) * (outputs[j] - target[j]);
            if (!std::isfinite(r[j]))
                return false;
        }
        return true;
    }

    // Keeps the residuals of the last point, which the solver's next
    // Jacobian (at an accepted trial point) starts from.
    bool atPoint(const QVector<double> &x, QVector<double> &r) const
    {
        ++evaluations;
        m_lastX = x;
        m_lastOk = residuals(m_input.evaluator.evaluatePoint(x).outputs, r);
        m_lastResiduals = r;
        return m_lastOk;
    }

    // J = J_b G: differences of the residuals in the model parameters b
    // that move with x, chained with G = dg/dx. The generated
    // transformations evaluate "^" in single precision, so g(x) is a
    // staircase on the scale of float rounding of x: differences taken in x
    // would carry that noise into J and bias the point where the solver
    // stops. An error in G only rescales the columns of J and leaves that
    // point (J_b^T r = 0) unchanged. Forward differences cost one evaluation
    // per parameter, central ones two and are far more accurate. The
    // shifted points are evaluated in parallel.
    bool jacobian(const QVector<double> &x, DoubleMatrix &j, bool central) const
    {
        const ClusterEvaluator &evaluator = m_input.evaluator;
        const QVector<double> b = applyTransformation(evaluator.g, evaluator.parameterNames, x);
        const DoubleMatrix G = transformationJacobian(evaluator.g, evaluator.parameterNames, x);
        QVector<int> moving;
        QVector<double> steps;
        if (!parameterSteps(b, G, central ? kCentralStep : kForwardStep, moving, steps))
            return false;
        QVector<double> base;
        const bool cached = !central && m_lastOk && m_lastX == x;
        if (!central && !cached && !atPoint(x, base))
            return false;
        if (cached)
            base = m_lastResiduals;
        DoubleMatrix rows;
        for (int f = 0; f < moving.size(); ++f) {
            rows << b;
            rows.last()[moving[f]] += steps[f];
            if (central) {
                rows << b;
                rows.last()[moving[f]] -= steps[f];
            }
        }
        const QVector<PointEvaluation> evaluated = evaluateRows(rows);
        j = DoubleMatrix(m_input.target.size(), QVector<double>(x.size(), 0.0));
        QVector<double> plus, minus = base;
        const int stride = central ? 2 : 1;
        for (int f = 0; f < moving.size(); ++f) {
            if (!residuals(evaluated[stride * f].outputs, plus) ||
                (central && !residuals(evaluated[2 * f + 1].outputs, minus)))
                return false;
            const double span = central ? 2 * steps[f] : steps[f];
            for (int row = 0; row < j.size(); ++row) {
                const double slope = (plus[row] - minus[row]) / span;
                for (int q = 0; q < x.size(); ++q)
                    j[row][q] += slope * G[moving[f]][q];
            }
        }
        return true;
    }

    mutable qint64 evaluations = 0;

private:
    // The parameters that move with x (a non-zero row of G) and their
    // difference steps: relative to the parameter, or to the spread a tenth
    // of the domain gives it near zero. False when b or G is not finite.
    bool parameterSteps(const QVector<double> &b, const DoubleMatrix &G, double relative,
                        QVector<int> &moving, QVector<double> &steps) const
    {
        for (int a = 0; a < G.size(); ++a) {
            double spread = 0, slope = 0;
            for (int q = 0; q < G[a].size(); ++q) {
                slope = std::max(slope, std::abs(G[a][q]));
                spread += std::abs(G[a][q]) * 0.1 * domainWidth(q);
            }
            if (!std::isfinite(slope) || !std::isfinite(b.value(a, std::nan(""))))
                return false;
            if (slope == 0)
                continue;
            const double step = relative * std::max(std::abs(b[a]), spread);
            moving << a;
            steps << (step > 0 ? step : relative);
        }
        return true;
    }

    double domainWidth(int q) const
    {
        const double width = std::abs(m_input.domainUpper.value(q, 0.0) - m_input.domainLower.value(q, 0.0));
        return std::isfinite(width) ? width : 0.0;
    }

    QVector<PointEvaluation> evaluateRows(const DoubleMatrix &parameterRows) const
    {
        evaluations += parameterRows.size();
        const ClusterEvaluator &evaluator = m_input.evaluator;
        if (!m_parallel) {
            QVector<PointEvaluation> evaluated;
            for (const QVector<double> &b : parameterRows)
                evaluated << evaluator.evaluateParameters(b);
            return evaluated;
        }
        return QtConcurrent::blockingMapped(
                parameterRows,
                std::function<PointEvaluation(const QVector<double> &)>(
                        [&evaluator](const QVector<double> &b) { return evaluator.evaluateParameters(b); }));
    }

    const PolishInput &m_input;
    const bool m_parallel;
    mutable QVector<double> m_lastX, m_lastResiduals;
    mutable bool m_lastOk = false;
};

struct GroupStart {
    int group = 0;
    int size = 0;
    int row = 0;
};

// The best point of every group of the finite points, in group order.
QVector<GroupStart> groupStarts(const DoubleMatrix &X, const QVector<double> &ssr, int &finitePoints)
{
    QVector<int> rows;
    for (int i = 0; i < X.size(); ++i) {
        bool finite = std::isfinite(ssr.value(i, std::nan("")));
        for (double v : X[i])
            finite = finite && std::isfinite(v);
        if (finite)
            rows << i;
    }
    // In SSR order, so that group 0 holds the best point.
    std::stable_sort(rows.begin(), rows.end(), [&ssr](int a, int b) { return ssr[a] < ssr[b]; });
    finitePoints = rows.size();
    DoubleMatrix points;
    QVector<double> pointSsr;
    for (int i : rows) {
        points << X[i];
        pointSsr << ssr[i];
    }
    const int groups = points.isEmpty() ? 0 : chooseGroupCount(points, polishMaxGroups).groups;
    const Grouping grouping = kMeans(points, groups);
    const QVector<GroupSummary> summaries = summariseGroups(grouping, points, pointSsr);
    QVector<GroupStart> starts;
    for (int g = 0; g < summaries.size(); ++g)
        if (summaries[g].bestRow >= 0)
            starts << GroupStart{g, summaries[g].size, rows[summaries[g].bestRow]};
    return starts;
}

// Levenberg-Marquardt with forward-difference Jacobians from the group's
// best point, then with central differences from where that stopped: the
// cheap Jacobians bring the point near the minimum, the accurate ones settle
// it and give the Jacobian of the standard errors.
PolishedMinimiser polishGroup(const PolishInput &input, const WeightedResiduals &residuals,
                              const GroupStart &start)
{
    PolishedMinimiser minimiser;
    minimiser.group = start.group;
    minimiser.groupSize = start.size;
    minimiser.startRow = start.row;

    LeastSquaresProblem problem;
    problem.residualCount = input.target.size();
    problem.residuals = [&residuals](const QVector<double> &x, QVector<double> &r) {
        return residuals.atPoint(x, r);
    };
    bool central = false;
    problem.jacobian = [&residuals, &central](const QVector<double> &x, DoubleMatrix &j) {
        return residuals.jacobian(x, j, central);
    };
    problem.stopRequested = input.stopRequested;
    const QVector<double> &x0 = input.X[start.row];
    problem.scale = coordinateScales(x0, input.domainLower, input.domainUpper);
    LeastSquaresSettings approach;
    approach.maxIterations = kForwardIterations;
    approach.relativeOffset = kNearOffset;
    const LeastSquaresResult forward = levenbergMarquardt(problem, x0, approach);
    if (forward.x.isEmpty() || forward.stop == LeastSquaresStop::Stopped) {
        minimiser.fit = forward;
        return minimiser;
    }
    central = true;
    LeastSquaresSettings settling;
    settling.maxIterations = kCentralIterations;
    minimiser.fit = levenbergMarquardt(problem, forward.x, settling);
    if (minimiser.fit.x.isEmpty() && minimiser.fit.stop != LeastSquaresStop::Stopped)
        minimiser.fit = forward; // the central differences failed: keep the first result
    minimiser.fit.startSsr = forward.startSsr;
    minimiser.fit.iterations += forward.iterations;
    if (minimiser.fit.x.isEmpty())
        return minimiser;
    minimiser.evaluation = input.evaluator.evaluatePoint(minimiser.fit.x);
    ++residuals.evaluations;
    const DoubleMatrix g =
            transformationJacobian(input.evaluator.g, input.evaluator.parameterNames, minimiser.fit.x);
    minimiser.uncertainty = asymptoticUncertainty(minimiser.fit.jacobian, minimiser.fit.ssr, g);
    return minimiser;
}

QString number(double v)
{
    return QString::number(v, 'g', 10);
}

} // namespace

ClusterEvaluator polishEvaluator(const ClusterEvaluator &evaluator)
{
    ClusterEvaluator tight = evaluator;
    tight.useStage2 = true;
    tight.stage2.lsodaRelativeTolerance = polishTolerance;
    tight.stage2.lsodaAbsoluteTolerance = polishTolerance;
    return tight;
}

PolishOutcome polishMinimisers(const PolishInput &input)
{
    QElapsedTimer timer;
    timer.start();
    PolishOutcome outcome;
    const QVector<GroupStart> starts = groupStarts(input.X, input.ssr, outcome.finitePoints);
    outcome.groups = starts.size();
    // Several groups keep the threads busier side by side, each evaluating
    // its points in turn, than one after the other with parallel Jacobians
    // and sequential trial points.
    const bool sideBySide = input.groupsSideBySide && starts.size() > 1;
    const std::function<PolishedMinimiser(const GroupStart &)> polish =
            [&input, sideBySide](const GroupStart &start) {
                if (input.stopRequested && input.stopRequested()) {
                    PolishedMinimiser stopped;
                    stopped.fit.stop = LeastSquaresStop::Stopped;
                    return stopped;
                }
                const WeightedResiduals residuals(input, !sideBySide);
                PolishedMinimiser minimiser = polishGroup(input, residuals, start);
                minimiser.modelEvaluations = residuals.evaluations;
                return minimiser;
            };
    QVector<PolishedMinimiser> polished;
    if (sideBySide) {
        polished = QtConcurrent::blockingMapped(starts, polish);
    } else {
        for (const GroupStart &start : starts) {
            polished << polish(start);
            if (polished.last().fit.stop == LeastSquaresStop::Stopped)
                break;
        }
    }
    // The groups finished before a stop are kept; those in progress are not.
    for (const PolishedMinimiser &minimiser : polished) {
        outcome.modelEvaluations += minimiser.modelEvaluations;
        if (minimiser.fit.stop == LeastSquaresStop::Stopped)
            outcome.stopped = true;
        else if (!minimiser.fit.x.isEmpty())
            outcome.minimisers << minimiser;
    }
    outcome.seconds = double(timer.nsecsElapsed()) * 1e-9;
    return outcome;
}

QStringList polishLogLines(const PolishOutcome &outcome)
{
    QStringList lines;
    lines << QStringLiteral("Polish: %1 groups of the %2 finite points of the last iteration; "
                            "Levenberg-Marquardt from the best point of each")
                     .arg(outcome.groups)
                     .arg(outcome.finitePoints);
    for (const PolishedMinimiser &m : outcome.minimisers)
        lines << QStringLiteral("Polish: group %1 (%2 points): start SSR %3, final SSR %4, %5 iterations, %6")
                         .arg(m.group + 1)
                         .arg(m.groupSize)
                         .arg(number(m.fit.startSsr), number(m.fit.ssr))
                         .arg(m.fit.iterations)
                         .arg(leastSquaresStopText(m.fit.stop));
    if (outcome.stopped)
        lines << QStringLiteral("Polish: stopped; %1 of %2 groups finished")
                         .arg(outcome.minimisers.size())
                         .arg(outcome.groups);
    lines << QStringLiteral("Polish: %1 model evaluations in %2 s")
                     .arg(outcome.modelEvaluations)
                     .arg(QString::number(outcome.seconds, 'f', 2));
    return lines;
}

namespace {

// The polished minimisers as iteration k of the record, one row each.
void appendPolishIteration(compResult &result, const PolishOutcome &outcome)
{
    DoubleMatrix X, Y, parameters;
    QVector<double> ssr;
    QVector<DoubleMatrix> solutions;
    for (const PolishedMinimiser &m : outcome.minimisers) {
        X << m.fit.x;
        Y << m.evaluation.outputs;
        parameters << m.evaluation.parameters;
        ssr << m.fit.ssr;
        solutions << m.evaluation.solution;
    }
    result.X << X;
    result.Y << Y;
    result.Parameter << parameters;
    result.SSR << ssr;
    result.lambda << QVector<double>(X.size(), 0.0);
    result.solutions = solutions;
    result.updateSortIndex();
}

QVector<PolishSummaryBlock> summaryBlocks(const PolishOutcome &outcome, const QStringList &names)
{
    QVector<PolishSummaryBlock> blocks;
    for (const PolishedMinimiser &m : outcome.minimisers) {
        PolishSummaryBlock block;
        block.minimiser = blocks.size() + 1;
        block.group = m.group + 1;
        block.groupSize = m.groupSize;
        block.startSsr = m.fit.startSsr;
        block.ssr = m.fit.ssr;
        block.iterations = m.fit.iterations;
        block.stopReason = leastSquaresStopText(m.fit.stop);
        block.degreesOfFreedom = m.uncertainty.degreesOfFreedom;
        block.conditionNumber = m.uncertainty.conditionNumber;
        block.parameterNames = names;
        block.estimates = m.evaluation.parameters;
        block.standardErrors = m.uncertainty.parameterStandardErrors;
        block.correlation = m.uncertainty.parameterCorrelation;
        blocks << block;
    }
    return blocks;
}

} // namespace

bool endsWithPolishedIteration(const compResult &result)
{
    const int k = result.X.size() - 1;
    return k >= 1 && result.X[k].size() != result.X[k - 1].size();
}

PolishInput polishInput(const ambrel_method &engine)
{
    const compResult &result = engine.result;
    PolishInput input;
    if (result.X.isEmpty() || result.SSR.size() < result.X.size())
        return input;
    input.X = result.X.last();
    input.ssr = result.SSR[result.X.size() - 1];
    input.evaluator = polishEvaluator(engine.evaluator);
    input.target = engine.target;
    input.weights = engine.currentWeights();
    input.domainLower = engine.domainLower;
    input.domainUpper = engine.domainUpper;
    input.stopRequested = [&engine]() { return engine.abortASAP.load(); };
    return input;
}

void runPolishStage(ambrel_method &engine)
{
    compResult &result = engine.result;
    const PolishInput input = polishInput(engine);
    if (input.X.isEmpty())
        return;
    PolishOutcome outcome;
    try {
        outcome = polishMinimisers(input);
    } catch (...) {
        // The cluster's iterations stay as they are.
        qDebug() << "polishing failed";
        result.log << QStringLiteral("Polish: failed");
        return;
    }

    // The run's count of integrated rows includes the stage's.
    engine.evaluator.evaluatedRows += outcome.modelEvaluations;
    for (const QString &line : polishLogLines(outcome)) {
        qDebug().noquote() << line;
        result.log << line;
    }
    if (outcome.minimisers.isEmpty()) {
        if (!engine.projectFolder.isEmpty())
            writeComputationLog(engine.projectFolder, result.log);
        return;
    }
    appendPolishIteration(result, outcome);
    emit engine.current_computation_result(result);
    if (engine.projectFolder.isEmpty())
        return;
    writeIterationFiles(engine.projectFolder, result);
    writePolishSummary(engine.projectFolder, summaryBlocks(outcome, engine.evaluator.parameterNames));
}
