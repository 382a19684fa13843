#include "ExpressionParser.h"

#include "ExpressionOperators.h"
#include "ExpressionProgram.h"

#include <QDebug>
#include <QSet>

#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

// A token of the tokenizer: an operand piece or an operator with its code.
struct Token {
    QString text;
    bool isOperator = false;
    int tableIndex = -1;
};

// The tokens of one operand piece: the piece is split at every
// case-insensitive occurrence of the first operator token (from tableIndex
// on, in table order) that it holds, empty pieces dropped, and every piece
// between is split the same way by the tokens after that one. This is the
// same as splitting the whole token list by each table token in turn, but
// makes one output list instead of one per table token, so a long formula
// costs one pass over its text per token and no copies of the list.
void splitPiece(QStringView piece, int tableIndex, QVector<Token> &out)
{
    const QStringList &ops = OperatorTable::instance().tokens;
    for (int i = tableIndex; i < ops.size(); ++i) {
        const QString &op = ops[i];
        qsizetype at = piece.indexOf(op, 0, Qt::CaseInsensitive);
        if (at < 0)
            continue;
        qsizetype from = 0;
        while (true) {
            const qsizetype end = at < 0 ? piece.size() : at;
            if (end > from)
                splitPiece(piece.mid(from, end - from), i + 1, out);
            if (at < 0)
                break;
            out.append(Token{op, true, i});
            from = at + op.size();
            at = piece.indexOf(op, from, Qt::CaseInsensitive);
        }
        return;
    }
    out.append(Token{piece.toString(), false, -1});
}

QVector<Token> tokenize(const QString &text)
{
    QVector<Token> tokens;
    if (!text.isEmpty())
        splitPiece(QStringView(text), 0, tokens);
    return tokens;
}

ExprNode operatorNode(int tableIndex)
{
    const OperatorTable &table = OperatorTable::instance();
    ExprNode node;
    node.kind = ExprNode::Operator;
    node.value = table.codes[tableIndex];
    node.precedence = table.precedences[tableIndex];
    node.text = table.tokens[tableIndex];
    node.leftAssociative = table.leftAssociative[tableIndex];
    return node;
}

bool isBinaryCode(double code)
{
    return code >= 0 && code < OpCode::OpenParen;
}

} // namespace

const OperatorTable &OperatorTable::instance()
{
    static const OperatorTable table = [] {
        OperatorTable t;
        const struct {
            const char *token;
            int code;
            int precedence;
            bool left;
        } rows[] = {
                {"^", OpCode::Power, 4, false},      {"*", OpCode::Multiply, 3, true},
                {"/", OpCode::Divide, 3, true},      {"+", OpCode::Add, 2, true},
                {"-", OpCode::Subtract, 2, true},    {"EXP(", OpCode::Exp, 100, true},
                {"LOG(", OpCode::Log, 100, true},    {"LOG10(", OpCode::Log10, 100, true},
                {"ABS(", OpCode::Abs, 100, true},    {"SIGN(", OpCode::Sign, 100, true},
                {"SQRT(", OpCode::Sqrt, 100, true},  {"SIN(", OpCode::Sin, 100, true},
                {"COS(", OpCode::Cos, 100, true},    {"TAN(", OpCode::Tan, 100, true},
                {"ASIN(", OpCode::Asin, 100, true},  {"ACOS(", OpCode::Acos, 100, true},
                {"ATAN(", OpCode::Atan, 100, true},  {"LN(", OpCode::Ln, 100, true},
                {"(", OpCode::OpenParen, 100, true}, {")", OpCode::CloseParen, 100, true},
        };
        for (const auto &row : rows) {
            t.tokens << QString::fromLatin1(row.token);
            t.codes << row.code;
            t.precedences << row.precedence;
            t.leftAssociative << row.left;
        }
        return t;
    }();
    return table;
}

ExpressionParser::ExpressionParser() = default;

ExpressionParser::ExpressionParser(const QString &expressionText)
    : m_text(normalise(expressionText))
{
}

