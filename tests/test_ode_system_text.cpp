#include "model/OdeSystemText.h"

#include <QtTest>

#include <cmath>

namespace {

const QString kDuplicate =
        "There are more than two equations with the same left hand side.\n"
        "The left hand side d<variable name>dt need to be unique for all equations in the system.";
const QString kCircular = "Auxillary function either circular or too complex (current implementation "
                          "cannot handle more than 5 levels of substitution.";
const QString kNotUnderstood = "The algorithm was not able to understand the right hand side of ";

OdeSystemText parsed(const QString &ode, const QString &aux = QString())
{
    OdeSystemText system(ode, aux);
    system.parseOdeSystem();
    return system;
}

// Evaluates equation i with named values; unnamed variables are 0.
double rhs(const OdeSystemText &system, int i, const QMap<QString, double> &named)
{
    QVector<double> values;
    for (const QString &name : system.variableNames())
        values << named.value(name, 0.0);
    return system.parsers[i].evaluate(values);
}

} // namespace

class TestOdeSystemText : public QObject {
    Q_OBJECT

private slots:
    void namesAndOrder();
    void linesCommentsAndContinuation();
    void messages();
    void auxiliarySubstitution();
    void dependencyClassification();
    void hostileAuxiliaryFunctions();
    void unbalancedParenthesesWarn();
};

void TestOdeSystemText::namesAndOrder()
{
    const OdeSystemText system = parsed("dAgdt = -ka*Ag\ndAcdt = ka*Ag - CL/V*Ac");
    QVERIFY(system.errors.isEmpty());
    QCOMPARE(system.stateVariableNames, QStringList({"Ag", "Ac"}));
    // Character-code order: upper case before lower case.
    QCOMPARE(system.parameterNames, QStringList({"CL", "V", "ka"}));
    QCOMPARE(system.variableNames(), QStringList({"t", "Ag", "Ac", "CL", "V", "ka"}));
    QCOMPARE(rhs(system, 1, {{"ka", 2}, {"Ag", 3}, {"CL", 1}, {"V", 4}, {"Ac", 8}}), 6.0 - 2.0);

    // The d and dt letters are not checked; t is never a parameter.
    const OdeSystemText loose = parsed("xAyz = -k*A*t");
    QCOMPARE(loose.stateVariableNames, QStringList{"A"});
    QCOMPARE(loose.parameterNames, QStringList{"k"});

    const OdeSystemText empty = parsed("");
    QVERIFY(empty.stateVariableNames.isEmpty());
    QVERIFY(empty.parameterNames.isEmpty());
    QVERIFY(empty.errors.isEmpty());
}

void TestOdeSystemText::linesCommentsAndContinuation()
{
    // Text right of ";" is a comment; blank and ";"-only lines are ignored;
    // a line without "=" continues the equation above.
    const OdeSystemText system = parsed("; header comment line\n"
                                        "dAdt = -k * A ; elimination\n"
                                        "   \n"
                                        ";;\n"
                                        "  - k2*A\n"
                                        "dBdt = k*A\r\n");
    QVERIFY(system.errors.isEmpty());
    QCOMPARE(system.stateVariableNames, QStringList({"A", "B"}));
    QCOMPARE(system.rightHandSides, QStringList({"-k*A-k2*A", "k*A"}));

    // A comment-only line after an equation is appended to it.
    const OdeSystemText quirk = parsed("dAdt = -k*A\n; first order");
    QCOMPARE(quirk.rightHandSides, QStringList{"-k*Afirstorder"});
    QCOMPARE(quirk.parameterNames, QStringList({"Afirstorder", "k"}));
}

void TestOdeSystemText::messages()
{
    QCOMPARE(parsed("dAdt = -k*A\ndAdt = -k2*A").errors, QStringList{kDuplicate});
    QCOMPARE(parsed("dAdt = \ndBdt = -k*B").errors, QStringList{kNotUnderstood + "dAdt ."});
    // LOG of a negative number is NaN at the random probe point.
    QCOMPARE(parsed("dXdt = LOG(0-X)").errors, QStringList{kNotUnderstood + "dXdt ."});
    // Duplicates and an unevaluable equation, in the order found.
    QCOMPARE(parsed("dAdt = \ndAdt = -k*A").errors, QStringList({kDuplicate, kNotUnderstood + "dAdt ."}));
    // Auxiliary duplicates use the ODE text's wording.
    QCOMPARE(parsed("dAdt = -f*A", "f = k\nf = 2*k").errors, QStringList{kDuplicate});
    // A new parse starts clean.
    OdeSystemText system("dAdt = -k*A\ndAdt = 1", "");
    system.parseOdeSystem();
    system.odeText = "dAdt = -k*A";
    system.parseOdeSystem();
    QVERIFY(system.errors.isEmpty());
}

