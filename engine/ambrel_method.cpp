#include "ambrel_method.h"

#include "engine/InitialCluster.h"
#include "engine/Polish.h"
#include "engine/StepComputation.h"
#include "project/ResultStore.h"

#include <QDateTime>
#include <QDebug>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <map>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const QString kBanner = QStringLiteral("<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<");

QString number(double v)
{
    return QString::number(v, 'g', 6);
}

Matrix toMatrix(const DoubleMatrix &rows, int columns)
{
    Matrix m(std::size_t(rows.size()), std::size_t(columns), kNaN);
    for (int i = 0; i < rows.size(); ++i)
        for (int j = 0; j < columns && j < rows[i].size(); ++j)
            m(std::size_t(i), std::size_t(j)) = rows[i][j];
    return m;
}

DoubleMatrix toRows(const Matrix &m)
{
    DoubleMatrix rows(int(m.size1()));
    for (std::size_t i = 0; i < m.size1(); ++i)
        for (std::size_t j = 0; j < m.size2(); ++j)
            rows[int(i)] << m(i, j);
    return rows;
}

Vector toVector(const QVector<double> &v)
{
    Vector out(std::size_t(v.size()));
    std::copy(v.begin(), v.end(), out.begin());
    return out;
}

// The weights scale the squared residuals, so the step sees outputs and
// target scaled by their square roots.
void scaleByWeights(Matrix &outputs, Vector &target, const QVector<double> &weights)
{
    for (std::size_t j = 0; j < target.size(); ++j) {
        const double w = std::sqrt(weights[int(j)]);
        target[j] *= w;
        for (std::size_t i = 0; i < outputs.size1(); ++i)
            outputs(i, j) *= w;
    }
}

} // namespace

// The state of one iteration that its steps hand on to each other.
struct ambrel_method::Iteration {
    int k = 0;
    int n = 0; // points in the cluster
    DoubleMatrix Y;
    DoubleMatrix parameters;
    QVector<double> ssr;
    int improved = 0;
};

ambrel_method::ambrel_method(QObject *parent)
    : QObject(parent)
{
    qRegisterMetaType<compResult>("compResult");
    qRegisterMetaType<RunOutcome>("RunOutcome");
}

double ambrel_method::ssr(const QVector<double> &output) const
{
    if (output.size() != target.size())
        return kNaN;
    double sum = 0;
    for (int j = 0; j < output.size(); ++j) {
        const double residual = output[j] - target[j];
        sum += (j < m_weights.size() ? m_weights[j] : 1.0) * residual * residual;
    }
    return sum;
}

void ambrel_method::logLine(const QString &line)
{
    qDebug().noquote() << line;
    result.log << line;
}

RunOutcome ambrel_method::run()
{
    // A fresh run moves the earlier results aside; a restart keeps them.
    if (!projectFolder.isEmpty())
        moveResultsToHistory(projectFolder);
    return run_3(0);
}

RunOutcome ambrel_method::rerun()
{
    // A record that ends with the polished minimisers restarts from the
    // last Stage 2 iteration (engine/Polish.h).
    if (endsWithPolishedIteration(result))
        result.truncateHistories(result.X.size() - 1);
    return run_3(std::max(0, result.X.size() - 1));
}

void ambrel_method::abort()
{
    abortASAP = true;
    qDebug() << "abortASAP=" << true;
}

void ambrel_method::seedRandomDraws()
{
    const std::uint64_t seed =
            settings.seed ? *settings.seed : std::uint64_t(std::uint32_t(std::time(nullptr)));
    m_generator.seed(seed);
    // The step computation's target perturbations come from rand().
    if (settings.seed)
        std::srand(unsigned(seed));
}

