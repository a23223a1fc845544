/**
 * @file
 * A window of any program, as the system tells of it.
 */
#pragma once

#include "worker/capture/watchedwindow.h"

namespace kxvcr {

class SystemWindow final : public WatchedWindow {
public:
    explicit SystemWindow(HWND window) noexcept
        : m_window(window),
          m_thread(GetWindowThreadProcessId(window, nullptr)) {}

    kx::WindowView Look() noexcept override;

private:
    HWND m_window;
    DWORD m_thread; // that made the window; 0 when there was none
};

} // namespace kxvcr
