#include "model/ParameterSpecification.h"
#include "test_support.h"

#include <QtTest>

namespace {

const double NaN = kNaN;

QVector<double> values(const ParameterSpecificationRow &r)
{
    return {r.domainLower, r.domainUpper, r.theoreticalLower, r.theoreticalUpper};
}

} // namespace

using SpecRows = QVector<ParameterSpecificationRow>;
Q_DECLARE_METATYPE(SpecRows)

class ParameterSpecificationTest : public QObject {
    Q_OBJECT

private slots:
    void checks_data();
    void checks();
    void readCells();
    void generation_data();
    void generation();
    void fixedParametersAndSearchDomain();
    void parseBackMessages_data();
    void parseBackMessages();
    void importedClusterColumns();
};

void ParameterSpecificationTest::checks_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<SpecRows>("rows");
    QTest::addColumn<QStringList>("messages");

    const QString outside = "Parameter CL's domain of interest is not within the theoretical bound.";
    QTest::newRow("inside the bounds") << QStringList{"CL"} << SpecRows{{1, 10, 0, NaN}} << QStringList{};
    QTest::newRow("theoretical lower above domain")
            << QStringList{"CL"} << SpecRows{{1, 10, 2, NaN}} << QStringList{outside};
    QTest::newRow("domain above theoretical upper")
            << QStringList{"CL"} << SpecRows{{1, 200, 0, 100}} << QStringList{outside};
    QTest::newRow("domain lower missing")
            << QStringList{"CL"} << SpecRows{{NaN, 10, 0, NaN}}
            << QStringList{"Parameter CL's lowerbound of the domain of interest is not defined."};
    QTest::newRow("domain upper missing: no blank after Parameter")
            << QStringList{"CL"} << SpecRows{{1, NaN, 0, NaN}}
            << QStringList{"ParameterCL's upperbound of the domain of interest is not defined."};
    QTest::newRow("domain reversed")
            << QStringList{"CL"} << SpecRows{{10, 1, 0, NaN}}
            << QStringList{"Parameter CL's lowerbound of the domain of interest is higher than its "
                           "upperbound."};
    QTest::newRow("theoretical bounds reversed")
            << QStringList{"CL"} << SpecRows{{5, 5, 5, 1}}
            << QStringList{outside, "Parameter CL's lowerbound of the theoretica parameter domain is "
                                    "higher than its upperbound."};
    QTest::newRow("row count differs: one message only")
            << QStringList{"CL", "V"} << SpecRows{{NaN, NaN, 0, NaN}}
            << QStringList{"Number of parameter specification does not match with the parameter "
                           "names lists provided."};
}

void ParameterSpecificationTest::checks()
{
    QFETCH(QStringList, names);
    QFETCH(SpecRows, rows);
    QFETCH(QStringList, messages);
    QCOMPARE(checkParameterSpecification(names, rows), messages);
}

void ParameterSpecificationTest::readCells()
{
    const SpecRows rows =
            readParameterSpecification({{"1", "10", "nb", ""}, {"1 000", " ", "0", "abc"}, {"2.5e1"}});
    QCOMPARE(rows.size(), 3);
    QVERIFY(closeTo(values(rows[0]), QVector<double>{1, 10, NaN, NaN}));
    QVERIFY(closeTo(values(rows[1]), QVector<double>{1000, NaN, 0, NaN}));
    QVERIFY(closeTo(values(rows[2]), QVector<double>{25, NaN, NaN, NaN}));
    QVERIFY(checkParameterSpecification({"CL"}, {rows[0]}).isEmpty());
    QCOMPARE(parameterSpecificationRefusal(),
             QString("Parameters are not specified correctly, Ambrel method cannot be run. Check "
                     "Step 3."));
}

