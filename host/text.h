/**
 * @file
 * Conversions between the wide texts of Windows and the UTF-8 texts of CLI11 and of piped output, and sizes as text.
 */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kxrecord {

/** @p text in UTF-8; unpaired surrogates become U+FFFD. */
std::string Utf8FromWide(std::wstring_view text);

/** @p text, which is UTF-8, as a wide text; malformed bytes become U+FFFD. */
std::wstring WideFromUtf8(std::string_view text);

/** A number of bytes in MB or GB (1024 x 1024, or 1024 times that) with one decimal. */
std::wstring SizeText(std::uint64_t bytes);

/** A text from elsewhere with its control characters as \x and digits: nothing in it moves the cursor or breaks a line.
 */
std::wstring Printable(std::wstring_view text);

} // namespace kxrecord
