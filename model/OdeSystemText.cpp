#include "OdeSystemText.h"

#include <QHash>
#include <QSet>

#include <algorithm>

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

// The substituted text may grow to this many characters, or to twice the
// padded ODE text if that is longer: enough for any model written by hand,
// small enough that no input can exhaust memory.
constexpr int kMaxSubstitutedLength = 4000000;

// A shortened copy of a user's text for a message.
QString excerpt(const QString &text)
{
    return text.size() <= 40 ? text : text.left(40) + QStringLiteral("...");
}

// True when the text is one name: not empty, not a number, no operator.
bool isName(const QString &text)
{
    const QStringList names = ExpressionParser::extractNames(text);
    return names.size() == 1 && names.first() == text;
}

// The words of the padded text (names stand between blanks there).
QSet<QString> wordsOf(const QString &padded)
{
    const QStringList words = padded.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    return QSet<QString>(words.begin(), words.end());
}

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

    for (int i = 0; i < auxiliaryNames.size(); ++i) {
        if (!isName(auxiliaryNames[i]))
            errors << QStringLiteral("The auxiliary function \"%1 = %2\" has no name left of '=': write "
                                     "one name there, e.g. CL = k*V.")
                              .arg(excerpt(auxiliaryNames[i]), excerpt(auxiliaryExpressions.value(i)));
    }
    if (QSet<QString>(auxiliaryNames.begin(), auxiliaryNames.end()).size() < auxiliaryNames.size())
        errors << QString::fromLatin1(kDuplicateMessage);
    if (auxiliaryExpressions.size() != auxiliaryNames.size())
        errors << QStringLiteral(
                "Size of the right hand side and left hand side did not match.\n"
                "Make sure there is an expression right of '<variable name> = '.\n"
                "Also keep in mind all text right of ';' sign in each line is treated as comments.");
}

namespace {

// Pads the text so that every name stands between blanks; the blanks at both
// ends let a name at the very start or end of the text match too.
QString padded(const QString &text)
{
    QString out = ExpressionParser::removeBlanks(text);
    out.replace(QLatin1String("="), QLatin1String(" = "));
    out.replace(QLatin1String(";"), QLatin1String(" ;"));
    out.replace(QLatin1String("\n"), QLatin1String(" \n"));
    for (const QString &token : ExpressionParser::operatorTable().tokens)
        out.replace(token, QLatin1Char(' ') + token + QLatin1Char(' '));
    return QLatin1Char(' ') + out + QLatin1Char(' ');
}

// Whether an auxiliary function reachable from the given words uses itself,
// directly or through others. Such a function never stops growing the text,
// so it is reported before any substitution.
bool reachesCycle(const QStringList &names, const QStringList &expressions, const QSet<QString> &words)
{
    QHash<QString, int> index;
    for (int i = 0; i < names.size(); ++i)
        index.insert(names[i], i);
    QVector<QVector<int>> uses(names.size());
    for (int i = 0; i < names.size(); ++i)
        for (const QString &name : ExpressionParser::extractNames(expressions.value(i)))
            if (index.contains(name))
                uses[i] << index.value(name);

    // Depth-first search without recursion: 0 unseen, 1 on the path, 2 done.
    QVector<int> state(names.size(), 0);
    for (int root = 0; root < names.size(); ++root) {
        if (state[root] != 0 || !words.contains(names[root]))
            continue;
        QVector<QPair<int, int>> path{{root, 0}};
        state[root] = 1;
        while (!path.isEmpty()) {
            auto &top = path.last();
            if (top.second == uses[top.first].size()) {
                state[top.first] = 2;
                path.removeLast();
                continue;
            }
            const int next = uses[top.first][top.second++];
            if (state[next] == 1)
                return true;
            if (state[next] == 0) {
                state[next] = 1;
                path.append({next, 0});
            }
        }
    }
    return false;
}

} // namespace

QString OdeSystemText::substituteAuxiliaryFunctions()
{
    QString text = padded(odeText);
    // The auxiliary text does not change between passes: parse it once so
    // that its messages appear once.
    parseAuxiliaryFunctions();
    if (reachesCycle(auxiliaryNames, auxiliaryExpressions, wordsOf(text))) {
        errors << QString::fromLatin1(kCircularMessage);
        return text;
    }
    const int maxLength = std::max(kMaxSubstitutedLength, 2 * text.size());
    int counter = kSubstitutionPasses;
    while (true) {
        const QString copy = text;
        for (int i = 0; i < auxiliaryNames.size(); ++i) {
            if (!isName(auxiliaryNames[i]))
                continue;
            const QString word = QLatin1Char(' ') + auxiliaryNames[i] + QLatin1Char(' ');
            const QString replacement = QLatin1String(" ( ") + auxiliaryExpressions[i] + QLatin1String(" ) ");
            const qint64 grown =
                    qint64(text.size()) + qint64(text.count(word)) * (replacement.size() - word.size());
            if (grown > maxLength) {
                errors << QStringLiteral("The auxiliary functions make the ODE system longer than %1 "
                                         "characters (\"%2\" is used too often): use fewer nested "
                                         "auxiliary functions or fewer repetitions.")
                                  .arg(maxLength)
                                  .arg(excerpt(auxiliaryNames[i]));
                return text;
            }
            text.replace(word, replacement);
        }
        if (counter-- == 1) {
            errors << QString::fromLatin1(kCircularMessage);
            break;
        }
        if (text == copy)
            break;
        text = padded(text);
    }
    return text;
}

QStringList OdeSystemText::variableNames() const
{
    return QStringList{"t"} + stateVariableNames + parameterNames;
}

namespace {

// A warning when the text's parentheses do not pair up.
QString parenthesisWarning(const QString &leftHandSide, const QString &text)
{
    int depth = 0, unopened = 0;
    for (const QChar c : text) {
        if (c == QLatin1Char('('))
            ++depth;
        else if (c == QLatin1Char(')') && depth-- == 0) {
            depth = 0;
            ++unopened;
        }
    }
    if (depth == 0 && unopened == 0)
        return QString();
    return QStringLiteral("Warning: the right hand side of %1 has unbalanced parentheses (%2 '(' not "
                          "closed, %3 ')' not opened); check where each group ends.")
            .arg(excerpt(leftHandSide))
            .arg(depth)
            .arg(unopened);
}

} // namespace

void OdeSystemText::parseOdeSystem()
{
    errors.clear();
    warnings.clear();
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
        const QString warning = parenthesisWarning(lhs, equation.rightHandSide);
        if (!warning.isEmpty())
            warnings << warning;
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
