#include "MpiEvaluation.h"

#include "BatchCommon.h"
#include "EvaluationMessages.h"

#include "engine/EngineSetup.h"
#include "model/ParameterSpecification.h"

#include <QMutex>
#include <QThreadPool>
#include <QtConcurrent>

#include <mpi.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <future>
#include <limits>
#include <map>
#include <memory>
#include <sched.h>
#include <thread>

namespace {

enum Tag : int { SetupTag = 1, WorkTag, CancelTag, StopTag, ReplyTag, ResultTag };

int worldRank = 0;
int worldSize = 1;
bool mpiStarted = false;

// Rank 0's count of the rows each rank evaluated and of the bytes exchanged
// (work sent, results received), reported when the job ends.
struct Traffic {
    std::vector<qint64> rows;
    qint64 bytes = 0;
};
Traffic traffic;

// Open MPI, Slurm's PMI and MPICH each leave one of these in the environment
// of the processes they start.
int boundProcessors()
{
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) != 0)
        return QThread::idealThreadCount();
    return std::max(1, CPU_COUNT(&set));
}

void send(int rank, Tag tag, const QByteArray &bytes)
{
    MPI_Send(bytes.constData(), bytes.size(), MPI_BYTE, rank, tag, MPI_COMM_WORLD);
}

// A message waiting from source with tag (MPI_ANY_* allowed), without
// blocking; nullopt when there is none.
std::optional<MPI_Status> pendingMessage(int source, int tag)
{
    int flag = 0;
    MPI_Status status;
    MPI_Iprobe(source, tag, MPI_COMM_WORLD, &flag, &status);
    return flag ? std::optional<MPI_Status>(status) : std::nullopt;
}

QByteArray receive(const MPI_Status &status)
{
    int count = 0;
    MPI_Get_count(&status, MPI_BYTE, &count);
    QByteArray bytes(count, Qt::Uninitialized);
    MPI_Recv(bytes.data(), count, MPI_BYTE, status.MPI_SOURCE, status.MPI_TAG, MPI_COMM_WORLD,
             MPI_STATUS_IGNORE);
    return bytes;
}

// Sleeps between polls, growing from 20 us up to a cap while nothing
// arrives: Open MPI's blocking receive spins on a processor, which the
// evaluating threads and rank 0's serial part need. Rank 0 collecting results
// keeps the cap short, since a rank waits for its next chunk meanwhile.
class Backoff {
public:
    explicit Backoff(int capMicros = 2000)
        : m_cap(capMicros)
    {
    }
    void pause()
    {
        std::this_thread::sleep_for(std::chrono::microseconds(m_micros));
        m_micros = std::min(m_micros * 2, m_cap);
    }
    void reset() { m_micros = 20; }

private:
    int m_cap;
    int m_micros = 20;
};

MPI_Status waitForMessage(int source, int tag)
{
    Backoff backoff;
    for (;;) {
        if (const auto status = pendingMessage(source, tag))
            return *status;
        backoff.pause();
    }
}

// What a failed evaluation of x gives: the parameters g(x), NaN everywhere else.
PointEvaluation failedPoint(const ClusterEvaluator &evaluator, const QVector<double> &x)
{
    PointEvaluation point =
            evaluator.evaluatePoint(QVector<double>(x.size(), std::numeric_limits<double>::quiet_NaN()));
    point.parameters = applyTransformation(evaluator.g, evaluator.parameterNames, x);
    return point;
}

// The rows on this rank's thread pool; once cancel is set, the rows not yet
// started come back failed, so that an abort waits for one evaluation per
// thread at most.
QVector<PointEvaluation> evaluateRows(const ClusterEvaluator &evaluator, const DoubleMatrix &rows,
                                      const std::atomic<bool> &cancel)
{
    const std::function<PointEvaluation(const QVector<double> &)> one = [&](const QVector<double> &x) {
        if (cancel)
            return failedPoint(evaluator, x);
        try {
            return evaluator.evaluatePoint(x);
        } catch (...) {
            return failedPoint(evaluator, x);
        }
    };
    return QtConcurrent::blockingMapped(rows, one);
}

bool hasNaN(const QVector<double> &row)
{
    return std::any_of(row.begin(), row.end(), [](double v) { return std::isnan(v); });
}

