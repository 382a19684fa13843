#include "model/ParameterSpecification.h"

#include <QSet>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();

QString num(double value)
{
    return QString::number(value, 'g', 6);
}

// The g and g inverse equations of an unfixed parameter n with search
// variable x (text "x" k), by its theoretical bounds.
QPair<QString, QString> boundedEquations(const QString &n, const QString &x, double lower, double upper)
{
    const bool hasLower = !std::isnan(lower);
    const bool hasUpper = !std::isnan(upper);
    const QString L = num(lower);
    const QString U = num(upper);
    const QString negL = num(-lower);

    if (!hasLower) {
        if (!hasUpper)
            return {n + "=" + x, x + "=" + n};
        if (upper == 0)
            return {n + "=-10^(" + x + ")", x + "=LOG10(0-" + n + ")"};
        if (upper < 0)
            return {n + "=-10^(" + x + ")" + U, x + "=LOG10(0" + U + "-" + n + ")"};
        return {n + "=" + U + "-10^(" + x + ")", x + "=LOG10(" + U + "-" + n + ")"};
    }

    if (!hasUpper) {
        if (lower == 0)
            return {n + "=10^(" + x + ")", x + "=LOG10(" + n + ")"};
        if (lower < 0)
            return {n + "=10^(" + x + ")" + L, x + "=LOG10(" + n + "+" + negL + ")"};
        return {n + "=" + L + "+10^(" + x + ")", x + "=LOG10(" + n + "-" + L + ")"};
    }

    // Both bounds: a logistic map onto (L, U) of width D. A negative D is
    // wrapped as "(0" D ")" or written after "0" so that no two signs meet.
    const double width = upper - lower;
    const QString D = num(width);
    const QString logistic = "*EXP(" + x + ")/(1+EXP(" + x + "))";
    const QString scale = width < 0 ? "(0" + D + ")" : D;
    const QString widthTerm = width < 0 ? "0" + D : D;

    if (lower == 0)
        return {n + "=" + scale + logistic, x + "=LOG(" + n + "/(" + widthTerm + "-" + n + "))"};
    if (lower < 0)
        return {n + "=" + scale + logistic + L,
                x + "=LOG((" + n + "+" + negL + ")/(" + widthTerm + "-" + n + L + "))"};
    return {n + "=" + scale + logistic + "+" + L,
            x + "=LOG((" + n + "-" + L + ")/(" + widthTerm + "-" + n + "+" + L + "))"};
}

QString outOfTheoreticalBound(const QString &name)
{
    return "Parameter " + name + "'s domain of interest is not within the theoretical bound.";
}

// Splits an equation text into (left-hand side, right-hand side) pairs: blanks
// removed, one equation per non-empty line, sides separated by "=".
ParsedEquations splitEquations(const QString &text, const QStringList &rhsVariableNames)
{
    ParsedEquations parsed;
    bool sizeMismatch = false;
    QSet<QString> seen;
    bool duplicate = false;

    const QString compact = ExpressionParser::normalise(text);
    const QStringList lines = compact.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (QString line : lines) {
        line.remove(QLatin1Char('\r'));
        if (line.isEmpty())
            continue;
        const QStringList sides = line.split(QLatin1Char('='));
        if (sides.size() != 2 || sides[0].isEmpty() || sides[1].isEmpty()) {
            sizeMismatch = true;
            continue;
        }
        const QString &lhs = sides[0];
        const QString &rhs = sides[1];
        if (seen.contains(lhs))
            duplicate = true;
        seen.insert(lhs);

        ExpressionParser parser(rhs);
        parser.parse(rhsVariableNames);
        if (!parser.errorMessages().isEmpty())
            parsed.errors << "The softwear was not able to understand " + rhs + " .";
        parsed.equations.append({lhs, parser});
    }
    if (sizeMismatch)
        parsed.errors.prepend("Size of the right hand side and left hand side did not match.");
    if (duplicate)
        parsed.errors << "There are more than two equations with the same left hand side.";
    return parsed;
}

