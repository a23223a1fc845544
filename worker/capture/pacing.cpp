// The recording's frame clock. The arithmetic is in whole numbers, so that hours of recording do not drift.
#include "worker/capture/pacing.h"

#include "worker/ticks.h"

#include <timeapi.h>

#include <algorithm>
#include <iterator>

namespace kxvcr {

namespace {

constexpr UINT kFineResolutionMs = 1;
constexpr std::int64_t kTimerUnitsPerSecond = 10'000'000; // a waitable timer counts 100 ns
constexpr DWORD kHighResolutionTimer = 0x00000002;        // CREATE_WAITABLE_TIMER_HIGH_RESOLUTION

} // namespace

FrameClock::FrameClock(std::int64_t startTicks, std::int64_t ticksPerSecond, std::uint32_t framesPerSecond) noexcept
    : m_startTicks(startTicks),
      m_ticksPerSecond(ticksPerSecond),
      m_framesPerSecond(framesPerSecond) {}

std::int64_t FrameClock::DueTicks(std::uint64_t slot) const noexcept {
    const std::int64_t scaled = static_cast<std::int64_t>(slot) * m_ticksPerSecond;
    return m_startTicks + (scaled + m_framesPerSecond - 1) / m_framesPerSecond;
}

std::uint64_t FrameClock::SlotAt(std::int64_t ticks) const noexcept {
    const std::int64_t elapsed = std::max<std::int64_t>(ticks - m_startTicks, 0);
    return static_cast<std::uint64_t>(elapsed * m_framesPerSecond / m_ticksPerSecond);
}

MediaTime FrameClock::TimeAt(std::int64_t ticks) const noexcept {
    return TimeOf(ticks - m_startTicks, m_ticksPerSecond);
}

FineTimerResolution::FineTimerResolution() noexcept : m_raised(timeBeginPeriod(kFineResolutionMs) == TIMERR_NOERROR) {}

FineTimerResolution::~FineTimerResolution() {
    if (m_raised) {
        timeEndPeriod(kFineResolutionMs);
    }
}

FrameTimer::FrameTimer() noexcept
    : m_timer(CreateWaitableTimerExW(nullptr, nullptr, kHighResolutionTimer, TIMER_ALL_ACCESS)) {
    if (!m_timer) {
        m_timer = kx::KernelHandle(CreateWaitableTimerExW(nullptr, nullptr, 0, TIMER_ALL_ACCESS));
    }
}

bool FrameTimer::WaitUntil(std::int64_t dueTicks, HANDLE stop) const noexcept {
    const std::int64_t delay = std::max<std::int64_t>(dueTicks - NowTicks(), 0);
    LARGE_INTEGER due = {};
    due.QuadPart = -(delay * kTimerUnitsPerSecond / TicksPerSecond()); // negative means from now
    if (due.QuadPart == 0) {
        return WaitForSingleObject(stop, 0) == WAIT_TIMEOUT;
    }
    // Without a timer the wait's own, coarser clock does.
    if (!m_timer || !SetWaitableTimer(m_timer.Get(), &due, 0, nullptr, nullptr, FALSE)) {
        return WaitForSingleObject(stop, static_cast<DWORD>(-due.QuadPart / 10'000)) == WAIT_TIMEOUT;
    }
    const HANDLE handles[] = {stop, m_timer.Get()};
    return WaitForMultipleObjects(static_cast<DWORD>(std::size(handles)), handles, FALSE, INFINITE) ==
           WAIT_OBJECT_0 + 1;
}

} // namespace kxvcr
