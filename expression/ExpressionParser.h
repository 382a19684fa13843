#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

#include <cstdint>
#include <memory>
#include <vector>

// One node of a postfix parse tree.
struct ExprNode {
    enum Kind : std::int32_t { Number = 0, Variable = 1, Operator = 2 };

    std::int32_t kind = Number;
    // The number (Number), the index into the variable-name list (Variable)
    // or the operator code (Operator).
    double value = 0.0;
    std::int32_t precedence = 0;
    QString text;
    bool leftAssociative = true;
};

// Operator codes of the expression language.
namespace OpCode {
enum : int {
    Power = 0,
    Multiply = 1,
    Divide = 2,
    Add = 3,
    Subtract = 4,
    OpenParen = 100,
    CloseParen = 101,
    Exp = 102,
    Log = 103,
    Log10 = 104,
    Abs = 105,
    Sign = 106,
    Sqrt = 107,
    Sin = 108,
    Cos = 109,
    Tan = 110,
    Asin = 111,
    Acos = 112,
    Atan = 113,
    Ln = 114
};
}

// The operator table: four parallel lists, in the order in which tokens are
// searched. Shared by every parser.
struct OperatorTable {
    QStringList tokens;
    QVector<double> codes;
    QVector<int> precedences;
    QVector<bool> leftAssociative;

    static const OperatorTable &instance();
};

// One formula of the model language, parsed against an ordered list of
// variable names into a postfix node list and evaluated with a vector of
// values in the same order.
//
// Evaluation follows a scan-and-reduce over the node list: repeatedly apply
// the first operator node to the nodes just before it. Because which nodes
// combine never depends on the values, parse() compiles that reduction once
// into a flat straight-line program; evaluate() then runs the program on a
// small stack buffer and allocates nothing. When the values vector is too
// short for the program, evaluate() falls back to the literal reduction so
// that the diagnostics appear exactly where that algorithm raises them.
//
// evaluate() is const and touches only local state: one parser may be
// evaluated from several threads at once. Copies share the compiled program.
class ExpressionParser {
public:
    ExpressionParser();
    explicit ExpressionParser(const QString &expressionText);

    // Parses the normalised text against the caller's variable names. On
    // success errorMessages() is empty; with an unknown name the node list is
    // left empty and the message is recorded.
    void parse(const QStringList &variableNames);

    double evaluate(const double *values, std::size_t count) const;
    double evaluate(const std::vector<double> &values) const
    {
        return evaluate(values.data(), values.size());
    }
    double evaluate(const QVector<double> &values) const
    {
        return evaluate(values.constData(), std::size_t(values.size()));
    }

    // The names (not numbers, not operators) in a text, each once, in order
    // of first appearance.
    static QStringList extractNames(const QString &text);
    // Removes every blank; tabs and carriage returns count as blanks so that
    // text pasted from other editors reads the same as typed text.
    static QString removeBlanks(QString text);
    // Blank and "/n" removal applied to every formula before parsing.
    static QString normalise(const QString &text);
    // True for plain decimal notation: digits, optional fraction, optional
    // exponent (the tokenizer has already split off any sign).
    static bool isNumber(const QString &piece, double *value = nullptr);

    const QString &expressionText() const { return m_text; }
    const QStringList &variableNames() const { return m_variableNames; }
    const QStringList &errorMessages() const { return m_errors; }
    const QVector<ExprNode> &nodes() const { return m_nodes; }
    static const OperatorTable &operatorTable() { return OperatorTable::instance(); }

    // Replaces the node list (for callers that build trees directly) and
    // recompiles the evaluation program.
    void setNodes(const QVector<ExprNode> &nodes);

    // The literal scan-and-reduce evaluation of a node list. evaluate()
    // returns the same value; this form is the reference for that claim and
    // the path that reports too short value vectors.
    static double evaluateByReduction(const QVector<ExprNode> &nodes, const double *values,
                                      std::size_t count);

    struct Program;

private:
    void compile();

    QString m_text;
    QVector<ExprNode> m_nodes;
    QStringList m_variableNames;
    QStringList m_errors;
    std::shared_ptr<const Program> m_program;
};