void ParameterSpecificationTest::generation_data()
{
    QTest::addColumn<double>("lower");
    QTest::addColumn<double>("upper");
    QTest::addColumn<QString>("g");
    QTest::addColumn<QString>("gInverse");
    QTest::addColumn<QVector<double>>("parameterValues");
    QTest::addColumn<bool>("usesPower");

    QTest::newRow("no bounds") << NaN << NaN << "CL=x1"
                               << "x1=CL" << QVector<double>{-3, 0, 7} << false;
    QTest::newRow("upper 0") << NaN << 0.0 << "CL=-10^(x1)"
                             << "x1=LOG10(0-CL)" << QVector<double>{-0.001, -1, -500} << true;
    QTest::newRow("upper below 0") << NaN << -5.0 << "CL=-10^(x1)-5"
                                   << "x1=LOG10(0-5-CL)" << QVector<double>{-5.5, -10, -1000} << true;
    QTest::newRow("upper above 0") << NaN << 100.0 << "CL=100-10^(x1)"
                                   << "x1=LOG10(100-CL)" << QVector<double>{99.9, 0, -50} << true;
    QTest::newRow("lower 0") << 0.0 << NaN << "CL=10^(x1)"
                             << "x1=LOG10(CL)" << QVector<double>{1e-3, 1, 1e4} << true;
    QTest::newRow("lower below 0") << -2.0 << NaN << "CL=10^(x1)-2"
                                   << "x1=LOG10(CL+2)" << QVector<double>{-1.9, 0, 50} << true;
    QTest::newRow("lower above 0") << 3.0 << NaN << "CL=3+10^(x1)"
                                   << "x1=LOG10(CL-3)" << QVector<double>{3.01, 4, 1000} << true;
    QTest::newRow("lower 0, width below 0")
            << 0.0 << -4.0 << "CL=(0-4)*EXP(x1)/(1+EXP(x1))"
            << "x1=LOG(CL/(0-4-CL))" << QVector<double>{-0.1, -2, -3.9} << false;
    QTest::newRow("lower 0, width above 0") << 0.0 << 100.0 << "CL=100*EXP(x1)/(1+EXP(x1))"
                                            << "x1=LOG(CL/(100-CL))" << QVector<double>{0.5, 50, 99} << false;
    QTest::newRow("lower below 0, width below 0")
            << -2.0 << -5.0 << "CL=(0-3)*EXP(x1)/(1+EXP(x1))-2"
            << "x1=LOG((CL+2)/(0-3-CL-2))" << QVector<double>{-2.1, -3.5, -4.9} << false;
    QTest::newRow("lower below 0, width above 0")
            << -2.0 << 8.0 << "CL=10*EXP(x1)/(1+EXP(x1))-2"
            << "x1=LOG((CL+2)/(10-CL-2))" << QVector<double>{-1.9, 0, 7.9} << false;
    QTest::newRow("lower above 0, width below 0")
            << 5.0 << 1.0 << "CL=(0-4)*EXP(x1)/(1+EXP(x1))+5"
            << "x1=LOG((CL-5)/(0-4-CL+5))" << QVector<double>{1.1, 3, 4.9} << false;
    QTest::newRow("lower above 0, width above 0")
            << 5.0 << 20.0 << "CL=15*EXP(x1)/(1+EXP(x1))+5"
            << "x1=LOG((CL-5)/(15-CL+5))" << QVector<double>{5.1, 12, 19.9} << false;
    QTest::newRow("six significant digits")
            << 0.1234567 << NaN << "CL=0.123457+10^(x1)"
            << "x1=LOG10(CL-0.123457)" << QVector<double>{0.2, 1, 100} << true;
    QTest::newRow("width 0") << 2.0 << 2.0 << "CL=0*EXP(x1)/(1+EXP(x1))+2"
                             << "x1=LOG((CL-2)/(0-CL+2))" << QVector<double>{} << false;
}

void ParameterSpecificationTest::generation()
{
    QFETCH(double, lower);
    QFETCH(double, upper);
    QFETCH(QString, g);
    QFETCH(QString, gInverse);
    QFETCH(QVector<double>, parameterValues);
    QFETCH(bool, usesPower);

    const QStringList names{"CL"};
    const SpecRows rows{{1, 2, lower, upper}};
    const TransformationText text = generateTransformation(names, rows);
    QCOMPARE(text.g, g);
    QCOMPARE(text.gInverse, gInverse);
    QCOMPARE(text.searchVariableNumbers, QVector<int>{1});

    const ParsedEquations parsedG = parseTransformation(text.g, names, 1);
    const ParsedEquations parsedInverse = parseInverseTransformation(text.gInverse, names, 1);
    QVERIFY(parsedG.errors.isEmpty() && parsedInverse.errors.isEmpty());

    // "^" is evaluated in single precision.
    const double tolerance = usesPower ? 1e-6 : 1e-12;
    for (double theta : parameterValues) {
        const QVector<double> x = applyInverseTransformation(parsedInverse, 1, {theta});
        const double back = applyTransformation(parsedG, names, x).value(0);
        QVERIFY2(x.size() == 1 && std::isfinite(x[0]) &&
                         std::abs(back - theta) <= tolerance * std::max(1.0, std::abs(theta)),
                 qPrintable(QString("theta %1 came back as %2").arg(theta).arg(back, 0, 'g', 17)));
    }
}

