/**
 * @file
 * Where the version of the OEM image is kept: the file that the image brings, and the registry value into which the
 * file's text is copied.
 */
#pragma once

#include "common/win/handle.h"

#include <windows.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace oemversion {

inline constexpr char kFile[] = R"(c:\recovery\OEM\version.txt)";
inline constexpr wchar_t kKey[] = L"HARDWARE\\DESCRIPTION\\System\\Product"; // under HKEY_LOCAL_MACHINE
inline constexpr wchar_t kValueName[] = L"Version";

/** The file's bytes as they are stored, up to where it can be read; nothing when it cannot be opened. */
inline std::optional<std::string> ReadFile() {
    const kx::FileHandle file(CreateFileA(kFile, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return std::nullopt;
    }
    std::string bytes;
    std::array<char, 1024> block{};
    DWORD count = 0;
    while (::ReadFile(file.Get(), block.data(), static_cast<DWORD>(block.size()), &count, nullptr) && count != 0) {
        bytes.append(block.data(), count);
    }
    return bytes;
}

/** Whether the file's @p bytes begin with a UTF-16 byte-order mark, of either order. */
inline bool HasUtf16Mark(std::string_view bytes) {
    return bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF");
}

} // namespace oemversion
