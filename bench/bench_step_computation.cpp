// Time of one step computation of the cluster (global model, neighbourhood
// weights, every point's local weighted Jacobian and regularised solve) for
// engine-sized problems: n points, p parameters, m outputs, on `threads`
// threads. This is the engine's main cost outside model evaluation. The rows
// with p = 4 and m = 21 have the PBPK example's sizes; n = 10000 is the
// largest cluster the window allows.
#include "engine/StepComputation.h"

#include <benchmark/benchmark.h>

#include <QtGlobal>

#include <cmath>
#include <limits>
#include <random>

namespace {

struct Problem {
    Matrix X;
    Matrix Y;
    QVector<bool> mask;
    Vector lambda;
    StepSettings settings;
};

// A smooth non-linear model, y_j = sum_q exp(s_jq x_q), around a cluster
// spread over [-1, 1]^p; every 20th point failed (NaN outputs, mask clear)
// so the global model is exercised too.
Problem problem(std::size_t n, std::size_t p, std::size_t m)
{
    std::mt19937_64 generator(2024);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    Matrix slopes(m, p);
    for (std::size_t j = 0; j < m; ++j)
        for (std::size_t q = 0; q < p; ++q)
            slopes(j, q) = 0.5 * unit(generator);
    auto model = [&](const double *x, double *y) {
        for (std::size_t j = 0; j < m; ++j) {
            double sum = 0.0;
            for (std::size_t q = 0; q < p; ++q)
                sum += std::exp(slopes(j, q) * x[q]);
            y[j] = sum;
        }
    };

    Problem result;
    result.X = Matrix(n, p);
    result.Y = Matrix(n, m);
    result.mask = QVector<bool>(int(n), true);
    result.lambda = Vector(n);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t q = 0; q < p; ++q)
            result.X(i, q) = unit(generator);
        model(&result.X(i, 0), &result.Y(i, 0));
        result.lambda[i] = std::pow(10.0, 3.0 * unit(generator));
        if (i % 20 == 7) {
            for (std::size_t j = 0; j < m; ++j)
                result.Y(i, j) = std::numeric_limits<double>::quiet_NaN();
            result.mask[int(i)] = false;
        }
    }
    std::vector<double> xStar(p, 0.3);
    result.settings.target = Vector(m);
    model(xStar.data(), &result.settings.target[0]);
    result.settings.domainLower = Vector(p, -1.0);
    result.settings.domainUpper = Vector(p, 1.0);
    return result;
}

void BM_StepComputation(benchmark::State &state)
{
    const Problem input =
            problem(std::size_t(state.range(0)), std::size_t(state.range(1)), std::size_t(state.range(2)));
    const int threads = int(state.range(3));
    for (auto _ : state) {
        StepResult result = computeSteps(input.X, input.Y, input.mask, input.lambda, input.settings, threads);
        benchmark::DoNotOptimize(result.steps.data().begin());
    }
}

} // namespace

BENCHMARK(BM_StepComputation)
        ->ArgNames({"n", "p", "m", "threads"})
        ->Args({250, 10, 40, 1})
        ->Args({250, 5, 20, 1})
        ->Args({250, 15, 100, 1})
        ->Args({250, 15, 100, 2})
        ->Args({250, 4, 21, 1})
        ->Args({250, 4, 21, 2})
        ->Args({4000, 4, 21, 1})
        ->Args({4000, 4, 21, 2})
        ->Args({10000, 4, 21, 1})
        ->Args({10000, 4, 21, 2})
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    // Silence the per-step "Matrix calc time" debug line.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