double evaluateEquation(const ExpressionParser *parser, const QVector<double> &values)
{
    if (!parser || !parser->errorMessages().isEmpty() || parser->nodes().isEmpty())
        return NaN;
    return parser->evaluate(values);
}

} // namespace

QStringList parameterSpecificationHeaders()
{
    return {"Parameter Domain of Interest LB", "Parameter Domain of Interest UB",
            "Theoretical LB (by default 0, set to 'nb' if no bound)", "Theoretical UB (if applicable)"};
}

double parameterSpecificationCell(const QString &text)
{
    const QString compact = text.split(QLatin1Char(' '), Qt::SkipEmptyParts).join(QString());
    if (compact.isEmpty() || compact.compare(QLatin1String("nb"), Qt::CaseInsensitive) == 0)
        return NaN;
    bool ok = false;
    const double value = compact.toDouble(&ok);
    return ok ? value : NaN;
}

QVector<ParameterSpecificationRow> readParameterSpecification(const QVector<QStringList> &cells)
{
    QVector<ParameterSpecificationRow> rows;
    rows.reserve(cells.size());
    for (const QStringList &line : cells) {
        rows.append({parameterSpecificationCell(line.value(0)), parameterSpecificationCell(line.value(1)),
                     parameterSpecificationCell(line.value(2)), parameterSpecificationCell(line.value(3))});
    }
    return rows;
}

QStringList checkParameterSpecification(const QStringList &parameterNames,
                                        const QVector<ParameterSpecificationRow> &rows)
{
    QStringList messages;
    if (rows.size() != parameterNames.size()) {
        messages << "Number of parameter specification does not match with the parameter names "
                    "lists provided.";
        return messages;
    }
    // Comparisons with NaN are false: a missing theoretical bound never fails.
    for (int i = 0; i < rows.size(); ++i) {
        const QString &n = parameterNames[i];
        const ParameterSpecificationRow &row = rows[i];
        if (std::isnan(row.domainLower))
            messages << "Parameter " + n + "'s lowerbound of the domain of interest is not defined.";
        else if (row.theoreticalLower > row.domainLower)
            messages << outOfTheoreticalBound(n);

        if (std::isnan(row.domainUpper))
            messages << "Parameter" + n + "'s upperbound of the domain of interest is not defined.";
        else if (row.domainUpper > row.theoreticalUpper)
            messages << outOfTheoreticalBound(n);

        if (row.domainLower > row.domainUpper)
            messages << "Parameter " + n +
                                "'s lowerbound of the domain of interest is higher than its upperbound.";
        if (row.theoreticalLower > row.theoreticalUpper)
            messages << "Parameter " + n +
                                "'s lowerbound of the theoretica parameter domain is higher than its "
                                "upperbound.";
    }
    return messages;
}

QString parameterSpecificationRefusal()
{
    return "Parameters are not specified correctly, Ambrel method cannot be run. Check Step 3.";
}

bool isFixedParameter(const ParameterSpecificationRow &row)
{
    return !std::isnan(row.domainLower) && row.domainLower == row.domainUpper;
}

TransformationText generateTransformation(const QStringList &parameterNames,
                                          const QVector<ParameterSpecificationRow> &rows)
{
    TransformationText text;
    QStringList gLines;
    QStringList inverseLines;
    int k = 1;
    const int count = std::min(parameterNames.size(), rows.size());
    for (int i = 0; i < count; ++i) {
        const QString &n = parameterNames[i];
        const ParameterSpecificationRow &row = rows[i];
        if (isFixedParameter(row)) {
            gLines << n + "=" + num(row.domainLower);
            text.searchVariableNumbers << 0;
            continue;
        }
        const QPair<QString, QString> equations =
                boundedEquations(n, "x" + QString::number(k), row.theoreticalLower, row.theoreticalUpper);
        gLines << equations.first;
        inverseLines << equations.second;
        text.searchVariableNumbers << k;
        ++k;
    }
    text.g = gLines.join(QLatin1Char('\n'));
    text.gInverse = inverseLines.join(QLatin1Char('\n'));
    return text;
}

