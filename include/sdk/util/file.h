/**
 * @file
 * File test and digest of Util.dll. Paths are in the process's ANSI code page. Nothing is thrown but std::bad_alloc;
 * both functions may be called from any thread.
 */
#pragma once

#include "sdk/util/utilexport.h"

#include <string>

namespace DE {

/** Whether @p path names an existing file; a folder is not a file. */
KXUTIL_API bool FileExists(const std::string& path);

/**
 * SHA-256 of a file's bytes.
 * @return 64 lower-case hexadecimal digits, or an empty string when the file cannot be read to its end
 */
KXUTIL_API std::string GetFileSha256Hex(const std::string& path);

} // namespace DE
