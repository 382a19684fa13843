#pragma once

// One timed engine run for the benchmarks that run the whole method.
#include "engine/ambrel_method.h"

#include <benchmark/benchmark.h>

#include <QElapsedTimer>

struct TimedRun {
    double seconds = 0;           // wall time of the run
    double evaluationSeconds = 0; // of it, inside ClusterEvaluator::evaluate
    qint64 evaluatedRows = 0;     // rows actually integrated
};

// Runs the configured engine once and gives the benchmark its wall time.
inline TimedRun timedRun(ambrel_method &engine, benchmark::State &state)
{
    QElapsedTimer timer;
    timer.start();
    engine.run();
    TimedRun run;
    run.seconds = double(timer.nsecsElapsed()) * 1e-9;
    run.evaluationSeconds = double(engine.evaluator.evaluationNanoseconds) * 1e-9;
    run.evaluatedRows = engine.evaluator.evaluatedRows;
    state.SetIterationTime(run.seconds);
    return run;
}
