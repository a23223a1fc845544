/**
 * @file
 * Where the screen's pixels are: the virtual screen and its monitors, in physical screen pixels.
 */
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

namespace kxvcr {

/** A rectangle of screen pixels; left and top are negative on monitors left of or above the primary one. */
struct ScreenRect {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;

    friend bool operator==(const ScreenRect&, const ScreenRect&) = default;
};

/** Whether @p inner has pixels and all of them lie in @p outer; no value overflows. */
bool Contains(const ScreenRect& outer, const ScreenRect& inner) noexcept;

/** The pixels that both have; without pixels when there are none. No value overflows. */
ScreenRect Intersection(const ScreenRect& a, const ScreenRect& b) noexcept;

/** One monitor; the handle is valid until the display configuration changes. */
struct Monitor {
    HMONITOR handle = nullptr;
    ScreenRect area;
};

struct ScreenLayout {
    ScreenRect whole;              ///< the virtual screen
    std::vector<Monitor> monitors; ///< the primary monitor, then the others from left to right and top to bottom
};

/** The virtual screen as it is now. */
ScreenRect WholeScreen() noexcept;

/** The monitor's area as it is now; without pixels when the monitor is gone. */
ScreenRect MonitorArea(HMONITOR monitor) noexcept;

/** The layout as it is now. @throws std::bad_alloc */
ScreenLayout CurrentScreenLayout();

} // namespace kxvcr
