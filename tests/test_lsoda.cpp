// LSODA on problems with known solutions, its step limit and switching
// messages, and its handling of illegal input.

#include "lsoda_test_support.h"
#include "ode/LSODA.h"

#include <QtTest>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

using namespace lsodatest;

namespace {

// Collects the solver's messages in memory.
class MessageCapture {
public:
    explicit MessageCapture(LSODA &solver)
    {
        stream_ = open_memstream(&buffer_, &size_);
        solver.setMessageStream(stream_);
    }
    ~MessageCapture()
    {
        std::fclose(stream_);
        std::free(buffer_);
    }
    QString text()
    {
        std::fflush(stream_);
        return QString::fromLatin1(buffer_, int(size_));
    }

private:
    std::FILE *stream_ = nullptr;
    char *buffer_ = nullptr;
    std::size_t size_ = 0;
};

int rhsCalls = 0;

// y' = -0.5 y, counted.
void decay(double, double *y, double *ydot, void *)
{
    ++rhsCalls;
    ydot[1] = -0.5 * y[1];
}

// y'' = -omega^2 y with omega passed through data.
void harmonic(double, double *y, double *ydot, void *data)
{
    const double omega = *static_cast<double *>(data);
    ydot[1] = y[2];
    ydot[2] = -omega * omega * y[1];
}

} // namespace

class TestLsoda : public QObject {
    Q_OBJECT

private slots:
    void exponentialDecayIsAccurateAndToleranceProportional();
    void harmonicOscillatorOverManyOutputTimes();
    void restartingAtOutputTimesMatchesTheExactSolution();
    void stiffProblemSwitchesToBdfAndReachesTout();
    void stopsAfterMxstepStepsWithTheStateReached();
    void optionalInputsLimitTheStep();
    void stepTooSmallForTIsWarnedAtMostMxhnilTimes();
    void illegalInputIsReported_data();
    void illegalInputIsReported();
    void toutEqualToTIsReportedOnStderr();
    void repeatedIllegalInputAbortsTheRun();
    void tooMuchAccuracyIsReported();
    void userJacobianIsRefusedWhenStiff();
    void wrongStateSizeStopsTheProgram();
};

void TestLsoda::exponentialDecayIsAccurateAndToleranceProportional()
{
    // Global error at t = 10 for tolerances 1e-4 .. 1e-10: within a small
    // multiple of the tolerance, and falling as the tolerance falls.
    double previousError = 1.0;
    for (double tol : {1e-4, 1e-6, 1e-8, 1e-10}) {
        LSODA solver;
        std::vector<double> yout;
        double t = 0.0;
        int istate = 1;
        solver.lsoda_update(decay, 1, {2.0}, yout, &t, 10.0, &istate, nullptr, tol, tol);
        QCOMPARE(istate, 2);
        QCOMPARE(t, 10.0);
        QCOMPARE(yout.size(), std::size_t(2));
        QCOMPARE(yout[0], 0.0);
        const double error = std::fabs(yout[1] - 2.0 * std::exp(-5.0));
        QVERIFY2(error < 20.0 * tol, qPrintable(QString("tol %1 error %2").arg(tol).arg(error)));
        QVERIFY2(error < previousError, qPrintable(QString("tol %1 error %2").arg(tol).arg(error)));
        previousError = error;
        QCOMPARE(solver.lastMethod(), LSODA::Adams);
        QVERIFY(solver.steps() > 0);
        QVERIFY(solver.rhsEvaluations() > solver.steps());
        QCOMPARE(solver.jacobianEvaluations(), 0);
    }
}

