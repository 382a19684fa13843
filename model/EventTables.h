#pragma once

#include "expression/ExpressionParser.h"
#include "model/OdeSystemText.h"
#include "model/Problem.h"

#include <QString>
#include <QStringList>
#include <QVector>

// Dose and observation tables: each row becomes a record that keeps the
// numbers and, for cells that hold expressions in the model parameters, the
// parse tree so that the model evaluation can re-evaluate the cell for every
// parameter vector. Everything here works on cell texts; the window colours
// the cells and shows the messages.

// Dose duration convention.
namespace DoseDuration {
constexpr double Bolus = 0.0;
constexpr double SetValue = -99.0; // set the compartment to the dosage value
} // namespace DoseDuration

struct DoseEvent {
    double time;
    ExpressionParser timeExpression;
    bool timeIsExpression = false;
    double dosage; // total amount; an infusion gives it over the duration
    ExpressionParser dosageExpression;
    bool dosageIsExpression = false;
    double duration; // 0 bolus, > 0 infusion, -99 set value, other negatives an error
    ExpressionParser durationExpression;
    bool durationIsExpression = false;
    int compartmentIndex = -1; // into the ODE system's state variables
    QString compartmentName;
    bool compartmentValid = false;
    QStringList messages;

    DoseEvent();
};

struct ObservationEvent {
    double time;
    bool timeIsExpression = false;
    ExpressionParser timeExpression;
    // Over "t", the state variables and the parameters (the right-hand sides'
    // variable order).
    ExpressionParser variableExpression;
    QStringList messages;
    // The "Value" cell: one entry of the estimation's data vector.
    double observedValue;
    bool observedValueIsExpression = false;
    ExpressionParser observedValueExpression;

    ObservationEvent();
};

// Column order of the tables.
enum class DoseColumn { Time = 0, Compartment = 1, Dosage = 2, Duration = 3, Note = 4 };
enum class ObservationColumn { Time = 0, Variable = 1, Value = 2 };
// The simulation tab's dose table reports its Duration errors under its own
// name; its other messages say "Dosing Table".
enum class DoseTable { Estimation, Simulation };

QStringList doseTableHeaders(DoseTable table);
QStringList observationTableHeaders();

// A numeric cell: a plain number, else an expression in the parameters
// evaluated with their current values. NaN when neither works.
struct NumericCell {
    double value;
    bool isExpression = false;
    ExpressionParser expression; // parsed when the text is no plain number
    QString note;                // for an understood expression: text "=" value

    bool valid() const;
};
NumericCell readNumericCell(const QString &text, const QStringList &parameterNames,
                            const QVector<double> &parameterValues);

// The outcome of checking one cell: whether it is shown in black or red, the
// problem (meaningful when not valid) and the note shown for an understood
// expression.
struct CellCheck {
    bool valid = true;
    Problem problem;
    QString note;
};

// Compartment resolution: exact, case-sensitive match with a state variable.
// Clears the row's messages either way (the row is re-validated from here).
void resolveCompartment(DoseEvent &event, const QString &text, const QStringList &stateNames);

// Reads one cell of a dose table into the row's record. rowNumber is the
// 1-based table row used in the error text (the problem's place is 0-based).
// The note column is ignored.
CellCheck readDoseCell(DoseEvent &event, DoseColumn column, const QString &text, int rowNumber,
                       DoseTable table, const QStringList &stateNames, const QStringList &parameterNames,
                       const QVector<double> &parameterValues);

// Reads one cell of the observation table.
CellCheck readObservationCell(ObservationEvent &event, ObservationColumn column, const QString &text,
                              int rowNumber, const QStringList &stateNames, const QStringList &parameterNames,
                              const QVector<double> &parameterValues);

// A whole table read cell by cell. Rows whose cells are all blank are skipped
// (the tables keep spare rows); rowOfRecord maps each record to its 0-based
// table row.
struct CellPosition {
    int row;
    int column;
};
struct DoseTableResult {
    QVector<DoseEvent> events;
    QVector<int> rowOfRecord;
    Problems problems;                  // in table order
    QStringList notes;                  // understood expressions
    QVector<CellPosition> invalidCells; // cells to show in red
};
DoseTableResult readDoseTable(const QVector<QStringList> &cells, DoseTable table,
                              const QStringList &stateNames, const QStringList &parameterNames,
                              const QVector<double> &parameterValues);

struct ObservationTableResult {
    QVector<ObservationEvent> events;
    QVector<int> rowOfRecord;
    Problems problems;
    QStringList notes;
    QVector<CellPosition> invalidCells;
};
ObservationTableResult readObservationTable(const QVector<QStringList> &cells, const QStringList &stateNames,
                                            const QStringList &parameterNames,
                                            const QVector<double> &parameterValues);

// The same with the state and parameter names of a parsed ODE system.
DoseTableResult readDoseTable(const QVector<QStringList> &cells, DoseTable table, const OdeSystemText &ode,
                              const QVector<double> &parameterValues);
ObservationTableResult readObservationTable(const QVector<QStringList> &cells, const OdeSystemText &ode,
                                            const QVector<double> &parameterValues);

// Re-evaluates the expression cells of the records for one parameter vector
// (in the order of the parameter names the cells were parsed with). A cell
// that cannot be evaluated becomes NaN; plain numbers are left as they are.
void evaluateDoseEvents(QVector<DoseEvent> &events, const QVector<double> &parameterValues);
void evaluateObservationTimes(QVector<ObservationEvent> &events, const QVector<double> &parameterValues);
// True when any dose cell holds an expression, so the time grid depends on the
// parameter vector.
bool doseEventsDependOnParameters(const QVector<DoseEvent> &events);
