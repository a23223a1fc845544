/**
 * @file
 * The monitors, as the worker numbers them.
 */
#pragma once

#include <string>
#include <vector>

namespace kxrecord {

/** A rectangle of the screen, in physical pixels. */
struct ScreenArea {
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;

    friend bool operator==(const ScreenArea&, const ScreenArea&) = default;
};

/** "1280x720 from -1280,0 on". */
std::wstring AreaText(const ScreenArea& area);

struct Display {
    ScreenArea area;
    bool isPrimary = false;
    unsigned int scalingPercent = 0; ///< 0 when the system does not tell
    std::wstring name;               ///< of the device, as \\.\DISPLAY1
    std::wstring description;        ///< what is connected there; empty when the system does not tell
};

/** Primary first, then from left to right and top to bottom: the monitor with the number 1 comes first. */
std::vector<Display> CurrentDisplays();

/** What there is to record; without pixels when there is no screen. */
struct Screen {
    ScreenArea whole;
    std::vector<ScreenArea> monitors; ///< in the order in which the worker numbers them, from 1
};

/** The screen as it is now. */
Screen CurrentScreen();

} // namespace kxrecord
