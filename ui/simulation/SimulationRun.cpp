#include "SimulationRun.h"

#include <QtConcurrent>

#include <functional>
#include <limits>
#include <numeric>

namespace {

QVector<int> setIndices(const SimulationJob &job)
{
    QVector<int> indices(job.parameterSets.size());
    std::iota(indices.begin(), indices.end(), 0);
    return indices;
}

} // namespace

SimulationResult simulateSet(const SimulationJob &job, int set)
{
    // LSODA, as the batch tool simulates; its method-switch notices stay quiet.
    return simulate(job.system, job.doses, job.times, job.parameterSets[set], job.expression, false, nullptr);
}

QVector<SimulationResult> simulateAll(const SimulationJob &job)
{
    return QtConcurrent::blockingMapped(
            setIndices(job),
            std::function<SimulationResult(const int &)>([&job](int set) { return simulateSet(job, set); }));
}

QFuture<SimulationResult> startSimulation(const std::shared_ptr<const SimulationJob> &job)
{
    // The tasks share the job, so it outlives the window if the window closes
    // while they run.
    return QtConcurrent::mapped(setIndices(*job), std::function<SimulationResult(const int &)>(
                                                          [job](int set) { return simulateSet(*job, set); }));
}

SimulationOutcome collectSimulation(const SimulationJob &job, const QVector<SimulationResult> &results)
{
    SimulationOutcome outcome;
    outcome.times = job.times;
    bool anyValues = false;
    for (const SimulationResult &result : results) {
        // A bad expression gives no values at all; keep the columns aligned.
        outcome.values << (result.values.size() == job.times.size()
                                   ? result.values
                                   : QVector<double>(job.times.size(),
                                                     std::numeric_limits<double>::quiet_NaN()));
        anyValues = anyValues || !result.values.isEmpty();
        for (const Problem &problem : result.problems)
            if (!outcome.problems.contains(problem))
                outcome.problems << problem;
    }
    if (!anyValues)
        outcome.values.clear();
    return outcome;
}
