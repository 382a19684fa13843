#include "EngineSetup.h"

#include "engine/InitialCluster.h"

SearchDomain projectSearchDomain(const ProjectModel &project)
{
    return searchDomain(project.gInverse, project.searchVariableCount, project.parameterRows);
}

void configureEngine(ambrel_method &engine, const ProjectModel &project, const RunSettings &settings)
{
    engine.settings = settings;
    engine.target = project.observedValues;
    const SearchDomain domain = projectSearchDomain(project);
    engine.domainLower = domain.lower;
    engine.domainUpper = domain.upper;

    ClusterEvaluator &evaluator = engine.evaluator;
    evaluator.stage1 = model_ode(project.system, project.doseEvents, project.observations);
    evaluator.stage1.useRosenbrock = 1;
    evaluator.stage1.rosenbrockRelativeTolerance = settings.stage1RelativeTolerance;
    evaluator.stage1.rosenbrockAbsoluteTolerance = settings.stage1AbsoluteTolerance;
    evaluator.stage1.timeLimitMs = settings.timeLimitMs;
    evaluator.stage1.lsodaMessageStream = settings.integratorMessages;
    evaluator.stage2 = evaluator.stage1;
    evaluator.stage2.useRosenbrock = 0;
    evaluator.g = project.g;
    evaluator.parameterNames = project.system.parameterNames;
    evaluator.observations = project.observations;
}

DoubleMatrix sampleInitialCluster(const SearchDomain &domain, int points, std::mt19937_64 &generator)
{
    const int p = domain.lower.size();
    DoubleMatrix cluster(points, QVector<double>(p));
    for (int q = 0; q < p; ++q)
        for (int i = 0; i < points; ++i)
            cluster[i][q] = domain.lower[q] + uniformUnit(generator) * (domain.upper[q] - domain.lower[q]);
    return cluster;
}
