// Wall time per solve of the LSODA port beside two peers: the Fortran
// DLSODA (compiled inside R's deSolve library) and SUNDIALS CVODE (BDF, dense
// direct solver, difference-quotient Jacobian). Every contender solves the
// same problem at rtol = atol = 1e-6, restarted at each output time the way
// a model evaluation does; a solve includes setting the solver up.
// Counters: steps (nst), right-hand-side evaluations (nfe, those for the
// Jacobian included) and Jacobian evaluations (nje) of one solve.

#include "lsoda_bench_problems.h"
#include "ode/LSODA.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <vector>

#ifdef AMBREL_HAVE_DESOLVE
extern "C" {
using FortranRhs = void (*)(int *neq, double *t, double *y, double *ydot, double *rpar, int *ipar);
using FortranJac = void (*)(int *neq, double *t, double *y, int *ml, int *mu, double *pd, int *nrowpd,
                            double *rpar, int *ipar);
void dlsoda_(FortranRhs f, int *neq, double *y, double *t, double *tout, int *itol, double *rtol,
             double *atol, int *itask, int *istate, int *iopt, double *rwork, int *lrw, int *iwork, int *liw,
             FortranJac jac, int *jt, double *rpar, int *ipar);
}
#endif

#ifdef AMBREL_HAVE_CVODE
#include <cvode/cvode.h>
#include <nvector/nvector_serial.h>
#include <sunlinsol/sunlinsol_dense.h>
#include <sunmatrix/sunmatrix_dense.h>
#endif

using namespace lsodabench;

