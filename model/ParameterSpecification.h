#pragma once

#include "expression/ExpressionParser.h"

#include <QPair>
#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>

// Domain of interest and theoretical bounds of one parameter; NaN is a bound
// that is not given (no bound).
struct ParameterSpecificationRow {
    double domainLower;
    double domainUpper;
    double theoreticalLower;
    double theoreticalUpper;
};

// Column headers of the parameter specification table, in order.
QStringList parameterSpecificationHeaders();

// One cell of the specification table: blanks are ignored; an empty cell,
// "nb" (any case) and text that is no number give NaN.
double parameterSpecificationCell(const QString &text);

// One row per line of cell texts (domain lower, domain upper, theoretical
// lower, theoretical upper); cells a line does not reach are NaN.
QVector<ParameterSpecificationRow> readParameterSpecification(const QVector<QStringList> &cells);

// The checks of the specification, one message per failure, in order. Empty
// when the specification can be used.
QStringList checkParameterSpecification(const QStringList &parameterNames,
                                        const QVector<ParameterSpecificationRow> &rows);
// Why a run is refused while checkParameterSpecification reports anything.
QString parameterSpecificationRefusal();

// A parameter whose domain of interest is one given value is fixed: it has no
// search variable.
bool isFixedParameter(const ParameterSpecificationRow &row);

// The transformation from search variables x1, x2, ... (one per unfixed
// parameter, in parameter order) to the parameters, written as equation texts
// of the expression language, one equation per line.
struct TransformationText {
    QString g;        // parameter = expression in x1, x2, ...
    QString gInverse; // xk = expression in the parameter names
    // Per parameter: k of its search variable xk, 0 for a fixed parameter.
    QVector<int> searchVariableNumbers;
};

// Generates g and its inverse from the theoretical bounds. Numbers are
// written in format "g" with 6 significant digits.
TransformationText generateTransformation(const QStringList &parameterNames,
                                          const QVector<ParameterSpecificationRow> &rows);

// "x1", "x2", ... for count search variables.
QStringList searchVariableNames(int count);
// Indices of the unfixed parameters, in order: the components of the search
// vector.
QVector<int> unfixedParameterIndices(const QVector<ParameterSpecificationRow> &rows);

// An equation text parsed into (left-hand side, parse tree) pairs.
struct ParsedEquations {
    QVector<QPair<QString, ExpressionParser>> equations;
    QStringList errors;

    // The parse tree of a left-hand side, or nullptr.
    const ExpressionParser *find(const QString &leftHandSide) const;
};

// Parses the g text: right-hand sides in the search variables x1..x
// searchVariableCount; every parameter needs an equation.
ParsedEquations parseTransformation(const QString &gText, const QStringList &parameterNames,
                                    int searchVariableCount);
// Parses the g inverse text: right-hand sides in the parameter names; every
// search variable x1..x searchVariableCount needs an equation.
ParsedEquations parseInverseTransformation(const QString &gInverseText, const QStringList &parameterNames,
                                           int searchVariableCount);

// g applied to one cluster row x: the parameter values in parameter order
// (NaN for a parameter without equation).
QVector<double> applyTransformation(const ParsedEquations &g, const QStringList &parameterNames,
                                    const QVector<double> &x);
// g inverse applied to one parameter row: x1..x searchVariableCount (NaN for a
// search variable without equation).
QVector<double> applyInverseTransformation(const ParsedEquations &gInverse, int searchVariableCount,
                                           const QVector<double> &parameters);

// The domain of interest in search coordinates: g inverse of the domain
// bounds, per search variable the smaller and the larger image (a decreasing
// g swaps them). A fixed parameter enters with its value.
struct SearchDomain {
    QVector<double> lower;
    QVector<double> upper;
};
SearchDomain searchDomain(const ParsedEquations &gInverse, int searchVariableCount,
                          const QVector<ParameterSpecificationRow> &rows);

// The window's message box for an imported initial cluster whose rows do not
// have one column per unfixed parameter; nullopt when it fits.
struct MessageBoxText {
    QString title;
    QString text;
};
std::optional<MessageBoxText> checkImportedClusterColumns(const QVector<QVector<double>> &cluster,
                                                          int unfixedParameterCount);
