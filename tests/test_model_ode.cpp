#include "model/EventTables.h"
#include "model/OdeSystemText.h"
#include "ode/EvaluationStopwatch.h"
#include "ode/model_ode.h"

#include <QtTest>

#include <cmath>
#include <functional>

namespace {

struct TestProblem {
    OdeSystemText system;
    model_ode model;
};

// A model from ODE text, dose rows (Time, Compartment, Dosage, Duration) and
// observation times; observations watch the first state variable.
TestProblem makeProblem(const QString &ode, const QVector<QStringList> &doseRows,
                        const QVector<double> &observationTimes, const QVector<double> &parameters)
{
    TestProblem p;
    p.system = OdeSystemText(ode, QString());
    p.system.parseOdeSystem();
    const QStringList states = p.system.stateVariableNames;
    const DoseTableResult doses =
            readDoseTable(doseRows, DoseTable::Estimation, states, p.system.parameterNames, parameters);
    QVector<QStringList> observationRows;
    for (double t : observationTimes)
        observationRows << QStringList{QString::number(t, 'g', 17), states.first(), "1"};
    const ObservationTableResult observations =
            readObservationTable(observationRows, states, p.system.parameterNames, parameters);
    p.model = model_ode(p.system, doses.events, observations.events);
    return p;
}

// Both stages against an exact solution; Stage 1 runs at a tight tolerance
// here so that both integrators are held to their accuracy.
void checkBothStages(const TestProblem &p, const QVector<double> &parameters, int state,
                     const QVector<double> &times, const std::function<double(double)> &exact)
{
    for (bool rosenbrock : {true, false}) {
        model_ode model = p.model;
        model.useRosenbrock = rosenbrock ? 1 : 0;
        model.rosenbrockRelativeTolerance = 1e-8;
        model.rosenbrockAbsoluteTolerance = 1e-10;
        const auto rows = model.evaluate(parameters);
        QCOMPARE(int(rows.size()), times.size());
        for (int r = 0; r < times.size(); ++r) {
            const double got = rows[std::size_t(r)][std::size_t(state)], expected = exact(times[r]);
            QVERIFY2(std::abs(got - expected) <=
                             (rosenbrock ? 1e-6 : 2e-4) * std::max(1.0, std::abs(expected)),
                     qPrintable(QString("%1 at t=%2: %3 vs %4")
                                        .arg(rosenbrock)
                                        .arg(times[r])
                                        .arg(got)
                                        .arg(expected)));
        }
    }
}

} // namespace

class TestModelOde : public QObject {
    Q_OBJECT

private slots:
    void schedule();
    void oralAbsorptionBateman();
    void infusionWithWashout();
    void bolusesAddAndSetValuesReplace();
    void parameterDependentDoseTime();
    void observationsAtDoseTimesSeeStateBeforeDose();
    void nanParametersCostNoIntegration();
    void timeLimitGivesNanThenRecovers();
    void stopwatchComparesTheLimitExactly();
    void runawaySolutionsFailAtOnce();
};

void TestModelOde::schedule()
{
    const TestProblem p = makeProblem("dAdt = -k*A\ndBdt = k*A",
                                      {{"5", "A", "10", "2"},
                                       {"1", "B", "3", "0"},
                                       {"1", "B", "4", "0"},
                                       {"3", "A", "7", "-99"},
                                       {"3", "A", "8", "-99"},
                                       {"2", "A", "1", "-1"}},
                                      {6, 2.5, 7}, {0.1});
    const model_ode &m = p.model;
    // Observation times join the grid; the end of the infusion does too.
    QCOMPARE(m.timePoints, QVector<double>({0, 1, 2, 2.5, 3, 5, 6, 7}));
    QCOMPARE(m.observationTimeIndex, QVector<int>({6, 3, 7}));
    QCOMPARE(m.bolusDose[1], QVector<double>({0, 7})); // two boluses add up
    QCOMPARE(m.setValue[4][0], 8.0);                   // the later set value wins
    QVERIFY(std::isnan(m.setValue[4][1]));
    // The infusion 5..7 covers the intervals (5,6) and (6,7), rate 10/2.
    QCOMPARE(m.infusionCompartments[6], QVector<int>{0});
    QCOMPARE(m.infusionRates[6], QVector<double>{5.0});
    QCOMPARE(m.infusionRates[7], QVector<double>{5.0});
    QVERIFY(m.infusionCompartments[5].isEmpty());
    // The negative duration is reported once per interval (7 intervals).
    QCOMPARE(m.errorMessages.size(), 7);
    QCOMPARE(m.errorMessages.first(),
             QString("Error on 6th dose event: Infusion administration duration cannot be less than 0."));
}

