#include "Simulation.h"

#include "ode/model_ode.h"

#include <QSet>

#include <algorithm>
#include <cmath>
#include <limits>

QVector<double> parseSimulationTimePoints(const QString &text)
{
    QVector<double> times;
    const QStringList range = text.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    if (range.size() == 3) {
        bool ok[3];
        const double start = range[0].toDouble(&ok[0]);
        const double step = range[1].toDouble(&ok[1]);
        const double end = range[2].toDouble(&ok[2]);
        if (ok[0] && ok[1] && ok[2] && step != 0) {
            const double count = std::ceil((end - start) / step);
            for (int i = 0; i <= count && i <= 10000000; ++i)
                times << start + i * step;
        }
    } else {
        QSet<QString> seen;
        for (const QString &part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
            if (seen.contains(part))
                continue;
            seen.insert(part);
            bool ok = false;
            const double value = part.toDouble(&ok);
            if (ok)
                times << value;
        }
    }
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