// Hands out the live rows of one evaluation in chunks that shrink as the
// work runs out (half the remaining rows shared by the ranks, never fewer
// than a rank's threads): few messages early, and slow points at the end do
// not leave ranks idle for long. Rank 0's evaluation thread and its MPI
// loop both take from it.
class ChunkQueue {
public:
    ChunkQueue(QVector<int> rows, int ranks, int smallest)
        : m_rows(std::move(rows))
        , m_ranks(ranks)
        , m_smallest(smallest)
    {
    }

    QVector<int> take()
    {
        QMutexLocker lock(&m_mutex);
        const int remaining = m_closed ? 0 : m_rows.size() - m_next;
        if (remaining <= 0)
            return {};
        const int guided = (remaining + 2 * m_ranks - 1) / (2 * m_ranks);
        const int count = std::min(remaining, std::max(m_smallest, guided));
        m_next += count;
        return m_rows.mid(m_next - count, count);
    }
    void close()
    {
        QMutexLocker lock(&m_mutex);
        m_closed = true;
    }

private:
    QMutex m_mutex;
    QVector<int> m_rows;
    int m_next = 0;
    int m_ranks;
    int m_smallest;
    bool m_closed = false;
};

DoubleMatrix rowsAt(const DoubleMatrix &X, const QVector<int> &indices)
{
    DoubleMatrix rows;
    rows.reserve(indices.size());
    for (int i : indices)
        rows << X[i];
    return rows;
}

// Rank 0's side of a distributed evaluation.
class Distributor {
public:
    Distributor(int smallestChunk, const std::atomic<bool> *abort)
        : m_smallestChunk(smallestChunk)
        , m_abort(abort)
    {
    }

    QVector<PointEvaluation> evaluate(const ClusterEvaluator &evaluator, const DoubleMatrix &X);

private:
    void serveWorkers(const ClusterEvaluator &evaluator, const DoubleMatrix &X, ChunkQueue &queue,
                      std::vector<PointEvaluation> &results);
    bool sendChunk(int rank, const ClusterEvaluator &evaluator, const DoubleMatrix &X, ChunkQueue &queue);
    void collect(const MPI_Status &status, const ClusterEvaluator &evaluator, const DoubleMatrix &X,
                 std::vector<PointEvaluation> &results);

    int m_smallestChunk;
    const std::atomic<bool> *m_abort;
    std::atomic<bool> m_cancel{false};
    std::map<int, QVector<int>> m_busy; // rank -> the rows it holds
};

QVector<PointEvaluation> Distributor::evaluate(const ClusterEvaluator &evaluator, const DoubleMatrix &X)
{
    std::vector<PointEvaluation> results(std::size_t(X.size()));
    QVector<int> live;
    for (int i = 0; i < X.size(); ++i) {
        if (hasNaN(X[i]))
            results[std::size_t(i)] = evaluator.evaluatePoint(X[i]); // integrates nothing
        else
            live << i;
    }
    m_cancel = bool(*m_abort);
    ChunkQueue queue(live, worldSize, m_smallestChunk);
    std::thread local([&] {
        for (QVector<int> chunk = queue.take(); !chunk.isEmpty(); chunk = queue.take()) {
            const QVector<PointEvaluation> points = evaluateRows(evaluator, rowsAt(X, chunk), m_cancel);
            for (int r = 0; r < chunk.size(); ++r)
                results[std::size_t(chunk[r])] = points[r];
            traffic.rows[0] += chunk.size();
        }
    });
    serveWorkers(evaluator, X, queue, results);
    local.join();
    return QVector<PointEvaluation>(results.begin(), results.end());
}

// Keeps every other rank busy until the rows run out; on an abort, stops
// handing out rows and has the busy ranks cancel what they have not started.
void Distributor::serveWorkers(const ClusterEvaluator &evaluator, const DoubleMatrix &X, ChunkQueue &queue,
                               std::vector<PointEvaluation> &results)
{
    for (int rank = 1; rank < worldSize; ++rank)
        sendChunk(rank, evaluator, X, queue);
    bool cancelled = false;
    Backoff backoff(200);
    while (!m_busy.empty()) {
        if (*m_abort && !cancelled) {
            cancelled = m_cancel = true;
            queue.close();
            for (const auto &busy : m_busy)
                send(busy.first, CancelTag, QByteArray());
        }
        if (const auto status = pendingMessage(MPI_ANY_SOURCE, ResultTag)) {
            collect(*status, evaluator, X, results);
            sendChunk(status->MPI_SOURCE, evaluator, X, queue);
            backoff.reset();
        } else {
            backoff.pause();
        }
    }
}

