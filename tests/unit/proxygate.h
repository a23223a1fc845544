/** @file Holds a thread of the code under test at a chosen point while the test lets others go on. */
#pragma once

#include "unit/proxyfixture.h"

#include <atomic>
#include <thread>
#include <utility>

namespace proxytest {

/** A gate that the first thread to come stands before until it is opened; later ones pass. */
class Gate {
public:
    /** Called by the thread that is to be held. */
    void Pass() {
        if (!m_isPassed.exchange(true)) {
            SetEvent(m_reached.get());
            EXPECT_EQ(WaitForSingleObject(m_opened.get(), kLimitMs), WAIT_OBJECT_0) << "nobody opened the gate";
        }
    }
    /** Waits until a thread stands before the gate. */
    void AwaitThread() {
        EXPECT_EQ(WaitForSingleObject(m_reached.get(), kLimitMs), WAIT_OBJECT_0) << "nobody came to the gate";
    }
    void Open() { SetEvent(m_opened.get()); }

private:
    const OwnedHandle m_reached = NewEvent();
    const OwnedHandle m_opened = NewEvent();
    std::atomic<bool> m_isPassed = false;
};

/** Does something on a thread of its own and waits for it. */
template <class Work>
void Elsewhere(Work work) {
    std::thread(std::move(work)).join();
}

/** Holds the first monitor that begins after this, when it has seen its worker's end and not made its last move. */
class HeldMonitor {
public:
    void AwaitThread() { m_gate.AwaitThread(); }
    void Open() { m_gate.Open(); }

private:
    Gate m_gate;
    hooks::WaitHook m_wait{[this](HANDLE handle, DWORD timeoutMs) {
        const DWORD result = hooks::WaitHook::Original(handle, timeoutMs);
        if (timeoutMs == INFINITE) {
            m_gate.Pass();
        }
        return result;
    }};
};

inline constexpr DWORD kMonitorLimitMs = 5000; ///< that a proxy's end waits for a monitor

/** Lets the wait for a monitor that does not end be over at once. */
class ImpatientRelease {
    hooks::WaitHook m_wait{[](HANDLE handle, DWORD timeoutMs) {
        return hooks::WaitHook::Original(handle, timeoutMs == kMonitorLimitMs ? 0 : timeoutMs);
    }};
};

} // namespace proxytest
