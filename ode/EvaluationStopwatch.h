#pragma once

#include <chrono>
#include <cstdint>

// The time limit of one model evaluation, read after every right-hand side
// evaluation. Under virtualisation the precise monotonic clock costs about
// 25 ns a reading, as much as a small model's right-hand side; the kernel's
// coarse clock (one scheduler tick, a few ms) costs about 3 ns. The coarse
// reading answers while it stays two ticks below the limit; near the limit,
// and every 1024th reading in any case, the precise clock decides, so the
// limit is compared exactly as with the precise clock alone.
class EvaluationStopwatch {
public:
    explicit EvaluationStopwatch(int limitMs);

    // True once the elapsed time exceeds the limit (equality still passes).
    bool limitExceeded();

private:
    bool preciseLimitExceeded() const;

    std::chrono::steady_clock::time_point m_start;
    std::chrono::milliseconds m_limit;
    std::int64_t m_coarseStartNs = 0;
    std::int64_t m_coarseSafeNs = -1; // coarse elapsed below this is within the limit
    unsigned m_readings = 0;
};