bool Distributor::sendChunk(int rank, const ClusterEvaluator &evaluator, const DoubleMatrix &X,
                            ChunkQueue &queue)
{
    const QVector<int> chunk = queue.take();
    if (chunk.isEmpty())
        return false;
    const QByteArray work = encodeWork({evaluator.useStage2, rowsAt(X, chunk)});
    send(rank, WorkTag, work);
    traffic.bytes += work.size();
    m_busy[rank] = chunk;
    return true;
}

// A rank's evaluated chunk; a message that does not hold the chunk's rows
// counts as a failed evaluation of each of them.
void Distributor::collect(const MPI_Status &status, const ClusterEvaluator &evaluator, const DoubleMatrix &X,
                          std::vector<PointEvaluation> &results)
{
    const QByteArray bytes = receive(status);
    const QVector<int> chunk = m_busy[status.MPI_SOURCE];
    m_busy.erase(status.MPI_SOURCE);
    QVector<PointEvaluation> points;
    const bool complete = decodeResults(bytes, chunk.size(), points);
    traffic.bytes += bytes.size();
    traffic.rows[std::size_t(status.MPI_SOURCE)] += complete ? chunk.size() : 0;
    for (int r = 0; r < chunk.size(); ++r) {
        const int i = chunk[r];
        results[std::size_t(i)] = complete ? points[r] : failedPoint(evaluator, X[i]);
    }
}

// The integrator settings travel with the setup, so every rank evaluates with
// rank 0's; the other run settings concern rank 0 only.
EvaluationSetup setupOf(const ambrel_method &engine, const QString &folder)
{
    EvaluationSetup setup;
    setup.fingerprint = modelFingerprint(readProjectInputs(folder));
    setup.stage1RelativeTolerance = engine.settings.stage1RelativeTolerance;
    setup.stage1AbsoluteTolerance = engine.settings.stage1AbsoluteTolerance;
    setup.timeLimitMs = engine.settings.timeLimitMs;
    return setup;
}

// A rank other than 0: the project read from the folder, configured with
// rank 0's integrator settings.
class Worker {
public:
    explicit Worker(const QString &folder)
        : m_folder(folder)
    {
    }
    SetupReply setUp(const QByteArray &bytes);
    QByteArray evaluate(const QByteArray &bytes);

private:
    QString m_folder;
    ambrel_method m_engine;
    bool m_ready = false;
};

SetupReply Worker::setUp(const QByteArray &bytes)
{
    SetupReply reply;
    reply.threads = QThreadPool::globalInstance()->maxThreadCount();
    EvaluationSetup setup;
    m_ready = false;
    try {
        if (!decodeSetup(bytes, setup))
            throw InputError(QStringLiteral("unreadable setup message"));
        const ProjectModel project = loadCheckedProject(m_folder);
        if (modelFingerprint(readProjectInputs(m_folder)) != setup.fingerprint) {
            reply.status = SetupReply::DifferentModel;
            return reply;
        }
        RunSettings settings;
        settings.stage1RelativeTolerance = setup.stage1RelativeTolerance;
        settings.stage1AbsoluteTolerance = setup.stage1AbsoluteTolerance;
        settings.timeLimitMs = setup.timeLimitMs;
        if (qEnvironmentVariableIsEmpty("AMBREL_DEBUG"))
            settings.integratorMessages = nullptr;
        configureEngine(m_engine, project, settings);
        m_ready = true;
    } catch (const InputError &error) {
        reply.status = SetupReply::Unreadable;
        reply.message = QString::fromStdString(error.what());
    }
    return reply;
}

// Evaluates a chunk on this rank's threads while watching for rank 0's
// cancel. A chunk that cannot be read, or arrives before a good setup, is
// answered with an empty message, which rank 0 takes as failed rows.
QByteArray Worker::evaluate(const QByteArray &bytes)
{
    WorkChunk chunk;
    if (!m_ready || !decodeWork(bytes, chunk))
        return QByteArray();
    ClusterEvaluator &evaluator = m_engine.evaluator;
    evaluator.useStage2 = chunk.stage2;
    std::atomic<bool> cancel{false};
    std::future<QVector<PointEvaluation>> points =
            std::async(std::launch::async, [&] { return evaluateRows(evaluator, chunk.rows, cancel); });
    while (points.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
        if (const auto status = pendingMessage(0, CancelTag)) {
            receive(*status);
            cancel = true;
        }
    }
    return encodeResults(points.get());
}

