// The batch tool's model evaluations spread over MPI ranks, on the bundled
// PBPK example (12 states, four parameters), and the figures that predict
// how far that scales.
//
// Rows (wall time):
//   BM_PbpkRun_OneRankTwoThreads   ambrel-batch run --threads 2, one process
//   BM_PbpkRun_TwoRanksOneThread   the same run under mpirun -np 2, --threads 1,
//                                  unbound like the one process (bound ranks
//                                  cannot move to the processor other work
//                                  leaves free); ratio_vs_threads: this row's
//                                  time over the one-rank row's
//   BM_LauncherStart_TwoRanks      mpirun -np 2 with the export command (rank 0
//                                  writes the scripts, rank 1 waits): the start
//                                  and end of a job
//   BM_EvaluatePoint_Stage1/2      one point's model evaluation on one thread
//                                  (bytes_per_point: work and result messages
//                                  of a rank for one point)
//   BM_SerialPart_Points2500/10000 the engine in one process on two threads:
//                                  serial_s_per_iter is the time of an
//                                  iteration outside the model evaluations
//                                  (steps, bookkeeping, result files), which
//                                  rank 0 spends while the other ranks wait;
//                                  _NoFiles: the same without result files
//   BM_MessageCodec                rank 0's encoding of work and decoding of
//                                  results for a chunk of 20 points
#include "batch/EvaluationMessages.h"
#include "engine/EngineSetup.h"

#include "bench_support.h"
#include "engine_run_support.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QThreadPool>

#include <random>

namespace {

const ProjectModel &pbpkProject()
{
    static const ProjectModel project = loadProjectModel(AMBREL_EXAMPLES_DIR "/pbpk");
    return project;
}

// A fresh copy of the example's model files (a run writes next to them).
QString pbpkCopy(const QTemporaryDir &root)
{
    static int copies = 0;
    const QString folder = root.filePath(QString("pbpk%1").arg(++copies));
    QDir().mkpath(folder + "/model");
    const QDir source(AMBREL_EXAMPLES_DIR "/pbpk/model");
    for (const QString &name : source.entryList(QDir::Files))
        QFile::copy(source.filePath(name), folder + "/model/" + name);
    return folder;
}

const QStringList kRunOptions = {"--points", "1000", "--stage1-iterations", "10", "--stage2-iterations", "2",
                                 "--seed",   "5"};

// Runs a program to its end; its wall time in seconds, or -1 when it failed.
double timedProcess(const QString &program, const QStringList &arguments, int expectedExit = 0)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("OMPI_ALLOW_RUN_AS_ROOT", "1");
    environment.insert("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1");
    process.setProcessEnvironment(environment);
    QElapsedTimer timer;
    timer.start();
    process.start(program, arguments);
    const bool ended = process.waitForFinished(-1);
    const double seconds = double(timer.nsecsElapsed()) * 1e-9;
    return ended && process.exitCode() == expectedExit ? seconds : -1;
}

double &oneRankSeconds()
{
    static double seconds = 0;
    return seconds;
}

void pbpkBatchRun(benchmark::State &state, int ranks)
{
    QTemporaryDir root;
    double total = 0;
    for (auto _ : state) {
        const QString folder = pbpkCopy(root);
        const double seconds =
                ranks == 1 ? timedProcess(AMBREL_BATCH,
                                          QStringList{"run", folder, "--threads", "2"} + kRunOptions)
                           : timedProcess(MPIEXEC,
                                          QStringList{"--bind-to", "none", "-np", QString::number(ranks),
                                                      AMBREL_BATCH, "run", folder, "--threads", "1"} +
                                                  kRunOptions);
        if (seconds < 0) {
            state.SkipWithError("the run failed");
            return;
        }
        state.SetIterationTime(seconds);
        total += seconds;
    }
    const double mean = total / double(state.iterations());
    if (ranks == 1)
        oneRankSeconds() = mean;
    else if (oneRankSeconds() > 0)
        state.counters["ratio_vs_threads"] = mean / oneRankSeconds();
}

} // namespace

static void BM_PbpkRun_OneRankTwoThreads(benchmark::State &state)
{
    pbpkBatchRun(state, 1);
}
static void BM_PbpkRun_TwoRanksOneThread(benchmark::State &state)
{
    pbpkBatchRun(state, 2);
}

static void BM_LauncherStart_TwoRanks(benchmark::State &state)
{
    QTemporaryDir root;
    const QString folder = pbpkCopy(root);
    for (auto _ : state) {
        const double seconds = timedProcess(MPIEXEC,
                                            {"-np", "2", AMBREL_BATCH, "run", folder, "--stage1-iterations",
                                             "0", "--stage2-iterations", "0"},
                                            2);
        if (seconds < 0) {
            state.SkipWithError("mpirun failed");
            return;
        }
        state.SetIterationTime(seconds);
    }
}

