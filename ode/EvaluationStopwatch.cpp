#include "EvaluationStopwatch.h"

#ifdef __linux__
#include <time.h>
#endif

namespace {

#ifdef __linux__
std::int64_t coarseNowNs()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// Two resolutions of the coarse clock; negative when it is unavailable.
std::int64_t coarseMarginNs()
{
    static const std::int64_t margin = [] {
        timespec resolution;
        if (clock_getres(CLOCK_MONOTONIC_COARSE, &resolution) != 0)
            return std::int64_t(-1);
        return 2 * (std::int64_t(resolution.tv_sec) * 1000000000 + resolution.tv_nsec);
    }();
    return margin;
}
#endif

} // namespace

EvaluationStopwatch::EvaluationStopwatch(int limitMs)
    : m_start(std::chrono::steady_clock::now())
    , m_limit(limitMs)
{
#ifdef __linux__
    const std::int64_t margin = coarseMarginNs();
    if (margin >= 0) {
        m_coarseStartNs = coarseNowNs();
        m_coarseSafeNs = std::int64_t(limitMs) * 1000000 - margin;
    }
#endif
}

bool EvaluationStopwatch::limitExceeded()
{
#ifdef __linux__
    if ((++m_readings & 1023u) != 0 && coarseNowNs() - m_coarseStartNs < m_coarseSafeNs)
        return false;
#endif
    return preciseLimitExceeded();
}

bool EvaluationStopwatch::preciseLimitExceeded() const
{
    return std::chrono::steady_clock::now() - m_start > m_limit;
}