RunOutcome ambrel_method::run_3(int k_in)
{
    m_runTimer.start();
    m_evaluationsAtStart = evaluator.evaluatedRows;
    m_refusal.clear();
    m_failed = false;

    const int n = result.X.isEmpty() ? 0 : result.X.first().size();
    qDebug() << "init" << result.X.value(k_in);
    totalIterations = settings.stage1Iterations + settings.stage2Iterations;
    seedRandomDraws();
    running = true;
    abortASAP = false;
    qDebug() << "abortASAP=" << false;
    emit max_modelEval(n * totalIterations);

    m_alive = QVector<bool>(n, true);
    m_weights = QVector<double>(target.size(), 1.0);
    m_startMs = QDateTime::currentMSecsSinceEpoch();
    if (m_lambda.size() != n)
        m_lambda = QVector<double>(n, settings.initialLambda);
    if (k_in != 0 && k_in < result.lambda.size() && m_lambda != result.lambda[k_in])
        m_lambda = result.lambda[k_in];
    result.solutions.resize(n);
    result.solutionTimes = evaluator.solutionTimes();

    try {
        // A record without a cluster (a rerun after an abort at iteration 0)
        // has nothing to iterate on: the run ends at once.
        for (int k = k_in; k < totalIterations && running && !result.X.isEmpty(); ++k)
            iterate(k);
        if (!abortASAP) {
            result.truncateHistories(totalIterations);
            // --- Polishing stage (engine/Polish.h): one more iteration of
            // converged minimisers after the last Stage 2 iteration.
            if (settings.polish)
                runPolishStage(*this);
            // --- end of the polishing stage
        }
    } catch (...) {
        qDebug() << "AMB iteration failed";
        result.log << QStringLiteral("AM iteration failed");
        result.truncateHistories(0);
        m_failed = true;
    }
    finishRun();
    return m_outcome;
}

void ambrel_method::finishRun()
{
    running = false;
    if (!projectFolder.isEmpty())
        m_writer.writeEndOfRun(projectFolder, result);

    RunOutcome outcome;
    if (m_failed) {
        outcome.status = RunOutcome::Status::Failed;
        outcome.messages << QStringLiteral("AM iteration failed");
    } else if (!m_refusal.isEmpty()) {
        outcome.status = RunOutcome::Status::RefusedAtScreening;
        outcome.messages << m_refusal;
    } else if (abortASAP) {
        outcome.status = RunOutcome::Status::Aborted;
    }
    outcome.iterationsDone = result.iterationCount();
    outcome.modelEvaluations = evaluator.evaluatedRows - m_evaluationsAtStart;
    outcome.wallSeconds = double(m_runTimer.nsecsElapsed()) * 1e-9;
    m_outcome = outcome;
    emit runFinished(m_outcome);
    emit calculationCompleted();
}

// One iteration of the method: evaluate the cluster, judge every point's
// last step by its new SSR, record the iteration and compute the next steps.
void ambrel_method::iterate(int k)
{
    prepareIteration(k);
    Iteration iteration;
    iteration.k = k;
    iteration.n = result.X.first().size();
    if (!evaluateLivePoints(iteration)) {
        running = false;
        return;
    }
    if (k == 0)
        screenInitialPoints(iteration);
    // The partly done iteration is dropped.
    if (abortASAP) {
        result.truncateHistories(k);
        running = false;
        return;
    }
    storeIteration(iteration);
    // The first Stage 2 iteration re-evaluates the last Stage 1 cluster with
    // the accurate evaluator: nothing to judge there.
    if (k > 0 && k != settings.stage1Iterations)
        acceptOrRejectSteps(iteration);
    result.SSR[k] = iteration.ssr;
    recordIteration(iteration);
    computeNextSteps(k);
    logLine(QStringLiteral("Total Computation time so far (in min): ") +
            number(double(QDateTime::currentMSecsSinceEpoch() - m_startMs) / 60000.0));
}

// Chooses the stage's evaluator, makes room for iteration k in every history
// and resets lambda at the start of each stage.
void ambrel_method::prepareIteration(int k)
{
    evaluator.useStage2 = k >= settings.stage1Iterations;
    result.X.resize(k + 1);
    result.Y.resize(k + 1);
    result.Parameter.resize(k + 1);
    result.SSR.resize(k + 1);
    result.lambda.resize(k + 1);
    if (k == 0 || k == settings.stage1Iterations)
        m_lambda.fill(settings.initialLambda);
}

