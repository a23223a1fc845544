/**
 * @file
 * Text helpers of Util.dll. "Narrow" is the process's ANSI code page (CP_ACP) unless UTF-8 is said. Nothing is thrown
 * but std::bad_alloc; every function may be called from any thread.
 */
#pragma once

#include "sdk/util/utilexport.h"

#include <string>

namespace DE {

/**
 * A narrow copy of @p text, or null when @p text is null or cannot be converted. Characters that the code page lacks
 * become others as in UnicodeToANSI. The block comes from malloc; the caller frees it with free.
 */
KXUTIL_API char* WcharToChar(const wchar_t* text);

/**
 * Wide to narrow; a failure is an empty string. A character that the code page lacks becomes the one that the system
 * deems most like it (its best fit: L with a stroke becomes L), and the code page's default character, most often "?",
 * where there is none.
 */
KXUTIL_API std::string UnicodeToANSI(const std::wstring& text);

/** Narrow to wide; a failure is an empty string. */
KXUTIL_API std::wstring ANSIToUnicode(const std::string& text);

/** @p text without leading and trailing blanks (U+0020 only). */
KXUTIL_API std::string TrimSP(const std::string& text);

/** @p text with A to Z in lower case; every other byte stays. */
KXUTIL_API std::string LowerCase(const std::string& text);

/**
 * Random letters and digits from the system's generator (BCryptGenRandom).
 * @param length characters wanted; 0 or less gives an empty string, as does a failing generator
 */
KXUTIL_API std::string GetRandomString(int length);

} // namespace DE
