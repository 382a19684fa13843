#pragma once

#include "expression/ExpressionParser.h"

#include <QPair>
#include <QString>
#include <QStringList>
#include <QVector>

// The ODE system as the user types it: one equation "dNAMEdt = rhs" per line,
// ";" starting a comment, a line without "=" continuing the previous
// equation, and optional auxiliary functions "name = expression" that are
// substituted into the right-hand sides.
//
// parseOdeSystem() rebuilds everything below from the two texts. Every
// right-hand side is parsed against the variable names "t", the state
// variables in equation order, then the parameters sorted by character code;
// values vectors passed to the parsers follow the same order.
class OdeSystemText {
public:
    // Dependency matrix cells.
    enum Dependency { NonLinear = -1, Independent = 0, Linear = 1 };

    QString odeText;
    QString auxiliaryText;

    QStringList errors;
    // Doubtful input that still parses (unbalanced parentheses); shown
    // beside the errors but does not stop a run.
    QStringList warnings;

    QStringList auxiliaryNames;
    QStringList auxiliaryExpressions;
    // The names the auxiliary expressions use besides "t" and each other, sorted.
    QStringList auxiliaryParameterNames;

    QStringList stateVariableNames;
    QStringList leftHandSides;  // as written, e.g. "dAdt"
    QStringList rightHandSides; // auxiliary functions substituted
    QStringList parameterNames; // sorted by character code
    QVector<ExpressionParser> parsers;

    // One row per equation, one column per state variable: whether the
    // right-hand side depends on the state at all, linearly or otherwise.
    QVector<QVector<int>> dependencyMatrix;
    // Matching coefficients: 0 for independent pairs, the slope found for
    // linear pairs, NaN for non-linear pairs or unevaluable equations.
    QVector<QVector<double>> dependencyCoefficients;
    QVector<QPair<int, int>> linearPairs;    // (equation, state variable)
    QVector<QPair<int, int>> nonLinearPairs; // (equation, state variable)

    OdeSystemText() = default;
    OdeSystemText(const QString &ode, const QString &auxiliary)
        : odeText(ode)
        , auxiliaryText(auxiliary)
    {
    }

    void parseAuxiliaryFunctions();
    void parseOdeSystem();

    // "t", the state variables, then the parameters.
    QStringList variableNames() const;
    int numStateVariables() const { return stateVariableNames.size(); }

    // The ODE text with the auxiliary functions substituted, padded with
    // blanks; stops after the pass limit with the circularity message.
    QString substituteAuxiliaryFunctions();

    // One equation per line, comments and continuation lines resolved.
    struct Equation {
        QString leftHandSide;
        QString rightHandSide;
    };
    static QVector<Equation> splitEquations(const QString &text);
};
