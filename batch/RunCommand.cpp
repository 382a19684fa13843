#include "BatchCommon.h"
#include "MpiEvaluation.h"
#include "RunReport.h"

#include "engine/EngineSetup.h"
#include "project/PolishSummary.h"
#include "project/ResultStore.h"
#include "project/TableFiles.h"

#include <QDir>
#include <QFile>
#include <QThreadPool>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The exit status of a run stopped by Ctrl-C.
const int kInterrupted = 130;

std::atomic<ambrel_method *> runningEngine{nullptr};

// Set before the run: the process's terminal, if any, is the launcher's
// own for this process (mpirun gives each rank one), not one it shares with
// a shell.
bool privateTerminal = false;

// Output to a pipe or socket stops blocking: whoever reads it (mpirun
// after a Ctrl-C, a pager that was quit) may have stopped, and a run blocked
// in its progress line would never reach its abort check or its summary. A
// terminal is left as it is unless it is private (its flags are shared with
// the shell).
void stopBlockingOnOutput(int descriptor)
{
    struct stat status;
    if (fstat(descriptor, &status) != 0)
        return;
    const bool privateFile = S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) ||
                             (S_ISCHR(status.st_mode) && privateTerminal);
    if (!privateFile)
        return;
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags != -1)
        fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
}

// Ctrl-C asks the engine to stop: the iteration in progress is dropped, the
// finished ones stay on disk and the run can be restarted. Only
// async-signal-safe calls here.
void requestAbort(int)
{
    if (ambrel_method *engine = runningEngine.load())
        engine->abortASAP = true;
    stopBlockingOnOutput(STDOUT_FILENO);
    stopBlockingOnOutput(STDERR_FILENO);
}