void TestModelOde::oralAbsorptionBateman()
{
    const double ka = 1.2, ke = 0.15;
    const QVector<double> times{0.25, 0.5, 1, 2, 3, 6, 12, 24};
    const auto bateman = [=](double t) {
        return 320 * ka / (ka - ke) * (std::exp(-ke * t) - std::exp(-ka * t));
    };
    // Parameters sorted: ka, ke.
    TestProblem p =
            makeProblem("dAgdt = -ka*Ag\ndAcdt = ka*Ag - ke*Ac", {{"0", "Ag", "320", "0"}}, times, {ka, ke});
    checkBothStages(p, {ka, ke}, 1, times, bateman);

    // At the Stage 1 default tolerance the answer is rough but close.
    p.model.useRosenbrock = 1;
    const auto rows = p.model.evaluate({ka, ke});
    for (int r = 0; r < times.size(); ++r)
        QVERIFY(std::abs(rows[std::size_t(r)][1] - bateman(times[r])) < 0.1 * bateman(times[r]));
}

void TestModelOde::infusionWithWashout()
{
    const double k = 0.4, amount = 100, duration = 2, rate = amount / duration;
    // Observation at 1 lies inside the infusion; 2 is its end.
    const QVector<double> times{0.5, 1, 2, 3, 6};
    const TestProblem p = makeProblem("dAdt = -k*A", {{"0", "A", "100", "2"}}, times, {k});
    checkBothStages(p, {k}, 0, times, [=](double t) {
        const double during = rate / k * (1 - std::exp(-k * std::min(t, duration)));
        return t <= duration ? during : during * std::exp(-k * (t - duration));
    });
}

// Two boluses of 30 at 0 add up, a bolus of 50 at 12 adds to what is left,
// and at 24 the amount is set to 40.
void TestModelOde::bolusesAddAndSetValuesReplace()
{
    const double k = 0.1;
    const QVector<double> times{6, 12, 18, 30, 36};
    const TestProblem p = makeProblem(
            "dAdt = -k*A",
            {{"0", "A", "30", "0"}, {"0", "A", "30", "0"}, {"12", "A", "50", "0"}, {"24", "A", "40", "-99"}},
            times, {k});
    checkBothStages(p, {k}, 0, times, [=](double t) {
        if (t > 24)
            return 40 * std::exp(-k * (t - 24));
        return 60 * std::exp(-k * t) + (t > 12 ? 50 * std::exp(-k * (t - 12)) : 0.0);
    });
}

void TestModelOde::parameterDependentDoseTime()
{
    const double k = 0.3;
    // The dose time is the parameter tlag; parameters sorted: k, tlag.
    TestProblem p = makeProblem("dAdt = -k*A + 0*tlag", {{"tlag", "A", "10", "0"}}, {1, 2, 4}, {k, 1.5});
    QVERIFY(p.model.hasParameterDependentEvents);
    for (double lag : {0.5, 1.5}) {
        checkBothStages(p, {k, lag}, 0, {1, 2, 4},
                        [=](double t) { return t > lag ? 10 * std::exp(-k * (t - lag)) : 0.0; });
    }
}

void TestModelOde::observationsAtDoseTimesSeeStateBeforeDose()
{
    // Observations at 0 (twice) and at the dose time 4 see the state before
    // that time's doses.
    TestProblem p = makeProblem("dAdt = -k*A", {{"0", "A", "10", "0"}, {"4", "A", "10", "0"}},
                                {0, 0, 4, 4.0001}, {0.5});
    for (int stage : {0, 1}) {
        p.model.useRosenbrock = stage;
        const auto rows = p.model.evaluate({0.5});
        QCOMPARE(rows[0][0], 0.0);
        QCOMPARE(rows[1][0], 0.0);
        QVERIFY(std::abs(rows[2][0] - 10 * std::exp(-2.0)) < 1e-2);
        QVERIFY(rows[3][0] > 10);
    }
}

