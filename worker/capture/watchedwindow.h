/**
 * @file
 * The interface to a window that is recorded.
 */
#pragma once

#include "common/win/toplevelwindow.h"

namespace kxvcr {

/** One window, wherever it moves. */
class WatchedWindow {
public:
    virtual ~WatchedWindow() = default;

    /** The window as it is at the moment. When it is gone once it stays gone. */
    virtual kx::WindowView Look() noexcept = 0;
};

} // namespace kxvcr