// Reads "--threads N" from the options; 0 when it is not there or not a
// positive number (rank 0 reports bad options).
int threadsOption(const QStringList &options)
{
    const int at = options.indexOf(QStringLiteral("--threads"));
    return at >= 0 ? std::max(0, options.value(at + 1).toInt()) : 0;
}

// "Evaluated on 2 ranks: 120 + 200 points, 0.3 MB exchanged" on standard error.
void reportTraffic()
{
    QStringList counts;
    qint64 total = 0;
    for (qint64 rows : traffic.rows) {
        counts << QString::number(rows);
        total += rows;
    }
    if (total > 0)
        std::fprintf(stderr, "Evaluated on %d ranks: %s points, %s MB exchanged\n", worldSize,
                     qPrintable(counts.join(QStringLiteral(" + "))),
                     qPrintable(QString::number(double(traffic.bytes) / 1e6, 'f', 1)));
}

} // namespace

MpiSession::MpiSession(int &argc, char **&argv)
{
    if (!startedByLauncher())
        return;
    int provided = 0;
    // Only the main thread calls MPI; evaluation threads never do.
    MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &provided);
    mpiStarted = true;
    MPI_Comm_rank(MPI_COMM_WORLD, &worldRank);
    MPI_Comm_size(MPI_COMM_WORLD, &worldSize);
    traffic.rows.assign(std::size_t(worldSize), 0);
    if (worldSize > 1)
        QThreadPool::globalInstance()->setMaxThreadCount(boundProcessors());
}

MpiSession::~MpiSession()
{
    if (!mpiStarted)
        return;
    if (worldRank == 0) {
        reportTraffic();
        for (int rank = 1; rank < worldSize; ++rank)
            send(rank, StopTag, QByteArray());
    }
    MPI_Finalize();
}

int MpiSession::rank() const
{
    return worldRank;
}

int serveRankZero(const QString &folder, const QStringList &options)
{
    // The launcher's Ctrl-C and termination reach every rank; rank 0 stops
    // the run and then this rank.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGTERM, SIG_IGN);
    if (const int threads = threadsOption(options))
        QThreadPool::globalInstance()->setMaxThreadCount(threads);
    Worker worker(folder);
    for (;;) {
        const MPI_Status status = waitForMessage(0, MPI_ANY_TAG);
        const QByteArray bytes = receive(status);
        switch (status.MPI_TAG) {
        case SetupTag:
            send(0, ReplyTag, encodeReply(worker.setUp(bytes)));
            break;
        case WorkTag:
            send(0, ResultTag, worker.evaluate(bytes));
            break;
        case StopTag:
            return 0;
        default: // a cancel that came after its chunk was done
            break;
        }
    }
}

void distributeEvaluations(ambrel_method &engine, const QString &folder)
{
    if (worldSize < 2)
        return;
    const QByteArray setup = encodeSetup(setupOf(engine, folder));
    for (int rank = 1; rank < worldSize; ++rank)
        send(rank, SetupTag, setup);
    QStringList refusals;
    int threads = QThreadPool::globalInstance()->maxThreadCount();
    for (int rank = 1; rank < worldSize; ++rank) {
        SetupReply reply;
        if (!decodeReply(receive(waitForMessage(rank, ReplyTag)), reply))
            reply = {SetupReply::Unreadable, 0, QStringLiteral("unreadable reply")};
        threads = std::max(threads, int(reply.threads));
        if (reply.status == SetupReply::DifferentModel)
            refusals << QStringLiteral("Rank %1 read a different model from %2 than rank 0 (a model file "
                                       "changed after the start, or the ranks see different folders).")
                                .arg(rank)
                                .arg(folder);
        else if (reply.status != SetupReply::Ready)
            refusals << QStringLiteral("Rank %1 could not read the project %2: %3")
                                .arg(rank)
                                .arg(folder, reply.message);
    }
    if (!refusals.isEmpty())
        throw InputError(refusals.join(QLatin1Char('\n')) + QStringLiteral("\nThe run is refused."));
    auto distributor = std::make_shared<Distributor>(threads, &engine.abortASAP);
    engine.evaluator.delegate = [distributor](const ClusterEvaluator &evaluator, const DoubleMatrix &X) {
        return distributor->evaluate(evaluator, X);
    };
}
