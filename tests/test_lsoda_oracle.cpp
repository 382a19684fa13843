// Compares the LSODA port with the Fortran LSODA as wrapped by scipy's
// odeint: same steps, right-hand-side and Jacobian evaluations on every
// interval, and the same states.

#include "lsoda_test_support.h"
#include "ode/LSODA.h"

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
    for (const QString python : {"/usr/bin/python3", "python3"}) {
        QProcess process;
        process.start(python, {QStringLiteral(LSODA_ORACLE_SCRIPT)});
        if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit ||
            process.exitCode() != 0)
            continue;
        reference_ = QJsonDocument::fromJson(process.readAllStandardOutput()).object();
        if (!reference_.isEmpty())
            return;
    }
    QSKIP("no python3 with scipy found: the comparison with the Fortran LSODA is skipped");
}

void TestLsodaOracle::matchesFortranCounts_data()
{
    QTest::addColumn<QString>("problem");
    QTest::addColumn<void *>("f");
    QTest::addColumn<int>("neq");
    QTest::newRow("robertson") << "robertson" << (void *)robertson << 3;
    QTest::newRow("damped oscillator") << "damped_oscillator" << (void *)dampedOscillator << 2;
    QTest::newRow("van der Pol") << "van_der_pol" << (void *)vanDerPol << 2;
    QTest::newRow("van der Pol mu 10, continued") << "van_der_pol_10" << (void *)vanDerPol10 << 2;
    QTest::newRow("stiff cosine") << "stiff_cosine" << (void *)stiffCosine << 2;
}

// Restarted intervals are chained as the model evaluation does: one object,
// istate reset to 1 at every output time, starting from the state reached.
// Continued ones keep istate 2 and count cumulatively.
void TestLsodaOracle::matchesFortranCounts()
{
    QFETCH(QString, problem);
    QFETCH(void *, f);
    QFETCH(int, neq);
    const QJsonObject reference = reference_.value(problem).toObject();
    const QJsonArray intervals = reference.value("intervals").toArray();
    QVERIFY(!intervals.isEmpty());
    const bool restart = reference.value("mode").toString() == "restart";

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
        solver.lsoda_update(LSODA::RhsFunction(f), std::size_t(neq), y, yout, &t, t1, &istate, nullptr, 1e-6,
                            1e-6);
        const QString where = QStringLiteral("%1, interval to t = %2").arg(problem).arg(t1);
        QVERIFY2(istate == 2 && t == t1, qPrintable(where));
        const int counts[] = {solver.steps(), solver.rhsEvaluations(), solver.jacobianEvaluations(),
                              int(solver.lastMethod())};
        const char *keys[] = {"nst", "nfe", "nje", "mused"};
        for (int c = 0; c < 4; ++c)
            QVERIFY2(counts[c] == interval.value(keys[c]).toInt(),
                     qPrintable(QStringLiteral("%1: %2 %3, Fortran %4")
                                        .arg(where, keys[c])
                                        .arg(counts[c])
                                        .arg(interval.value(keys[c]).toInt())));
        const QJsonArray expected = interval.value("y1").toArray();
        for (int i = 0; i < neq; ++i) {
            QVERIFY2(closeTo(yout[i + 1], expected.at(i).toDouble(), 1e-7),
                     qPrintable(QStringLiteral("%1: y[%2] = %3, Fortran %4")
                                        .arg(where)
                                        .arg(i + 1)
                                        .arg(yout[i + 1], 0, 'g', 17)
                                        .arg(expected.at(i).toDouble(), 0, 'g', 17)));
            y[i] = yout[i + 1];
        }
    }
}

QTEST_GUILESS_MAIN(TestLsodaOracle)
#include "test_lsoda_oracle.moc"
