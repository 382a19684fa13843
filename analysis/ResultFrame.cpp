#include "ResultFrame.h"

#include "project/ProjectModel.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

// The widest row of any iteration of the history.
int widestRow(const QVector<DoubleMatrix> &history)
{
    int columns = 0;
    for (int k = 0; k < history.size(); ++k)
        columns = std::max(columns, columnCountAt(history, k));
    return columns;
}

QStringList numbered(const QString &prefix, int count)
{
    QStringList names;
    for (int i = 1; i <= count; ++i)
        names << prefix + QString::number(i);
    return names;
}

void describeParameters(ResultFrame &frame, const compResult &result, const ProjectModel &model)
{
    const int parameters = widestRow(result.Parameter);
    const int search = widestRow(result.X);
    const QStringList &names = model.system.parameterNames;
    const bool namesFit = parameters == names.size() && model.parameterRows.size() == names.size() &&
                          model.unfixedParameters.size() == search;
    frame.parameterNames = namesFit ? names : numbered(QStringLiteral("P"), parameters);
    const ParameterSpecificationRow unknown{kNaN, kNaN, kNaN, kNaN};
    for (int a = 0; a < parameters; ++a) {
        frame.parameterRows << (namesFit ? model.parameterRows[a] : unknown);
        frame.logScale << useLogScale(frame.parameterRows.last());
    }
    for (int q = 0; q < search; ++q) {
        frame.searchParameter << (namesFit ? model.unfixedParameters[q] : -1);
        frame.searchNames << (namesFit ? names[model.unfixedParameters[q]] : "x" + QString::number(q + 1));
    }
}

void describeObservations(ResultFrame &frame, const compResult &result, const ProjectModel &model)
{
    const int outputs = widestRow(result.Y);
    const bool fits = outputs == model.observations.size() && outputs == model.observedValues.size();
    for (int j = 0; j < outputs; ++j) {
        frame.observationTimes << (fits ? model.observations[j].time : double(j));
        frame.observationVariables << (fits ? model.observations[j].variableExpression.expressionText()
                                            : QStringLiteral("y"));
        frame.observedValues << (fits ? model.observedValues[j] : kNaN);
    }
    frame.modelFits = fits;

    int states = 0;
    for (const DoubleMatrix &solution : result.solutions)
        for (const QVector<double> &row : solution)
            states = std::max(states, row.size());
    const QStringList &stateNames = model.system.stateVariableNames;
    frame.stateNames = states == stateNames.size() ? stateNames : numbered(QStringLiteral("S"), states);
}

} // namespace

int columnCountAt(const QVector<DoubleMatrix> &history, int k)
{
    int columns = 0;
    if (k >= 0 && k < history.size())
        for (const QVector<double> &row : history[k])
            columns = std::max(columns, row.size());
    return columns;
}

bool useLogScale(const ParameterSpecificationRow &row)
{
    if (!(row.theoreticalLower >= 0))
        return false;
    if (std::isnan(row.theoreticalUpper))
        return true;
    return row.domainLower > 0 && row.domainUpper >= 10 * row.domainLower;
}

ResultFrame describeResult(const compResult &result, const ProjectModel &model)
{
    ResultFrame frame;
    describeObservations(frame, result, model);
    describeParameters(frame, result, model);
    return frame;
}

QStringList ResultFrame::distinctVariables() const
{
    QStringList variables;
    for (const QString &v : observationVariables)
        if (!variables.contains(v))
            variables << v;
    return variables;
}

QVector<int> ResultFrame::observationsOf(const QString &variable) const
{
    QVector<int> columns;
    for (int j = 0; j < observationVariables.size(); ++j)
        if (observationVariables[j] == variable)
            columns << j;
    std::stable_sort(columns.begin(), columns.end(),
                     [this](int a, int b) { return observationTimes[a] < observationTimes[b]; });
    return columns;
}