// Evaluates X_k in parallel; frozen and dead points get NaN rows, which are
// not integrated. Keeps the solutions of the live points. False when the
// evaluation returned nothing (an empty cluster).
bool ambrel_method::evaluateLivePoints(Iteration &iteration)
{
    const int n = iteration.n;
    const int p = domainLower.size();
    DoubleMatrix evaluation = result.X[iteration.k];
    for (int i = 0; i < n; ++i)
        if (m_lambda[i] > lambdaLimit || !m_alive[i])
            evaluation[i] = QVector<double>(p, kNaN);
    const QVector<PointEvaluation> points = evaluator.evaluate(evaluation);
    if (points.isEmpty())
        return false;
    emit additional_modelEval((iteration.k + 1) * n + 1);
    iteration.Y = DoubleMatrix(n);
    iteration.parameters = DoubleMatrix(n);
    for (int i = 0; i < n; ++i) {
        iteration.Y[i] = points[i].outputs;
        iteration.parameters[i] = points[i].parameters;
        if (m_lambda[i] <= lambdaLimit && m_alive[i])
            result.solutions[i] = points[i].solution;
    }
    return true;
}

// Iteration 0: failed and far-off points of the initial cluster are
// re-sampled in the domain; the screening may refuse the run.
void ambrel_method::screenInitialPoints(Iteration &iteration)
{
    const int p = domainLower.size();
    std::map<std::vector<double>, PointEvaluation> resampled;
    InitialClusterScreeningInput input;
    input.X0 = toMatrix(result.X[0], p);
    input.outputs = iteration.Y;
    input.domainLower = toVector(domainLower);
    input.domainUpper = toVector(domainUpper);
    input.maxTries = settings.maxInitialTries;
    input.stricterCriteria = settings.stricterInitialSampling;
    input.ssr = [this](const QVector<double> &output) { return ssr(output); };
    input.evaluate = [this, &resampled](const Matrix &X) {
        const DoubleMatrix rows = toRows(X);
        const QVector<PointEvaluation> evaluated = evaluator.evaluate(rows);
        OutputRows outputs;
        for (int r = 0; r < evaluated.size(); ++r) {
            resampled[std::vector<double>(rows[r].begin(), rows[r].end())] = evaluated[r];
            outputs << evaluated[r].outputs;
        }
        return outputs;
    };
    const InitialClusterScreeningResult screened = screenInitialCluster(input, m_generator);
    for (const QString &line : screened.logLines)
        result.log << line;
    result.X[0] = toRows(screened.X0);
    iteration.Y = screened.outputs;
    // A replaced row takes the parameters and solution of its new point.
    for (int i : screened.replacedRows) {
        const QVector<double> &x = result.X[0][i];
        const auto found = resampled.find(std::vector<double>(x.begin(), x.end()));
        if (found == resampled.end())
            continue;
        iteration.parameters[i] = found->second.parameters;
        result.solutions[i] = found->second.solution;
    }
    m_alive = screened.accepted;
    if (screened.abortASAP) {
        m_refusal = screened.refusal;
        abortASAP = true;
    }
}

// Stores the new outputs, parameters and lambdas under iteration k and
// counts the points with an SSR.
void ambrel_method::storeIteration(Iteration &iteration)
{
    const int k = iteration.k, n = iteration.n;
    result.Y[k] = iteration.Y;
    result.Parameter[k] = iteration.parameters;
    iteration.ssr = QVector<double>(n);
    for (int i = 0; i < n; ++i)
        iteration.ssr[i] = ssr(iteration.Y[i]);
    result.lambda[k] = m_lambda;
    iteration.improved = 0;
    for (int i = 0; i < n; ++i) {
        m_alive[i] = !std::isnan(iteration.ssr[i]);
        iteration.improved += m_alive[i] ? 1 : 0;
    }
}

