#include "progress.h"

#include "console.h"

#include <cwchar>
#include <iterator>
#include <utility>

namespace {

std::wstring ClockText(std::chrono::milliseconds time) {
    const long long tenths = time.count() / 100;
    wchar_t text[40] = {};
    std::swprintf(text, std::size(text), L"%02lld:%02lld:%02lld.%lld", tenths / 36000, tenths / 600 % 60,
                  tenths / 10 % 60, tenths % 10);
    return text;
}

} // namespace

Progress::Progress(std::wstring file)
    : m_file(std::move(file)),
      m_start(std::chrono::steady_clock::now()),
      m_redraws(IsTerminal(Stream::Output)) {
    Write(Stream::Output, L"Recording to " + m_file + L" (Ctrl-C stops)\n");
    Update();
}

std::chrono::milliseconds Progress::Elapsed() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - m_start);
}

void Progress::Update() {
    if (m_redraws)
        Write(Stream::Output, L"\r" + ClockText(Elapsed()));
}

void Progress::Finish(std::chrono::milliseconds recorded) {
    const wchar_t* const lineStart = m_redraws ? L"\r" : L"";
    Write(Stream::Output, lineStart + (L"Recorded " + ClockText(recorded)) + L" to " + m_file + L"\n");
}
