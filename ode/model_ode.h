#pragma once

#include "expression/ExpressionParser.h"
#include "model/EventTables.h"

#include <QStringList>
#include <QVector>

#include <cstdio>
#include <vector>

class LSODA;
class RosenbrockIntegrator;
class OdeSystemText;
struct ModelRhs;

// The model for one parameter vector: solves the ODE system across the dose
// schedule and returns the state at every observation time.
//
// Contract of evaluate(): takes the model parameters in the order of the ODE
// system's parameter names; returns one row per observation record, in record
// order, each the full state vector (numStateVariables values) at that
// record's time. A failed evaluation (NaN parameters, the time limit, an
// integrator exception) returns the same shape filled with NaN; no exception
// leaves evaluate().
//
// The right-hand side seen by both integrators is the ODE system evaluated
// with the values "t", the states, the parameters, plus the current
// interval's infusion rates added to the infused compartments.
//
// Copies are cheap (implicitly shared containers) and independent: the
// engine copies one model per parameter vector into each parallel task.
class model_ode {
public:
    int useRosenbrock = 1; // nonzero: Rosenbrock (Stage 1); zero: LSODA (Stage 2)
    int numStateVariables = 0;

    // The schedule: the sorted, distinct time grid and what happens on it.
    QVector<double> timePoints;
    QVector<int> observationTimeIndex; // per observation record, -1 off the grid
    // The records on grid point i: gridRecords[gridRecordStart[i] .. gridRecordStart[i + 1]).
    QVector<int> gridRecords;
    QVector<int> gridRecordStart;
    QVector<QVector<double>> bolusDose;         // per grid point, per state
    QVector<QVector<double>> setValue;          // per grid point, per state; NaN = not set
    QVector<QVector<int>> infusionCompartments; // per interval (i-1, i), entry i
    QVector<QVector<double>> infusionRates;     // parallel to infusionCompartments
    bool hasParameterDependentEvents = false;
    QStringList errorMessages;

    // Integrator settings.
    double rosenbrockAbsoluteTolerance = 1e-6;
    double rosenbrockRelativeTolerance = 0.1;
    double lsodaAbsoluteTolerance = 1e-6;
    double lsodaRelativeTolerance = 1e-6;
    int timeLimitMs = 20000;
    // Where LSODA writes its messages (method switches, step limits); null
    // silences them.
    std::FILE *lsodaMessageStream = stderr;

    // The model.
    QVector<ExpressionParser> rightHandSides;
    QVector<DoseEvent> doseEvents;
    QVector<double> observationTimes;
    // For each state j, the equations whose right-hand side depends on it;
    // the Jacobian skips every other cell.
    QVector<QVector<int>> equationsDependingOnState;
    // The equations whose right-hand side uses "t".
    QVector<int> equationsUsingTime;
    int numParameters = 0;

    // Optional compiled replacement of the parsed right-hand sides: returns
    // equation i for the values "t", states, parameters. Lets a model written
    // in C++ run through the same schedule and integrators (the benchmarks
    // compare formula evaluation with compiled code this way).
    using CompiledEquation = double (*)(int equation, const double *values);
    CompiledEquation compiledEquation = nullptr;

    model_ode() = default;
    model_ode(const OdeSystemText &system, const QVector<DoseEvent> &doses,
              const QVector<ObservationEvent> &observations);

    // Builds the time grid, boluses, set values, infusions and observation
    // indices, re-evaluating parameter-dependent dose cells with parameters.
    void buildSchedule(const QVector<double> &parameters);

    std::vector<std::vector<double>> evaluate(const QVector<double> &parameters);

    // The statistics of the last evaluate(): right-hand-side evaluations.
    long rhsEvaluations() const { return m_rhsEvaluations; }

private:
    // The index of the grid value equal to t, or -1 (NaN is never equal).
    int gridIndexOf(double t) const;
    std::vector<std::vector<double>> nanRows() const;
    void integrateRosenbrock(std::vector<double> &state, double t0, double t1, ModelRhs &rhs,
                             RosenbrockIntegrator &integrator);
    void integrateLsoda(std::vector<double> &state, double t0, double t1, ModelRhs &rhs, LSODA &solver);

    long m_rhsEvaluations = 0;
};

// Evaluates expressions at a solved time point: the values "t", the states,
// then the parameters, as the right-hand sides see them. Observation outputs
// and forward simulations both read a solution this way.
class SolvedPointValues {
public:
    SolvedPointValues(int numStateVariables, const QVector<double> &parameters);
    // NaN without a message for an expression that did not parse.
    double evaluate(const ExpressionParser &expression, double t, const std::vector<double> &state);

private:
    std::vector<double> m_values;
};
