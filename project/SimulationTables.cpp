#include "SimulationTables.h"

#include "project/TableFiles.h"

#include <algorithm>
#include <cmath>

namespace {

bool allFinite(const QVector<double> &values)
{
    return std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); });
}

bool blankRow(const QStringList &row)
{
    return std::all_of(row.begin(), row.end(), [](const QString &cell) { return cell.trimmed().isEmpty(); });
}

DoubleMatrix columnsOf(const QVector<double> &times, const DoubleMatrix &valuesPerSet)
{
    DoubleMatrix columns{times};
    columns << valuesPerSet;
    return columns;
}

} // namespace

NumericCell readSimulationParameterCell(const QString &text)
{
    return readNumericCell(text, {}, {});
}

SimulationParameterSets readSimulationParameterSets(const StringMatrix &cells, const QStringList &headers,
                                                    const QStringList &parameterNames)
{
    SimulationParameterSets read;
    QVector<int> columnOf;
    for (const QString &name : parameterNames) {
        columnOf << headers.indexOf(name);
        if (columnOf.last() < 0)
            read.missingParameters << name;
    }
    for (int r = 0; r < cells.size(); ++r) {
        const QStringList &row = cells[r];
        if (blankRow(row))
            continue;
        QVector<double> set;
        bool valid = true;
        for (int column : qAsConst(columnOf)) {
            const NumericCell cell = readSimulationParameterCell(row.value(column));
            if (column >= 0 && !cell.valid()) {
                read.invalidCells.append({r, column});
                valid = false;
            }
            set << cell.value;
        }
        if (valid && read.missingParameters.isEmpty()) {
            read.sets << set;
            read.rowOfSet << r;
        }
    }
    std::sort(read.invalidCells.begin(), read.invalidCells.end(), [](CellPosition a, CellPosition b) {
        return a.row != b.row ? a.row < b.row : a.column < b.column;
    });
    return read;
}

DoubleMatrix bestParameterSets(const compResult &result, int count)
{
    DoubleMatrix sets;
    if (result.Parameter.isEmpty() || result.SSR.isEmpty())
        return sets;
    const DoubleMatrix &parameters = result.Parameter.last();
    const QVector<double> &ssr = result.SSR.last();
    for (int point : result.sortIndex) {
        if (sets.size() >= count)
            break;
        if (point < parameters.size() && point < ssr.size() && std::isfinite(ssr[point]) &&
            allFinite(parameters[point]))
            sets << parameters[point];
    }
    return sets;
}

QVector<ObservedPoint> observedPointsOf(const QString &expression, const StringMatrix &cells,
                                        const ObservationTableResult &observations)
{
    QVector<ObservedPoint> points;
    const QString wanted = ExpressionParser::normalise(expression);
    if (wanted.isEmpty())
        return points;
    const int variableColumn = int(ObservationColumn::Variable);
    for (int i = 0; i < observations.events.size(); ++i) {
        const ObservationEvent &event = observations.events[i];
        const QString variable = cells.value(observations.rowOfRecord.value(i)).value(variableColumn);
        if (ExpressionParser::normalise(variable) == wanted && std::isfinite(event.time) &&
            std::isfinite(event.observedValue))
            points.append({event.time, event.observedValue});
    }
    return points;
}

QStringList simulationColumnNames(int setCount)
{
    QStringList names{QStringLiteral("time")};
    for (int i = 1; i <= setCount; ++i)
        names << QString::number(i);
    return names;
}

QString simulationResultText(const QVector<double> &times, const DoubleMatrix &valuesPerSet)
{
    return labelledColumnsText(simulationColumnNames(valuesPerSet.size()), columnsOf(times, valuesPerSet));
}

void writeSimulationResult(const QString &path, const QVector<double> &times,
                           const DoubleMatrix &valuesPerSet)
{
    writeLabelledColumns(path, simulationColumnNames(valuesPerSet.size()), columnsOf(times, valuesPerSet));
}
