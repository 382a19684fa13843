#include "BatchCommon.h"

#include "ode/Simulation.h"
#include "project/ResultStore.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace {

// Parameters: the best point of the stored result, overridden by
// "NAME=VALUE,..." from the command line.
QVector<double> simulationParameters(const ProjectModel &project, const QString &folder,
                                     const QString &overrides)
{
    const QStringList &names = project.system.parameterNames;
    QVector<double> parameters(names.size(), std::numeric_limits<double>::quiet_NaN());
    compResult stored;
    if (loadResult(folder, stored) && !stored.Parameter.isEmpty() && !stored.sortIndex.isEmpty()) {
        const QVector<double> &best = stored.Parameter.last().value(stored.sortIndex.first());
        if (best.size() == names.size())
            parameters = best;
    }
    for (const QString &assignment : overrides.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QStringList sides = assignment.split(QLatin1Char('='));
        bool ok = false;
        const double value = sides.value(1).trimmed().toDouble(&ok);
        const int index = names.indexOf(sides.value(0).trimmed());
        if (sides.size() != 2 || !ok)
            throw InputError(
                    QStringLiteral("Parameters are given as NAME=VALUE, not \"%1\".").arg(assignment));
        if (index < 0)
            throw InputError(QStringLiteral("Unknown parameter name: %1 (the model's parameters: %2)")
                                     .arg(sides[0].trimmed(), names.join(QStringLiteral(", "))));
        parameters[index] = value;
    }
    QStringList missing;
    for (int j = 0; j < names.size(); ++j)
        if (std::isnan(parameters[j]))
            missing << names[j];
    if (!missing.isEmpty())
        throw InputError(QStringLiteral("No value for the parameters %1: there is no stored result; give "
                                        "them with --parameters NAME=VALUE,...")
                                 .arg(missing.join(QStringLiteral(", "))));
    return parameters;
}

} // namespace

int simulateCommand(const QString &folder, const QStringList &arguments)
{
    const OptionReader options(arguments, {"--expression", "--times", "--parameters", "--integrator"}, {});
    QStringList expressions = options.values("--expression");
    std::reverse(expressions.begin(), expressions.end()); // the map lists the newest first
    if (expressions.isEmpty())
        throw InputError(QStringLiteral("Give at least one --expression."));
    if (!options.has("--times"))
        throw InputError(QStringLiteral("Give the time points with --times (e.g. \"0:1:10\" or \"1,2,4\")."));
    const QString timesText = options.values("--times").first();
    const QVector<double> times = parseSimulationTimePoints(timesText);
    if (times.isEmpty())
        throw InputError(simulationTimePointsProblem(timesText));
    const QString integrator =
            options.has("--integrator") ? options.values("--integrator").first() : QStringLiteral("lsoda");
    if (integrator != QLatin1String("lsoda") && integrator != QLatin1String("rosenbrock"))
        throw InputError(QStringLiteral("--integrator is lsoda or rosenbrock, not \"%1\".").arg(integrator));

    const ProjectModel project = loadCheckedProject(folder);
    const QVector<double> parameters = simulationParameters(
            project, folder,
            options.has("--parameters") ? options.values("--parameters").first() : QString());

    std::FILE *integratorMessages = qEnvironmentVariableIsEmpty("AMBREL_DEBUG") ? nullptr : stderr;
    QVector<QVector<double>> columns;
    for (const QString &expression : qAsConst(expressions)) {
        const SimulationResult simulated =
                simulate(project.system, project.doseEvents, times, parameters, expression,
                         integrator == QLatin1String("rosenbrock"), integratorMessages);
        const QStringList problems = problemTexts(simulated.problems);
        if (!simulated.values.isEmpty() || problems.isEmpty()) {
            columns << simulated.values;
            for (const QString &problem : problems)
                std::fprintf(stderr, "%s\n", qPrintable(problem));
            continue;
        }
        throw InputError(problems.join(QLatin1Char('\n')));
    }

    std::printf("time,%s\n", qPrintable(expressions.join(QLatin1Char(','))));
    for (int r = 0; r < times.size(); ++r) {
        std::printf("%.17g", times[r]);
        for (const QVector<double> &column : qAsConst(columns))
            std::printf(",%.17g", column[r]);
        std::printf("\n");
    }
    return 0;
}