void TestModelOde::nanParametersCostNoIntegration()
{
    TestProblem p = makeProblem("dAdt = -k*A", {{"0", "A", "10", "0"}}, {1, 2}, {0.5});
    for (int stage : {0, 1}) {
        p.model.useRosenbrock = stage;
        const auto rows = p.model.evaluate({std::nan("")});
        QCOMPARE(p.model.rhsEvaluations(), 0L);
        QCOMPARE(int(rows.size()), 2);
        for (const auto &row : rows)
            QVERIFY(row.size() == 1 && std::isnan(row[0]));
    }
}

void TestModelOde::timeLimitGivesNanThenRecovers()
{
    // A fast oscillation over a long span at a tight tolerance takes far
    // longer than a millisecond.
    QVector<double> times;
    for (int i = 1; i <= 1000; ++i)
        times << i;
    TestProblem p = makeProblem("dXdt = V\ndVdt = -w*X", {{"0", "X", "1", "0"}}, times, {1e4});
    for (int stage : {0, 1}) {
        model_ode model = p.model;
        model.useRosenbrock = stage;
        model.rosenbrockRelativeTolerance = 1e-10;
        model.timeLimitMs = 1;
        model.lsodaMessageStream = nullptr;
        const auto failed = model.evaluate({1e4});
        for (const auto &row : failed)
            QVERIFY(std::isnan(row[0]) && std::isnan(row[1]));
        model.timeLimitMs = 60000;
        model.rosenbrockRelativeTolerance = 1e-3;
        const auto rows = model.evaluate({1.0}); // X = cos(t)
        QVERIFY(std::abs(rows[0][0] - std::cos(1.0)) < 1e-2);
    }
}

// The stopwatch reads a coarse clock far from the limit and the precise one
// near it: a limit of 0 ms fails at the first reading, one of a few ms once
// it has passed, and a long one never in a burst of readings.
void TestModelOde::stopwatchComparesTheLimitExactly()
{
    EvaluationStopwatch none(0);
    QVERIFY(none.limitExceeded());

    EvaluationStopwatch shortLimit(30);
    QVERIFY(!shortLimit.limitExceeded());
    QThread::msleep(40);
    QVERIFY(shortLimit.limitExceeded());

    EvaluationStopwatch longLimit(60000);
    bool exceeded = false;
    for (int reading = 0; reading < 100000; ++reading)
        exceeded = exceeded || longLimit.limitExceeded();
    QVERIFY(!exceeded);
}

// A dose at the edge of the double range and a solution that blows up
// (A' = A^2 from 1 is infinite at t = 1) used to run until the time limit;
// now the first non-finite state or slope ends the evaluation with NaN rows.
// The limit here is an hour, so a regression shows as a hang. (LSODA stops
// short of the blow-up by itself and hands back the state it reached.)
void TestModelOde::runawaySolutionsFailAtOnce()
{
    const struct {
        QString dose;
        QVector<int> stages;
    } cases[] = {{"1e308", {0, 1}}, {"1", {1}}};
    for (const auto &c : cases) {
        TestProblem p = makeProblem("dAdt = k*A*A", {{"0", "A", c.dose, "0"}}, {0.5, 2, 10}, {1.0});
        for (int stage : c.stages) {
            model_ode model = p.model;
            model.useRosenbrock = stage;
            model.timeLimitMs = 3600000;
            model.lsodaMessageStream = nullptr;
            const auto rows = model.evaluate({1.0});
            QCOMPARE(int(rows.size()), 3);
            for (const auto &row : rows)
                QVERIFY2(std::isnan(row[0]), qPrintable(QString("dose %1, stage %2").arg(c.dose).arg(stage)));
        }
    }
}

QTEST_GUILESS_MAIN(TestModelOde)
#include "test_model_ode.moc"
