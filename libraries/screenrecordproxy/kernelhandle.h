/**
 * @file
 * Owner of a kernel handle (process, thread, event).
 */
#pragma once

#include <windows.h>

#include <utility>

/** Closes the handle that it holds, if any; closing keeps the calling thread's last error. */
class KernelHandle {
public:
    explicit KernelHandle(HANDLE handle = nullptr) noexcept : m_handle(handle) {}
    ~KernelHandle() { Reset(); }
    KernelHandle(KernelHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    KernelHandle& operator=(KernelHandle&& other) noexcept {
        if (this != &other) {
            Reset();
            m_handle = std::exchange(other.m_handle, nullptr);
        }
        return *this;
    }

    explicit operator bool() const noexcept { return m_handle != nullptr; }
    HANDLE Get() const noexcept { return m_handle; }
    [[nodiscard]] HANDLE Release() noexcept { return std::exchange(m_handle, nullptr); }

    void Reset() noexcept {
        if (m_handle == nullptr) {
            return;
        }
        const DWORD lastError = GetLastError();
        CloseHandle(std::exchange(m_handle, nullptr));
        SetLastError(lastError);
    }

private:
    HANDLE m_handle;
};

/**
 * A handle of somebody else's to wait on while its owner may close it: a duplicate of its own, or the given handle
 * itself when the system has none left to give.
 */
class SharedHandle {
public:
    SharedHandle() noexcept = default;
    explicit SharedHandle(HANDLE handle) noexcept : m_borrowed(handle) {
        HANDLE duplicate = nullptr;
        const HANDLE self = GetCurrentProcess();
        if (DuplicateHandle(self, handle, self, &duplicate, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
            m_duplicate = KernelHandle(duplicate);
        }
    }

    HANDLE Get() const noexcept { return m_duplicate ? m_duplicate.Get() : m_borrowed; }

private:
    HANDLE m_borrowed = nullptr;
    KernelHandle m_duplicate;
};

/** Enters a critical section for the scope's life. */
class CriticalSectionGuard {
public:
    explicit CriticalSectionGuard(CRITICAL_SECTION& section) noexcept : m_section(section) {
        EnterCriticalSection(&m_section);
    }
    ~CriticalSectionGuard() { LeaveCriticalSection(&m_section); }
    CriticalSectionGuard(const CriticalSectionGuard&) = delete;
    CriticalSectionGuard& operator=(const CriticalSectionGuard&) = delete;

private:
    CRITICAL_SECTION& m_section;
};
