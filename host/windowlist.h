/**
 * @file
 * The windows that can be recorded, and the one that a user means.
 */
#pragma once

#include "host/displays.h"
#include "host/failure.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace kxrecord {

/** A top-level window that has a title and is shown or minimised. */
struct WindowInfo {
    std::uint32_t handle = 0; ///< its low 32 bits, which are all that count
    std::wstring title;
    std::wstring program; ///< file name; empty when the system does not tell
    bool isMinimized = false;
    ScreenArea frame;          ///< its visible part; without pixels when it is minimised
    bool isOwnConsole = false; ///< the terminal that kxrecord was started in
};

/** From front to back. */
std::vector<WindowInfo> CurrentWindows();

/** "0x0001002a". */
std::wstring HandleText(std::uint32_t handle);

/**
 * The window that @p wanted names: "0x" and a handle, or a part of a title, in whatever case. A whole title goes before
 * a part. The own terminal is found by its handle alone: its title often has the command line in it.
 * @return the window, or why there is none
 */
std::variant<WindowInfo, Failure> ChooseWindow(const std::vector<WindowInfo>& windows, const std::wstring& wanted);

} // namespace kxrecord
