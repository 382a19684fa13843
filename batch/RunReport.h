#pragma once

#include "engine/RunSettings.h"
#include "project/ProjectModel.h"
#include "project/compResult.h"

#include <QString>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

class ClusterEvaluator;

// What the batch tool tells a user about a run besides its progress bar.

// The parameter specification with the parameter names beside its rows (the
// rows belong to the names in the model's sorted order, which need not be
// the order of the ODE text), then a warning for every domain of interest
// that reaches a theoretical bound.
QString parameterTableText(const ProjectModel &project);

// The run options with their defaults (one source: RunSettings{}).
QString runHelpText();
QString simulateHelpText();
QString exportHelpText();

// After a run: the best SSR, the best parameters by name, how many points lie
// within 1 % of the best SSR, and the wall time.
QString runSummaryText(const compResult &result, const QStringList &parameterNames, double wallSeconds);

// Prints a line to standard error whenever an iteration has been evaluating
// for a while without finishing (slow or failing evaluations), so that a long
// iteration does not look like a hang. Runs on its own thread until stopped.
class SlowIterationNotice {
public:
    // terminal: standard error is a terminal, where a progress bar holds the
    // current line.
    SlowIterationNotice(const ClusterEvaluator &evaluator, int intervalSeconds, bool terminal);
    ~SlowIterationNotice();
    // Called when an iteration finishes: the quiet interval starts again.
    void iterationFinished(int k) { m_iteration = k + 1, m_lastEvent = now(); }

private:
    static qint64 now();
    void watch();

    const ClusterEvaluator &m_evaluator;
    const int m_intervalSeconds;
    const bool m_terminal;
    std::atomic<int> m_iteration{0};
    std::atomic<qint64> m_lastEvent;
    std::mutex m_mutex;
    std::condition_variable m_stopped;
    bool m_stop = false; // under m_mutex
    std::thread m_thread;
};
