// Independent work items shared out among a few threads: the calling thread
// and threads of the global pool take consecutive chunks from one counter.
#pragma once

#include <QRunnable>
#include <QThreadPool>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <memory>
#include <mutex>

// The number of threads a parallel section uses by default: the global pool's.
inline int defaultThreadCount()
{
    return std::max(1, QThreadPool::globalInstance()->maxThreadCount());
}

// Calls work(begin, end) for chunks covering [0, count), on up to `threads`
// workers: the calling thread and threads - 1 tasks of the pool (the global
// one unless another is given).
// makeWorker() is called once per worker and returns its work callable
// (which owns its scratch storage). Returns when every chunk is done, without
// waiting for a pool task that had not begun by then (it finds the work
// closed and ends); the first exception of any worker is rethrown here. The
// order in which chunks run is not fixed, so the items must not depend on
// each other.
template<typename MakeWorker>
void runInChunks(std::size_t count, int threads, MakeWorker makeWorker,
                 QThreadPool *pool = QThreadPool::globalInstance())
{
    if (count == 0)
        return;
    threads = std::max(1, std::min(threads, int(count)));
    // Small chunks balance the load; a few per worker keep the counter cold.
    const std::size_t chunk = std::max<std::size_t>(1, count / (std::size_t(threads) * 16));
    // Shared with the pool tasks, which may outlive this call.
    struct State {
        std::atomic<std::size_t> next{0};
        std::mutex mutex;
        std::condition_variable idle;
        int running = 0;
        bool closed = false;
        std::exception_ptr failure;
    };
    const auto state = std::make_shared<State>();
    auto drain = [&] {
        try {
            auto work = makeWorker();
            for (std::size_t begin; (begin = state->next.fetch_add(chunk)) < count;)
                work(begin, std::min(count, begin + chunk));
        } catch (...) {
            state->next = count; // the others stop at their next chunk
            const std::lock_guard<std::mutex> lock(state->mutex);
            if (!state->failure)
                state->failure = std::current_exception();
        }
    };

    for (int t = 1; t < threads; ++t)
        pool->start(QRunnable::create([state, &drain] {
            {
                const std::lock_guard<std::mutex> lock(state->mutex);
                if (state->closed)
                    return; // too late: drain is gone
                ++state->running;
            }
            drain();
            const std::lock_guard<std::mutex> lock(state->mutex);
            --state->running;
            state->idle.notify_all();
        }));
    drain();
    std::unique_lock<std::mutex> lock(state->mutex);
    state->closed = true;
    state->idle.wait(lock, [&] { return state->running == 0; });
    if (state->failure)
        std::rethrow_exception(state->failure);
}
