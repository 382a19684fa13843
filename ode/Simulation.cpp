#include "Simulation.h"

#include "ode/model_ode.h"

#include <QRegularExpression>
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

QVector<double> listedTimePoints(const QString &text, bool &tooMany)
{
    QVector<double> times;
    QSet<QString> seen;
    const QStringList parts = text.split(QLatin1Char(','), Qt::SkipEmptyParts);
    if (parts.size() > maxSimulationTimePoints) {
        tooMany = true;
        return {};
    }
    for (const QString &part : parts) {
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
    QVector<double> times =
            range.size() == 3 ? rangeTimePoints(range, refused) : listedTimePoints(text, refused);
    if (tooMany)
        *tooMany = refused;
    std::sort(times.begin(), times.end());
    return times;
}

QString simulationTimePointsProblem(const QString &text)
{
    bool tooMany = false;
    if (!parseSimulationTimePoints(text, &tooMany).isEmpty())
        return QString();
    if (tooMany)
        return QStringLiteral("The simulation time points \"%1\" would make more than %2 points: use a "
                              "larger step or a shorter range.")
                .arg(text)
                .arg(maxSimulationTimePoints);
    for (const QString &part : text.split(QRegularExpression(QStringLiteral("[:,]")))) {
        bool ok = false;
        const double value = part.toDouble(&ok);
        if (ok && !std::isfinite(value))
            return QStringLiteral("The simulation time points \"%1\" hold \"%2\", which is not a finite "
                                  "number: give finite times.")
                    .arg(text, part);
    }
    return QStringLiteral("No simulation time points in \"%1\": write them as 1,2,3,4,5 or as "
                          "start:step:end (e.g., 0:1:10), with a step that is not 0 and leads from the "
                          "start to the end.")
            .arg(text);
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
