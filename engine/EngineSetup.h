#pragma once

#include "engine/RunSettings.h"
#include "engine/ambrel_method.h"
#include "project/ProjectModel.h"

#include <random>

// Fills the engine's model, target, domain and settings from a checked
// project; the evaluators take the integrator settings. The cluster
// (engine.result) and the project folder are left to the caller.
void configureEngine(ambrel_method &engine, const ProjectModel &project, const RunSettings &settings);

// points rows drawn uniformly in the search domain, parameter by parameter.
DoubleMatrix sampleInitialCluster(const SearchDomain &domain, int points, std::mt19937_64 &generator);

// The search domain of the project's unfixed parameters.
SearchDomain projectSearchDomain(const ProjectModel &project);
