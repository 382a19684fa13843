#pragma once

#include "model/EventTables.h"
#include "model/Matrices.h"
#include "model/OdeSystemText.h"
#include "ode/Simulation.h"

#include <QFuture>
#include <QString>
#include <QVector>

#include <memory>

// One press of "Compute simulation": everything the solves need, copied from
// the window so that they can run on other threads while the user goes on
// editing.
struct SimulationJob {
    OdeSystemText system;
    QVector<DoseEvent> doses;
    QVector<double> times;
    DoubleMatrix parameterSets; // in the order of the system's parameter names
    QString expression;
};

// The solve of one parameter set.
SimulationResult simulateSet(const SimulationJob &job, int set);
// Every set, in parallel on the global thread pool; blocks until done.
QVector<SimulationResult> simulateAll(const SimulationJob &job);
// Every set, in parallel, without blocking; the results are in set order.
QFuture<SimulationResult> startSimulation(const std::shared_ptr<const SimulationJob> &job);

// What the tab keeps of a finished simulation: the time points, one vector
// of values per set, and the problems met (each distinct text once, so a
// message that every set raises is shown once).
struct SimulationOutcome {
    QVector<double> times;
    DoubleMatrix values;
    Problems problems;

    bool hasData() const { return !times.isEmpty() && !values.isEmpty(); }
};
SimulationOutcome collectSimulation(const SimulationJob &job, const QVector<SimulationResult> &results);
