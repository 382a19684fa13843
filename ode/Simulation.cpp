#include "Simulation.h"

#include "ode/model_ode.h"

#include <QSet>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

bool finiteNumber(const QString &text, double &value)
{
    bool ok = false;
    value = text.toDouble(&ok);
    return ok && std::isfinite(value);
}

QVector<double> rangeTimePoints(const QStringList &range, bool &tooMany)
{
    double start, step, end;
    if (!finiteNumber(range[0], start) || !finiteNumber(range[1], step) || !finiteNumber(range[2], end) ||
        step == 0)
        return {};
    const double count = std::ceil((end - start) / step);
    if (!(count >= 0)) // the step leads away from the end
        return {};
    if (count >= maxSimulationTimePoints) {
        tooMany = true;
        return {};
    }
    QVector<double> times;
    times.reserve(int(count) + 1);
    for (int i = 0; i <= int(count); ++i)
        times << start + i * step;
    return times;
}

QVector<double> listedTimePoints(const QString &text)
{
    QVector<double> times;
    QSet<QString> seen;
    for (const QString &part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        if (seen.contains(part))
            continue;
        seen.insert(part);
        double value;
        if (finiteNumber(part, value))
            times << value;
    }
    return times;
}

} // namespace

QVector<double> parseSimulationTimePoints(const QString &text, bool *tooMany)
{
    bool refused = false;
    const QStringList range = text.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    QVector<double> times = range.size() == 3 ? rangeTimePoints(range, refused) : listedTimePoints(text);
    if (tooMany)
        *tooMany = refused;
    std::sort(times.begin(), times.end());
    return times;
}

SimulationResult simulate(const OdeSystemText &system, const QVector<DoseEvent> &doses,
                          const QVector<double> &timePoints, const QVector<double> &parameters,
                          const QString &expression, bool useRosenbrock, std::FILE *integratorMessages)
{
    SimulationResult result;
    ExpressionParser parser(expression);
    parser.parse(system.variableNames());
    if (!parser.errorMessages().isEmpty()) {
        result.problems.append({ProblemSource::SimulationExpression, -1, -1,
                                QStringLiteral("Error in simulation valiable expression (") + expression +
                                        "): " + parser.errorMessages().join("\n")});
        return result;
    }

    QVector<ObservationEvent> observations(timePoints.size());
    for (int r = 0; r < timePoints.size(); ++r)
        observations[r].time = timePoints[r];
    model_ode model(system, doses, observations);
    model.useRosenbrock = useRosenbrock ? 1 : 0;
    model.lsodaMessageStream = integratorMessages;
    // A forward simulation is read as a result: solve accurately with either
    // integrator, not at the loose tolerance of the estimation's first stage.
    model.rosenbrockRelativeTolerance = 1e-6;
    model.rosenbrockAbsoluteTolerance = 1e-9;
    model.timeLimitMs = std::numeric_limits<int>::max();
    const auto rows = model.evaluate(parameters);

    SolvedPointValues values(system.numStateVariables(), parameters);
    bool failed = false;
    for (int r = 0; r < timePoints.size(); ++r) {
        const double value = values.evaluate(parser, timePoints[r], rows[std::size_t(r)]);
        failed = failed || std::isnan(value);
        result.values << value;
    }
    if (failed)
        result.problems.append({ProblemSource::SimulationExpression, -1, -1,
                                QStringLiteral("Could not evaluate the simulation valiable expression (") +
                                        expression + ")"});
    return result;
}
