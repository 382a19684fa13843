// Nanoseconds per evaluation of model formulas: this project's evaluator,
// muparser (when built with it) and the same formula compiled as C++, which
// is the lower bound.
#include "expression/ExpressionParser.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <functional>
#include <vector>

#ifdef AMBREL_HAVE_MUPARSER
#include <muParser.h>
#endif

namespace {

struct Formula {
    const char *ambrel;   // this project's syntax
    const char *standard; // the same formula for a conventional parser
    std::vector<const char *> names;
    std::function<double(const double *)> compiled;
};

// Flow-limited liver compartment of a PBPK model: inflow from arterial blood
// and the portal organs, outflow at the liver:plasma partition, Michaelis-
// Menten-free intrinsic clearance scaled by 10^, and a time-decaying inducer.
const Formula kPbpkLiver{"(Qha*Cart + Qgu*Cgu/Kpgu*BP + Qsp*Csp/Kpsp*BP - (Qha+Qgu+Qsp)*Cli/Kpli*BP"
                         " - fu*CLint*10^(0-lKm)*Cli/Kpli*EXP(0-kdeg*t))/Vli",
                         "(Qha*Cart + Qgu*Cgu/Kpgu*BP + Qsp*Csp/Kpsp*BP - (Qha+Qgu+Qsp)*Cli/Kpli*BP"
                         " - fu*CLint*10^(0-lKm)*Cli/Kpli*exp(0-kdeg*t))/Vli",
                         {"t", "Cart", "Cgu", "Csp", "Cli", "BP", "CLint", "Kpgu", "Kpli", "Kpsp", "Qgu",
                          "Qha", "Qsp", "Vli", "fu", "kdeg", "lKm"},
                         [](const double *v) {
                             const double t = v[0], Cart = v[1], Cgu = v[2], Csp = v[3], Cli = v[4],
                                          BP = v[5], CLint = v[6], Kpgu = v[7], Kpli = v[8], Kpsp = v[9],
                                          Qgu = v[10], Qha = v[11], Qsp = v[12], Vli = v[13], fu = v[14],
                                          kdeg = v[15], lKm = v[16];
                             return (Qha * Cart + Qgu * Cgu / Kpgu * BP + Qsp * Csp / Kpsp * BP -
                                     (Qha + Qgu + Qsp) * Cli / Kpli * BP -
                                     fu * CLint * double(std::pow(10.0f, float(0 - lKm))) * Cli / Kpli *
                                             std::exp(0 - kdeg * t)) /
                                    Vli;
                         }};

const Formula kAbsorption{
        "-ka*Ag", "-ka*Ag", {"t", "Ag", "ka"}, [](const double *v) { return -v[2] * v[1]; }};

const Formula kOneCmtOral{"ka*Ag-CL/V1*Ac",
                          "ka*Ag-CL/V1*Ac",
                          {"t", "Ag", "Ac", "CL", "V1", "ka"},
                          [](const double *v) { return v[5] * v[1] - v[3] / v[4] * v[2]; }};

std::vector<double> valuesFor(const Formula &f)
{
    std::vector<double> values;
    for (std::size_t i = 0; i < f.names.size(); ++i)
        values.push_back(0.5 + 0.37 * double(i));
    return values;
}

void runAmbrel(benchmark::State &state, const Formula &f)
{
    QStringList names;
    for (const char *n : f.names)
        names << n;
    ExpressionParser parser(f.ambrel);
    parser.parse(names);
    if (!parser.errorMessages().isEmpty()) {
        state.SkipWithError("formula did not parse");
        return;
    }
    std::vector<double> values = valuesFor(f);
    for (auto _ : state) {
        benchmark::DoNotOptimize(values.data());
        benchmark::DoNotOptimize(parser.evaluate(values.data(), values.size()));
        values[0] += 1e-9;
    }
}

void runCompiled(benchmark::State &state, const Formula &f)
{
    std::vector<double> values = valuesFor(f);
    for (auto _ : state) {
        benchmark::DoNotOptimize(values.data());
        benchmark::DoNotOptimize(f.compiled(values.data()));
        values[0] += 1e-9;
    }
}

#ifdef AMBREL_HAVE_MUPARSER
void runMuparser(benchmark::State &state, const Formula &f)
{
    std::vector<double> values = valuesFor(f);
    mu::Parser parser;
    for (std::size_t i = 0; i < f.names.size(); ++i)
        parser.DefineVar(f.names[i], &values[i]);
    parser.SetExpr(f.standard);
    parser.Eval(); // compiles to bytecode
    for (auto _ : state) {
        benchmark::DoNotOptimize(values.data());
        benchmark::DoNotOptimize(parser.Eval());
        values[0] += 1e-9;
    }
}
#endif

} // namespace

#define AMBREL_EXPRESSION_CASE(Case, formula)                                                                \
    static void BM_##Case##_Ambrel(benchmark::State &s)                                                      \
    {                                                                                                        \
        runAmbrel(s, formula);                                                                               \
    }                                                                                                        \
    BENCHMARK(BM_##Case##_Ambrel);                                                                           \
    static void BM_##Case##_Compiled(benchmark::State &s)                                                    \
    {                                                                                                        \
        runCompiled(s, formula);                                                                             \
    }                                                                                                        \
    BENCHMARK(BM_##Case##_Compiled);

AMBREL_EXPRESSION_CASE(Absorption, kAbsorption)
AMBREL_EXPRESSION_CASE(OneCmtOral, kOneCmtOral)
AMBREL_EXPRESSION_CASE(PbpkLiver, kPbpkLiver)

#ifdef AMBREL_HAVE_MUPARSER
static void BM_Absorption_Muparser(benchmark::State &s)
{
    runMuparser(s, kAbsorption);
}
BENCHMARK(BM_Absorption_Muparser);
static void BM_OneCmtOral_Muparser(benchmark::State &s)
{
    runMuparser(s, kOneCmtOral);
}
BENCHMARK(BM_OneCmtOral_Muparser);
static void BM_PbpkLiver_Muparser(benchmark::State &s)
{
    runMuparser(s, kPbpkLiver);
}
BENCHMARK(BM_PbpkLiver_Muparser);
#endif

BENCHMARK_MAIN();
