#include "expression/ExpressionParser.h"
#include "test_support.h"

#include <QtConcurrent>
#include <QtTest>

#include <random>
#include <stdexcept>

namespace {

const double NaN = kNaN, Inf = std::numeric_limits<double>::infinity();

double evalText(const QString &text, const QStringList &names, const QVector<double> &values)
{
    ExpressionParser parser(text);
    parser.parse(names);
    return parser.evaluate(values);
}

ExprNode node(std::int32_t kind, double value)
{
    ExprNode n;
    n.kind = kind;
    n.value = value;
    return n;
}
const auto num = [](double v) { return node(ExprNode::Number, v); };
const auto var = [](int i) { return node(ExprNode::Variable, i); };
const auto op = [](int code) { return node(ExprNode::Operator, code); };

} // namespace

Q_DECLARE_METATYPE(ExprNode)

class TestExpressionParser : public QObject {
    Q_OBJECT

private slots:
    void values_data();
    void values();
    void nameExtraction();
    void unknownNamesAreReported();
    void singlePrecisionPower();
    void malformedNodeLists_data();
    void malformedNodeLists();
    void compiledProgramMatchesReduction();
    void shortValueVectorRethrows();
    void hostileTextNeverCrashes();
    void concurrentEvaluation();
};

void TestExpressionParser::values_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<double>("expected");
    // Variables: x = 0.3, y = 2, A = 5.
    QTest::newRow("precedence") << "1+2*3" << 7.0;
    QTest::newRow("left-assoc division") << "8/2/2" << 2.0;
    QTest::newRow("power right-assoc") << "2^3^2" << 512.0;
    QTest::newRow("power above product") << "2*3^2" << 18.0;
    QTest::newRow("leading unary minus") << "-x+1" << 0.7;
    QTest::newRow("parenthesised unary minus") << "2*(-3)" << -6.0;
    QTest::newRow("minus after operator lacks operand") << "2*-3" << NaN;
    QTest::newRow("blanks and tabs ignored") << " y *\t( x + 1 ) " << 2.6;
    QTest::newRow("slash n removed") << "y/n*3" << 6.0;
    QTest::newRow("exponent notation and leading dot") << "1e3+2.5E2+.5" << 1250.5;
    QTest::newRow("LN and LOG agree") << "LN(y)-LOG(y)+LOG10(1000)" << 3.0;
    QTest::newRow("any case of function names") << "exp(0)+Sqrt(4)+abs(0-1)" << 4.0;
    QTest::newRow("nested functions") << "SQRT(ABS(0-16))" << 4.0;
    QTest::newRow("SIGN of negative and zero") << "SIGN(0-3)+SIGN(0)" << -1.0;
    QTest::newRow("SIGN NaN is 1") << "SIGN(0/0)" << 1.0;
    QTest::newRow("trig") << "SIN(0)+COS(0)+TAN(0)" << 1.0;
    QTest::newRow("LOG(0)") << "LOG(0)" << -Inf;
    QTest::newRow("SQRT of negative") << "SQRT(0-1)" << NaN;
    QTest::newRow("division by zero") << "(0-1)/0" << -Inf;
    QTest::newRow("infinity minus infinity") << "1/0-1/0" << NaN;
    QTest::newRow("single number") << "3" << 3.0;
    QTest::newRow("group kept as identity") << "(y)" << 2.0;
    QTest::newRow("ASIN leaves the name A and a dangling value") << "ASIN(x)" << NaN;
    QTest::newRow("empty text") << "" << NaN;
    QTest::newRow("unbalanced open") << "(y+1" << 3.0;
    QTest::newRow("unbalanced close") << "y+1)" << 3.0;
    QTest::newRow("two operands no operator") << "(y)(x)" << NaN;
    QTest::newRow("operator only") << "+" << NaN;
}

void TestExpressionParser::values()
{
    QFETCH(QString, text);
    QFETCH(double, expected);
    if (text.isEmpty())
        QTest::ignoreMessage(QtDebugMsg, "the parser tree does not exist");
    const double got = evalText(text, {"x", "y", "A"}, {0.3, 2.0, 5.0});
    QVERIFY2(closeTo(got, expected, 1e-15), qPrintable(QString("%1 gave %2").arg(text).arg(got, 0, 'g', 17)));
}

