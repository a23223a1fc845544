/**
 * @file
 * Lists what can be recorded.
 */
#pragma once

#include "host/displays.h"
#include "host/sounddevices.h"
#include "host/windowlist.h"

#include <string>
#include <vector>

namespace kxrecord {

/** Of what a list is asked for. */
enum class Listed { Windows, Displays, Sounds };

struct ListOptions {
    Listed what = Listed::Windows;
    bool json = false; ///< one JSON object instead of lines
};

/** Prints the list to standard output. */
void PrintList(const ListOptions& options);

// The texts that are printed, with line feeds:

/** A line for each window, in columns; a sentence when there is none. */
std::wstring WindowLines(const std::vector<WindowInfo>& windows);
std::wstring DisplayLines(const std::vector<Display>& displays);
std::wstring SoundLines(const std::vector<kx::SoundEndpoint>& sounds);

/** One JSON object; docs/kxrecord.md has every key. */
std::wstring WindowsJson(const std::vector<WindowInfo>& windows);
std::wstring DisplaysJson(const std::vector<Display>& displays);
std::wstring SoundsJson(const std::vector<kx::SoundEndpoint>& sounds);

} // namespace kxrecord