QString ExpressionParser::removeBlanks(QString text)
{
    text.remove(QLatin1Char(' '));
    text.remove(QLatin1Char('\t'));
    text.remove(QLatin1Char('\r'));
    return text;
}

QString ExpressionParser::normalise(const QString &text)
{
    QString result = removeBlanks(text);
    result.remove(QStringLiteral("/n"));
    return result;
}

bool ExpressionParser::isNumber(const QString &piece, double *value)
{
    // digits [. digits] [e|E [+|-] digits], or . digits [exponent]
    const int n = piece.size();
    int i = 0;
    int mantissaDigits = 0;
    while (i < n && piece[i].isDigit() && piece[i].unicode() < 128) {
        ++i;
        ++mantissaDigits;
    }
    if (i < n && piece[i] == QLatin1Char('.')) {
        ++i;
        while (i < n && piece[i].isDigit() && piece[i].unicode() < 128) {
            ++i;
            ++mantissaDigits;
        }
    }
    if (mantissaDigits == 0)
        return false;
    if (i < n && (piece[i] == QLatin1Char('e') || piece[i] == QLatin1Char('E'))) {
        ++i;
        if (i < n && (piece[i] == QLatin1Char('+') || piece[i] == QLatin1Char('-')))
            ++i;
        int exponentDigits = 0;
        while (i < n && piece[i].isDigit() && piece[i].unicode() < 128) {
            ++i;
            ++exponentDigits;
        }
        if (exponentDigits == 0)
            return false;
    }
    if (i != n)
        return false;
    if (value)
        *value = piece.toDouble();
    return true;
}

QStringList ExpressionParser::extractNames(const QString &text)
{
    QString cleaned = removeBlanks(text);
    cleaned.remove(QLatin1Char('\n'));
    QStringList names;
    QSet<QString> seen;
    for (const Token &token : tokenize(cleaned)) {
        if (token.isOperator || seen.contains(token.text))
            continue;
        seen.insert(token.text);
        if (!isNumber(token.text))
            names << token.text;
    }
    return names;
}

void ExpressionParser::parse(const QStringList &variableNames)
{
    m_variableNames = variableNames;
    m_errors.clear();
    m_nodes.clear();

    QString text = normalise(m_text);
    text.remove(QLatin1Char('\n'));
    text.replace(QStringLiteral("(-"), QStringLiteral("(0-"));
    if (text.startsWith(QLatin1Char('-')))
        text.prepend(QLatin1Char('0'));

    for (const QString &name : extractNames(text)) {
        if (!variableNames.contains(name)) {
            m_errors << QStringLiteral(
                    "Variables appear in the expression is not provided in the variable_name list.");
            compile();
            return;
        }
    }

    // Shunting-yard conversion to postfix. "(" and the function tokens close
    // their group as one-operand nodes.
    const OperatorTable &table = OperatorTable::instance();
    QVector<ExprNode> output;
    QVector<int> stack; // table indices
    auto isGroupOpener = [&](int tableIndex) {
        return table.codes[tableIndex] >= OpCode::OpenParen && table.codes[tableIndex] != OpCode::CloseParen;
    };
    for (const Token &token : tokenize(text)) {
        if (!token.isOperator) {
            ExprNode node;
            double number = 0;
            if (isNumber(token.text, &number)) {
                node.kind = ExprNode::Number;
                node.value = number;
            } else {
                node.kind = ExprNode::Variable;
                node.value = variableNames.indexOf(token.text);
            }
            node.text = token.text;
            output << node;
            continue;
        }
        const int index = token.tableIndex;
        const double code = table.codes[index];
        if (isBinaryCode(code)) {
            while (!stack.isEmpty() && isBinaryCode(table.codes[stack.last()])) {
                const int top = stack.last();
                const int topPrecedence = table.precedences[top];
                const int precedence = table.precedences[index];
                if (topPrecedence > precedence ||
                    (topPrecedence == precedence && table.leftAssociative[top])) {
                    output << operatorNode(top);
                    stack.removeLast();
                } else {
                    break;
                }
            }
            stack << index;
        } else if (code == OpCode::CloseParen) {
            while (!stack.isEmpty()) {
                const int top = stack.takeLast();
                output << operatorNode(top);
                if (isGroupOpener(top))
                    break;
            }
        } else {
            stack << index;
        }
    }
    while (!stack.isEmpty())
        output << operatorNode(stack.takeLast());

    m_nodes = output;
    compile();
}