// Without SA_RESTART: an output write the signal interrupts returns instead
// of waiting on (the kernel gives a process's signal to its main thread, the
// one that prints the progress, when that thread accepts it).
void onStopSignals(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
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

// The options over the workbench's defaults.
RunSettings readSettings(const OptionReader &options)
{
    RunSettings settings;
    settings.stage1Iterations = options.intValue("--stage1-iterations", settings.stage1Iterations, 0);
    settings.stage2Iterations = options.intValue("--stage2-iterations", settings.stage2Iterations, 0);
    if (settings.stage1Iterations + settings.stage2Iterations < 1)
        throw InputError(QStringLiteral("A run needs at least one iteration."));
    settings.stage1RelativeTolerance =
            options.doubleValue("--stage1-reltol", settings.stage1RelativeTolerance);
    settings.initialLambda = options.doubleValue("--initial-lambda", settings.initialLambda);
    settings.maxInitialTries = options.intValue("--max-initial-tries", settings.maxInitialTries, 0);
    settings.stricterInitialSampling = options.has("--stricter-initial-sampling");
    settings.timeLimitMs = options.intValue("--timeout-ms", settings.timeLimitMs, 1);
    settings.initialClusterPoints = options.intValue("--points", settings.initialClusterPoints, 1);
    settings.polish = options.has("--polish");
    if (options.has("--seed"))
        settings.seed = std::uint64_t(options.intValue("--seed", 0, 0));
    // The integrator's method-switch notices would bury the progress output.
    if (qEnvironmentVariableIsEmpty("AMBREL_DEBUG"))
        settings.integratorMessages = nullptr;
    return settings;
}

// The record a run starts from: the stored result for a restart, else the
// project's initial cluster, or points drawn in the domain (and saved).
compResult startingRecord(const QString &folder, const ProjectModel &project, const RunSettings &settings,
                          bool restart)
{
    compResult record;
    if (restart) {
        ResultShape shape;
        shape.searchVariables = project.searchVariableCount;
        shape.outputs = project.observations.size();
        shape.parameters = project.system.parameterNames.size();
        QString note;
        if (!loadResult(folder, record, shape, &note))
            throw InputError(
                    QStringLiteral("No stored result to restart in %1/compResult. %2").arg(folder, note));
        if (!note.isEmpty())
            std::fprintf(stderr, "%s\n", qPrintable(note));
        std::fprintf(stderr, "Restarting from iteration %d of the stored result.\n",
                     int(record.X.size()) - 1);
        return record;
    }
    DoubleMatrix cluster = project.initialCluster;
    if (!cluster.isEmpty())
        std::printf(
                "Using the stored initial cluster model/initial_cluster.txt (%d points); --points applies "
                "only without it: delete that file to sample a new cluster.\n",
                int(cluster.size()));
    if (cluster.isEmpty()) {
        std::mt19937_64 generator(settings.seed ? *settings.seed : std::uint64_t(std::time(nullptr)));
        cluster =
                sampleInitialCluster(projectSearchDomain(project), settings.initialClusterPoints, generator);
        saveInitialCluster(folder, cluster);
    }
    record.X << cluster;
    return record;
}

// The "Polish:" lines at the end of the log, on standard output.
void printPolishLines(const QStringList &log, bool terminal)
{
    int first = log.size();
    while (first > 0 && log[first - 1].startsWith(QLatin1String("Polish:")))
        --first;
    if (terminal)
        std::fprintf(stderr, "\n");
    for (int i = first; i < log.size(); ++i)
        std::printf("%s\n", qPrintable(log[i]));
    std::fflush(stdout);
}

// A progress bar on a terminal, one statistics line per iteration otherwise.
void showProgress(ambrel_method &engine, bool terminal)
{
    const int total = engine.settings.stage1Iterations + engine.settings.stage2Iterations;
    QObject::connect(&engine, &ambrel_method::current_computation_result, [=](const compResult &result) {
        const int k = result.X.size();
        if (k > total) { // the polishing stage's iteration
            printPolishLines(result.log, terminal);
            return;
        }
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
}

// Rows of cells, each column padded to its widest cell.
void printAligned(const QVector<QStringList> &table)
{
    QVector<int> widths;
    for (const QStringList &cells : table)
        for (int c = 0; c < cells.size(); ++c) {
            if (c >= widths.size())
                widths << 0;
            widths[c] = std::max(widths[c], int(cells[c].size()));
        }
    for (const QStringList &cells : table) {
        QString line = QStringLiteral("  ");
        for (int c = 0; c < cells.size(); ++c)
            line += cells[c].leftJustified(c + 1 < cells.size() ? widths[c] + 2 : 0);
        std::printf("%s\n", qPrintable(line));
    }
}

// The polished minimisers of compResult/polish_summary.csv, if the run
// wrote one, with the cells of each block's table aligned.
void printPolishSummary(const QString &folder)
{
    QFile file(resultFilePath(folder, polishSummaryFileName()));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return;
    std::printf("Polished minimisers (%s):\n", qPrintable(resultFileRelativePath(polishSummaryFileName())));
    QVector<QStringList> table;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        if (line.contains(QLatin1String("Parameter,")) || line.isEmpty()) {
            printAligned(table);
            table.clear();
        }
        if (!line.isEmpty())
            table << line.split(QLatin1Char(','));
        else
            std::printf("\n");
    }
    printAligned(table);
}

// The run's messages and best point; the exit status follows the outcome:
// 0 finished, 130 stopped (restartable), 1 refused, failed or empty.
int reportOutcome(const RunOutcome &outcome, const compResult &result, const ProjectModel &project,
                  const QString &folder, bool polished)
{
    for (const QString &line : outcome.messages)
        std::fprintf(stderr, "%s\n", qPrintable(line));
    const bool aborted = outcome.status == RunOutcome::Status::Aborted;
    const bool ended = outcome.status == RunOutcome::Status::Finished || aborted;
    if (!ended || result.SSR.isEmpty() || result.sortIndex.isEmpty()) {
        std::fprintf(stderr, "No iteration finished. The log is in %s/compResult/computation_log.txt\n",
                     qPrintable(folder));
        return aborted ? kInterrupted : 1;
    }
    std::printf("%s", qPrintable(runSummaryText(result, project.system.parameterNames, outcome.wallSeconds)));
    if (polished)
        printPolishSummary(folder);
    std::printf("Result: %s/compResult/\n", qPrintable(QDir(folder).absolutePath()));
    if (aborted) {
        std::printf("Stopped after %d iterations; continue with: ambrel-batch run %s --restart\n",
                    outcome.iterationsDone, qPrintable(folder));
        return kInterrupted;
    }
    return 0;
}

} // namespace

int runCommand(const QString &folder, const QStringList &arguments)
{
    const OptionReader options(arguments,
                               {"--stage1-iterations", "--stage2-iterations", "--stage1-reltol",
                                "--initial-lambda", "--max-initial-tries", "--timeout-ms", "--points",
                                "--threads", "--seed"},
                               {"--stricter-initial-sampling", "--restart", "--polish"});
    const RunSettings settings = readSettings(options);
    if (options.has("--threads"))
        QThreadPool::globalInstance()->setMaxThreadCount(options.intValue("--threads", 1, 1));

    const ProjectModel project = loadCheckedProject(folder);
    std::printf("%s", qPrintable(parameterTableText(project)));
    ambrel_method engine;
    configureEngine(engine, project, settings);
    // Before anything is written into the folder: the other ranks read it now.
    distributeEvaluations(engine, folder);
    engine.projectFolder = folder;
    const bool restart = options.has("--restart");
    engine.result = startingRecord(folder, project, settings, restart);

    const bool terminal = isatty(STDERR_FILENO);
    showProgress(engine, terminal);
    SlowIterationNotice notice(engine.evaluator, 10, terminal);
    QObject::connect(&engine, &ambrel_method::current_computation_result,
                     [&notice](const compResult &result) { notice.iterationFinished(result.X.size() - 1); });
    runningEngine = &engine;
    // Ctrl-C, and the termination a scheduler or MPI launcher sends.
    privateTerminal = startedByLauncher();
    onStopSignals(requestAbort);
    const RunOutcome outcome = restart ? engine.rerun() : engine.run();
    onStopSignals(SIG_DFL);
    runningEngine = nullptr;
    if (terminal)
        std::fprintf(stderr, "\n");
    return reportOutcome(outcome, engine.result, project, folder, settings.polish);
}
