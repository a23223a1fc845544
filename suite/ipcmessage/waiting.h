/**
 * @file
 * The event and the lock that the sessions wait with.
 */
#pragma once

#include "common/win/handle.h"

#include <windows.h>

#include <system_error>

namespace ipcmessage {

using kx::FileHandle;
using kx::KernelHandle;

/** A manual-reset event, not signalled. @throws std::system_error */
inline KernelHandle MakeEvent() {
    KernelHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!event) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
    }
    return event;
}

/** Slim lock for std::lock_guard and std::unique_lock; std::mutex does not go with CONDITION_VARIABLE. */
class SlimLock {
public:
    SlimLock() = default;
    SlimLock(const SlimLock&) = delete;
    SlimLock& operator=(const SlimLock&) = delete;

    void lock() noexcept { AcquireSRWLockExclusive(&m_lock); }
    void unlock() noexcept { ReleaseSRWLockExclusive(&m_lock); }

    /** Sleeps until @p condition is woken or the time in milliseconds is over; the lock is held before and after. */
    bool Sleep(CONDITION_VARIABLE& condition, DWORD timeoutMs) noexcept {
        return SleepConditionVariableSRW(&condition, &m_lock, timeoutMs, 0) != FALSE;
    }

private:
    SRWLOCK m_lock = SRWLOCK_INIT;
};

} // namespace ipcmessage