void TestLsoda::harmonicOscillatorOverManyOutputTimes()
{
    // Continued integration (istate 2) through 100 output times: every
    // interpolated output is close to cos and sin, and asking for outputs
    // does not cost extra steps compared with one call to the end.
    double omega = 3.0;
    LSODA dense, sparse;
    std::vector<double> yDense = {0.0, 1.0, 0.0}, ySparse = yDense;
    dense.setTolerances(1, {0.0, 1e-8}, {0.0, 1e-8});
    sparse.setTolerances(1, {0.0, 1e-8}, {0.0, 1e-8});
    const LSODA::IntOptions io{};
    const LSODA::RealOptions ro{};
    double t = 0.0;
    int istate = 1;
    for (int k = 1; k <= 100; ++k) {
        const double tout = 0.1 * k;
        dense.lsoda(harmonic, 2, yDense, &t, tout, 1, &istate, 0, 2, io, ro, &omega);
        QCOMPARE(istate, 2);
        QCOMPARE(t, tout);
        QVERIFY2(std::fabs(yDense[1] - std::cos(omega * tout)) < 1e-6, qPrintable(QString::number(tout)));
        QVERIFY2(std::fabs(yDense[2] + omega * std::sin(omega * tout)) < 3e-6,
                 qPrintable(QString::number(tout)));
    }
    double ts = 0.0;
    int istateSparse = 1;
    sparse.lsoda(harmonic, 2, ySparse, &ts, 10.0, 1, &istateSparse, 0, 2, io, ro, &omega);
    QCOMPARE(istateSparse, 2);
    QVERIFY(std::fabs(ySparse[1] - std::cos(omega * 10.0)) < 1e-6);
    // Only the first step differs (it is sized from the first tout).
    QVERIFY(std::abs(sparse.steps() - dense.steps()) < 10);
}

void TestLsoda::restartingAtOutputTimesMatchesTheExactSolution()
{
    // The model evaluation's pattern: one object, istate 1 at every grid point.
    LSODA solver;
    std::vector<double> y = {2.0}, yout;
    double t = 0.0;
    for (double tout : {0.5, 1.0, 2.0, 3.5, 5.0, 8.0}) {
        int istate = 1;
        solver.lsoda_update(decay, 1, y, yout, &t, tout, &istate, nullptr, 1e-8, 1e-8);
        QCOMPARE(istate, 2);
        QCOMPARE(t, tout);
        y[0] = yout[1];
        QVERIFY(relClose(y[0], 2.0 * std::exp(-0.5 * tout), 1e-6));
    }
}

void TestLsoda::stiffProblemSwitchesToBdfAndReachesTout()
{
    LSODA solver;
    MessageCapture messages(solver);
    std::vector<double> yout;
    double t = 0.0;
    int istate = 1;
    solver.lsoda_update(robertson, 3, {1.0, 0.0, 0.0}, yout, &t, 4e5, &istate, nullptr, 1e-6, 1e-8);
    QCOMPARE(istate, 2);
    QCOMPARE(t, 4e5);
    QVERIFY(messages.text().contains("[lsoda] a switch to the stiff method has occurred\n"));
    QCOMPARE(solver.lastMethod(), LSODA::Bdf);
    QVERIFY(solver.lastOrder() >= 1 && solver.lastOrder() <= 5);
    QVERIFY(solver.jacobianEvaluations() > 0);
    QVERIFY(solver.switchTime() > 0.0 && solver.switchTime() < 4e5);
    // Mass is conserved and the known late-time values are reached.
    QVERIFY(std::fabs(yout[1] + yout[2] + yout[3] - 1.0) < 1e-6);
    QVERIFY(relClose(yout[1], 4.9394e-3, 1e-2));
    QVERIFY(relClose(yout[3], 0.99506, 1e-4));
    // Far fewer steps than an explicit method would need.
    QVERIFY(solver.steps() < 500);

    // A problem that turns non-stiff again switches back.
    LSODA vdp;
    MessageCapture vdpMessages(vdp);
    t = 0.0;
    istate = 1;
    vdp.lsoda_update(vanDerPol10, 2, {2.0, 0.0}, yout, &t, 9.0, &istate, nullptr, 1e-6, 1e-6);
    QCOMPARE(istate, 2);
    QVERIFY(vdpMessages.text().contains("[lsoda] a switch to the stiff method has occurred\n"));
    QVERIFY(vdpMessages.text().contains("[lsoda] a switch to the nonstiff method has occurred\n"));
}

