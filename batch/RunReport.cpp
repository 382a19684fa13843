#include "RunReport.h"

#include "engine/ClusterEvaluation.h"
#include "model/ParameterSpecification.h"

#include <QDateTime>

#include <chrono>
#include <cmath>
#include <cstdio>

namespace {

QString number(double v)
{
    return std::isnan(v) ? QStringLiteral("-") : QString::number(v, 'g', 6);
}

QString padded(const QString &text, int width)
{
    return text.leftJustified(width);
}

} // namespace

QString parameterTableText(const ProjectModel &project)
{
    const QStringList &names = project.system.parameterNames;
    int width = 9;
    for (const QString &name : names)
        width = std::max(width, int(name.size()) + 2);
    QString text =
            QStringLiteral("Parameters (row r of model/parameter_specifications.csv belongs to the r-th "
                           "name in this sorted order):\n");
    text += QStringLiteral("  row ") + padded(QStringLiteral("name"), width) +
            padded(QStringLiteral("domain of interest"), 28) + QStringLiteral("theoretical bounds\n");
    QStringList warnings;
    for (int j = 0; j < names.size() && j < project.parameterRows.size(); ++j) {
        const ParameterSpecificationRow &row = project.parameterRows[j];
        const QString domain =
                isFixedParameter(row)
                        ? QStringLiteral("fixed at ") + number(row.domainLower)
                        : QStringLiteral("[%1, %2]").arg(number(row.domainLower), number(row.domainUpper));
        text += QStringLiteral("  %1 ").arg(j + 1, 3) + padded(names[j], width) + padded(domain, 28) +
                QStringLiteral("[%1, %2]\n").arg(number(row.theoreticalLower), number(row.theoreticalUpper));
        // Comparisons with a missing bound are false: no warning.
        if (isFixedParameter(row))
            continue;
        if (row.domainLower == row.theoreticalLower || row.domainUpper == row.theoreticalUpper)
            warnings << QStringLiteral("Warning: the domain of interest of %1 reaches its theoretical bound; "
                                       "points drawn at that edge have no finite search value.")
                                .arg(names[j]);
    }
    for (const QString &warning : warnings)
        text += warning + QLatin1Char('\n');
    return text;
}

QString runHelpText()
{
    const RunSettings d;
    return QStringLiteral(
                   "usage: ambrel-batch run DIR [options]\n"
                   "Runs the Ambrel method on the project folder DIR and writes every iteration into "
                   "DIR/compResult/.\n"
                   "  --stage1-iterations N        Stage 1 (Rosenbrock) iterations (default %1)\n"
                   "  --stage2-iterations N        Stage 2 (LSODA) iterations (default %2)\n"
                   "  --stage1-reltol X            Stage 1 relative tolerance (default %3)\n"
                   "  --initial-lambda X           starting lambda of every point (default %4)\n"
                   "  --max-initial-tries N        re-sampling rounds of the initial screening (default %5)\n"
                   "  --stricter-initial-sampling  the stricter screening criteria (default off)\n"
                   "  --timeout-ms N               time limit of one model evaluation (default %6)\n"
                   "  --points N                   points sampled when model/initial_cluster.txt is "
                   "missing (default %7)\n"
                   "  --threads N                  worker threads (default: one per core)\n"
                   "  --seed N                     seed of every random draw, to repeat a run exactly "
                   "(default: the clock)\n"
                   "  --polish                     polish the best point of each group with "
                   "Levenberg-Marquardt and print standard errors (default off)\n"
                   "  --restart                    continue from the stored result in DIR/compResult/\n")
            .arg(d.stage1Iterations)
            .arg(d.stage2Iterations)
            .arg(d.stage1RelativeTolerance)
            .arg(d.initialLambda)
            .arg(d.maxInitialTries)
            .arg(d.timeLimitMs)
            .arg(d.initialClusterPoints);
}

QString simulateHelpText()
{
    return QStringLiteral(
            "usage: ambrel-batch simulate DIR --expression EXPR [--expression EXPR ...] --times TIMES "
            "[options]\n"
            "Solves the model of DIR and prints CSV: time, then one column per expression (of t, the "
            "state variables and the parameters).\n"
            "  --times TIMES            \"start:step:end\" or \"t1,t2,...\" (at most 1000000 points)\n"
            "  --parameters NAME=VALUE,...  parameter values (default: the best point of the stored "
            "result)\n"
            "  --integrator NAME        lsoda or rosenbrock (default lsoda)\n");
}

QString exportHelpText()
{
    return QStringLiteral("usage: ambrel-batch export DIR\n"
                          "Writes the R, Python and MATLAB scripts of the model into DIR/model/.\n");
}

QString runSummaryText(const compResult &result, const QStringList &parameterNames, double wallSeconds)
{
    const int best = result.sortIndex.first();
    const QVector<double> &ssr = result.SSR.last();
    const double bestSsr = ssr.value(best);
    int near = 0, alive = 0;
    for (double s : ssr) {
        alive += std::isnan(s) ? 0 : 1;
        near += s <= bestSsr * 1.01 ? 1 : 0;
    }
    QString text = QStringLiteral("Best sum of squares: %1\n").arg(number(bestSsr));
    const QVector<double> &parameters = result.Parameter.last().value(best);
    for (int j = 0; j < parameterNames.size(); ++j)
        text += QStringLiteral("  %1 = %2\n").arg(parameterNames[j], number(parameters.value(j)));
    text += QStringLiteral("Points within 1 % of the best sum of squares: %1 of %2 (%3 without a value)\n")
                    .arg(near)
                    .arg(ssr.size())
                    .arg(ssr.size() - alive);
    text += QStringLiteral("Wall time: %1 s\n").arg(QString::number(wallSeconds, 'f', 1));
    return text;
}

SlowIterationNotice::SlowIterationNotice(const ClusterEvaluator &evaluator, int intervalSeconds,
                                         bool terminal)
    : m_evaluator(evaluator)
    , m_intervalSeconds(intervalSeconds)
    , m_terminal(terminal)
    , m_lastEvent(now())
    , m_thread([this] { watch(); })
{
}

SlowIterationNotice::~SlowIterationNotice()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    // Wakes the watcher at once: a run must not end up to a look-out period later.
    m_stopped.notify_all();
    m_thread.join();
}

qint64 SlowIterationNotice::now()
{
    return QDateTime::currentMSecsSinceEpoch();
}

void SlowIterationNotice::watch()
{
    qint64 reported = m_evaluator.finishedPoints.loadRelaxed();
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            if (m_stopped.wait_for(lock, std::chrono::milliseconds(200), [this] { return m_stop; }))
                return;
        }
        const qint64 quiet = now() - m_lastEvent;
        if (quiet < m_intervalSeconds * 1000LL)
            continue;
        const qint64 finished = m_evaluator.finishedPoints.loadRelaxed();
        std::fprintf(stderr,
                     "%siteration %d still evaluating: %lld model evaluations finished in the last %lld s\n",
                     m_terminal ? "\n" : "", m_iteration.load(), static_cast<long long>(finished - reported),
                     static_cast<long long>(quiet / 1000));
        std::fflush(stderr);
        reported = finished;
        m_lastEvent = now();
    }
}
