/**
 * @file
 * Notices the end of the Windows session (log off, shut down) while the program waits.
 */
#pragma once

#include "common/win/owner.h"

#include <windows.h>

#include <functional>

namespace kxvcr {

/** A hidden window, because Windows tells the end of a session to windows. Belongs to the thread that made it. */
class SessionEndWindow {
public:
    /**
     * @param onSessionEnd called in WaitFor() when the session ends. Windows may end the process when it returns.
     *
     * Without a desktop there is no window, and the end of the session is not noticed.
     */
    explicit SessionEndWindow(std::function<void()> onSessionEnd);
    SessionEndWindow(const SessionEndWindow&) = delete;
    SessionEndWindow& operator=(const SessionEndWindow&) = delete;

    /** Handles window messages until @p event is signalled or the session has ended. */
    void WaitFor(HANDLE event);

private:
    static LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    std::function<void()> m_onSessionEnd;
    bool m_sessionEnded = false;
    kx::Owner<kx::FreedBy<HWND, &DestroyWindow>> m_window;
};

} // namespace kxvcr
