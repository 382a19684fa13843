#include "ClusterEvaluation.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QtConcurrent>

#include <algorithm>
#include <ctime>

QVector<double> ClusterEvaluator::solutionTimes() const
{
    QVector<double> times;
    for (const ObservationEvent &observation : observations)
        times << observation.time;
    return times;
}

PointEvaluation ClusterEvaluator::evaluatePoint(const QVector<double> &x) const
{
    return evaluateParameters(applyTransformation(g, parameterNames, x));
}

PointEvaluation ClusterEvaluator::evaluateParameters(const QVector<double> &parameters) const
{
    PointEvaluation point;
    point.parameters = parameters;
    model_ode model = useStage2 ? stage2 : stage1;
    const std::vector<std::vector<double>> rows = model.evaluate(point.parameters);

    SolvedPointValues values(model.numStateVariables, point.parameters);
    point.solution.reserve(int(rows.size()));
    point.outputs.reserve(observations.size());
    for (int r = 0; r < observations.size(); ++r) {
        const std::vector<double> &row = rows[std::size_t(r)];
        point.solution << QVector<double>(row.begin(), row.end());
        point.outputs << values.evaluate(observations[r].variableExpression, observations[r].time, row);
    }
    finishedPoints.fetchAndAddRelaxed(1);
    return point;
}

QVector<PointEvaluation> ClusterEvaluator::evaluateHere(const DoubleMatrix &X) const
{
    return QtConcurrent::blockingMapped(
            X, std::function<PointEvaluation(const QVector<double> &)>(
                       [this](const QVector<double> &x) { return evaluatePoint(x); }));
}

QVector<PointEvaluation> ClusterEvaluator::evaluate(const DoubleMatrix &X) const
{
    QElapsedTimer wall;
    wall.start();
    const std::clock_t start = std::clock();
    const QVector<PointEvaluation> results = delegate ? delegate(*this, X) : evaluateHere(X);
    qDebug() << "ODE eval finished";
    qDebug() << "raw ODE time " << double(std::clock() - start) / CLOCKS_PER_SEC;
    // The outputs were formed inside the parallel tasks, beside the solves.
    qDebug() << "post ODE time " << double(std::clock() - start) / CLOCKS_PER_SEC;
    qDebug() << "function eval finished";
    evaluationNanoseconds += wall.nsecsElapsed();
    for (const QVector<double> &row : X)
        evaluatedRows += std::none_of(row.begin(), row.end(), [](double v) { return std::isnan(v); }) ? 1 : 0;
    return results;
}