namespace {

using Rhs0 = void (*)(const double *, double *);

struct Counts {
    long nst = 0, nfe = 0, nje = 0;
};

void report(benchmark::State &state, const Counts &counts, const std::vector<double> &y)
{
    state.counters["nst"] = double(counts.nst);
    state.counters["nfe"] = double(counts.nfe);
    state.counters["nje"] = double(counts.nje);
    // The last state, so that a wrong solution would be visible.
    state.counters["y_last"] = y.back();
}

template<Rhs0 rhs>
void ambrelRhs(double, double *y, double *ydot, void *)
{
    rhs(y + 1, ydot + 1);
}

template<Rhs0 rhs, std::size_t n, std::size_t m>
void solveAmbrel(benchmark::State &state, const std::array<double, n> &start,
                 const std::array<double, m> &times)
{
    Counts counts;
    std::vector<double> y;
    for (auto _ : state) {
        counts = {};
        LSODA solver;
        // The Fortran peer prints nothing at a method switch (ixpr 0).
        solver.setMessageStream(nullptr);
        y.assign(start.begin(), start.end());
        std::vector<double> yout;
        double t = times[0];
        for (std::size_t k = 1; k < m; ++k) {
            int istate = 1;
            solver.lsoda_update(ambrelRhs<rhs>, n, y, yout, &t, times[k], &istate, nullptr, kTolerance,
                                kTolerance);
            if (istate != 2)
                state.SkipWithError("LSODA failed");
            std::copy(yout.begin() + 1, yout.end(), y.begin());
            counts.nst += solver.steps();
            counts.nfe += solver.rhsEvaluations();
            counts.nje += solver.jacobianEvaluations();
        }
        benchmark::DoNotOptimize(y.data());
    }
    report(state, counts, y);
}

#ifdef AMBREL_HAVE_DESOLVE
template<Rhs0 rhs>
void fortranRhs(int *, double *, double *y, double *ydot, double *, int *)
{
    rhs(y, ydot);
}

void fortranNoJacobian(int *, double *, double *, int *, int *, double *, int *, double *, int *) {}

template<Rhs0 rhs, std::size_t n, std::size_t m>
void solveFortran(benchmark::State &state, const std::array<double, n> &start,
                  const std::array<double, m> &times)
{
    Counts counts;
    std::vector<double> y;
    for (auto _ : state) {
        counts = {};
        int neq = int(n), itol = 1, itask = 1, iopt = 0, jt = 2, ipar = 0;
        int lrw = int(22 + n * std::max<std::size_t>(16, n + 9)), liw = int(20 + n);
        double rtol = kTolerance, atol = kTolerance, rpar = 0.0;
        std::vector<double> rwork(std::size_t(lrw), 0.0);
        std::vector<int> iwork(std::size_t(liw), 0);
        y.assign(start.begin(), start.end());
        double t = times[0];
        for (std::size_t k = 1; k < m; ++k) {
            int istate = 1;
            double tout = times[k];
            dlsoda_(fortranRhs<rhs>, &neq, y.data(), &t, &tout, &itol, &rtol, &atol, &itask, &istate, &iopt,
                    rwork.data(), &lrw, iwork.data(), &liw, fortranNoJacobian, &jt, &rpar, &ipar);
            if (istate != 2)
                state.SkipWithError("DLSODA failed");
            counts.nst += iwork[10];
            counts.nfe += iwork[11];
            counts.nje += iwork[12];
        }
        benchmark::DoNotOptimize(y.data());
    }
    report(state, counts, y);
}
#endif

#ifdef AMBREL_HAVE_CVODE
template<Rhs0 rhs>
int cvodeRhs(sunrealtype, N_Vector y, N_Vector ydot, void *)
{
    rhs(N_VGetArrayPointer(y), N_VGetArrayPointer(ydot));
    return 0;
}

SUNContext cvodeContext()
{
    static SUNContext context = [] {
        SUNContext c = nullptr;
        SUNContext_Create(nullptr, &c);
        return c;
    }();
    return context;
}

template<Rhs0 rhs, std::size_t n, std::size_t m>
void solveCvode(benchmark::State &state, const std::array<double, n> &start,
                const std::array<double, m> &times)
{
    Counts counts;
    std::vector<double> y(n);
    SUNContext context = cvodeContext();
    for (auto _ : state) {
        counts = {};
        N_Vector v = N_VNew_Serial(sunindextype(n), context);
        double *data = N_VGetArrayPointer(v);
        std::copy(start.begin(), start.end(), data);
        void *mem = CVodeCreate(CV_BDF, context);
        CVodeInit(mem, cvodeRhs<rhs>, times[0], v);
        CVodeSStolerances(mem, kTolerance, kTolerance);
        SUNMatrix matrix = SUNDenseMatrix(sunindextype(n), sunindextype(n), context);
        SUNLinearSolver solver = SUNLinSol_Dense(v, matrix, context);
        CVodeSetLinearSolver(mem, solver, matrix);
        double t = times[0];
        for (std::size_t k = 1; k < m; ++k) {
            if (k > 1)
                CVodeReInit(mem, t, v);
            if (CVode(mem, times[k], v, &t, CV_NORMAL) < 0)
                state.SkipWithError("CVODE failed");
            long nst = 0, nfe = 0, nfeLs = 0, nje = 0;
            CVodeGetNumSteps(mem, &nst);
            CVodeGetNumRhsEvals(mem, &nfe);
            CVodeGetNumLinRhsEvals(mem, &nfeLs);
            CVodeGetNumJacEvals(mem, &nje);
            counts.nst += nst;
            counts.nfe += nfe + nfeLs;
            counts.nje += nje;
        }
        std::copy(data, data + n, y.begin());
        benchmark::DoNotOptimize(y.data());
        SUNLinSolFree(solver);
        SUNMatDestroy(matrix);
        CVodeFree(&mem);
        N_VDestroy(v);
    }
    report(state, counts, y);
}
#endif

void BM_Robertson_Ambrel(benchmark::State &state)
{
    solveAmbrel<robertsonRhs>(state, kRobertsonStart, kRobertsonTimes);
}
BENCHMARK(BM_Robertson_Ambrel);

void BM_Pbpk12_Ambrel(benchmark::State &state)
{
    solveAmbrel<pbpkRhs>(state, kPbpkStart, kPbpkTimes);
}
BENCHMARK(BM_Pbpk12_Ambrel);

#ifdef AMBREL_HAVE_DESOLVE
void BM_Robertson_Fortran(benchmark::State &state)
{
    solveFortran<robertsonRhs>(state, kRobertsonStart, kRobertsonTimes);
}
BENCHMARK(BM_Robertson_Fortran);

void BM_Pbpk12_Fortran(benchmark::State &state)
{
    solveFortran<pbpkRhs>(state, kPbpkStart, kPbpkTimes);
}
BENCHMARK(BM_Pbpk12_Fortran);
#endif

#ifdef AMBREL_HAVE_CVODE
void BM_Robertson_Cvode(benchmark::State &state)
{
    solveCvode<robertsonRhs>(state, kRobertsonStart, kRobertsonTimes);
}
BENCHMARK(BM_Robertson_Cvode);

void BM_Pbpk12_Cvode(benchmark::State &state)
{
    solveCvode<pbpkRhs>(state, kPbpkStart, kPbpkTimes);
}
BENCHMARK(BM_Pbpk12_Cvode);
#endif

// One LSODA object is made per model evaluation.
void BM_LsodaConstruct_Ambrel(benchmark::State &state)
{
    for (auto _ : state) {
        LSODA solver;
        benchmark::DoNotOptimize(&solver);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_LsodaConstruct_Ambrel);

} // namespace

int main(int argc, char **argv)
{
    // Notes go to stderr so that --benchmark_format=json stays parseable.
#ifndef AMBREL_HAVE_DESOLVE
    std::fprintf(stderr, "Fortran DLSODA (R deSolve) not found at build time: its rows are skipped\n");
#endif
#ifndef AMBREL_HAVE_CVODE
    std::fprintf(stderr, "SUNDIALS CVODE not found at build time: its rows are skipped\n");
#endif
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