void TestExpressionParser::nameExtraction()
{
    QCOMPARE(ExpressionParser::extractNames("ka*Ag - CL/V1*Ac + ka"),
             QStringList({"ka", "Ag", "CL", "V1", "Ac"}));
    // The split follows table order: SIN( before ASIN( leaves the name A.
    QCOMPARE(ExpressionParser::extractNames("ASIN(x)+ACOS(y)+ATAN(z)"), QStringList({"A", "x", "y", "z"}));
    // Case-insensitive split: lower-case functions are not names.
    QCOMPARE(ExpressionParser::extractNames("exp(k)*log10(m)"), QStringList({"k", "m"}));
    // Numbers are dropped; a signed exponent leaves the piece 1e.
    QCOMPARE(ExpressionParser::extractNames("2.5E2*1e3+1e-3"), QStringList({"1e"}));
    // Newlines are removed, names are case-sensitive, dots and underscores allowed.
    QCOMPARE(ExpressionParser::extractNames("Ka*k.a_1\n+ka"), QStringList({"Ka", "k.a_1", "ka"}));
    QVERIFY(ExpressionParser::extractNames("").isEmpty());
}

void TestExpressionParser::unknownNamesAreReported()
{
    const QStringList unknown{
            "Variables appear in the expression is not provided in the variable_name list."};
    const auto errors = [](const QString &text, const QStringList &names) {
        ExpressionParser parser(text);
        parser.parse(names);
        return parser.errorMessages();
    };
    QCOMPARE(errors("a /n b", {"ab"}), QStringList());
    QCOMPARE(errors("1e-3*k", {"k"}), unknown);

    ExpressionParser parser("a /n b");
    parser.parse({"a", "b"});
    QCOMPARE(parser.errorMessages(), unknown);
    QVERIFY(parser.nodes().isEmpty());
    QTest::ignoreMessage(QtDebugMsg, "the parser tree does not exist");
    QVERIFY(std::isnan(parser.evaluate(QVector<double>{1, 2})));
    // A re-parse starts from a clean error list.
    parser.parse({"ab"});
    QVERIFY(parser.errorMessages().isEmpty());
}

void TestExpressionParser::singlePrecisionPower()
{
    QCOMPARE(evalText("2^0.5", {}, {}), double(float(std::sqrt(2.0))));
    QCOMPARE(evalText("10^(0-1)", {}, {}), double(0.1f));
    // Operands are rounded to float before raising.
    QCOMPARE(evalText("x^1", {"x"}, {0.1}), double(0.1f));
    // Other operators stay in double precision.
    QCOMPARE(evalText("x*1", {"x"}, {0.1}), 0.1);
}

void TestExpressionParser::malformedNodeLists_data()
{
    QTest::addColumn<QVector<ExprNode>>("nodes");
    QTest::addColumn<double>("expected");
    QTest::newRow("binary without operands") << QVector<ExprNode>{op(3)} << NaN;
    QTest::newRow("function as first node") << QVector<ExprNode>{op(102), num(1)} << NaN;
    QTest::newRow("leftover operand") << QVector<ExprNode>{num(1), num(2), num(3), op(3)} << NaN;
    QTest::newRow("close paren node") << QVector<ExprNode>{num(1), op(101)} << NaN;
    QTest::newRow("unknown binary code") << QVector<ExprNode>{num(1), num(2), op(7)} << NaN;
    QTest::newRow("operator after value chain")
            << QVector<ExprNode>{num(2), num(3), op(1), op(102)} << std::exp(6.0);
    QTest::newRow("trailing operator after full reduction")
            << QVector<ExprNode>{num(2), num(3), op(1), op(3)} << NaN;
}

void TestExpressionParser::malformedNodeLists()
{
    QFETCH(QVector<ExprNode>, nodes);
    QFETCH(double, expected);
    ExpressionParser parser;
    if (nodes.last().value == 7)
        QTest::ignoreMessage(QtDebugMsg, "Unknown operator code 7");
    parser.setNodes(nodes);
    QVERIFY(closeTo(parser.evaluate(QVector<double>{}), expected));
}

