// Independent work items shared out among a few threads: the calling thread
// and threads of the global pool take consecutive chunks from one counter.
#pragma once

#include <QRunnable>
#include <QSemaphore>
#include <QThreadPool>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>

// The number of threads a parallel section uses by default: the global pool's.
inline int defaultThreadCount()
{
    return std::max(1, QThreadPool::globalInstance()->maxThreadCount());
}

// Calls work(begin, end) for chunks covering [0, count), on `threads` workers:
// the calling thread and threads - 1 tasks of the global pool. makeWorker()
// is called once per worker and returns its work callable (which owns its
// scratch storage). Returns when every chunk is done; the first exception of
// any worker is rethrown here. The order in which chunks run is not fixed, so
// the items must not depend on each other.
template<typename MakeWorker>
void runInChunks(std::size_t count, int threads, MakeWorker makeWorker)
{
    if (count == 0)
        return;
    threads = std::max(1, std::min(threads, int(count)));
    // Small chunks balance the load; a few per worker keep the counter cold.
    const std::size_t chunk = std::max<std::size_t>(1, count / (std::size_t(threads) * 16));
    std::atomic<std::size_t> next{0};
    std::exception_ptr failure;
    std::mutex failureMutex;
    auto drain = [&] {
        try {
            auto work = makeWorker();
            for (std::size_t begin; (begin = next.fetch_add(chunk)) < count;)
                work(begin, std::min(count, begin + chunk));
        } catch (...) {
            next = count; // the others stop at their next chunk
            const std::lock_guard<std::mutex> lock(failureMutex);
            if (!failure)
                failure = std::current_exception();
        }
    };

    QSemaphore finished;
    for (int t = 1; t < threads; ++t)
        QThreadPool::globalInstance()->start(QRunnable::create([&] {
            drain();
            finished.release();
        }));
    drain();
    finished.acquire(threads - 1);
    if (failure)
        std::rethrow_exception(failure);
}
