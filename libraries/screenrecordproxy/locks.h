/**
 * @file
 * Scoped holders of the system's two kinds of lock. Neither can fail, unlike the standard mutex.
 */
#pragma once

#include <windows.h>

namespace KxScreenRecord {

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

/** Holds a slim lock exclusively for the scope's life. */
class ExclusiveGuard {
public:
    explicit ExclusiveGuard(SRWLOCK& lock) noexcept : m_lock(lock) { AcquireSRWLockExclusive(&m_lock); }
    ~ExclusiveGuard() { ReleaseSRWLockExclusive(&m_lock); }
    ExclusiveGuard(const ExclusiveGuard&) = delete;
    ExclusiveGuard& operator=(const ExclusiveGuard&) = delete;

private:
    SRWLOCK& m_lock;
};

} // namespace KxScreenRecord