// A step that did not raise the SSR (both SSRs with the current weights) is
// accepted and lambda falls by 10; otherwise the point goes back to its
// previous state and lambda grows by 10.
void ambrel_method::acceptOrRejectSteps(Iteration &iteration)
{
    const int k = iteration.k;
    for (int i = 0; i < iteration.n; ++i) {
        const double previous = ssr(result.Y[k - 1][i]);
        const double current = iteration.ssr[i];
        if (m_alive[i] && !(current > previous || std::isnan(current))) {
            m_lambda[i] /= 10;
            continue;
        }
        if (m_alive[i])
            --iteration.improved;
        iteration.ssr[i] = previous;
        result.X[k][i] = result.X[k - 1][i];
        result.Y[k][i] = result.Y[k - 1][i];
        result.Parameter[k][i] = result.Parameter[k - 1][i];
        m_lambda[i] *= 10;
    }
    result.lambda[k] = m_lambda;
}

// The finished iteration: sort index, statistics in the log, the record to
// the window, the iteration's files.
void ambrel_method::recordIteration(const Iteration &iteration)
{
    result.updateSortIndex();
    for (int i = 0; i < iteration.n; ++i)
        m_alive[i] = !std::isnan(iteration.ssr[i]);
    logStatistics(iteration.k, iteration.improved);
    emit current_computation_result(result);
    writeIterationFiles();
}

// X_{k+1} starts as a copy of X_k and the weights of iteration k become
// current. Then every live point's step is computed and added, except after
// the last Stage 1 iteration (Stage 2 first re-evaluates that cluster) and
// after an abort request.
void ambrel_method::computeNextSteps(int k)
{
    result.X << result.X[k];
    const QVector<QVector<double>> &weights = settings.weightsPerIteration;
    if (k < weights.size() && weights[k].size() == target.size())
        m_weights = weights[k];
    if (k == settings.stage1Iterations - 1)
        return;

    const int n = result.X.first().size();
    const int p = domainLower.size();
    QVector<bool> mask(n);
    Vector lambda(std::size_t(n), 0.0);
    for (int i = 0; i < n; ++i) {
        mask[i] = m_alive[i] && m_lambda[i] <= lambdaLimit;
        lambda[std::size_t(i)] = m_lambda[i];
    }
    Matrix weightedY = toMatrix(result.Y[k], target.size());
    StepSettings step;
    step.target = toVector(target);
    scaleByWeights(weightedY, step.target, m_weights);
    step.domainLower = toVector(domainLower);
    step.domainUpper = toVector(domainUpper);
    step.targetPerturbation = settings.targetPerturbation;
    step.uniformNeighbourhood = settings.uniformNeighbourhood;
    const StepResult steps = computeSteps(toMatrix(result.X[k], p), weightedY, mask, lambda, step);
    result.lastJacobian = toRows(steps.lastJacobian);
    if (abortASAP)
        return;
    for (int i = 0; i < n; ++i)
        for (int q = 0; q < p; ++q)
            result.X[k + 1][i][q] += steps.steps(std::size_t(i), std::size_t(q));
}

void ambrel_method::logStatistics(int k, int improved)
{
    const QVector<double> &ssrK = result.SSR[k];
    const int n = ssrK.size();
    QVector<double> sorted;
    for (double s : ssrK)
        if (!std::isnan(s))
            sorted << s;
    std::sort(sorted.begin(), sorted.end());
    auto at = [&sorted](int index) {
        return index < sorted.size() ? number(sorted[index]) : QStringLiteral("NaN");
    };

    logLine(QString());
    logLine(kBanner);
    logLine(QStringLiteral("         iterNumber: ") + QString::number(k));
    logLine(kBanner);
    logLine(QStringLiteral("===Current Cluster Stat==="));
    logLine(QStringLiteral("min: ") + at(0));
    logLine(QStringLiteral("1/4 percentile: ") + at(int(0.25 * n)));
    logLine(QStringLiteral("median: ") + at(int(0.5 * n)));
    const int upper = int(0.75 * n);
    logLine(upper < sorted.size() ? QStringLiteral("3/4 percentile: ") + number(sorted[upper])
                                  : QStringLiteral("3/4 percentile: NaN"));
    logLine(QStringLiteral("number of improved points: ") + QString::number(improved) + "/" +
            QString::number(n));
}

// On the writer thread, while the next iteration goes on.
void ambrel_method::writeIterationFiles()
{
    if (!projectFolder.isEmpty())
        m_writer.write(projectFolder, result);
}
