/**
 * @file
 * Conversion between UTF-16 and UTF-8. What is no valid text in the one becomes U+FFFD in the other.
 */
#pragma once

#include <windows.h>

#include <string>

/** @p text in UTF-8; a failure is an empty string. */
inline std::string Utf8FromWide(const std::wstring& text) {
    const int length = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, utf8.data(), size, nullptr, nullptr);
    return utf8;
}

/** @p text in UTF-16; a failure is an empty string. */
inline std::wstring WideFromUtf8(const std::string& text) {
    const int length = static_cast<int>(text.size());
    const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), size);
    return wide;
}
