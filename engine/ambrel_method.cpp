#include "ambrel_method.h"

#include "engine/InitialCluster.h"
#include "engine/ResultStore.h"
#include "engine/StepComputation.h"

#include <QDateTime>
#include <QDebug>

#include <algorithm>
#include <cmath>
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

} // namespace

ambrel_method::ambrel_method(QObject *parent)
    : QObject(parent)
{
    qRegisterMetaType<compResult>("compResult");
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

void ambrel_method::run()
{
    // A fresh run moves the earlier results aside; a restart keeps them.
    if (!projectFolder.isEmpty())
        moveResultsToHistory(projectFolder);
    run_3(0);
}

void ambrel_method::rerun()
{
    run_3(std::max(0, result.X.size() - 1));
}

void ambrel_method::abort()
{
    abortASAP = true;
    qDebug() << "abortASAP=" << true;
}

void ambrel_method::run_3(int k_in)
{
    const int n = result.X.isEmpty() ? 0 : result.X.first().size();
    qDebug() << "init" << result.X.value(k_in);
    totalIterations = numStage1Iterations + numStage2Iterations;
    m_generator.seed(std::uint64_t(std::uint32_t(std::time(nullptr))));
    running = true;
    abortASAP = false;
    qDebug() << "abortASAP=" << false;
    emit max_modelEval(n * totalIterations);

    m_alive = QVector<bool>(n, true);
    m_weights = QVector<double>(target.size(), 1.0);
    m_startMs = QDateTime::currentMSecsSinceEpoch();
    if (m_lambda.size() != n)
        m_lambda = QVector<double>(n, initialLambda);
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
        }
    } catch (...) {
        qDebug() << "AMB iteration failed";
        result.log << QStringLiteral("AM iteration failed");
        result.truncateHistories(0);
    }
    finishRun();
}

void ambrel_method::finishRun()
{
    running = false;
    if (!projectFolder.isEmpty())
        writeEndOfRunFiles(projectFolder, result);
    emit calculationCompleted();
}

