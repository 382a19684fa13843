#pragma once

#include "model/EventTables.h"
#include "model/Matrices.h"
#include "model/ParameterSpecification.h"
#include "ode/model_ode.h"

#include <QAtomicInteger>
#include <QStringList>
#include <QVector>

#include <functional>

// One evaluated point of the cluster.
struct PointEvaluation {
    QVector<double> parameters; // g(x)
    DoubleMatrix solution;      // one row per observation record: the state at its time
    QVector<double> outputs;    // one value per observation; NaN where unavailable
};

// Evaluates cluster rows in parallel on the global thread pool: each row is
// mapped through g to model parameters, solved by its own copy of the model
// and turned into outputs by the observation expressions. A row holding NaN
// is skipped at once (its model evaluation integrates nothing).
class ClusterEvaluator {
public:
    model_ode stage1; // Rosenbrock settings
    model_ode stage2; // LSODA settings
    bool useStage2 = false;
    ParsedEquations g;
    QStringList parameterNames;
    QVector<ObservationEvent> observations;

    int outputCount() const { return observations.size(); }
    QVector<double> solutionTimes() const;

    PointEvaluation evaluatePoint(const QVector<double> &x) const;
    // The same for model parameters given directly (g is not applied).
    PointEvaluation evaluateParameters(const QVector<double> &parameters) const;
    // Every row of X in order, through the delegate when one is set, else
    // through evaluateHere().
    QVector<PointEvaluation> evaluate(const DoubleMatrix &X) const;
    // The rows of X on this process's thread pool.
    QVector<PointEvaluation> evaluateHere(const DoubleMatrix &X) const;

    // Hands the rows of an evaluate() call to other processes (the batch
    // tool's MPI ranks), so that the core never depends on how. It must
    // return one evaluation per row, in row order, each what evaluatePoint()
    // gives for that row with this evaluator's current stage.
    using Delegate = std::function<QVector<PointEvaluation>(const ClusterEvaluator &, const DoubleMatrix &)>;
    Delegate delegate;

    // Accumulated over every evaluate() call (wall time from the start of
    // the parallel map to the return, and the rows without NaN, which are
    // the ones integrated). evaluate() is only called from the engine's
    // thread, so plain counters suffice.
    mutable qint64 evaluationNanoseconds = 0;
    mutable qint64 evaluatedRows = 0;
    // Points finished by evaluatePoint(), counted from the worker threads, so
    // that another thread can report progress while evaluations are slow.
    mutable QAtomicInteger<qint64> finishedPoints = 0;
};