void TestOdeSystemText::auxiliarySubstitution()
{
    const OdeSystemText system = parsed("dCdt = -CLr*C/V ; renal\ndDdt = CLr", "CLr = CL*fe ; renal part\n");
    QVERIFY(system.errors.isEmpty());
    QCOMPARE(system.auxiliaryNames, QStringList{"CLr"});
    QCOMPARE(system.auxiliaryParameterNames, QStringList({"CL", "fe"}));
    QCOMPARE(system.rightHandSides, QStringList({"-(CL*fe)*C/V", "(CL*fe)"}));
    QCOMPARE(system.parameterNames, QStringList({"CL", "V", "fe"}));

    // Whole words only: CLr does not touch CLrx.
    const OdeSystemText words = parsed("dCdt = -CLrx*CLr", "CLr = 2");
    QCOMPARE(words.rightHandSides, QStringList{"-CLrx*(2)"});

    // Four nested levels are substituted completely.
    const OdeSystemText nested = parsed("dAdt = -f1*A", "f1 = f2*2\nf2 = f3*2\nf3 = f4*2\nf4 = k");
    QVERIFY(nested.errors.isEmpty());
    QCOMPARE(nested.parameterNames, QStringList{"k"});
    QCOMPARE(rhs(nested, 0, {{"A", 1}, {"k", 0.5}}), -4.0);
    // Five levels are too many, and a circle never ends: one message each.
    QCOMPARE(parsed("dAdt = -f1*A", "f1 = f2*2\nf2 = f3*2\nf3 = f4*2\nf4 = f5*2\nf5 = k").errors,
             QStringList{kCircular});
    QCOMPARE(parsed("dAdt = -f*A", "f = g*2\ng = f+1").errors.count(kCircular), 1);
}

void TestOdeSystemText::dependencyClassification()
{
    const OdeSystemText system = parsed("dAdt = -k*A\n"
                                        "dBdt = -k*B^2 + k*A\n"
                                        "dCdt = k\n"
                                        "dDdt = EXP(0-D)*A*B");
    QVERIFY(system.errors.isEmpty());
    const int L = OdeSystemText::Linear, N = OdeSystemText::NonLinear, I = OdeSystemText::Independent;
    QCOMPARE(system.dependencyMatrix,
             (QVector<QVector<int>>{{L, I, I, I}, {L, N, I, I}, {I, I, I, I}, {L, L, I, N}}));
    QVERIFY(system.linearPairs.contains({3, 1}) && system.nonLinearPairs.contains({3, 3}));
    QCOMPARE(system.linearPairs.size() + system.nonLinearPairs.size(), 6);
    QVERIFY(system.dependencyCoefficients[0][0] < 0 && system.dependencyCoefficients[2][0] == 0.0);

    // An unevaluable equation keeps its row at -1.
    const OdeSystemText broken = parsed("dAdt = LOG(0-A)\ndBdt = A");
    QCOMPARE(broken.dependencyMatrix, (QVector<QVector<int>>{{N, N}, {L, I}}));
}

// Inputs that used to grow the text without bound end at once with a
// message (the test would otherwise run out of memory or time).
void TestOdeSystemText::hostileAuxiliaryFunctions()
{
    // A function that uses itself: 20 terms would grow by 20^6.
    QStringList terms;
    for (int i = 0; i < 20; ++i)
        terms << "a";
    const OdeSystemText self = parsed("dAdt = a", "a = " + terms.join('+'));
    QCOMPARE(self.errors, QStringList{kCircular});

    // An empty left-hand side would match every double blank.
    const OdeSystemText empty = parsed("dAdt = -k*A", "= ((((((((a))))))))");
    QCOMPARE(empty.errors.size(), 1);
    QVERIFY(empty.errors[0].contains("has no name left of '='"));
    QCOMPARE(empty.rightHandSides, QStringList{"-k*A"});
    QVERIFY(parsed("dAdt = -k*A", "2 = k").errors[0].contains("has no name left of '='"));

    // Without a cycle: three levels of 200 terms each would make 8 million
    // terms; the growth limit stops them. Forty levels of doubling stop at
    // the pass limit before they grow.
    auto sumOf = [](const QString &name) { return QVector<QString>(200, name).toList().join('+'); };
    const OdeSystemText wide =
            parsed("dAdt = f1", "f1 = " + sumOf("f2") + "\nf2 = " + sumOf("f3") + "\nf3 = " + sumOf("k"));
    QCOMPARE(wide.errors.size(), 1);
    QVERIFY(wide.errors[0].contains("longer than 4000000 characters"));
    QString chain;
    for (int i = 1; i < 40; ++i)
        chain += QStringLiteral("f%1 = f%2+f%2\n").arg(i).arg(i + 1);
    QCOMPARE(parsed("dAdt = f1", chain + "f40 = k").errors, QStringList{kCircular});

    // A cycle the ODE text never reaches changes nothing, as before.
    QVERIFY(parsed("dAdt = -k*A", "f = g\ng = f").errors.isEmpty());
}

void TestOdeSystemText::unbalancedParenthesesWarn()
{
    const OdeSystemText open = parsed("dAgdt = (-ka*Ag\ndAcdt = ka*Ag)");
    QCOMPARE(open.warnings.size(), 2);
    QVERIFY(open.warnings[0].contains("dAgdt") && open.warnings[0].contains("1 '(' not closed"));
    QVERIFY(open.warnings[1].contains("dAcdt") && open.warnings[1].contains("1 ')' not opened"));
    const OdeSystemText many = parsed("dAdt = " + QString(100000, '(') + "k");
    QCOMPARE(many.warnings.size(), 1);
    QVERIFY(many.warnings[0].contains("100000 '(' not closed"));
    QVERIFY(parsed("dAdt = -(k*(A))").warnings.isEmpty());
}

QTEST_GUILESS_MAIN(TestOdeSystemText)
#include "test_ode_system_text.moc"
