/**
 * @file
 * Bytes as hexadecimal digits.
 */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kx {

/** Appends @p byte to @p text as two hexadecimal digits in lower case. @throws std::bad_alloc */
template <class Character>
void AppendHex(std::basic_string<Character>& text, std::uint8_t byte) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    text += static_cast<Character>(kDigits[byte >> 4]);
    text += static_cast<Character>(kDigits[byte & 0xF]);
}

} // namespace kx
