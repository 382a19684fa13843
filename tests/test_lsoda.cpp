// LSODA's accuracy, step limit and switching messages, and its handling of
// illegal input; its numbers are compared with the Fortran code in
// test_lsoda_oracle.

#include "lsoda_test_support.h"
#include "ode/LSODA.h"

#include <QtTest>

#include <csignal>
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

using namespace lsodatest;

namespace {

// A solver with its messages collected in memory, and the state of one
// problem: t, istate and the last output.
struct Solver {
    LSODA lsoda;
    char *buffer = nullptr;
    std::size_t size = 0;
    std::FILE *stream = open_memstream(&buffer, &size);
    double t = 0.0;
    int istate = 1;
    std::vector<double> yout;

    Solver() { lsoda.setMessageStream(stream); }
    ~Solver()
    {
        std::fclose(stream);
        std::free(buffer);
    }
    // lsoda_update from t to tout with scalar tolerances.
    void update(LSODA::RhsFunction f, const std::vector<double> &y, double tout, double tol,
                void *data = nullptr)
    {
        lsoda.lsoda_update(f, y.size(), y, yout, &t, tout, &istate, data, tol, tol);
    }
    QString messages()
    {
        std::fflush(stream);
        return QString::fromLatin1(buffer, int(size));
    }
};

int rhsCalls = 0;

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

struct IllegalCase {
    std::size_t neq = 1;
    int istate = 1, itask = 1, iopt = 0, jt = 2, itol = 1;
    double rtol = 1e-6, atol = 1e-6, t = 0.0, tout = 1.0;
    LSODA::IntOptions iworks{};
    LSODA::RealOptions rworks{};
    bool initialise = false; // solve once before the illegal call
};

template<typename Change>
IllegalCase illegal(Change change)
{
    IllegalCase c;
    change(c);
    return c;
}

} // namespace

Q_DECLARE_METATYPE(IllegalCase)

class TestLsoda : public QObject {
    Q_OBJECT

private slots:
    void exponentialDecayIsAccurateAndToleranceProportional();
    void stiffProblemSwitchesToBdfAndBack();
    void stopsAfterMxstepStepsWithTheStateReached();
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
    double previousError = 1.0;
    for (double tol : {1e-4, 1e-6, 1e-8, 1e-10}) {
        Solver s;
        s.update(decay, {2.0}, 10.0, tol);
        QVERIFY(s.istate == 2 && s.t == 10.0);
        const std::vector<double> &yout = s.yout;
        QCOMPARE(yout, (std::vector<double>{0.0, yout[1]}));
        const double error = std::fabs(yout[1] - 2.0 * std::exp(-5.0));
        QVERIFY2(error < 20.0 * tol && error < previousError,
                 qPrintable(QString("tol %1 error %2").arg(tol).arg(error)));
        previousError = error;
        QCOMPARE(s.lsoda.lastMethod(), LSODA::Adams);
        QVERIFY(s.lsoda.rhsEvaluations() > s.lsoda.steps() && s.lsoda.steps() > 0);
        QCOMPARE(s.lsoda.jacobianEvaluations(), 0);
    }
}

void TestLsoda::stiffProblemSwitchesToBdfAndBack()
{
    Solver s;
    s.lsoda.setTolerances(1, {0.0, 1e-6, 1e-6, 1e-6}, {0.0, 1e-8, 1e-8, 1e-8});
    std::vector<double> y = {0.0, 1.0, 0.0, 0.0};
    s.lsoda.lsoda(robertson, 3, y, &s.t, 4e5, 1, &s.istate, 0, 2, {}, {}, nullptr);
    QVERIFY(s.istate == 2 && s.t == 4e5);
    QVERIFY(s.messages().contains("[lsoda] a switch to the stiff method has occurred\n"));
    QCOMPARE(s.lsoda.lastMethod(), LSODA::Bdf);
    QVERIFY(s.lsoda.switchTime() > 0.0 && s.lsoda.switchTime() < 4e5);
    QVERIFY(closeTo(y[3], 0.99506, 1e-4)); // the known late-time value

    Solver vdp;
    vdp.update(vanDerPol10, {2.0, 0.0}, 9.0, 1e-6);
    QCOMPARE(vdp.istate, 2);
    QVERIFY(vdp.messages().contains("[lsoda] a switch to the stiff method has occurred\n"));
    QVERIFY(vdp.messages().contains("[lsoda] a switch to the nonstiff method has occurred\n"));
}