void TestLsoda::stopsAfterMxstepStepsWithTheStateReached()
{
    double omega = 1.0;
    LSODA solver;
    MessageCapture messages(solver);
    std::vector<double> yout;
    double t = 0.0;
    int istate = 1;
    solver.lsoda_update(harmonic, 2, {1.0, 0.0}, yout, &t, 1000.0, &istate, &omega, 1e-10, 1e-10);
    QCOMPARE(istate, -1);
    QCOMPARE(messages.text(), QString("[lsoda] 500 steps taken before reaching tout\n"));
    QCOMPARE(solver.steps(), 500);
    QCOMPARE(t, solver.currentTime());
    QVERIFY(t > 0.0 && t < 1000.0);
    // The state returned is the solution at the time reached.
    QVERIFY(std::fabs(yout[1] - std::cos(t)) < 1e-7);
    QVERIFY(std::fabs(yout[2] + std::sin(t)) < 1e-7);

    // The caller may continue with istate 2: another 500 steps at most.
    const double reached = t;
    std::vector<double> y = yout;
    const LSODA::IntOptions io{};
    const LSODA::RealOptions ro{};
    istate = 2;
    solver.lsoda(harmonic, 2, y, &t, 1000.0, 1, &istate, 0, 2, io, ro, &omega);
    QCOMPARE(istate, -1);
    QCOMPARE(solver.steps(), 1000);
    QVERIFY(t > reached);
}

void TestLsoda::optionalInputsLimitTheStep()
{
    LSODA solver;
    MessageCapture messages(solver);
    solver.setTolerances(1, {0.0, 1e-6}, {0.0, 1e-6});
    std::vector<double> y = {0.0, 1.0};
    double t = 0.0;
    int istate = 1;
    // mxstep 10 stops the call early.
    solver.lsoda(decay, 1, y, &t, 50.0, 1, &istate, 1, 2, {0, 0, 0, 10, 0, 0, 0}, {}, nullptr);
    QCOMPARE(istate, -1);
    QCOMPARE(solver.steps(), 10);
    QCOMPARE(messages.text(), QString("[lsoda] 10 steps taken before reaching tout\n"));

    // istate 3 continues with new options: hmax 0.01 bounds the step from
    // the next change of h on (the current h is kept for up to nq + 1 steps).
    const int stepsBefore = solver.steps();
    istate = 3;
    solver.lsoda(decay, 1, y, &t, 2.0, 1, &istate, 1, 2, {}, {0.0, 0.0, 0.01, 0.0}, nullptr);
    QCOMPARE(istate, 2);
    QCOMPARE(t, 2.0);
    QVERIFY(solver.lastStepSize() <= 0.01 * (1.0 + 1e-12));
    QVERIFY(solver.steps() - stepsBefore >= 30);
    QVERIFY(relClose(y[1], std::exp(-1.0), 1e-5));

    // mxordn 1 keeps the non-stiff method at order 1.
    LSODA lowOrder;
    lowOrder.setTolerances(1, {0.0, 1e-6}, {0.0, 1e-6});
    y = {0.0, 1.0};
    t = 0.0;
    istate = 1;
    lowOrder.lsoda(decay, 1, y, &t, 1.0, 1, &istate, 1, 2, {0, 0, 0, 5000, 0, 1, 0}, {}, nullptr);
    QCOMPARE(istate, 2);
    QCOMPARE(lowOrder.lastOrder(), 1);
    // First order: hundreds of steps, and a global error near steps x tolerance.
    QVERIFY(lowOrder.steps() > 200);
    QVERIFY(relClose(y[1], std::exp(-0.5), 1e-3));
}

