/**
 * @file
 * Top-level windows as what can be recorded: their numbers, their state and their visible frame.
 */
#pragma once

#include <windows.h>

#include <dwmapi.h>

#include <cstdint>

namespace kx {

/** What a window is to somebody who wants a picture of it. */
enum class WindowState {
    Gone,        ///< no window has this handle
    NotTopLevel, ///< a child, a message-only window, or the desktop itself
    Hidden,      ///< not shown, or on a virtual desktop that is not
    Minimized,
    Empty, ///< its visible frame has no pixels
    Shown, ///< on the screen, or covered, or moved off it
};

/** A window at a moment. */
struct WindowView {
    WindowState state = WindowState::Gone;
    RECT frame = {}; ///< in physical pixels; only of a window that is shown
};

/** A handle of a window has 32 significant bits, in programs of 64 bits as well. */
inline std::uint32_t NumberOfWindow(HWND window) noexcept {
    return static_cast<std::uint32_t>(HandleToULong(window));
}

inline HWND WindowOfNumber(std::uint32_t number) noexcept {
    return static_cast<HWND>(LongToHandle(static_cast<long>(number)));
}

/** A window's rectangle without the invisible borders by which it is resized; without pixels when it is gone. */
inline RECT VisibleFrame(HWND window) noexcept {
    RECT frame = {};
    if (SUCCEEDED(DwmGetWindowAttribute(window, DWMWA_EXTENDED_FRAME_BOUNDS, &frame, sizeof(frame)))) {
        return frame;
    }
    return GetWindowRect(window, &frame) ? frame : RECT{};
}

/** Whether the compositor hides a window that is visible otherwise: on another virtual desktop, or suspended. */
inline bool IsCloaked(HWND window) noexcept {
    DWORD cloaked = 0;
    return SUCCEEDED(DwmGetWindowAttribute(window, DWMWA_CLOAKED, &cloaked, sizeof(cloaked))) && cloaked != 0;
}

inline WindowView ViewOfWindow(HWND window) noexcept {
    if (!IsWindow(window)) {
        return {};
    }
    if (GetAncestor(window, GA_PARENT) != GetDesktopWindow()) {
        // One that was destroyed since has no parent either.
        return {IsWindow(window) ? WindowState::NotTopLevel : WindowState::Gone, {}};
    }
    if (!IsWindowVisible(window) || IsCloaked(window)) {
        return {WindowState::Hidden, {}};
    }
    if (IsIconic(window)) {
        return {WindowState::Minimized, {}};
    }
    const RECT frame = VisibleFrame(window);
    if (frame.right <= frame.left || frame.bottom <= frame.top) {
        return {WindowState::Empty, {}};
    }
    return {WindowState::Shown, frame};
}

} // namespace kx
