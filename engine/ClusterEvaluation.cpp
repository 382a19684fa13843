#include "ClusterEvaluation.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QtConcurrent>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <limits>

QVector<double> ClusterEvaluator::solutionTimes() const
{
    QVector<double> times;
    for (const ObservationEvent &observation : observations)
        times << observation.time;
    return times;
}

PointEvaluation ClusterEvaluator::evaluatePoint(const QVector<double> &x) const
{
    PointEvaluation point;
    point.parameters = applyTransformation(g, parameterNames, x);
    model_ode model = useStage2 ? stage2 : stage1;
    const std::vector<std::vector<double>> rows = model.evaluate(point.parameters);

    // Observation expressions see "t", the states, then the parameters.
    const int states = model.numStateVariables;
    std::vector<double> values(std::size_t(1 + states + point.parameters.size()));
    std::copy(point.parameters.begin(), point.parameters.end(), values.begin() + 1 + states);
    point.solution.reserve(int(rows.size()));
    point.outputs.reserve(observations.size());
    for (int r = 0; r < observations.size(); ++r) {
        const std::vector<double> &row = rows[std::size_t(r)];
        point.solution << QVector<double>(row.begin(), row.end());
        values[0] = observations[r].time;
        std::copy(row.begin(), row.end(), values.begin() + 1);
        const ExpressionParser &expression = observations[r].variableExpression;
        point.outputs << (expression.nodes().isEmpty()
                              ? std::numeric_limits<double>::quiet_NaN()
                              : expression.evaluate(values.data(), values.size()));
    }
    return point;
}

QVector<PointEvaluation> ClusterEvaluator::evaluate(const DoubleMatrix &X) const
{
    QElapsedTimer wall;
    wall.start();
    const std::clock_t start = std::clock();
    const QVector<PointEvaluation> results = QtConcurrent::blockingMapped(
        X, std::function<PointEvaluation(const QVector<double> &)>(
               [this](const QVector<double> &x) { return evaluatePoint(x); }));
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
