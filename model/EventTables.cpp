#include "model/EventTables.h"

#include <cmath>
#include <limits>

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();

// Values for a parser given the parameter names: never shorter than the
// name list, since the evaluation must not run past the vector.
QVector<double> valuesFor(const ExpressionParser &parser, const QVector<double> &values)
{
    QVector<double> padded = values;
    while (padded.size() < parser.variableNames().size())
        padded << NaN;
    return padded;
}

double evaluateParsed(const ExpressionParser &parser, const QVector<double> &values)
{
    if (!parser.errorMessages().isEmpty() || parser.nodes().isEmpty())
        return NaN;
    return parser.evaluate(valuesFor(parser, values));
}

// The heading of a cell's problem text; its messages follow on lines of their own.
QString cellHeading(const QString &tableName, int rowNumber, const QString &columnName)
{
    return "Error in " + tableName + " (" + QString::number(rowNumber) + "th row " + columnName + "):";
}

Problem doseProblem(DoseTable table, DoseColumn column, const QString &tableName, int rowNumber,
                    const QString &columnName, const QStringList &messages)
{
    const ProblemSource source =
            table == DoseTable::Simulation ? ProblemSource::SimulationDoseTable : ProblemSource::DoseTable;
    return {source, rowNumber - 1, int(column),
            cellHeading(tableName, rowNumber, columnName) + "\n" + messages.join("\n")};
}

Problem observationProblem(ObservationColumn column, int rowNumber, const QString &columnName,
                           const QStringList &messages)
{
    return {ProblemSource::ObservationTable, rowNumber - 1, int(column),
            cellHeading("Observation Table", rowNumber, columnName) + "\n" + messages.join("\n")};
}

void addMessage(QStringList &messages, const QString &message)
{
    if (!messages.contains(message))
        messages << message;
}

bool isBlankRow(const QStringList &cells, int columnCount)
{
    for (int c = 0; c < columnCount && c < cells.size(); ++c)
        if (!cells[c].trimmed().isEmpty())
            return false;
    return true;
}

} // namespace

DoseEvent::DoseEvent()
    : time(NaN)
    , dosage(NaN)
    , duration(NaN)
{
}

ObservationEvent::ObservationEvent()
    : time(NaN)
    , observedValue(NaN)
{
}

QStringList doseTableHeaders(DoseTable table)
{
    return {"Time", "Compartment", "Dosage",
            table == DoseTable::Simulation ? "Duration (set 0 if bolus)"
                                           : "Duration (set 0 if bolus,  -99 to set value)",
            "Note (optional):"};
}

QStringList observationTableHeaders()
{
    return {"Time", "Observation variable", "Value"};
}

bool NumericCell::valid() const
{
    return !std::isnan(value);
}

NumericCell readNumericCell(const QString &text, const QStringList &parameterNames,
                            const QVector<double> &parameterValues)
{
    NumericCell cell;
    // A text that is a plain number is one, even where it would also parse as
    // an expression; blanks are ignored as in every numeric table cell.
    // Non-finite spellings ("nan", "inf") are not numbers.
    bool isNumber = false;
    const double number = QString(text).remove(QLatin1Char(' ')).toDouble(&isNumber);
    if (isNumber && std::isfinite(number)) {
        cell.value = number;
        return cell;
    }
    cell.expression = ExpressionParser(text);
    cell.expression.parse(parameterNames);
    cell.value = evaluateParsed(cell.expression, parameterValues);
    if (!std::isnan(cell.value)) {
        cell.isExpression = true;
        cell.note = text + "=" + QString::number(cell.value, 'g', 6);
    }
    return cell;
}

void resolveCompartment(DoseEvent &event, const QString &text, const QStringList &stateNames)
{
    event.compartmentName = text;
    event.messages.clear();
    event.compartmentIndex = stateNames.indexOf(text);
    event.compartmentValid = event.compartmentIndex >= 0;
    if (!event.compartmentValid)
        event.messages << "Dosing compartment not found.  It should be selected from the following: " +
                                  stateNames.join("  ");
}

CellCheck readDoseCell(DoseEvent &event, DoseColumn column, const QString &text, int rowNumber,
                       DoseTable table, const QStringList &stateNames, const QStringList &parameterNames,
                       const QVector<double> &parameterValues)
{
    CellCheck check;
    const QString tableName = QStringLiteral("Dosing Table");
    if (column == DoseColumn::Note)
        return check;
    if (column == DoseColumn::Compartment) {
        resolveCompartment(event, text, stateNames);
        if (!event.compartmentValid) {
            check.valid = false;
            check.problem = doseProblem(table, column, tableName, rowNumber, "Compartment", event.messages);
        }
        return check;
    }

    const NumericCell cell = readNumericCell(text, parameterNames, parameterValues);
    check.valid = cell.valid();
    check.note = cell.note;
    // The three numeric columns differ only in their field, header and message.
    auto store = [&](double &value, ExpressionParser &expression, bool &isExpression, const char *header,
                     const char *message, const QString &errorTable) {
        value = cell.value;
        expression = cell.expression;
        isExpression = cell.isExpression;
        if (!check.valid) {
            addMessage(event.messages, message);
            check.problem = doseProblem(table, column, errorTable, rowNumber, header, event.messages);
        }
    };
    switch (column) {
    case DoseColumn::Time:
        store(event.time, event.timeExpression, event.timeIsExpression, "Time",
              "Could not evaluate the expression for the dosage time.", tableName);
        break;
    case DoseColumn::Dosage:
        store(event.dosage, event.dosageExpression, event.dosageIsExpression, "Dosage",
              "Could not evaluate the tree.", tableName);
        break;
    case DoseColumn::Duration:
        store(event.duration, event.durationExpression, event.durationIsExpression, "Duration",
              "Could not evaluate the tree.",
              table == DoseTable::Simulation ? QStringLiteral("Simulation Dosing Table") : tableName);
        break;
    default:
        break;
    }
    return check;
}

