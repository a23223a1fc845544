/**
 * @file
 * Conversions between the wide texts of Windows and the UTF-8 texts of CLI11 and of piped output.
 */
#pragma once

#include <string>
#include <string_view>

/** @p text in UTF-8; unpaired surrogates become U+FFFD. */
std::string Utf8FromWide(std::wstring_view text);

/** @p text, which is UTF-8, as a wide text; malformed bytes become U+FFFD. */
std::wstring WideFromUtf8(std::string_view text);