void ParameterSpecificationTest::fixedParametersAndSearchDomain()
{
    const QStringList names{"CL", "V", "ka"};
    const SpecRows rows{{1, 10, 0, NaN}, {5, 5, 0, NaN}, {0.1, 2, 0, 10}};
    QVERIFY(checkParameterSpecification(names, rows).isEmpty());

    const TransformationText text = generateTransformation(names, rows);
    QCOMPARE(text.g, QString("CL=10^(x1)\nV=5\nka=10*EXP(x2)/(1+EXP(x2))"));
    QCOMPARE(text.gInverse, QString("x1=LOG10(CL)\nx2=LOG(ka/(10-ka))"));
    QCOMPARE(text.searchVariableNumbers, (QVector<int>{1, 0, 2}));
    QCOMPARE(unfixedParameterIndices(rows), (QVector<int>{0, 2}));

    const ParsedEquations g = parseTransformation(text.g, names, 2);
    const ParsedEquations gInverse = parseInverseTransformation(text.gInverse, names, 2);
    const QVector<double> x = applyInverseTransformation(gInverse, 2, {4, 5, 2.5});
    QCOMPARE(x.size(), 2);
    QVERIFY(closeTo(applyTransformation(g, names, x), QVector<double>{4, 5, 2.5}, 1e-6));

    // The domain in search coordinates, fixed parameters entering with their value.
    const SearchDomain domain = searchDomain(gInverse, 2, rows);
    QVERIFY(closeTo(domain.lower, QVector<double>{0.0, std::log(0.1 / 9.9)}, 1e-12));
    QVERIFY(closeTo(domain.upper, QVector<double>{1.0, std::log(2 / 8.0)}, 1e-12));

    // CL = 100 - 10^x decreases in x: the domain's ends swap.
    const SpecRows decreasing{{10, 50, NaN, 100}};
    const ParsedEquations inverse =
            parseInverseTransformation(generateTransformation({"CL"}, decreasing).gInverse, {"CL"}, 1);
    const SearchDomain swapped = searchDomain(inverse, 1, decreasing);
    QVERIFY(closeTo(swapped.lower, QVector<double>{std::log10(50.0)}, 1e-12));
    QVERIFY(closeTo(swapped.upper, QVector<double>{std::log10(90.0)}, 1e-12));
}

void ParameterSpecificationTest::parseBackMessages_data()
{
    QTest::addColumn<bool>("inverse");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("messages");

    QTest::newRow("equation without right-hand side")
            << false << "CL=x1\nV="
            << QStringList{"Size of the right hand side and left hand side did not match.",
                           "ParameterV is not defined."};
    QTest::newRow("name defined twice")
            << false << "CL=x1\nCL=x2\nV=x2"
            << QStringList{"There are more than two equations with the same left hand side."};
    QTest::newRow("parameter missing") << false << "CL=x1" << QStringList{"ParameterV is not defined."};
    QTest::newRow("unknown name in g")
            << false << "CL=x1+y\nV=x2" << QStringList{"The softwear was not able to understand x1+y ."};
    QTest::newRow("inverse omits a search variable")
            << true << "x1=LOG10(CL)"
            << QStringList{"x2 is not given. (It is user responsibility to provide inverse of g.)"};
    QTest::newRow("inverse uses a search variable")
            << true << "x1=LOG10(x2)\nx2=V"
            << QStringList{"The softwear was not able to understand LOG10(x2) ."};
}

void ParameterSpecificationTest::parseBackMessages()
{
    QFETCH(bool, inverse);
    QFETCH(QString, text);
    QFETCH(QStringList, messages);
    const QStringList names{"CL", "V"};
    const ParsedEquations parsed =
            inverse ? parseInverseTransformation(text, names, 2) : parseTransformation(text, names, 2);
    QCOMPARE(parsed.errors, messages);
}

void ParameterSpecificationTest::importedClusterColumns()
{
    QVERIFY(!checkImportedClusterColumns({{1, 2}, {3, 4}}, 2));
    const auto wrong = checkImportedClusterColumns({{1, 2}, {3, 4, 5}}, 2);
    QVERIFY(wrong);
    QCOMPARE(wrong->title, QString("Wrong Size"));
    QCOMPARE(wrong->text,
             QString("The imported X values does not have correct number of columns.  The number "
                     "of column of the CSV file should be the same as the number of unfixed "
                     "parameters."));
}

QTEST_GUILESS_MAIN(ParameterSpecificationTest)
#include "test_parameter_specification.moc"