void TestExpressionParser::compiledProgramMatchesReduction()
{
    // Random node lists, well-formed or not, must give bit-identical results
    // through the compiled program and the literal reduction.
    std::mt19937 rng(12345);
    const int codes[] = {0,   1,   2,   3,   4,   100, 101, 102, 103, 104,
                         105, 106, 107, 108, 109, 110, 111, 112, 113, 114};
    const double constants[] = {0.0, -0.0, 1.0, 2.5, -3.0, 0.5, 1e300, NaN, Inf};
    const QVector<double> values{0.7, -1.3, 2.0, 0.0, 4.5};
    int wellFormed = 0;
    for (int trial = 0; trial < 20000; ++trial) {
        // A random well-formed postfix list, then sometimes a random mutation.
        QVector<ExprNode> nodes;
        int depth = 0;
        const int length = 1 + int(rng() % 14);
        for (int i = 0; i < length || depth != 1; ++i) {
            const unsigned pick = rng() % 4;
            if (depth >= 2 && (pick == 0 || i >= length)) {
                nodes << op(codes[rng() % 5]);
                --depth;
            } else if (depth >= 1 && pick == 1) {
                nodes << op(codes[5 + rng() % 15]);
            } else if (i < length || depth < 1) {
                nodes << ((rng() % 2) ? num(constants[rng() % 9]) : var(int(rng() % 5)));
                ++depth;
            }
        }
        if (rng() % 3 == 0) {
            const int at = int(rng() % unsigned(nodes.size()));
            switch (rng() % 3) {
            case 0:
                nodes.remove(at);
                break;
            case 1:
                nodes.insert(at, op(codes[rng() % 20]));
                break;
            default:
                nodes.insert(at, var(int(rng() % 5)));
                break;
            }
        }
        if (nodes.isEmpty())
            continue;
        ExpressionParser parser;
        parser.setNodes(nodes);
        const double reduced = ExpressionParser::evaluateByReduction(nodes, values.constData(), 5);
        const double compiled = parser.evaluate(values);
        if (!std::isnan(reduced))
            ++wellFormed;
        QVERIFY2(closeTo(reduced, compiled), qPrintable(QString("trial %1").arg(trial)));
    }
    QVERIFY(wellFormed > 2000); // the comparison covered many real values

    // Parsed formulas as well.
    for (const QString text : {"-k1*A+k2*B^2", "(A-B)/(k1+k2)*EXP(0-k1*t)", "10^(0-k2)*LOG(A+1)-SIGN(B)",
                               "A*(B*(k1*(k2*(t+1))))", "2^3^k1"}) {
        ExpressionParser parser(text);
        parser.parse({"t", "A", "B", "k1", "k2"});
        const double reduced = ExpressionParser::evaluateByReduction(parser.nodes(), values.constData(), 5);
        QCOMPARE(parser.evaluate(values), reduced);
    }
}

void TestExpressionParser::shortValueVectorRethrows()
{
    ExpressionParser parser("x+z");
    parser.parse({"x", "y", "z"});
    // A bare re-throw needs an exception in flight to re-throw; outside one it
    // would end the process.
    bool rethrown = false;
    try {
        throw std::runtime_error("in flight");
    } catch (...) {
        QTest::ignoreMessage(QtDebugMsg, "not enough variable values");
        try {
            parser.evaluate(QVector<double>{1, 2});
        } catch (const std::runtime_error &e) {
            rethrown = QString(e.what()) == "in flight";
        }
    }
    QVERIFY(rethrown);

    ExpressionParser single("z");
    single.parse({"x", "y", "z"});
    QTest::ignoreMessage(QtDebugMsg, "Not enough number of variables.");
    QVERIFY(std::isnan(single.evaluate(QVector<double>{1, 2})));
    QCOMPARE(single.evaluate(QVector<double>{1, 2, 3}), 3.0);
}

void TestExpressionParser::hostileTextNeverCrashes()
{
    for (const QString text : {"((((", "))))", ")(", "*/+-^", "x^^x", "EXP(", "EXP()", "()", "---x", "x--x",
                               "ç*x", "\u221a(x)", "x;y", "x=y", "\n\n"}) {
        ExpressionParser parser(text);
        parser.parse({"x"});
        if (parser.nodes().isEmpty())
            QTest::ignoreMessage(QtDebugMsg, "the parser tree does not exist");
        parser.evaluate(QVector<double>{1.0});
    }
    // Deep nesting and long chains evaluate without recursion limits.
    QCOMPARE(evalText(QString(20000, '(') + "x" + QString(20000, ')'), {"x"}, {1.5}), 1.5);
    QCOMPARE(evalText(QString("x+").repeated(20000) + "x", {"x"}, {1.0}), 20001.0);
    QCOMPARE(evalText(QString("x*(").repeated(300) + "x" + QString(300, ')'), {"x"}, {1.0}), 1.0);
}

void TestExpressionParser::concurrentEvaluation()
{
    ExpressionParser parser("ka*Ag-CL/V1*Ac*EXP(0-t)");
    parser.parse({"t", "Ag", "Ac", "CL", "V1", "ka"});
    QVector<int> inputs(2000);
    std::iota(inputs.begin(), inputs.end(), 0);
    const std::function<double(int)> difference = [&parser](int i) {
        const double t = i * 0.01;
        return parser.evaluate(QVector<double>{t, 1.0 + i, 2.0, 0.5, 3.0, 1.2}) -
               (1.2 * (1.0 + i) - 0.5 / 3.0 * 2.0 * std::exp(0 - t));
    };
    QCOMPARE(QtConcurrent::blockingMapped(inputs, difference), QVector<double>(2000, 0.0));
}

QTEST_GUILESS_MAIN(TestExpressionParser)
#include "test_expression_parser.moc"