void TestLsoda::stopsAfterMxstepStepsWithTheStateReached()
{
    double omega = 1.0;
    Solver s;
    s.update(harmonic, {1.0, 0.0}, 1000.0, 1e-10, &omega);
    QCOMPARE(s.istate, -1);
    QCOMPARE(s.messages(), QString("[lsoda] 500 steps taken before reaching tout\n"));
    QCOMPARE(s.lsoda.steps(), 500);
    QVERIFY(s.t == s.lsoda.currentTime() && s.t > 0.0 && s.t < 1000.0);
    QVERIFY(std::fabs(s.yout[1] - std::cos(s.t)) < 1e-7 && std::fabs(s.yout[2] + std::sin(s.t)) < 1e-7);

    // The caller may continue with istate 2: another 500 steps at most.
    const double reached = s.t;
    std::vector<double> y = s.yout;
    s.istate = 2;
    s.lsoda.lsoda(harmonic, 2, y, &s.t, 1000.0, 1, &s.istate, 0, 2, {}, {}, &omega);
    QCOMPARE(s.istate, -1);
    QCOMPARE(s.lsoda.steps(), 1000);
    QVERIFY(s.t > reached);
}

// Near t = 1e18 the steps of an oscillation of period 2 pi leave t unchanged
// in double precision; the solver goes on until mxstep.
void TestLsoda::stepTooSmallForTIsWarnedAtMostMxhnilTimes()
{
    double omega = 1.0;
    Solver s;
    s.t = 1e18;
    s.update(harmonic, {1.0, 0.0}, 1e18 + 1e6, 1e-6, &omega);
    QVERIFY(s.istate == -1 && s.t == 1e18);
    const QString text = s.messages();
    QCOMPARE(text.count("lsoda -- warning..internal t = 1e+18 and h_ = "), 10);
    QCOMPARE(text.count("are\nsuch that in the machine, t + h_ = t on the next step\nsolver will continue "
                        "anyway.\n"),
             10);
    QCOMPARE(text.count("lsoda -- above warning has been issued 10 times,\n"
                        "it will not be issued again for this problem\n"),
             1);
}

void TestLsoda::illegalInputIsReported_data()
{
    QTest::addColumn<IllegalCase>("input");
    QTest::addColumn<QString>("expected");
    using C = IllegalCase;
    QTest::newRow("istate") << illegal([](C &c) { c.istate = 4; }) << "[lsoda] illegal istate = 4 illegal\n";
    QTest::newRow("itask") << illegal([](C &c) { c.itask = 6; }) << "[lsoda] illegal itask = 6\n";
    QTest::newRow("not initialised") << illegal([](C &c) { c.istate = 2; })
                                     << "[lsoda] istate > 1 but lsoda not initialized\n";
    QTest::newRow("neq") << illegal([](C &c) { c.neq = 0; }) << "[lsoda] neq = 0 is less than 1.\n";
    QTest::newRow("neq increased") << illegal([](C &c) { c.neq = 2, c.istate = 3, c.initialise = true; })
                                   << "[lsoda] istate = 3 and neq increased\n";
    QTest::newRow("itol") << illegal([](C &c) { c.itol = 5; }) << "[lsoda] itol = 5 illegal\n";
    QTest::newRow("iopt") << illegal([](C &c) { c.iopt = 2; }) << "[lsoda] iopt = 2 illegal\n";
    QTest::newRow("jt") << illegal([](C &c) { c.jt = 3; }) << "[lsoda] jt = 3 illegal\n";
    QTest::newRow("ml") << illegal([](C &c) { c.neq = 2, c.jt = 4, c.iworks[0] = 2; })
                        << "[lsoda] ml = 2 not between 1 and neq\n";
    QTest::newRow("mu") << illegal([](C &c) { c.neq = 2, c.jt = 5, c.iworks[1] = -1; })
                        << "[lsoda] mu = -1 not between 1 and neq\n";
    QTest::newRow("ixpr") << illegal([](C &c) { c.iopt = 1, c.iworks[2] = 2; })
                          << "[lsoda] ixpr = 2 is illegal\n";
    QTest::newRow("hmax") << illegal([](C &c) { c.iopt = 1, c.rworks[2] = -1; }) << "[lsoda] hmax < 0.\n";
    QTest::newRow("hmin") << illegal([](C &c) { c.iopt = 1, c.rworks[3] = -1; }) << "[lsoda] hmin < 0.\n";
    QTest::newRow("h0 against the direction")
            << illegal([](C &c) { c.iopt = 1, c.rworks[1] = -0.1; })
            << "[lsoda] tout = 1 behind t = 0. integration direction is given by -0.1\n";
    QTest::newRow("rtol") << illegal([](C &c) { c.rtol = -1e-6; })
                          << "[lsoda] rtol = -1e-06 is less than 0.\n";
    QTest::newRow("atol") << illegal([](C &c) { c.atol = -2.0; }) << "[lsoda] atol = -2 is less than 0.\n";
    QTest::newRow("zero weight") << illegal([](C &c) { c.atol = 0.0, c.neq = 2; })
                                 << "[lsoda] ewt[2] = 0 <= 0.\n";
    QTest::newRow("tout too close") << illegal([](C &c) { c.t = 1.0, c.tout = std::nextafter(1.0, 2.0); })
                                    << "[lsoda] tout too close to t to start integration\n";
    QTest::newRow("tcrit behind tout") << illegal([](C &c) { c.itask = 4, c.rworks[0] = 0.5; })
                                       << "[lsoda] itask = 4 or 5 and tcrit behind tout\n";
    QTest::newRow("tcrit behind tcur")
            << illegal([](C &c) { c.itask = 5, c.rworks[0] = -1, c.istate = 2, c.initialise = true; })
            << "[lsoda] itask = 4 or 5 and tcrit behind tcur\n";
    QTest::newRow("tout behind tcur - hu")
            << illegal([](C &c) { c.itask = 3, c.istate = 2, c.initialise = true, c.tout = -5.0; })
            << "[lsoda] itask = 3 and tout behind tcur - hu\n";
    QTest::newRow("interpolation outside the last step")
            << illegal([](C &c) { c.istate = 2, c.initialise = true, c.tout = -5.0; })
            << "intdy -- t = -5 illegal. t not in interval tcur - hu to tcur\n"
               "[lsoda] trouble from intdy, itask = 1, tout = -5\n";
}