void ExpressionParser::setNodes(const QVector<ExprNode> &nodes)
{
    m_nodes = nodes;
    compile();
}

void ExpressionParser::compile()
{
    m_program = std::make_shared<const Program>(Program::compile(m_nodes));
}

double ExpressionParser::evaluate(const double *values, std::size_t count) const
{
    if (m_nodes.isEmpty()) {
        qDebug() << "the parser tree does not exist";
        return kNaN;
    }
    if (!m_program->canRun(count))
        return evaluateByReduction(m_nodes, values, count);
    return m_program->run(values);
}

// ---------------------------------------------------------------------------
// The literal scan-and-reduce evaluation.

namespace {

struct Slot {
    std::int32_t kind;
    double value;
};

double operandValue(const Slot &operand, const double *values, std::size_t count)
{
    if (operand.kind == ExprNode::Number)
        return operand.value;
    if (operand.kind == ExprNode::Variable) {
        const auto index = static_cast<long long>(operand.value);
        if (index >= 0 && std::size_t(index) < count)
            return values[index];
        qDebug() << "not enough variable values";
        throw;
    }
    qDebug() << "Cannot operate on operator";
    return kNaN;
}

double applyOneOperand(const Slot &op, const Slot &operand, const double *values, std::size_t count)
{
    if (op.kind != ExprNode::Operator) {
        qDebug() << "This token is not an operator";
        return kNaN;
    }
    return ExprOps::unary(op.value, operandValue(operand, values, count));
}

double applyTwoOperand(const Slot &op, const Slot &left, const Slot &right, const double *values,
                       std::size_t count)
{
    if (op.kind != ExprNode::Operator) {
        qDebug() << "This token is not an operator";
        return kNaN;
    }
    const double a = operandValue(left, values, count);
    const double b = operandValue(right, values, count);
    return ExprOps::binary(op.value, a, b);
}

} // namespace

double ExpressionParser::evaluateByReduction(const QVector<ExprNode> &nodes, const double *values,
                                             std::size_t count)
{
    if (nodes.isEmpty()) {
        qDebug() << "the parser tree does not exist";
        return kNaN;
    }
    std::vector<Slot> list;
    list.reserve(std::size_t(nodes.size()));
    for (const ExprNode &node : nodes)
        list.push_back(Slot{node.kind, node.value});

    std::size_t scan = 0;
    while (list.size() >= 2) {
        std::size_t p = scan;
        while (p < list.size() && list[p].kind != ExprNode::Operator)
            ++p;
        if (p == list.size())
            return kNaN;
        if (list[p].value >= OpCode::OpenParen && p != 0) {
            const double result = applyOneOperand(list[p], list[p - 1], values, count);
            list[p] = Slot{ExprNode::Number, result};
            list.erase(list.begin() + long(p - 1));
            scan = p - 1;
        } else {
            if (p < 2)
                return kNaN;
            const double result = applyTwoOperand(list[p], list[p - 2], list[p - 1], values, count);
            list[p] = Slot{ExprNode::Number, result};
            list.erase(list.begin() + long(p - 2), list.begin() + long(p));
            scan = p - 2;
        }
    }
    const Slot &last = list.front();
    if (last.kind == ExprNode::Variable) {
        const auto index = static_cast<long long>(last.value);
        if (index >= 0 && std::size_t(index) < count)
            return values[index];
        qDebug() << "Not enough number of variables.";
        return kNaN;
    }
    if (last.kind == ExprNode::Number)
        return last.value;
    return kNaN; // a lone operator node has no value
}
