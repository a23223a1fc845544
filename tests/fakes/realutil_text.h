/** @file The real text functions inside the scriptable library (see realutil.h). */
#pragma once

#include <string>

namespace realutil {

char* WcharToChar(const wchar_t* text);
std::string UnicodeToANSI(const std::wstring& text);
std::wstring ANSIToUnicode(const std::string& text);
std::string TrimSP(const std::string& text);
std::string LowerCase(const std::string& text);
std::string GetRandomString(int length);

} // namespace realutil
