/**
 * @file
 * The recording's frame clock: which picture is due when, and the wait for it.
 *
 * Slot n is due at start + n / fps. All ticks are QueryPerformanceCounter's.
 */
#pragma once

#include "common/win/handle.h"

#include <cstdint>

namespace kxvcr {

/** The present moment in ticks. */
std::int64_t NowTicks() noexcept;

/** Ticks per second. */
std::int64_t TicksPerSecond() noexcept;

/** What to do at one moment: repeat the last picture in missed slots, then capture for a slot. */
struct SlotPlan {
    std::uint64_t repeatFrom = 0; ///< first slot that shows the last picture again
    std::uint64_t repeatEnd = 0;  ///< the slot behind the last of them; repeatFrom when none was missed
    std::uint64_t capture = 0;    ///< the slot to capture for

    friend bool operator==(const SlotPlan&, const SlotPlan&) = default;
};

/** Slot arithmetic of one recording. */
class FrameClock {
public:
    /** A longer gap (the machine slept) is left out of the file, where the picture before it stays on show. */
    static constexpr std::uint64_t kLongestFilledGapSeconds = 5;

    FrameClock(std::int64_t startTicks, std::int64_t ticksPerSecond, std::uint32_t framesPerSecond) noexcept;

    /** The first tick at which SlotAt() is @p slot. */
    std::int64_t DueTicks(std::uint64_t slot) const noexcept;

    /** The latest slot that is due at @p ticks; 0 before the start. */
    std::uint64_t SlotAt(std::int64_t ticks) const noexcept;

    /** What to do at @p nowTicks when @p nextSlot is the first slot without a picture. */
    SlotPlan Plan(std::uint64_t nextSlot, std::int64_t nowTicks) const noexcept;

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
