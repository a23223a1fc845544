// Ctrl-C and the closing of the terminal as an event.
#include "host/stopsignal.h"

#include <stdexcept>

namespace kxrecord {

namespace {

constexpr DWORD kCloseGraceMs = 30000; ///< the system ends a process whose window is closed earlier than this

HANDLE g_interrupted = nullptr;
HANDLE g_finished = nullptr;

// The system ends the process when this returns from a close, logoff or shutdown, so those wait for the
// recording to be finished.
BOOL WINAPI OnConsoleControl(DWORD kind) {
    SetEvent(g_interrupted);
    if (kind != CTRL_C_EVENT && kind != CTRL_BREAK_EVENT) {
        WaitForSingleObject(g_finished, kCloseGraceMs);
    }
    return TRUE;
}

} // namespace

StopSignal::StopSignal()
    : m_interrupted(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_finished(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    g_interrupted = m_interrupted.Get();
    g_finished = m_finished.Get();
    if (g_interrupted == nullptr || g_finished == nullptr || SetConsoleCtrlHandler(OnConsoleControl, TRUE) == FALSE) {
        throw std::runtime_error("the system refuses a handler for Ctrl-C");
    }
}

StopSignal::~StopSignal() {
    SetEvent(m_finished.Get());
    SetConsoleCtrlHandler(OnConsoleControl, FALSE);
}

bool StopSignal::WaitFor(DWORD timeoutMs) const {
    return WaitForSingleObject(m_interrupted.Get(), timeoutMs) == WAIT_OBJECT_0;
}

} // namespace kxrecord
