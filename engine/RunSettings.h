#pragma once

#include <QVector>

#include <cstdint>
#include <cstdio>
#include <optional>

// The settings of one run of the Ambrel method, with the workbench's
// defaults. The window's settings tab, the batch tool's options and the
// engine all start from RunSettings{}, so that they run the same method
// unless the user changes something.
struct RunSettings {
    int stage1Iterations = 50;
    int stage2Iterations = 10;
    // The Stage 1 (Rosenbrock) integrator's tolerances.
    double stage1RelativeTolerance = 0.1;
    double stage1AbsoluteTolerance = 1e-6;
    double initialLambda = 1.0;
    // Bound on the re-sampling rounds of the initial cluster's screening.
    int maxInitialTries = 20;
    bool stricterInitialSampling = false;
    // Time limit of one model evaluation, both stages.
    int timeLimitMs = 100000;
    // Points drawn when the project has no initial cluster.
    int initialClusterPoints = 250;
    // Seed of the engine's random draws (re-sampling and the step
    // computation's perturbations); without one the clock seeds them, so
    // only a seeded run can be repeated exactly.
    std::optional<std::uint64_t> seed;
    // After the last Stage 2 iteration, polish the best point of each group
    // of the cluster with Levenberg-Marquardt (engine/Polish.h) and store the
    // polished minimisers as one more iteration.
    bool polish = false;

    // The window's weight settings: the number of leading iterations that use
    // the weights (shown in the log header), and the weights it derives from
    // them, one vector per iteration with one weight per observation. The
    // engine makes the vector of iteration k current at the end of iteration
    // k; an iteration without a vector of the right length keeps the weights
    // in use (all 1 at the start).
    int weightedIterations = 0;
    QVector<QVector<double>> weightsPerIteration;

    // Constants of the step computation that no caller offers to the user.
    double targetPerturbation = 0.1;
    bool uniformNeighbourhood = false;

    // Where the LSODA integrator prints its messages; nullptr silences them.
    std::FILE *integratorMessages = stderr;
};