// istate -3, and nothing was integrated: t and y are untouched.
void TestLsoda::illegalInputIsReported()
{
    QFETCH(IllegalCase, input);
    QFETCH(QString, expected);

    Solver s;
    LSODA &solver = s.lsoda;
    const std::size_t n = std::max<std::size_t>(input.neq, 1);
    std::vector<double> y(n + 1, 0.0);
    y[1] = 1.0;
    double t = input.t;
    if (input.initialise) { // a legal one-equation problem solved to t = 1 first
        std::vector<double> y1 = {0.0, 1.0};
        solver.setTolerances(1, {0.0, 1e-6}, {0.0, 1e-6});
        int istate = 1;
        solver.lsoda(decay, 1, y1, &t, 1.0, 1, &istate, 0, 2, {}, {}, nullptr);
        QCOMPARE(istate, 2);
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
    QCOMPARE(s.messages(), expected);
    QCOMPARE(istate, -3);
    QCOMPARE(solver.illegalInputCount(), 1);
    QCOMPARE(t, tBefore);
    if (input.neq != 0)
        QVERIFY(y == yBefore);
    if (expected.contains("tol = -")) // a negative tolerance stops before any evaluation
        QCOMPARE(rhsCalls, callsBefore);
}

// By default messages go to the standard error stream.
void TestLsoda::toutEqualToTIsReportedOnStderr()
{
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
    const QByteArray text = fileContent(path);
    QFile::remove(path);
    QCOMPARE(text, QByteArray("[lsoda] tout too close to t to start integration\n"));
    QCOMPARE(istate, -3);
}

void TestLsoda::repeatedIllegalInputAbortsTheRun()
{
    Solver s;
    for (int call = 1; call <= 5; ++call) {
        s.istate = 1;
        s.update(decay, {1.0}, 1.0, -1.0);
        QVERIFY(s.istate == -3 && s.lsoda.illegalInputCount() == call);
    }
    s.istate = 1;
    s.update(decay, {1.0}, 1.0, -1.0);
    QCOMPARE(s.istate, 1);
    QVERIFY(s.messages().endsWith("[lsoda] rtol = -1 is less than 0.\n"
                                  "[lsoda] repeated occurrence of illegal input. run aborted.. "
                                  "apparent infinite loop.\n"));
    // The count is of successive illegal calls: a legal call clears it.
    s.update(decay, {1.0}, 1.0, 1e-6);
    QVERIFY(s.istate == 2 && s.lsoda.illegalInputCount() == 0);
    s.istate = 1;
    s.update(decay, {1.0}, 2.0, -1.0);
    QCOMPARE(s.istate, -3);
}

void TestLsoda::tooMuchAccuracyIsReported()
{
    Solver s;
    s.update(decay, {1.0}, 1.0, 1e-20);
    QCOMPARE(s.istate, -3);
    QVERIFY(s.messages().startsWith("lsoda -- at start of problem, too much accuracy\n"
                                    "requested for precision of machine,\nsuggested scaling factor = "));
    QVERIFY(s.lsoda.toleranceScaleFactor() > 1.0);
}

// jt 1 passes the input check, but only the internal dense Jacobian is
// available: the first stiff step fails.
void TestLsoda::userJacobianIsRefusedWhenStiff()
{
    Solver s;
    std::vector<double> y = {0.0, 1.0, 0.0, 0.0};
    s.lsoda.setTolerances(1, {0.0, 1e-6}, {0.0, 1e-6});
    s.lsoda.lsoda(robertson, 3, y, &s.t, 100.0, 1, &s.istate, 0, 1, {}, {}, nullptr);
    QVERIFY(s.istate == -5 && s.t > 0.0 && s.t < 100.0);
    QVERIFY(s.messages().contains("[prja] miter != 2\n"));
    QVERIFY(s.messages().contains("corrector convergence failed repeatedly"));
}

// y must have neq + 1 elements; anything else is a programming error.
void TestLsoda::wrongStateSizeStopsTheProgram()
{
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
