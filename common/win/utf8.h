/**
 * @file
 * Conversion between the UTF-16 of Windows and UTF-8. What is no valid text in the one becomes U+FFFD in the other.
 */
#pragma once

#include <windows.h>

#include <climits>
#include <cstddef>
#include <string>
#include <string_view>

namespace kx {

/**
 * @p text in UTF-8.
 * @return empty on failure, which takes a text of more than INT_MAX units
 * @throws std::bad_alloc
 */
inline std::string Utf8FromWide(std::wstring_view text) {
    if (text.size() > INT_MAX) {
        return {};
    }
    const int length = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, utf8.data(), size, nullptr, nullptr);
    return utf8;
}

/**
 * @p text, which is UTF-8, in UTF-16.
 * @return empty on failure, which takes a text of more than INT_MAX bytes
 * @throws std::bad_alloc
 */
inline std::wstring WideFromUtf8(std::string_view text) {
    if (text.size() > INT_MAX) {
        return {};
    }
    const int length = static_cast<int>(text.size());
    const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), size);
    return wide;
}

} // namespace kx
