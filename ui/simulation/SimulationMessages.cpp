#include "SimulationMessages.h"

#include "ode/Simulation.h"
#include "ui/messages/ProblemHtml.h"

namespace {

QString red(ProblemSource source, const QString &text)
{
    return problemHtml({source, -1, -1, text});
}

} // namespace

QString timePointsErrorHtml(const QString &text, bool)
{
    return red(ProblemSource::SimulationExpression, simulationTimePointsProblem(text));
}

QString noOdeSystemHtml()
{
    return red(ProblemSource::OdeSystem,
               QStringLiteral("There is no ODE system to simulate: define it in Step1."));
}

QString missingExpressionHtml(const QStringList &stateNames)
{
    return red(
            ProblemSource::SimulationExpression,
            QStringLiteral("Give the simulation variable: an expression of time (t), the ODE variables (%1) "
                           "and the parameters.")
                    .arg(stateNames.join(QLatin1String(", "))));
}

QString missingParameterColumnsHtml(const QStringList &missing, const QStringList &parameterNames)
{
    return red(
            ProblemSource::SimulationParameters,
            QStringLiteral("The simulation parameter table has no column for the parameters %1 (its column "
                           "headers name the model's parameters: %2).")
                    .arg(missing.join(QLatin1String(", ")), parameterNames.join(QLatin1String(", "))));
}

QString noParameterSetHtml()
{
    return red(
            ProblemSource::SimulationParameters,
            QStringLiteral("The simulation parameter table holds no parameter set: give one row with a value "
                           "for every parameter (a finished run fills the table with its best points)."));
}

QString parameterTableErrorsHtml(const QVector<CellPosition> &invalid, const QStringList &headers,
                                 const StringMatrix &texts)
{
    QStringList places;
    for (const CellPosition &cell : invalid)
        places << QStringLiteral("row %1, %2: \"%3\"")
                          .arg(cell.row + 1)
                          .arg(headers.value(cell.column).toHtmlEscaped(),
                               texts.value(cell.row).value(cell.column).toHtmlEscaped());
    const Problem header{ProblemSource::SimulationParameters, invalid.value(0).row, invalid.value(0).column,
                         QStringLiteral("Error in Simulation Parameter Table ")};
    return problemHtml(header) +
           QStringLiteral("<br>Could not evaluate the simulation parameter expression.<br>") +
           places.join(QLatin1String("<br>"));
}