CellCheck readObservationCell(ObservationEvent &event, ObservationColumn column, const QString &text,
                              int rowNumber, const QStringList &stateNames, const QStringList &parameterNames,
                              const QVector<double> &parameterValues)
{
    CellCheck check;
    if (column == ObservationColumn::Variable) {
        event.variableExpression = ExpressionParser(text);
        event.variableExpression.parse(QStringList{"t"} + stateNames + parameterNames);
        event.messages = event.variableExpression.errorMessages();
        if (event.messages.isEmpty() && event.variableExpression.nodes().isEmpty())
            event.messages << "Could not evaluate the tree.";
        if (!event.messages.isEmpty()) {
            check.valid = false;
            check.problem = observationProblem(column, rowNumber, "Compartment", event.messages);
        }
        return check;
    }

    const NumericCell cell = readNumericCell(text, parameterNames, parameterValues);
    check.valid = cell.valid();
    check.note = cell.note;
    const QString notUnderstood = QStringLiteral(" Expression could not be understood.");
    if (column == ObservationColumn::Time) {
        event.time = cell.value;
        event.timeExpression = cell.expression;
        event.timeIsExpression = cell.isExpression;
        if (!check.valid)
            check.problem = observationProblem(column, rowNumber, "Time", {notUnderstood});
    } else {
        event.observedValue = cell.value;
        event.observedValueExpression = cell.expression;
        event.observedValueIsExpression = cell.isExpression;
        if (!check.valid)
            check.problem = observationProblem(column, rowNumber, "Value", {notUnderstood});
    }
    return check;
}

DoseTableResult readDoseTable(const QVector<QStringList> &cells, DoseTable table,
                              const QStringList &stateNames, const QStringList &parameterNames,
                              const QVector<double> &parameterValues)
{
    DoseTableResult result;
    result.events.reserve(cells.size());
    // The compartment first: resolving it starts the row's messages afresh.
    const DoseColumn order[] = {DoseColumn::Compartment, DoseColumn::Time, DoseColumn::Dosage,
                                DoseColumn::Duration};
    for (int r = 0; r < cells.size(); ++r) {
        if (isBlankRow(cells[r], 4))
            continue;
        DoseEvent event;
        for (DoseColumn column : order) {
            const int c = int(column);
            const CellCheck check = readDoseCell(event, column, cells[r].value(c), r + 1, table, stateNames,
                                                 parameterNames, parameterValues);
            if (!check.valid) {
                result.problems << check.problem;
                result.invalidCells.append({r, c});
            }
            if (!check.note.isEmpty())
                result.notes << check.note;
        }
        result.events << event;
        result.rowOfRecord << r;
    }
    return result;
}

ObservationTableResult readObservationTable(const QVector<QStringList> &cells, const QStringList &stateNames,
                                            const QStringList &parameterNames,
                                            const QVector<double> &parameterValues)
{
    ObservationTableResult result;
    result.events.reserve(cells.size());
    for (int r = 0; r < cells.size(); ++r) {
        if (isBlankRow(cells[r], 3))
            continue;
        ObservationEvent event;
        for (ObservationColumn column :
             {ObservationColumn::Time, ObservationColumn::Variable, ObservationColumn::Value}) {
            const int c = int(column);
            const CellCheck check = readObservationCell(event, column, cells[r].value(c), r + 1, stateNames,
                                                        parameterNames, parameterValues);
            if (!check.valid) {
                result.problems << check.problem;
                result.invalidCells.append({r, c});
            }
            if (!check.note.isEmpty())
                result.notes << check.note;
        }
        result.events << event;
        result.rowOfRecord << r;
    }
    return result;
}

DoseTableResult readDoseTable(const QVector<QStringList> &cells, DoseTable table, const OdeSystemText &ode,
                              const QVector<double> &parameterValues)
{
    return readDoseTable(cells, table, ode.stateVariableNames, ode.parameterNames, parameterValues);
}

ObservationTableResult readObservationTable(const QVector<QStringList> &cells, const OdeSystemText &ode,
                                            const QVector<double> &parameterValues)
{
    return readObservationTable(cells, ode.stateVariableNames, ode.parameterNames, parameterValues);
}

void evaluateDoseEvents(QVector<DoseEvent> &events, const QVector<double> &parameterValues)
{
    for (DoseEvent &event : events) {
        if (event.timeIsExpression)
            event.time = evaluateParsed(event.timeExpression, parameterValues);
        if (event.dosageIsExpression)
            event.dosage = evaluateParsed(event.dosageExpression, parameterValues);
        if (event.durationIsExpression)
            event.duration = evaluateParsed(event.durationExpression, parameterValues);
    }
}

void evaluateObservationTimes(QVector<ObservationEvent> &events, const QVector<double> &parameterValues)
{
    for (ObservationEvent &event : events)
        if (event.timeIsExpression)
            event.time = evaluateParsed(event.timeExpression, parameterValues);
}

bool doseEventsDependOnParameters(const QVector<DoseEvent> &events)
{
    for (const DoseEvent &event : events)
        if (event.timeIsExpression || event.dosageIsExpression || event.durationIsExpression)
            return true;
    return false;
}
