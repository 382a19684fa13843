#pragma once

#include "model/EventTables.h"
#include "project/TableCells.h"
#include "project/compResult.h"

#include <QString>
#include <QStringList>
#include <QVector>

// The data side of the simulation tab: its parameter table, the parameter
// sets offered from a result, the observations shown beside a simulation and
// the result file.

// A cell of the parameter table: a plain number or an expression without
// names (such as 2*3 or EXP(1)) that evaluates to a number.
NumericCell readSimulationParameterCell(const QString &text);

// The parameter table read as parameter sets. Columns are matched to the
// model's parameters by their header texts; columns that name no parameter
// are ignored. Rows whose cells are all blank are skipped (spare rows); a
// row with a cell that cannot be read gives no set.
struct SimulationParameterSets {
    DoubleMatrix sets;                  // each in the order of the model's parameter names
    QVector<int> rowOfSet;              // 0-based table row of each set
    QVector<CellPosition> invalidCells; // in table order
    QStringList missingParameters;      // model parameters without a column
};
SimulationParameterSets readSimulationParameterSets(const StringMatrix &cells, const QStringList &headers,
                                                    const QStringList &parameterNames);

// The model parameters of the newest iteration's points in SSR order (best
// first), at most count of them; points whose SSR or parameters are not
// finite are left out.
DoubleMatrix bestParameterSets(const compResult &result, int count);

// The observations of a variable: those whose "Observation variable" cell
// reads as the expression (blanks ignored), as time and observed value.
// observations is the table read from cells, so its rowOfRecord indexes them.
struct ObservedPoint {
    double time;
    double value;
};
QVector<ObservedPoint> observedPointsOf(const QString &expression, const StringMatrix &cells,
                                        const ObservationTableResult &observations);

// The simulation result in the labelled-column form: a "time" column, then
// one column per parameter set named 1, 2, ... in order.
QStringList simulationColumnNames(int setCount);
QString simulationResultText(const QVector<double> &times, const DoubleMatrix &valuesPerSet);
// Debug line "Error, unable to save" when the file cannot be written.
void writeSimulationResult(const QString &path, const QVector<double> &times,
                           const DoubleMatrix &valuesPerSet);
