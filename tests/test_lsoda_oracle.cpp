// Compares the LSODA port with the Fortran LSODA as wrapped by scipy's
// odeint: same steps, right-hand-side and Jacobian evaluations on every
// restarted interval, and the same states.

#include "lsoda_test_support.h"
#include "ode/LSODA.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

using namespace lsodatest;

class TestLsodaOracle : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void matchesFortranCounts_data();
    void matchesFortranCounts();

private:
    QJsonObject reference_;
};

void TestLsodaOracle::initTestCase()
{
    // Debian's interpreter first: a python3 earlier on PATH may lack scipy.
    const QStringList candidates = {QStringLiteral("/usr/bin/python3"), QStringLiteral("python3")};
    for (const QString &python : candidates) {
        QProcess process;
        process.start(python, {QStringLiteral(LSODA_ORACLE_SCRIPT)});
        if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit ||
            process.exitCode() != 0)
            continue;
        const QJsonDocument document = QJsonDocument::fromJson(process.readAllStandardOutput());
        if (document.isObject()) {
            reference_ = document.object();
            return;
        }
    }
    QSKIP("no python3 with scipy found: the comparison with the Fortran LSODA is skipped");
}

void TestLsodaOracle::matchesFortranCounts_data()
{
    QTest::addColumn<QString>("problem");
    QTest::addColumn<int>("neq");
    QTest::newRow("robertson") << "robertson" << 3;
    QTest::newRow("damped oscillator") << "damped_oscillator" << 2;
    QTest::newRow("van der Pol") << "van_der_pol" << 2;
    QTest::newRow("van der Pol mu 10, continued") << "van_der_pol_10" << 2;
    QTest::newRow("stiff cosine") << "stiff_cosine" << 2;
}

void TestLsodaOracle::matchesFortranCounts()
{
    QFETCH(QString, problem);
    QFETCH(int, neq);
    const LSODA::RhsFunction f = problem == "robertson"           ? robertson
                                 : problem == "damped_oscillator" ? dampedOscillator
                                 : problem == "van_der_pol"       ? vanDerPol
                                 : problem == "stiff_cosine"      ? stiffCosine
                                                                  : vanDerPol10;

    const QJsonObject reference = reference_.value(problem).toObject();
    const QJsonArray intervals = reference.value("intervals").toArray();
    QVERIFY(!intervals.isEmpty());
    const bool restart = reference.value("mode").toString() == "restart";

    // Restarted intervals are chained as the model evaluation does: one
    // object, istate reset to 1 at every output time, starting from the state
    // reached. Continued ones keep istate 2 and count cumulatively.
    LSODA solver;
    solver.setMessageStream(nullptr);
    std::vector<double> y(neq), yout;
    int istate = 1;
    for (int i = 0; i < neq; ++i)
        y[i] = intervals.first().toObject().value("y0").toArray().at(i).toDouble();
    for (const QJsonValue &value : intervals) {
        const QJsonObject interval = value.toObject();
        const double t1 = interval.value("t1").toDouble();
        double t = interval.value("t0").toDouble();
        if (restart)
            istate = 1;
        solver.lsoda_update(f, std::size_t(neq), y, yout, &t, t1, &istate, nullptr, 1e-6, 1e-6);
        const QString where = QStringLiteral("%1, interval to t = %2").arg(problem).arg(t1);
        QVERIFY2(istate == 2, qPrintable(where));
        QCOMPARE(t, t1);
        QVERIFY2(solver.steps() == interval.value("nst").toInt(),
                 qPrintable(QStringLiteral("%1: nst %2, Fortran %3")
                                    .arg(where)
                                    .arg(solver.steps())
                                    .arg(interval.value("nst").toInt())));
        QVERIFY2(solver.rhsEvaluations() == interval.value("nfe").toInt(),
                 qPrintable(QStringLiteral("%1: nfe %2, Fortran %3")
                                    .arg(where)
                                    .arg(solver.rhsEvaluations())
                                    .arg(interval.value("nfe").toInt())));
        QVERIFY2(solver.jacobianEvaluations() == interval.value("nje").toInt(),
                 qPrintable(QStringLiteral("%1: nje %2, Fortran %3")
                                    .arg(where)
                                    .arg(solver.jacobianEvaluations())
                                    .arg(interval.value("nje").toInt())));
        QCOMPARE(int(solver.lastMethod()), interval.value("mused").toInt());
        const QJsonArray expected = interval.value("y1").toArray();
        for (int i = 0; i < neq; ++i) {
            const double reference = expected.at(i).toDouble();
            if (qEnvironmentVariableIsSet("LSODA_ORACLE_VERBOSE"))
                qInfo("%s y[%d] relative difference %.3g", qPrintable(where), i + 1,
                      std::fabs(yout[i + 1] - reference) / std::fabs(reference));
            QVERIFY2(relClose(yout[i + 1], reference, 1e-7),
                     qPrintable(QStringLiteral("%1: y[%2] = %3, Fortran %4")
                                        .arg(where)
                                        .arg(i + 1)
                                        .arg(yout[i + 1], 0, 'g', 17)
                                        .arg(reference, 0, 'g', 17)));
            y[i] = yout[i + 1];
        }
    }
}

QTEST_GUILESS_MAIN(TestLsodaOracle)
#include "test_lsoda_oracle.moc"
