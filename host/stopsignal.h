/**
 * @file
 * Ctrl-C, Ctrl-Break and a closed console window, as an event to wait on.
 */
#pragma once

#include "common/win/handle.h"

namespace kxrecord {

/** While it lives, a console interrupt signals the event instead of ending the process. One at a time. */
class StopSignal {
public:
    /** @throws std::runtime_error when the system refuses the event or the handler */
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /** Waits for an interrupt. @return whether one came within @p timeoutMs milliseconds, or earlier */
    bool WaitFor(DWORD timeoutMs) const;

    /** The event itself, for a wait on more than one. */
    HANDLE Handle() const { return m_interrupted.Get(); }

private:
    kx::KernelHandle m_interrupted;
    kx::KernelHandle m_finished;
};

} // namespace kxrecord
