#include "OdeSystemText.h"

#include <QSet>

#include <cmath>
#include <cstdlib>
#include <limits>

namespace {

const char *const kDuplicateMessage =
        "There are more than two equations with the same left hand side.\n"
        "The left hand side d<variable name>dt need to be unique for all equations in the system.";

const char *const kCircularMessage =
        "Auxillary function either circular or too complex (current implementation cannot handle "
        "more than 5 levels of substitution.";

constexpr int kSubstitutionPasses = 6;

// Names in first-appearance order, without duplicates, without the given ones.
QStringList namesBehind(const QStringList &front, const QStringList &expressions)
{
    QStringList names;
    QSet<QString> seen(front.begin(), front.end());
    for (const QString &expression : expressions) {
        for (const QString &name : ExpressionParser::extractNames(expression)) {
            if (!seen.contains(name)) {
                seen.insert(name);
                names << name;
            }
        }
    }
    names.sort(Qt::CaseSensitive);
    return names;
}

// A number in [0, 1] from the C library generator, on the 15-bit scale that
// the perturbation rule is defined on.
double randomUnit()
{
    return double(std::rand() % 32768) / 32767.0;
}

} // namespace

QVector<OdeSystemText::Equation> OdeSystemText::splitEquations(const QString &text)
{
    QVector<Equation> equations;
    const QStringList lines = ExpressionParser::removeBlanks(text).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        const QStringList pieces = line.split(QLatin1Char(';'), Qt::SkipEmptyParts);
        if (pieces.isEmpty())
            continue;
        const QString &content = pieces.first();
        const int equals = content.indexOf(QLatin1Char('='));
        if (equals < 0) {
            // A line without "=" continues the previous equation.
            if (!equations.isEmpty())
                equations.last().rightHandSide += content;
            continue;
        }
        const QStringList sides = content.split(QLatin1Char('='));
        equations.append(Equation{sides.at(0), sides.at(1)});
    }
    return equations;
}

void OdeSystemText::parseAuxiliaryFunctions()
{
    auxiliaryNames.clear();
    auxiliaryExpressions.clear();
    for (const Equation &equation : splitEquations(auxiliaryText)) {
        auxiliaryNames << equation.leftHandSide;
        auxiliaryExpressions << equation.rightHandSide;
    }
    auxiliaryParameterNames = namesBehind(QStringList{"t"} + auxiliaryNames, auxiliaryExpressions);

    if (QSet<QString>(auxiliaryNames.begin(), auxiliaryNames.end()).size() < auxiliaryNames.size())
        errors << QString::fromLatin1(kDuplicateMessage);
    if (auxiliaryExpressions.size() != auxiliaryNames.size())
        errors << QStringLiteral(
                "Size of the right hand side and left hand side did not match.\n"
                "Make sure there is an expression right of '<variable name> = '.\n"
                "Also keep in mind all text right of ';' sign in each line is treated as comments.");
}

QString OdeSystemText::substituteAuxiliaryFunctions()
{
    const QStringList &tokens = ExpressionParser::operatorTable().tokens;
    QString text = odeText;
    // The auxiliary text does not change between passes: parse it once so
    // that its messages appear once.
    parseAuxiliaryFunctions();
    int counter = kSubstitutionPasses;
    while (true) {
        // Pad so that every name stands between blanks; the blanks at both
        // ends let a name at the very start or end of the text match too.
        text = ExpressionParser::removeBlanks(text);
        text.replace(QLatin1String("="), QLatin1String(" = "));
        text.replace(QLatin1String(";"), QLatin1String(" ;"));
        text.replace(QLatin1String("\n"), QLatin1String(" \n"));
        for (const QString &token : tokens)
            text.replace(token, QLatin1Char(' ') + token + QLatin1Char(' '));
        text = QLatin1Char(' ') + text + QLatin1Char(' ');

        const QString copy = text;
        for (int i = 0; i < auxiliaryNames.size(); ++i) {
            text.replace(QLatin1Char(' ') + auxiliaryNames[i] + QLatin1Char(' '),
                         QLatin1String(" ( ") + auxiliaryExpressions[i] + QLatin1String(" ) "));
        }
        if (counter-- == 1) {
            errors << QString::fromLatin1(kCircularMessage);
            break;
        }
        if (text == copy)
            break;
    }
    return text;
}

QStringList OdeSystemText::variableNames() const
{
    return QStringList{"t"} + stateVariableNames + parameterNames;
}

void OdeSystemText::parseOdeSystem()
{
    errors.clear();
    stateVariableNames.clear();
    leftHandSides.clear();
    rightHandSides.clear();
    parsers.clear();
    linearPairs.clear();
    nonLinearPairs.clear();

    const QString substituted = substituteAuxiliaryFunctions();
    for (const Equation &equation : splitEquations(substituted)) {
        const QString &lhs = equation.leftHandSide;
        leftHandSides << lhs;
        // dNAMEdt: the letters d and dt are deliberately not checked.
        stateVariableNames << (lhs.size() >= 3 ? lhs.mid(1, lhs.size() - 3) : QString());
        rightHandSides << equation.rightHandSide;
    }
    parameterNames = namesBehind(QStringList{"t"} + stateVariableNames, rightHandSides);

    if (QSet<QString>(stateVariableNames.begin(), stateVariableNames.end()).size() <
        stateVariableNames.size())
        errors << QString::fromLatin1(kDuplicateMessage);
    if (rightHandSides.size() != stateVariableNames.size())
        errors << QStringLiteral(
                "Size of the right hand side and left hand side did not match.\n"
                "Make sure there is an expression right of 'd<variable name>dt = '.\n"
                "Also keep in mind all text right of ';' sign in each line is treated as comments.");

    const int n = stateVariableNames.size();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    dependencyMatrix = QVector<QVector<int>>(n, QVector<int>(n, NonLinear));
    dependencyCoefficients = QVector<QVector<double>>(n, QVector<double>(n, nan));

    const QStringList names = variableNames();
    for (int i = 0; i < rightHandSides.size(); ++i) {
        ExpressionParser parser(rightHandSides[i]);
        parser.parse(names);
        parsers << parser;

        std::vector<double> values(std::size_t(names.size()));
        for (double &v : values)
            v = randomUnit();
        const double y1 = parser.evaluate(values);
        if (std::isnan(y1)) {
            errors << QStringLiteral("The algorithm was not able to understand the right hand side of ") +
                              leftHandSides[i] + QStringLiteral(" .");
            continue;
        }
        for (int j = 0; j < n; ++j) {
            const std::size_t index = std::size_t(j) + 1;
            const double base = values[index];
            std::vector<double> perturbed = values;
            perturbed[index] = base * 1.1;
            const double y2 = parser.evaluate(perturbed);
            perturbed[index] = base * 1.2;
            const double y3 = parser.evaluate(perturbed);
            if (y1 == y2) {
                dependencyMatrix[i][j] = Independent;
                dependencyCoefficients[i][j] = 0;
            } else if (std::abs((y1 - y2) - (y2 - y3)) < 0.1 * base * 1.4901161193847656e-8) {
                dependencyMatrix[i][j] = Linear;
                dependencyCoefficients[i][j] = (y2 - y1) / (base * 0.1);
                linearPairs.append({i, j});
            } else {
                nonLinearPairs.append({i, j});
            }
        }
    }
}
