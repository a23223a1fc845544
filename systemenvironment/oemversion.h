/**
 * @file
 * Where the version of the OEM image is kept: the file that the image brings, and the registry value into which the
 * file's text is copied.
 */
#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

namespace oemversion {

inline constexpr char kFile[] = R"(c:\recovery\OEM\version.txt)";
inline constexpr wchar_t kKey[] = L"HARDWARE\\DESCRIPTION\\System\\Product"; // under HKEY_LOCAL_MACHINE
inline constexpr wchar_t kValue[] = L"Version";

/** The file, opened to be read as it is stored. */
inline std::ifstream OpenFile() {
    return std::ifstream(kFile, std::ios::binary);
}

/** The bytes of an opened file up to its end; none when it did not open. */
inline std::string ReadAll(const std::ifstream& file) {
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

/** Whether the file's @p bytes begin with a UTF-16 byte-order mark, of either order. */
inline bool HasUtf16Mark(std::string_view bytes) {
    return bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF");
}

} // namespace oemversion
