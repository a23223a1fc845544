/**
 * @file
 * Measures what a step of the recording takes.
 */
#pragma once

#include "worker/capture/pacing.h"

#include <cstdint>

namespace kxvcr {

/** Adds the time it lives to a sum of ticks. */
class Stopwatch {
public:
    explicit Stopwatch(std::int64_t& sum) noexcept : m_sum(sum), m_start(NowTicks()) {}
    ~Stopwatch() { m_sum += NowTicks() - m_start; }
    Stopwatch(const Stopwatch&) = delete;
    Stopwatch& operator=(const Stopwatch&) = delete;

private:
    std::int64_t& m_sum;
    std::int64_t m_start;
};

/** A sum of ticks in milliseconds for each of @p times; 0 when there was none. */
inline double MillisecondsEach(std::int64_t ticks, std::uint64_t times) noexcept {
    return times == 0 ? 0.0
                      : 1000.0 * static_cast<double>(ticks) / static_cast<double>(TicksPerSecond()) /
                            static_cast<double>(times);
}

} // namespace kxvcr
