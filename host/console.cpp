// Standard streams: a terminal takes wide characters, anything else UTF-8.
#include "host/console.h"

#include "common/win/utf8.h"

#include <windows.h>

#include <string>

namespace kxrecord {

namespace {

HANDLE HandleOf(Stream stream) {
    return GetStdHandle(stream == Stream::Output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

/** Gives text on standard output the colour while it lives. */
class Ink {
public:
    explicit Ink(WORD foreground) {
        CONSOLE_SCREEN_BUFFER_INFO screen = {};
        if (!GetConsoleScreenBufferInfo(HandleOf(Stream::Output), &screen)) {
            return;
        }
        m_before = screen.wAttributes;
        SetConsoleTextAttribute(HandleOf(Stream::Output), static_cast<WORD>((m_before & ~kForeground) | foreground));
    }
    ~Ink() {
        if (m_before != kNotSet) {
            SetConsoleTextAttribute(HandleOf(Stream::Output), m_before);
        }
    }
    Ink(const Ink&) = delete;
    Ink& operator=(const Ink&) = delete;

private:
    static constexpr WORD kForeground = FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_BLUE | FOREGROUND_INTENSITY;
    static constexpr WORD kNotSet = 0xFFFF;
    WORD m_before = kNotSet;
};

// As no-color.org has it: an empty variable does not count.
bool IsColourWanted() {
    return GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) <= 1;
}

WORD ForegroundOf(Colour colour) {
    switch (colour) {
    case Colour::Heading:
        return FOREGROUND_GREEN | FOREGROUND_BLUE | FOREGROUND_INTENSITY;
    case Colour::Good:
        return FOREGROUND_GREEN | FOREGROUND_INTENSITY;
    case Colour::Faint:
        return FOREGROUND_INTENSITY;
    case Colour::Plain:
        break;
    }
    return FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_BLUE;
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
    const std::string utf8 = kx::Utf8FromWide(text);
    WriteFile(HandleOf(stream), utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr);
}

std::size_t TerminalWidth() {
    CONSOLE_SCREEN_BUFFER_INFO screen = {};
    if (!GetConsoleScreenBufferInfo(HandleOf(Stream::Output), &screen)) {
        return 0;
    }
    const int columns = screen.srWindow.Right - screen.srWindow.Left + 1;
    return static_cast<std::size_t>(columns);
}

void WriteColoured(Colour colour, std::wstring_view text) {
    if (colour == Colour::Plain || !IsColourWanted()) {
        Write(Stream::Output, text);
        return;
    }
    const Ink ink(ForegroundOf(colour));
    Write(Stream::Output, text);
}

} // namespace kxrecord