void TestLsoda::stepTooSmallForTIsWarnedAtMostMxhnilTimes()
{
    // Near t = 1e18 the steps of an oscillation of period 2 pi leave t
    // unchanged in double precision; the solver goes on until mxstep.
    double omega = 1.0;
    LSODA solver;
    MessageCapture messages(solver);
    std::vector<double> yout;
    double t = 1e18;
    int istate = 1;
    solver.lsoda_update(harmonic, 2, {1.0, 0.0}, yout, &t, 1e18 + 1e6, &istate, &omega, 1e-6, 1e-6);
    QCOMPARE(istate, -1);
    QCOMPARE(t, 1e18);
    const QString text = messages.text();
    QCOMPARE(text.count("lsoda -- warning..internal t = 1e+18 and h_ = "), 10);
    QCOMPARE(text.count("are\nsuch that in the machine, t + h_ = t on the next step\n"
                        "solver will continue anyway.\n"),
             10);
    QCOMPARE(text.count("lsoda -- above warning has been issued 10 times,\n"
                        "it will not be issued again for this problem\n"),
             1);
}

struct IllegalCase {
    std::size_t neq = 1;
    int istate = 1, itask = 1, iopt = 0, jt = 2, itol = 1;
    double rtol = 1e-6, atol = 1e-6, t = 0.0, tout = 1.0;
    LSODA::IntOptions iworks{};
    LSODA::RealOptions rworks{};
    bool initialise = false; // solve once before the illegal call
};
Q_DECLARE_METATYPE(IllegalCase)

void TestLsoda::illegalInputIsReported_data()
{
    QTest::addColumn<IllegalCase>("input");
    QTest::addColumn<QString>("expected");
    IllegalCase c;

    c = {};
    c.istate = 4;
    QTest::newRow("istate") << c << "[lsoda] illegal istate = 4 illegal\n";
    c = {};
    c.itask = 6;
    QTest::newRow("itask") << c << "[lsoda] illegal itask = 6\n";
    c = {};
    c.istate = 2;
    QTest::newRow("not initialised") << c << "[lsoda] istate > 1 but lsoda not initialized\n";
    c = {};
    c.neq = 0;
    QTest::newRow("neq") << c << "[lsoda] neq = 0 is less than 1.\n";
    c = {};
    c.istate = 3;
    c.neq = 2;
    c.initialise = true;
    QTest::newRow("neq increased") << c << "[lsoda] istate = 3 and neq increased\n";
    c = {};
    c.itol = 5;
    QTest::newRow("itol") << c << "[lsoda] itol = 5 illegal\n";
    c = {};
    c.iopt = 2;
    QTest::newRow("iopt") << c << "[lsoda] iopt = 2 illegal\n";
    c = {};
    c.jt = 3;
    QTest::newRow("jt") << c << "[lsoda] jt = 3 illegal\n";
    c = {};
    c.neq = 2;
    c.jt = 4;
    c.iworks = {2, 0, 0, 0, 0, 0, 0};
    QTest::newRow("ml") << c << "[lsoda] ml = 2 not between 1 and neq\n";
    c = {};
    c.neq = 2;
    c.jt = 5;
    c.iworks = {0, -1, 0, 0, 0, 0, 0};
    QTest::newRow("mu") << c << "[lsoda] mu = -1 not between 1 and neq\n";
    c = {};
    c.iopt = 1;
    c.iworks = {0, 0, 2, 0, 0, 0, 0};
    QTest::newRow("ixpr") << c << "[lsoda] ixpr = 2 is illegal\n";
    c = {};
    c.iopt = 1;
    c.rworks = {0.0, 0.0, -1.0, 0.0};
    QTest::newRow("hmax") << c << "[lsoda] hmax < 0.\n";
    c = {};
    c.iopt = 1;
    c.rworks = {0.0, 0.0, 0.0, -1.0};
    QTest::newRow("hmin") << c << "[lsoda] hmin < 0.\n";
    c = {};
    c.iopt = 1;
    c.rworks = {0.0, -0.1, 0.0, 0.0};
    QTest::newRow("h0 against the direction")
            << c << "[lsoda] tout = 1 behind t = 0. integration direction is given by -0.1\n";
    c = {};
    c.rtol = -1e-6;
    QTest::newRow("rtol") << c << "[lsoda] rtol = -1e-06 is less than 0.\n";
    c = {};
    c.atol = -2.0;
    QTest::newRow("atol") << c << "[lsoda] atol = -2 is less than 0.\n";
    c = {};
    c.atol = 0.0;
    c.neq = 2;
    QTest::newRow("zero weight") << c << "[lsoda] ewt[2] = 0 <= 0.\n";
    c = {};
    c.t = 1.0;
    c.tout = std::nextafter(1.0, 2.0);
    QTest::newRow("tout too close") << c << "[lsoda] tout too close to t to start integration\n";
    c = {};
    c.itask = 4;
    c.rworks = {0.5, 0.0, 0.0, 0.0};
    QTest::newRow("tcrit behind tout") << c << "[lsoda] itask = 4 or 5 and tcrit behind tout\n";
    c = {};
    c.itask = 5;
    c.rworks = {-1.0, 0.0, 0.0, 0.0};
    c.istate = 2;
    c.initialise = true;
    QTest::newRow("tcrit behind tcur") << c << "[lsoda] itask = 4 or 5 and tcrit behind tcur\n";
    c = {};
    c.itask = 3;
    c.istate = 2;
    c.initialise = true;
    c.tout = -5.0;
    QTest::newRow("tout behind tcur - hu") << c << "[lsoda] itask = 3 and tout behind tcur - hu\n";
    c = {};
    c.istate = 2;
    c.initialise = true;
    c.tout = -5.0;
    QTest::newRow("interpolation outside the last step")
            << c
            << "intdy -- t = -5 illegal. t not in interval tcur - hu to tcur\n"
               "[lsoda] trouble from intdy, itask = 1, tout = -5\n";
}

