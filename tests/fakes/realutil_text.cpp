// The real text functions under other names.
#define WcharToChar RealWcharToChar
#define UnicodeToANSI RealUnicodeToANSI
#define ANSIToUnicode RealANSIToUnicode
#define TrimSP RealTrimSP
#define LowerCase RealLowerCase
#define GetRandomString RealGetRandomString
#include "suite/util/text.cpp" // NOLINT(bugprone-suspicious-include)
#undef WcharToChar
#undef UnicodeToANSI
#undef ANSIToUnicode
#undef TrimSP
#undef LowerCase
#undef GetRandomString

#include "fakes/realutil_text.h"

namespace realutil {

char* WcharToChar(const wchar_t* text) {
    return DE::RealWcharToChar(text);
}
std::string UnicodeToANSI(const std::wstring& text) {
    return DE::RealUnicodeToANSI(text);
}
std::wstring ANSIToUnicode(const std::string& text) {
    return DE::RealANSIToUnicode(text);
}
std::string TrimSP(const std::string& text) {
    return DE::RealTrimSP(text);
}
std::string LowerCase(const std::string& text) {
    return DE::RealLowerCase(text);
}
std::string GetRandomString(int length) {
    return DE::RealGetRandomString(length);
}

} // namespace realutil
