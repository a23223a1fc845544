/**
 * @file
 * The recording's frame clock: which picture is due when, and the wait for it.
 *
 * Slot n is due at start + n / fps. All ticks are QueryPerformanceCounter's.
 */
#pragma once

#include "common/win/handle.h"
#include "worker/packet.h"

#include <cstdint>

namespace kxvcr {

/** Slot arithmetic of one recording. */
class FrameClock {
public:
    FrameClock(std::int64_t startTicks, std::int64_t ticksPerSecond, std::uint32_t framesPerSecond) noexcept;

    /** The first tick at which SlotAt() is @p slot. */
    std::int64_t DueTicks(std::uint64_t slot) const noexcept;

    /** The latest slot that is due at @p ticks; 0 before the start. */
    std::uint64_t SlotAt(std::int64_t ticks) const noexcept;

    /** @p ticks on the packets' clock, whose 0 is the first slot; below 0 before the start. */
    MediaTime TimeAt(std::int64_t ticks) const noexcept;

private:
    std::int64_t m_startTicks;
    std::int64_t m_ticksPerSecond;
    std::int64_t m_framesPerSecond;
};

/** Raises the system's timer resolution to 1 ms while it lives. */
class FineTimerResolution {
public:
    FineTimerResolution() noexcept;
    ~FineTimerResolution();
    FineTimerResolution(const FineTimerResolution&) = delete;
    FineTimerResolution& operator=(const FineTimerResolution&) = delete;

private:
    bool m_raised;
};

/** Waits for moments given in ticks. */
class FrameTimer {
public:
    /** Takes a high-resolution timer where the system has one (Windows 10 1803), else an ordinary one. */
    FrameTimer() noexcept;

    /** Waits until @p dueTicks. @return false as soon as @p stop is signalled */
    bool WaitUntil(std::int64_t dueTicks, HANDLE stop) const noexcept;

private:
    kx::KernelHandle m_timer;
};

} // namespace kxvcr
