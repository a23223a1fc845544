/**
 * @file
 * What part of the screen is captured.
 */
#pragma once

#include "worker/capture/screenlayout.h"

#include <cstdint>

namespace kxvcr {

/** What part of the screen the pictures show. */
struct CaptureArea {
    ScreenRect rect;            ///< the pixels at the time of the command; their size is the size of every picture
    HMONITOR monitor = nullptr; ///< set when the area is a whole monitor, whose changes are followed
    bool wholeScreen = false;   ///< the area is the virtual screen, whose changes are followed
    std::uint32_t window = 0;   ///< low 32 bits of the handle of the window whose frame is followed; 0: none
};

/** Where the area is now; without pixels when its monitor is gone. */
inline ScreenRect SourceNow(const CaptureArea& area) noexcept {
    if (area.wholeScreen) {
        return WholeScreen();
    }
    if (area.monitor != nullptr) {
        return MonitorArea(area.monitor);
    }
    return area.rect;
}

} // namespace kxvcr
