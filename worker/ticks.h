/**
 * @file
 * The system's performance counter, and what a step of the recording takes by it.
 */
#pragma once

#include "worker/packet.h"

#include <windows.h>

#include <cstdint>

namespace kxvcr {

/** The present moment in ticks. */
inline std::int64_t NowTicks() noexcept {
    LARGE_INTEGER now = {};
    QueryPerformanceCounter(&now);
    return now.QuadPart;
}

/** Ticks per second. */
inline std::int64_t TicksPerSecond() noexcept {
    LARGE_INTEGER frequency = {};
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

/** Adds the time it lives to a sum of ticks. */
class ScopedTicks {
public:
    explicit ScopedTicks(std::int64_t& sum) noexcept : m_sum(sum), m_start(NowTicks()) {}
    ~ScopedTicks() { m_sum += NowTicks() - m_start; }
    ScopedTicks(const ScopedTicks&) = delete;
    ScopedTicks& operator=(const ScopedTicks&) = delete;

private:
    std::int64_t& m_sum;
    std::int64_t m_start;
};

/** A number of ticks as a length of time. Whole seconds and the rest apart, so that no product overflows. */
constexpr MediaTime TimeOf(std::int64_t ticks, std::int64_t ticksPerSecond) noexcept {
    return MediaTime(ticks / ticksPerSecond * MediaTime::period::den +
                     ticks % ticksPerSecond * MediaTime::period::den / ticksPerSecond);
}

/** The same for ticks of the performance counter. */
inline MediaTime TimeOf(std::int64_t ticks) noexcept {
    return TimeOf(ticks, TicksPerSecond());
}

/** A sum of ticks in milliseconds for each of @p times; 0 when there was none. */
inline double MillisecondsEach(std::int64_t ticks, std::uint64_t times) noexcept {
    return times == 0 ? 0.0
                      : 1000.0 * static_cast<double>(ticks) / static_cast<double>(TicksPerSecond()) /
                            static_cast<double>(times);
}

} // namespace kxvcr
