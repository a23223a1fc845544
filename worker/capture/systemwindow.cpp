// A window of any program. The system gives the handle of a window that is gone to another one some day: that has
// another thread, as good as always.
#include "worker/capture/systemwindow.h"

namespace kxvcr {

kx::WindowView SystemWindow::Look() noexcept {
    const kx::WindowView view = kx::ViewOfWindow(m_window);
    if (view.state == kx::WindowState::Gone || GetWindowThreadProcessId(m_window, nullptr) != m_thread) {
        m_window = nullptr;
        return {};
    }
    return view;
}

} // namespace kxvcr