void TestLsoda::illegalInputIsReported()
{
    QFETCH(IllegalCase, input);
    QFETCH(QString, expected);

    LSODA solver;
    MessageCapture messages(solver);
    const std::size_t n = std::max<std::size_t>(input.neq, 1);
    std::vector<double> y(n + 1, 0.0);
    y[1] = 1.0;
    double t = input.t;
    if (input.initialise) {
        // A legal one-equation problem solved to t = 1 first.
        std::vector<double> y1 = {0.0, 1.0};
        solver.setTolerances(1, {0.0, 1e-6}, {0.0, 1e-6});
        int istate = 1;
        solver.lsoda(decay, 1, y1, &t, 1.0, 1, &istate, 0, 2, {}, {}, nullptr);
        QCOMPARE(istate, 2);
        QCOMPARE(messages.text(), QString());
        if (input.neq == 1)
            y = y1;
    }
    solver.setTolerances(input.itol, std::vector<double>(n + 1, input.rtol),
                         std::vector<double>(n + 1, input.atol));
    const int callsBefore = rhsCalls;
    const std::vector<double> yBefore = y;
    const double tBefore = t;
    int istate = input.istate;
    if (input.neq == 0)
        y.resize(1);
    solver.lsoda(decay, input.neq, y, &t, input.tout, input.itask, &istate, input.iopt, input.jt,
                 input.iworks, input.rworks, nullptr);
    QCOMPARE(messages.text(), expected);
    QCOMPARE(istate, -3);
    QCOMPARE(solver.illegalInputCount(), 1);
    // Nothing was integrated: t and y are untouched.
    QCOMPARE(t, tBefore);
    if (input.neq != 0)
        QVERIFY(y == yBefore);
    if (!input.initialise && expected.startsWith("[lsoda] rtol"))
        QCOMPARE(rhsCalls, callsBefore);
}

void TestLsoda::toutEqualToTIsReportedOnStderr()
{
    // By default messages go to the standard error stream.
    std::fflush(stderr);
    char path[] = "/tmp/lsoda_stderr_XXXXXX";
    const int file = mkstemp(path);
    QVERIFY(file >= 0);
    const int savedStderr = dup(2);
    dup2(file, 2);
    LSODA solver;
    std::vector<double> yout;
    double t = 3.0;
    int istate = 1;
    solver.lsoda_update(decay, 1, {1.0}, yout, &t, 3.0, &istate, nullptr);
    std::fflush(stderr);
    dup2(savedStderr, 2);
    close(savedStderr);
    close(file);
    QFile captured(path);
    QVERIFY(captured.open(QIODevice::ReadOnly));
    const QByteArray text = captured.readAll();
    captured.remove();
    QCOMPARE(text, QByteArray("[lsoda] tout too close to t to start integration\n"));
    QCOMPARE(istate, -3);
}

