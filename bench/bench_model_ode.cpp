// Solves per second of the bundled PBPK example (12 states, two infusions,
// 20 observation times over 48 h) with both stages, each measured with the
// parsed formulas (_Ambrel) and with the same model written in C++ through
// the same schedule and integrators (_Compiled).
#include "ode/model_ode.h"
#include "project/ProjectModel.h"

#include <benchmark/benchmark.h>

namespace {

// values: t, 12 states (model order), parameters CLint, CLr, Kpad, Kpmu.
// Each equation computes only the concentrations it uses, as hand-written
// code would.
double pbpkEquation(int i, const double *v)
{
    constexpr double CO = 390, Qha = 19.5, Qgu = 65, Qsp = 9.3, Qli = 93.8, Qki = 74, Qmu = 66, Qad = 20,
                     Qbr = 46, Qsk = 19.5, Qre = 70.7;
    constexpr double Kplu = 1.8, Kpli = 4, Kpgu = 3, Kpsp = 2.5, Kpki = 3.5, Kpbr = 0.8, Kpsk = 1.5,
                     Kpre = 1.5, fu = 0.1;
    const double Cart = v[3] / 1.7;
    switch (i) {
    case 0:
        return Qli * (v[4] / 1.8) / Kpli + Qki * (v[7] / 0.31) / Kpki + Qmu * (v[8] / 29) / v[16] +
               Qad * (v[9] / 15) / v[15] + Qbr * (v[10] / 1.45) / Kpbr + Qsk * (v[11] / 3.3) / Kpsk +
               Qre * (v[12] / 11) / Kpre - CO * (v[1] / 3.4);
    case 1:
        return CO * (v[1] / 3.4 - (v[2] / 1.2) / Kplu);
    case 2:
        return CO * ((v[2] / 1.2) / Kplu - Cart);
    case 3:
        return Qha * Cart + Qgu * (v[5] / 1.1) / Kpgu + Qsp * (v[6] / 0.18) / Kpsp -
               Qli * (v[4] / 1.8) / Kpli - fu * v[13] * (v[4] / 1.8) / Kpli;
    case 4:
        return Qgu * (Cart - (v[5] / 1.1) / Kpgu);
    case 5:
        return Qsp * (Cart - (v[6] / 0.18) / Kpsp);
    case 6:
        return Qki * (Cart - (v[7] / 0.31) / Kpki) - fu * v[14] * (v[7] / 0.31) / Kpki;
    case 7:
        return Qmu * (Cart - (v[8] / 29) / v[16]);
    case 8:
        return Qad * (Cart - (v[9] / 15) / v[15]);
    case 9:
        return Qbr * (Cart - (v[10] / 1.45) / Kpbr);
    case 10:
        return Qsk * (Cart - (v[11] / 3.3) / Kpsk);
    default:
        return Qre * (Cart - (v[12] / 11) / Kpre);
    }
}

const ProjectModel &pbpkProject()
{
    static const ProjectModel project = loadProjectModel(AMBREL_EXAMPLES_DIR "/pbpk");
    return project;
}

void solve(benchmark::State &state, bool rosenbrock, bool compiled)
{
    const ProjectModel &project = pbpkProject();
    if (!project.isValid()) {
        state.SkipWithError(qPrintable(problemTexts(project.problems).join("; ")));
        return;
    }
    model_ode model(project.system, project.doseEvents, project.observations);
    model.useRosenbrock = rosenbrock ? 1 : 0;
    model.rosenbrockRelativeTolerance = 0.1;
    model.timeLimitMs = 600000;
    model.lsodaMessageStream = nullptr; // the method-switch notices
    if (compiled)
        model.compiledEquation = pbpkEquation;
    const QVector<double> parameters{120, 8, 6, 2};
    long rhs = 0;
    for (auto _ : state) {
        model_ode copy = model; // as the engine does, once per evaluation
        benchmark::DoNotOptimize(copy.evaluate(parameters));
        rhs += copy.rhsEvaluations();
    }
    state.counters["solves_per_s"] =
            benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["rhs_per_solve"] = double(rhs) / double(state.iterations());
}

} // namespace

static void BM_PbpkStage1_Ambrel(benchmark::State &s)
{
    solve(s, true, false);
}
static void BM_PbpkStage1_Compiled(benchmark::State &s)
{
    solve(s, true, true);
}
static void BM_PbpkStage2_Ambrel(benchmark::State &s)
{
    solve(s, false, false);
}
static void BM_PbpkStage2_Compiled(benchmark::State &s)
{
    solve(s, false, true);
}
BENCHMARK(BM_PbpkStage1_Ambrel)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PbpkStage1_Compiled)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PbpkStage2_Ambrel)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PbpkStage2_Compiled)->Unit(benchmark::kMicrosecond);

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