static void evaluatePoints(benchmark::State &state, bool stage2)
{
    const ProjectModel &project = pbpkProject();
    ambrel_method engine;
    RunSettings settings;
    settings.integratorMessages = nullptr;
    configureEngine(engine, project, settings);
    engine.evaluator.useStage2 = stage2;
    std::mt19937_64 generator(99);
    const DoubleMatrix cluster = sampleInitialCluster(projectSearchDomain(project), 200, generator);
    int next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(engine.evaluator.evaluatePoint(cluster[next]));
        next = (next + 1) % cluster.size();
    }
    const QVector<PointEvaluation> points = engine.evaluator.evaluateHere(cluster);
    const qint64 bytes = encodeWork({stage2, cluster}).size() + encodeResults(points).size();
    state.counters["bytes_per_point"] = double(bytes) / double(cluster.size());
}

static void BM_EvaluatePoint_Stage1(benchmark::State &state)
{
    evaluatePoints(state, false);
}
static void BM_EvaluatePoint_Stage2(benchmark::State &state)
{
    evaluatePoints(state, true);
}

// Three Stage 1 iterations (steps after the first two), with or without the
// result files.
static void serialPart(benchmark::State &state, int points, bool files)
{
    const ProjectModel &project = pbpkProject();
    QThreadPool::globalInstance()->setMaxThreadCount(2);
    QTemporaryDir root;
    std::mt19937_64 generator(7);
    const DoubleMatrix cluster = sampleInitialCluster(projectSearchDomain(project), points, generator);
    RunSettings settings;
    settings.stage1Iterations = 3;
    settings.stage2Iterations = 0;
    settings.seed = 7;
    settings.integratorMessages = nullptr;
    double serial = 0, evaluation = 0;
    qint64 rows = 0;
    for (auto _ : state) {
        ambrel_method engine;
        configureEngine(engine, project, settings);
        engine.projectFolder = files ? pbpkCopy(root) : QString();
        engine.result.X = {cluster};
        const TimedRun run = timedRun(engine, state);
        evaluation += run.evaluationSeconds;
        serial += run.seconds - run.evaluationSeconds;
        rows += run.evaluatedRows;
    }
    const double runs = double(state.iterations());
    state.counters["serial_s_per_iter"] = serial / runs / settings.stage1Iterations;
    // Two threads evaluate at once: thread seconds per integrated point.
    state.counters["eval_s_per_point"] = 2 * evaluation / double(rows);
}

static void BM_SerialPart_Points2500(benchmark::State &state)
{
    serialPart(state, 2500, true);
}
static void BM_SerialPart_Points10000(benchmark::State &state)
{
    serialPart(state, 10000, true);
}
static void BM_SerialPart_NoFiles_Points2500(benchmark::State &state)
{
    serialPart(state, 2500, false);
}
static void BM_SerialPart_NoFiles_Points10000(benchmark::State &state)
{
    serialPart(state, 10000, false);
}

// Rank 0's share of the messages per point: encoding the work, decoding the
// results (the other ranks' halves run in parallel).
static void BM_MessageCodec(benchmark::State &state)
{
    const ProjectModel &project = pbpkProject();
    ambrel_method engine;
    RunSettings settings;
    settings.integratorMessages = nullptr;
    configureEngine(engine, project, settings);
    std::mt19937_64 generator(3);
    const DoubleMatrix chunk = sampleInitialCluster(projectSearchDomain(project), 20, generator);
    const QByteArray results = encodeResults(engine.evaluator.evaluateHere(chunk));
    for (auto _ : state) {
        benchmark::DoNotOptimize(encodeWork({false, chunk}));
        QVector<PointEvaluation> points;
        benchmark::DoNotOptimize(decodeResults(results, chunk.size(), points));
    }
    state.SetItemsProcessed(state.iterations() * chunk.size());
}

BENCHMARK(BM_PbpkRun_OneRankTwoThreads)->Iterations(3)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_PbpkRun_TwoRanksOneThread)->Iterations(3)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_LauncherStart_TwoRanks)->Iterations(3)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_EvaluatePoint_Stage1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EvaluatePoint_Stage2)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SerialPart_Points2500)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_SerialPart_Points10000)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_SerialPart_NoFiles_Points2500)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_SerialPart_NoFiles_Points10000)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_MessageCodec)->Unit(benchmark::kMicrosecond);

int main(int argc, char **argv)
{
    return runBenchmarks<QCoreApplication>(argc, argv);
}
