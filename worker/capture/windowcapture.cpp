// Captures a window. Its picture is what the screen shows within its frame: that has whatever the window shows, drawn
// by whom it may be, with its menus and dialogs, and asks nothing of the window's program, which may hang. What lies
// above the window is in the picture too.
#include "worker/capture/windowcapture.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace kxvcr {

namespace {

// A window that goes on moving is taken where it was a moment ago.
constexpr int kAttempts = 2;

} // namespace

ScreenRect AreaOfWindow(const kx::WindowView& view) noexcept {
    const RECT& frame = view.frame;
    return {frame.left, frame.top, static_cast<std::uint32_t>(frame.right - frame.left),
            static_cast<std::uint32_t>(frame.bottom - frame.top)};
}

WindowCapture::WindowCapture(std::unique_ptr<WatchedWindow> window, TakeFromScreen screen, std::size_t pictureBytes,
                             std::function<void()> onClosed)
    : m_window(std::move(window)),
      m_screen(std::move(screen)),
      m_onClosed(std::move(onClosed)),
      m_first(pictureBytes) {}

Grab WindowCapture::Take(Picture& target, const Picture* before) noexcept {
    kx::WindowView view = Look();
    Grab grab = Grab::Failed;
    for (int attempt = 0; attempt < kAttempts && view.state == kx::WindowState::Shown; ++attempt) {
        grab = m_screen(AreaOfWindow(view), target, before);
        // The window may have left its place meanwhile, and the picture would show what lies behind it.
        const ScreenRect taken = AreaOfWindow(view);
        view = Look();
        if (AreaOfWindow(view) == taken) {
            break;
        }
    }
    if (view.state != kx::WindowState::Shown) {
        return LastPicture(target, before);
    }
    if (grab == Grab::Changed && before == nullptr) {
        std::ranges::copy(target.buffer.Pixels(), m_first.begin());
        m_hasFirst = true;
    }
    return grab;
}

kx::WindowView WindowCapture::Look() noexcept {
    const kx::WindowView view = m_window->Look();
    if (view.state == kx::WindowState::Gone && !std::exchange(m_isClosed, true)) {
        m_onClosed();
    }
    return view;
}

Grab WindowCapture::LastPicture(Picture& target, const Picture* before) const noexcept {
    if (before != nullptr) {
        return Grab::Unchanged;
    }
    if (!m_hasFirst) {
        return Grab::Failed;
    }
    std::ranges::copy(m_first, target.buffer.Pixels().begin());
    target.changed.clear();
    target.presentedTicks.reset();
    return Grab::Changed;
}

} // namespace kxvcr
