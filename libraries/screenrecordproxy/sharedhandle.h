/**
 * @file
 * A handle to wait on while its owner may close it, and the critical section held for a scope.
 */
#pragma once

#include "common/win/handle.h"

#include <windows.h>

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
            m_duplicate.Reset(duplicate);
        }
    }

    HANDLE Get() const noexcept { return m_duplicate ? m_duplicate.Get() : m_borrowed; }

private:
    HANDLE m_borrowed = nullptr;
    kx::KernelHandle m_duplicate;
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
