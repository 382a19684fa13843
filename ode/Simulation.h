#pragma once

#include "model/EventTables.h"
#include "model/OdeSystemText.h"
#include "model/Problem.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <cstdio>

// Forward simulation of the model for one parameter set at chosen times.

// The most time points a simulation takes: a range that would make more is
// refused before anything is allocated.
constexpr int maxSimulationTimePoints = 1000000;

// The simulation time points of a text: "start:step:end" (the count rounded
// up, so the end may be overshot; empty for a zero step or a non-number) or a
// comma-separated list (duplicate texts and non-numbers dropped). Sorted.
// Only finite values count as numbers. A range of more than
// maxSimulationTimePoints points gives no points and sets *tooMany.
QVector<double> parseSimulationTimePoints(const QString &text, bool *tooMany = nullptr);

// What is wrong with a time-point text that gives no points (too many, a
// value that is not finite, or nothing understood); empty when it gives some.
QString simulationTimePointsProblem(const QString &text);

struct SimulationResult {
    QVector<double> values; // the expression at each time point
    Problems problems;      // a bad expression, or values that could not be computed
};

// Solves the model with the given doses at the time points and evaluates the
// expression (over "t", the state variables and the parameters) at each.
SimulationResult simulate(const OdeSystemText &system, const QVector<DoseEvent> &doses,
                          const QVector<double> &timePoints, const QVector<double> &parameters,
                          const QString &expression, bool useRosenbrock,
                          std::FILE *integratorMessages = stderr);