void TestLsoda::repeatedIllegalInputAbortsTheRun()
{
    LSODA solver;
    MessageCapture messages(solver);
    std::vector<double> yout;
    double t = 0.0;
    for (int call = 1; call <= 5; ++call) {
        int istate = 1;
        solver.lsoda_update(decay, 1, {1.0}, yout, &t, 1.0, &istate, nullptr, -1.0, 1e-6);
        QCOMPARE(istate, -3);
        QCOMPARE(solver.illegalInputCount(), call);
    }
    int istate = 1;
    solver.lsoda_update(decay, 1, {1.0}, yout, &t, 1.0, &istate, nullptr, -1.0, 1e-6);
    QCOMPARE(istate, 1);
    QVERIFY(messages.text().endsWith("[lsoda] rtol = -1 is less than 0.\n"
                                     "[lsoda] repeated occurrence of illegal input. run aborted.. "
                                     "apparent infinite loop.\n"));
    // The count is of successive illegal calls: a legal call clears it.
    solver.lsoda_update(decay, 1, {1.0}, yout, &t, 1.0, &istate, nullptr, 1e-6, 1e-6);
    QCOMPARE(istate, 2);
    QCOMPARE(solver.illegalInputCount(), 0);
    istate = 1;
    solver.lsoda_update(decay, 1, {1.0}, yout, &t, 2.0, &istate, nullptr, -1.0, 1e-6);
    QCOMPARE(istate, -3);
}

void TestLsoda::tooMuchAccuracyIsReported()
{
    LSODA solver;
    MessageCapture messages(solver);
    std::vector<double> yout;
    double t = 0.0;
    int istate = 1;
    solver.lsoda_update(decay, 1, {1.0}, yout, &t, 1.0, &istate, nullptr, 1e-20, 1e-20);
    QCOMPARE(istate, -3);
    QVERIFY(messages.text().startsWith("lsoda -- at start of problem, too much accuracy\n"
                                       "requested for precision of machine,\n"
                                       "suggested scaling factor = "));
    QVERIFY(solver.toleranceScaleFactor() > 1.0);
}

void TestLsoda::userJacobianIsRefusedWhenStiff()
{
    // jt 1 passes the input check, but only the internal dense Jacobian is
    // available: the first stiff step fails.
    LSODA solver;
    MessageCapture messages(solver);
    std::vector<double> y = {0.0, 1.0, 0.0, 0.0};
    solver.setTolerances(1, {0.0, 1e-6}, {0.0, 1e-6});
    double t = 0.0;
    int istate = 1;
    solver.lsoda(robertson, 3, y, &t, 100.0, 1, &istate, 0, 1, {}, {}, nullptr);
    QCOMPARE(istate, -5);
    QVERIFY(messages.text().contains("[prja] miter != 2\n"));
    QVERIFY(messages.text().contains("corrector convergence failed repeatedly"));
    QVERIFY(t > 0.0 && t < 100.0);
}

void TestLsoda::wrongStateSizeStopsTheProgram()
{
    // y must have neq + 1 elements; anything else is a programming error.
    const pid_t child = fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        std::freopen("/dev/null", "w", stderr);
        LSODA solver;
        std::vector<double> y = {0.0, 1.0};
        double t = 0.0;
        int istate = 1;
        solver.lsoda(decay, 2, y, &t, 1.0, 1, &istate, 0, 2, {}, {}, nullptr);
        _exit(0);
    }
    int status = 0;
    QCOMPARE(waitpid(child, &status, 0), child);
    QVERIFY(WIFSIGNALED(status));
    QCOMPARE(WTERMSIG(status), SIGABRT);
}

QTEST_GUILESS_MAIN(TestLsoda)
#include "test_lsoda.moc"