void ambrel_method::iterate(int k)
{
    const int n = result.X.first().size();
    const int p = domainLower.size();

    // 1-3: evaluator, histories, lambda reset at the start of each stage.
    evaluator.useStage2 = k >= numStage1Iterations;
    result.X.resize(k + 1);
    result.Y.resize(k + 1);
    result.Parameter.resize(k + 1);
    result.SSR.resize(k + 1);
    result.lambda.resize(k + 1);
    DoubleMatrix evaluation = result.X[k];
    if (k == 0 || k == numStage1Iterations)
        m_lambda.fill(initialLambda);

    // 4-6: evaluate live points; frozen and dead ones get NaN rows.
    for (int i = 0; i < n; ++i)
        if (m_lambda[i] > lambdaLimit || !m_alive[i])
            evaluation[i] = QVector<double>(p, kNaN);
    QVector<PointEvaluation> points = evaluator.evaluate(evaluation);
    if (points.isEmpty()) {
        running = false;
        return;
    }
    emit additional_modelEval((k + 1) * n + 1);
    DoubleMatrix Y(n), parameters(n);
    for (int i = 0; i < n; ++i) {
        Y[i] = points[i].outputs;
        parameters[i] = points[i].parameters;
        if (m_lambda[i] <= lambdaLimit && m_alive[i])
            result.solutions[i] = points[i].solution;
    }

    // 7: screening of the initial cluster, then the abort check point.
    if (k == 0) {
        std::map<std::vector<double>, PointEvaluation> resampled;
        InitialClusterScreeningInput input;
        input.X0 = toMatrix(result.X[0], p);
        input.outputs = Y;
        input.domainLower = toVector(domainLower);
        input.domainUpper = toVector(domainUpper);
        input.maxTries = maxInitialTries;
        input.stricterCriteria = stricterInitialSampling;
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
        Y = screened.outputs;
        for (int i : screened.replacedRows) {
            const QVector<double> &x = result.X[0][i];
            const auto found = resampled.find(std::vector<double>(x.begin(), x.end()));
            if (found == resampled.end())
                continue;
            parameters[i] = found->second.parameters;
            result.solutions[i] = found->second.solution;
        }
        m_alive = screened.accepted;
        if (screened.abortASAP)
            abortASAP = true;
    }
    if (abortASAP) {
        result.truncateHistories(k);
        running = false;
        return;
    }

    // 8: store the iteration.
    result.Y[k] = Y;
    result.Parameter[k] = parameters;
    QVector<double> ssrK(n);
    for (int i = 0; i < n; ++i)
        ssrK[i] = ssr(Y[i]);
    result.lambda[k] = m_lambda;
    int improved = 0;
    for (int i = 0; i < n; ++i) {
        m_alive[i] = !std::isnan(ssrK[i]);
        improved += m_alive[i] ? 1 : 0;
    }

    // 9: accept or reject every point's step (not across the stage switch).
    if (k > 0 && k != numStage1Iterations) {
        for (int i = 0; i < n; ++i) {
            const double previous = ssr(result.Y[k - 1][i]);
            const double current = ssrK[i];
            if (m_alive[i] && !(current > previous || std::isnan(current))) {
                m_lambda[i] /= 10;
                continue;
            }
            if (m_alive[i])
                --improved;
            ssrK[i] = previous;
            result.X[k][i] = result.X[k - 1][i];
            result.Y[k][i] = result.Y[k - 1][i];
            result.Parameter[k][i] = result.Parameter[k - 1][i];
            m_lambda[i] *= 10;
        }
        result.lambda[k] = m_lambda;
    }
    result.SSR[k] = ssrK;

    // 10-13: record, statistics, files.
    result.updateSortIndex();
    for (int i = 0; i < n; ++i)
        m_alive[i] = !std::isnan(ssrK[i]);
    logStatistics(k, improved);
    emit current_computation_result(result);
    writeIterationFiles();

    // 14-16: next cluster and the step.
    result.X << result.X[k];
    if (k < weightsPerIteration.size() && weightsPerIteration[k].size() == target.size())
        m_weights = weightsPerIteration[k];
    if (k != numStage1Iterations - 1) {
        QVector<bool> mask(n);
        Vector lambda(std::size_t(n), 0.0);
        for (int i = 0; i < n; ++i) {
            mask[i] = m_alive[i] && m_lambda[i] <= lambdaLimit;
            lambda[std::size_t(i)] = m_lambda[i];
        }
        // The weights scale residuals: outputs and target by their square roots.
        const int m = target.size();
        Matrix weightedY = toMatrix(result.Y[k], m);
        Vector weightedTarget = toVector(target);
        for (int j = 0; j < m; ++j) {
            const double w = std::sqrt(m_weights[j]);
            weightedTarget[std::size_t(j)] *= w;
            for (int i = 0; i < n; ++i)
                weightedY(std::size_t(i), std::size_t(j)) *= w;
        }
        StepSettings settings;
        settings.target = weightedTarget;
        settings.domainLower = toVector(domainLower);
        settings.domainUpper = toVector(domainUpper);
        settings.targetPerturbation = targetPerturbation;
        settings.uniformNeighbourhood = uniformNeighbourhood;
        const StepResult step = computeSteps(toMatrix(result.X[k], p), weightedY, mask, lambda, settings);
        result.lastJacobian = toRows(step.lastJacobian);
        if (!abortASAP) {
            for (int i = 0; i < n; ++i)
                for (int q = 0; q < p; ++q)
                    result.X[k + 1][i][q] += step.steps(std::size_t(i), std::size_t(q));
        }
    }
    logLine(QStringLiteral("Total Computation time so far (in min): ") +
            number(double(QDateTime::currentMSecsSinceEpoch() - m_startMs) / 60000.0));
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

void ambrel_method::writeIterationFiles()
{
    if (!projectFolder.isEmpty())
        ::writeIterationFiles(projectFolder, result);
}
