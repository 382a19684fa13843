// Whole runs of the engine on the bundled PBPK example (12 states, four
// parameters), configured as the batch tool configures a run: 250 points
// drawn uniformly in the search domain (fixed seed), 50 Stage 1 and 10 Stage 2
// iterations, every result file written into a temporary project folder.
// The _Oral row runs the oral-absorption example the same way; the _10000
// row is the largest cluster the window allows (three Stage 1 iterations,
// so two step computations).
//
// Counters:
//   evals_per_s      model evaluations (rows actually integrated) per second
//                    of the whole run
//   outside_eval     share of the run spent outside ClusterEvaluator::evaluate
//                    (linear algebra, screening bookkeeping, files, logging)
//   speedup_vs_1     wall time of the one-thread row over this row's
//                    (rows with more threads only, after the one-thread row)
//
// The _Small rows (100 points, 20 + 5 iterations) are a quicker check of the
// same figures; the _NoFiles rows (PBPK and oral) run without a project
// folder, so that the cost of the result files can be told from the
// engine's own. Every row starts from the same cluster with the same seed.
//
// The rows with files depend on the file system: on ext4 without a journal,
// file creation slows down for minutes after many deletions. Run them well
// after removing large folders, or with TMPDIR=/dev/shm.
#include "engine/EngineSetup.h"

#include "bench_support.h"
#include "engine_run_support.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QThreadPool>

#include <map>
#include <random>

namespace {

const ProjectModel &exampleProject(const QString &example)
{
    static std::map<QString, ProjectModel> projects;
    auto found = projects.find(example);
    if (found == projects.end())
        found = projects.emplace(example, loadProjectModel(AMBREL_EXAMPLES_DIR "/" + example)).first;
    return found->second;
}

struct RunConfiguration {
    int points;
    int stage1;
    int stage2;
    bool writeFiles = true;
    const char *example = "pbpk";
};

// Every run writes into its own sub-folder of one temporary folder that is
// removed only when the program ends: deleting thousands of result files
// between rows would slow the file creation of the following rows.
QTemporaryDir &resultsRoot()
{
    static QTemporaryDir root;
    return root;
}

// One-thread wall time per configuration, for the speed-up of later rows.
std::map<int, double> &oneThreadSeconds()
{
    static std::map<int, double> seconds;
    return seconds;
}

void pbpkRun(benchmark::State &state, int threads, const RunConfiguration &configuration)
{
    const ProjectModel &project = exampleProject(configuration.example);
    if (!project.isValid()) {
        state.SkipWithError(qPrintable(problemTexts(project.problems).join("; ")));
        return;
    }
    std::mt19937_64 generator(12345);
    const DoubleMatrix cluster =
            sampleInitialCluster(projectSearchDomain(project), configuration.points, generator);
    RunSettings settings;
    settings.stage1Iterations = configuration.stage1;
    settings.stage2Iterations = configuration.stage2;
    settings.integratorMessages = nullptr; // the method-switch notices
    settings.seed = 7;                     // every row does the same work

    QThreadPool::globalInstance()->setMaxThreadCount(threads);
    double seconds = 0, evaluationSeconds = 0, bestSsr = 0;
    qint64 evaluations = 0;
    for (auto _ : state) {
        static int runNumber = 0;
        const QString folder = resultsRoot().filePath(QString("run%1").arg(++runNumber));
        ambrel_method engine;
        configureEngine(engine, project, settings);
        if (configuration.writeFiles)
            engine.projectFolder = folder;
        engine.result.X = {cluster};

        const TimedRun run = timedRun(engine, state);
        seconds += run.seconds;
        evaluationSeconds += run.evaluationSeconds;
        evaluations += run.evaluatedRows;
        const compResult &r = engine.result;
        bestSsr = r.SSR.isEmpty() || r.sortIndex.isEmpty() ? -1 : r.SSR.last()[r.sortIndex.first()];
    }
    const double runs = double(state.iterations());
    state.counters["evals_per_s"] = double(evaluations) / seconds;
    state.counters["evals_per_run"] = double(evaluations) / runs;
    state.counters["outside_eval"] = 1.0 - evaluationSeconds / seconds;
    state.counters["best_ssr"] = bestSsr;
    state.counters["threads"] = threads;
    const int key = configuration.points * 100000 + configuration.stage1 * 1000 + configuration.stage2 * 10 +
                    (configuration.writeFiles ? 1 : 0) + (QString(configuration.example) == "pbpk" ? 0 : 5);
    if (threads == 1)
        oneThreadSeconds()[key] = seconds / runs;
    else if (oneThreadSeconds().count(key))
        state.counters["speedup_vs_1"] = oneThreadSeconds()[key] / (seconds / runs);
}

const RunConfiguration kDefaultRun{250, 50, 10};
const RunConfiguration kSmallRun{100, 20, 5};
const RunConfiguration kDefaultRunNoFiles{250, 50, 10, false};
const RunConfiguration kSmallRunNoFiles{100, 20, 5, false};
const RunConfiguration kOralRun{250, 50, 10, true, "oral-absorption"};
const RunConfiguration kOralRunNoFiles{250, 50, 10, false, "oral-absorption"};
const RunConfiguration kLargestRun{10000, 3, 0};

} // namespace

