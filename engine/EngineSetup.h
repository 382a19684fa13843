#pragma once

#include "engine/ambrel_method.h"
#include "project/ProjectModel.h"

#include <cstdio>
#include <random>

// The run settings that a caller (the window, the batch tool) chooses.
struct RunSettings {
    int stage1Iterations = 50;
    int stage2Iterations = 10;
    double stage1RelativeTolerance = 0.1;
    double stage1AbsoluteTolerance = 1e-6;
    double initialLambda = 1.0;
    int maxInitialTries = 20;
    bool stricterInitialSampling = false;
    int timeLimitMs = 10000;
    std::FILE *integratorMessages = stderr; // LSODA's messages
};

// Fills the engine's model, target, domain and settings from a checked
// project. The cluster (engine.result) is left to the caller.
void configureEngine(ambrel_method &engine, const ProjectModel &project, const RunSettings &settings);

// points rows drawn uniformly in the search domain, parameter by parameter.
DoubleMatrix sampleInitialCluster(const SearchDomain &domain, int points, std::mt19937_64 &generator);

// The search domain of the project's unfixed parameters.
SearchDomain projectSearchDomain(const ProjectModel &project);
