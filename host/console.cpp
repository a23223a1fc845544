#include "console.h"

#include "text.h"

#include <windows.h>

#include <string>

namespace {

HANDLE HandleOf(Stream stream) {
    return GetStdHandle(stream == Stream::Output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

} // namespace

bool IsTerminal(Stream stream) {
    DWORD mode = 0;
    return GetConsoleMode(HandleOf(stream), &mode) != FALSE;
}

void Write(Stream stream, std::wstring_view text) {
    DWORD written = 0;
    if (IsTerminal(stream)) {
        WriteConsoleW(HandleOf(stream), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
        return;
    }
    const std::string utf8 = Utf8FromWide(text);
    WriteFile(HandleOf(stream), utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr);
}
