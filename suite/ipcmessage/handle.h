/**
 * @file
 * Owners for the Windows resources of this library, and the lock that its condition variables need.
 */
#pragma once

#include <windows.h>

#include <memory>
#include <system_error>
#include <utility>

namespace ipcmessage {

/** Handles whose invalid value is null: process, thread, event, token. */
struct NullHandleTraits {
    static HANDLE Invalid() noexcept { return nullptr; }
};

/** Handles whose invalid value is INVALID_HANDLE_VALUE: file, pipe. */
struct FileHandleTraits {
    static HANDLE Invalid() noexcept { return INVALID_HANDLE_VALUE; }
};

/** Owns one handle; move only. */
template <class Traits>
class BasicHandle {
public:
    BasicHandle() = default;
    explicit BasicHandle(HANDLE handle) noexcept : m_handle(handle) {}
    BasicHandle(BasicHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, Traits::Invalid())) {}
    BasicHandle& operator=(BasicHandle&& other) noexcept {
        std::swap(m_handle, other.m_handle);
        return *this;
    }
    ~BasicHandle() {
        if (*this) {
            CloseHandle(m_handle);
        }
    }

    explicit operator bool() const noexcept { return m_handle != Traits::Invalid(); }
    HANDLE Get() const noexcept { return m_handle; }

private:
    HANDLE m_handle = Traits::Invalid();
};

using KernelHandle = BasicHandle<NullHandleTraits>;
using FileHandle = BasicHandle<FileHandleTraits>;

/** A manual-reset event, not signalled. @throws std::system_error */
inline KernelHandle MakeEvent() {
    KernelHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!event) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
    }
    return event;
}

struct LocalFreeDeleter {
    void operator()(void* block) const noexcept { LocalFree(block); }
};

template <class T>
using LocalBlock = std::unique_ptr<T, LocalFreeDeleter>;

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
