/**
 * @file
 * Texts as the host prints them: sizes, and what others wrote.
 */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kxrecord {

/** A number of bytes in MB or GB (1024 x 1024, or 1024 times that) with one decimal. */
std::wstring SizeText(std::uint64_t bytes);

/** A text from elsewhere with its control characters as \x and digits: nothing in it moves the cursor or breaks a line.
 */
std::wstring Printable(std::wstring_view text);

} // namespace kxrecord
