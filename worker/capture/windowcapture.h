/**
 * @file
 * Captures a window wherever it moves: the part of the screen that its visible frame covers.
 */
#pragma once

#include "worker/capture/picturesource.h"
#include "worker/capture/screenlayout.h"
#include "worker/capture/watchedwindow.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace kxvcr {

/** Takes a picture of a part of the screen, of whatever size, as PictureSource::Take does. */
using TakeFromScreen = std::function<Grab(const ScreenRect& source, Picture& target, const Picture* before)>;

/** The part of the screen that a window's frame covers. */
ScreenRect AreaOfWindow(const kx::WindowView& view) noexcept;

/**
 * Captures one window. While it is minimised or hidden, and when it is closed, its last picture stays.
 */
class WindowCapture final : public PictureSource {
public:
    /**
     * @param pictureBytes size of a picture's pixels
     * @param onClosed called once, in the capture's thread, when the window is closed
     * @throws std::bad_alloc
     */
    WindowCapture(std::unique_ptr<WatchedWindow> window, TakeFromScreen screen, std::size_t pictureBytes,
                  std::function<void()> onClosed);

    Grab Take(Picture& target, const Picture* before) noexcept override;

private:
    kx::WindowView Look() noexcept;
    Grab LastPicture(Picture& target, const Picture* before) const noexcept;

    std::unique_ptr<WatchedWindow> m_window;
    TakeFromScreen m_screen;
    std::function<void()> m_onClosed;
    std::vector<std::byte> m_first; // the newest picture that was taken without one before it
    bool m_hasFirst = false;
    bool m_isClosed = false;
};

} // namespace kxvcr