QStringList searchVariableNames(int count)
{
    QStringList names;
    for (int k = 1; k <= count; ++k)
        names << "x" + QString::number(k);
    return names;
}

QVector<int> unfixedParameterIndices(const QVector<ParameterSpecificationRow> &rows)
{
    QVector<int> indices;
    for (int i = 0; i < rows.size(); ++i)
        if (!isFixedParameter(rows[i]))
            indices << i;
    return indices;
}

const ExpressionParser *ParsedEquations::find(const QString &leftHandSide) const
{
    for (const auto &equation : equations)
        if (equation.first == leftHandSide)
            return &equation.second;
    return nullptr;
}

ParsedEquations parseTransformation(const QString &gText, const QStringList &parameterNames,
                                    int searchVariableCount)
{
    ParsedEquations parsed = splitEquations(gText, searchVariableNames(searchVariableCount));
    for (const QString &name : parameterNames)
        if (!parsed.find(name))
            parsed.errors << "Parameter" + name + " is not defined.";
    return parsed;
}

ParsedEquations parseInverseTransformation(const QString &gInverseText, const QStringList &parameterNames,
                                           int searchVariableCount)
{
    ParsedEquations parsed = splitEquations(gInverseText, parameterNames);
    for (const QString &x : searchVariableNames(searchVariableCount))
        if (!parsed.find(x))
            parsed.errors << x + " is not given. (It is user responsibility to provide inverse of g.)";
    return parsed;
}

QVector<double> applyTransformation(const ParsedEquations &g, const QStringList &parameterNames,
                                    const QVector<double> &x)
{
    QVector<double> parameters;
    parameters.reserve(parameterNames.size());
    for (const QString &name : parameterNames) {
        const ExpressionParser *parser = g.find(name);
        // The parser was given x1..xm; a shorter row must not reach it.
        if (parser && x.size() < parser->variableNames().size())
            parameters << NaN;
        else
            parameters << evaluateEquation(parser, x);
    }
    return parameters;
}

QVector<double> applyInverseTransformation(const ParsedEquations &gInverse, int searchVariableCount,
                                           const QVector<double> &parameters)
{
    QVector<double> x;
    x.reserve(searchVariableCount);
    for (const QString &name : searchVariableNames(searchVariableCount)) {
        const ExpressionParser *parser = gInverse.find(name);
        if (parser && parameters.size() < parser->variableNames().size())
            x << NaN;
        else
            x << evaluateEquation(parser, parameters);
    }
    return x;
}

SearchDomain searchDomain(const ParsedEquations &gInverse, int searchVariableCount,
                          const QVector<ParameterSpecificationRow> &rows)
{
    QVector<double> lowerParameters;
    QVector<double> upperParameters;
    for (const ParameterSpecificationRow &row : rows) {
        lowerParameters << row.domainLower;
        upperParameters << row.domainUpper;
    }
    const QVector<double> a = applyInverseTransformation(gInverse, searchVariableCount, lowerParameters);
    const QVector<double> b = applyInverseTransformation(gInverse, searchVariableCount, upperParameters);
    SearchDomain domain;
    for (int k = 0; k < searchVariableCount; ++k) {
        if (std::isnan(a[k]) || std::isnan(b[k])) {
            domain.lower << NaN;
            domain.upper << NaN;
        } else {
            domain.lower << std::min(a[k], b[k]);
            domain.upper << std::max(a[k], b[k]);
        }
    }
    return domain;
}

std::optional<MessageBoxText> checkImportedClusterColumns(const QVector<QVector<double>> &cluster,
                                                          int unfixedParameterCount)
{
    for (const QVector<double> &row : cluster) {
        if (row.size() != unfixedParameterCount)
            return MessageBoxText{"Wrong Size",
                                  "The imported X values does not have correct number of columns.  "
                                  "The number of column of the CSV file should be the same as the "
                                  "number of unfixed parameters."};
    }
    return std::nullopt;
}
