/**
 * @file
 * Lists what can be recorded.
 */
#pragma once

#include "host/displays.h"
#include "host/windowlist.h"

#include <string>
#include <vector>

namespace kxrecord {

/** Of what a list is asked for. */
enum class Listed { Windows, Displays };

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

/** One JSON object; docs/kxrecord.md has every key. */
std::wstring WindowsJson(const std::vector<WindowInfo>& windows);
std::wstring DisplaysJson(const std::vector<Display>& displays);

} // namespace kxrecord
