#include "BatchCommon.h"

#include "engine/EngineSetup.h"
#include "engine/ResultStore.h"
#include "project/TableFiles.h"

#include <QDir>
#include <QThreadPool>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace {

std::atomic<ambrel_method *> runningEngine{nullptr};

// Ctrl-C asks the engine to stop: the iteration in progress is dropped, the
// finished ones stay on disk and the run can be restarted.
void requestAbort(int)
{
    if (ambrel_method *engine = runningEngine.load())
        engine->abortASAP = true;
}

void saveInitialCluster(const QString &folder, const DoubleMatrix &cluster)
{
    TableCells table;
    fillTableCells(table, cluster);
    writeTable(folder + "/model/initial_cluster.txt", table);
}

// The newest iteration's statistics as one line (the log's last entries).
QString statisticsLine(const compResult &result)
{
    const int statLines = 5; // min, quartiles, median, improved points
    return QStringLiteral("iteration %1: ").arg(result.X.size() - 1) +
           result.log.mid(result.log.size() - statLines).join(QStringLiteral("; "));
}

} // namespace

int runCommand(const QString &folder, const QStringList &arguments)
{
    const OptionReader options(arguments,
                               {"--stage1-iterations", "--stage2-iterations", "--stage1-reltol",
                                "--initial-lambda", "--max-initial-tries", "--timeout-ms", "--points",
                                "--threads"},
                               {"--stricter-initial-sampling", "--restart"});
    RunSettings settings;
    settings.stage1Iterations = options.intValue("--stage1-iterations", 50, 0);
    settings.stage2Iterations = options.intValue("--stage2-iterations", 10, 0);
    if (settings.stage1Iterations + settings.stage2Iterations < 1)
        throw InputError(QStringLiteral("A run needs at least one iteration."));
    settings.stage1RelativeTolerance = options.doubleValue("--stage1-reltol", 0.1);
    settings.initialLambda = options.doubleValue("--initial-lambda", 1.0);
    settings.maxInitialTries = options.intValue("--max-initial-tries", 20, 0);
    settings.stricterInitialSampling = options.has("--stricter-initial-sampling");
    settings.timeLimitMs = options.intValue("--timeout-ms", 10000, 1);
    const int points = options.intValue("--points", 250, 1);
    // The integrator's method-switch notices would bury the progress output.
    if (qEnvironmentVariableIsEmpty("AMBREL_DEBUG"))
        settings.integratorMessages = nullptr;
    if (options.has("--threads"))
        QThreadPool::globalInstance()->setMaxThreadCount(options.intValue("--threads", 1, 1));

    const ProjectModel project = loadCheckedProject(folder);
    ambrel_method engine;
    configureEngine(engine, project, settings);
    engine.projectFolder = folder;

    const bool restart = options.has("--restart");
    if (restart) {
        if (!loadResult(folder, engine.result))
            throw InputError(QStringLiteral("No stored result to restart in %1/compResult.").arg(folder));
        if (engine.result.X.last().value(0).size() != project.searchVariableCount)
            throw InputError(QStringLiteral("The stored result does not match the model's parameters."));
    } else {
        DoubleMatrix cluster = project.initialCluster;
        if (cluster.isEmpty()) {
            std::mt19937_64 generator(std::uint64_t(std::time(nullptr)));
            cluster = sampleInitialCluster(projectSearchDomain(project), points, generator);
            saveInitialCluster(folder, cluster);
        }
        engine.result = compResult();
        engine.result.X << cluster;
    }

    const bool terminal = isatty(STDERR_FILENO);
    const int total = settings.stage1Iterations + settings.stage2Iterations;
    QObject::connect(&engine, &ambrel_method::current_computation_result, [&](const compResult &result) {
        const int k = result.X.size();
        if (terminal) {
            const int width = 40, filled = width * k / total;
            std::fprintf(stderr, "\r[%s%s] iteration %d/%d", QByteArray(filled, '#').constData(),
                         QByteArray(width - filled, ' ').constData(), k, total);
            std::fflush(stderr);
        } else {
            std::printf("%s\n", qPrintable(statisticsLine(result)));
            std::fflush(stdout);
        }
    });

    runningEngine = &engine;
    std::signal(SIGINT, requestAbort);
    if (restart)
        engine.rerun();
    else
        engine.run();
    std::signal(SIGINT, SIG_DFL);
    runningEngine = nullptr;
    if (terminal)
        std::fprintf(stderr, "\n");

    const compResult &result = engine.result;
    for (const QString &line : result.log)
        if (line.contains(QStringLiteral("not possible")) || line.contains(QStringLiteral("too few")) ||
            line.contains(QStringLiteral("Too many")) || line == QStringLiteral("AM iteration failed"))
            std::fprintf(stderr, "%s\n", qPrintable(line));
    if (result.SSR.isEmpty() || result.sortIndex.isEmpty()) {
        std::fprintf(stderr, "No iteration finished. The log is in %s/compResult/computation_log.txt\n",
                     qPrintable(folder));
        return 1;
    }
    const int best = result.sortIndex.first();
    std::printf("Best sum of squares: %s\n", qPrintable(QString::number(result.SSR.last()[best], 'g', 6)));
    const QStringList &names = project.system.parameterNames;
    for (int j = 0; j < names.size(); ++j)
        std::printf("  %s = %s\n", qPrintable(names[j]),
                    qPrintable(QString::number(result.Parameter.last()[best].value(j), 'g', 6)));
    std::printf("Result: %s/compResult/\n", qPrintable(QDir(folder).absolutePath()));
    if (engine.abortASAP) {
        std::printf("Stopped after %d iterations; continue with: ambrel-batch run %s --restart\n",
                    result.X.size(), qPrintable(folder));
        return 130;
    }
    return 0;
}