static void BM_PbpkRun_Threads1(benchmark::State &s)
{
    pbpkRun(s, 1, kDefaultRun);
}
static void BM_PbpkRun_Threads2(benchmark::State &s)
{
    pbpkRun(s, 2, kDefaultRun);
}
static void BM_PbpkRun_Small_Threads1(benchmark::State &s)
{
    pbpkRun(s, 1, kSmallRun);
}
static void BM_PbpkRun_Small_Threads2(benchmark::State &s)
{
    pbpkRun(s, 2, kSmallRun);
}
static void BM_PbpkRun_NoFiles_Threads1(benchmark::State &s)
{
    pbpkRun(s, 1, kDefaultRunNoFiles);
}
static void BM_PbpkRun_NoFiles_Threads2(benchmark::State &s)
{
    pbpkRun(s, 2, kDefaultRunNoFiles);
}
static void BM_PbpkRun_Small_NoFiles_Threads1(benchmark::State &s)
{
    pbpkRun(s, 1, kSmallRunNoFiles);
}
static void BM_PbpkRun_Small_NoFiles_Threads2(benchmark::State &s)
{
    pbpkRun(s, 2, kSmallRunNoFiles);
}
static void BM_OralRun_Threads1(benchmark::State &s)
{
    pbpkRun(s, 1, kOralRun);
}
static void BM_OralRun_Threads2(benchmark::State &s)
{
    pbpkRun(s, 2, kOralRun);
}
static void BM_OralRun_NoFiles_Threads1(benchmark::State &s)
{
    pbpkRun(s, 1, kOralRunNoFiles);
}
static void BM_OralRun_NoFiles_Threads2(benchmark::State &s)
{
    pbpkRun(s, 2, kOralRunNoFiles);
}
static void BM_PbpkRun_10000_Threads2(benchmark::State &s)
{
    pbpkRun(s, 2, kLargestRun);
}
BENCHMARK(BM_PbpkRun_Small_Threads1)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_PbpkRun_Small_Threads2)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_PbpkRun_Threads1)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_PbpkRun_Threads2)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_PbpkRun_Small_NoFiles_Threads1)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_PbpkRun_Small_NoFiles_Threads2)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_PbpkRun_NoFiles_Threads1)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_PbpkRun_NoFiles_Threads2)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_OralRun_Threads1)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_OralRun_Threads2)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_OralRun_NoFiles_Threads1)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_OralRun_NoFiles_Threads2)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_PbpkRun_10000_Threads2)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

int main(int argc, char **argv)
{
    return runBenchmarks<QCoreApplication>(argc, argv);
}
