// What a recording or a live view tells a person.
#include "host/report.h"

#include "host/console.h"
#include "host/text.h"

#include <chrono>
#include <cstdint>
#include <cwchar>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace kxrecord {

namespace {

using std::chrono::milliseconds;

constexpr wchar_t kPrefix[] = L"kxrecord: ";
constexpr std::wstring_view kGap = L"  ";

std::wstring CountText(std::uint64_t count, const std::wstring& noun) {
    return std::to_wstring(count) + L" " + noun + (count == 1 ? L"" : L"s");
}

std::wstring PicturesText(const RecordState& state) {
    return state.worker ? CountText(state.worker->pictures, L"picture")
                        : CountText(state.framesDue, L"frame") + L" due";
}

class TextReport : public Report {
public:
    explicit TextReport(Verbosity verbosity) : m_isQuiet(verbosity == Verbosity::Quiet) {}

    void Error(const Failure& failure) override { Complain(failure.sentence); }
    void Warning(const std::wstring& sentence) override { Complain(sentence); }

    void Window(const WindowInfo& window) override {
        const std::wstring of = window.program.empty() ? L"" : L" of " + Printable(window.program);
        Say(L"The window is \"" + Printable(window.title) + L"\"" + of + L" (" + HandleText(window.handle) + L")");
    }

    void Keeping(std::chrono::seconds length) override {
        Say(L"Keeping the last " + std::to_wstring(length.count()) +
            L" s of the screen (Enter begins the recording with them, Ctrl-C ends)");
    }

    void NotRecorded(Exit) override { Say(L"Nothing was recorded"); }

    void Recording(const RecordStart& start) override {
        m_file = start.file;
        Say(L"Recording to " + m_file + L" (Ctrl-C stops)");
    }

    void RecordProgress(const RecordState& state) override {
        if (m_redraws) {
            Redraw(ProgressText(state, TerminalWidth()));
        }
    }

    void Recorded(const RecordState& state, Exit) override {
        Redraw({});
        const std::wstring size = state.fileBytes ? L", " + SizeText(*state.fileBytes) : std::wstring();
        Say(L"Recorded " + ClockText(state.elapsed) + L" to " + m_file + L" (" + PicturesText(state) + size + L")");
    }

    void Serving(const LiveStart& start) override {
        Say(L"Serving the screen at " + start.url + L" (Ctrl-C stops)");
        if (!start.networkUrl.empty()) {
            Say(L"For other machines: " + start.networkUrl);
        }
    }

    void LiveProgress(milliseconds elapsed) override { Redraw(ClockText(elapsed)); }

    void Served(milliseconds elapsed, Exit) override {
        Redraw({});
        Say(L"Served for " + ClockText(elapsed));
    }

private:
    void Say(const std::wstring& line) const {
        if (!m_isQuiet) {
            Write(Stream::Output, line + L"\n");
        }
    }

    void Complain(const std::wstring& sentence) {
        Redraw({});
        Write(Stream::Error, kPrefix + sentence + L"\n");
    }

    // Puts the line in place of the one drawn before; an empty one clears it and leaves the cursor at its start.
    void Redraw(std::wstring line) {
        if (!m_redraws) {
            return;
        }
        const std::size_t before = std::exchange(m_drawn, line.size());
        if (before > line.size()) {
            line.resize(before, L' ');
        }
        if (!line.empty()) {
            Write(Stream::Output, L"\r" + line + (m_drawn == 0 ? L"\r" : L""));
        }
    }

    bool m_isQuiet;
    bool m_redraws = !m_isQuiet && IsTerminal(Stream::Output);
    std::size_t m_drawn = 0;
    std::wstring m_file;
};

} // namespace

std::wstring ClockText(milliseconds time) {
    const long long tenths = time.count() / 100;
    wchar_t text[40] = {};
    static_cast<void>(std::swprintf(text, std::size(text), L"%02lld:%02lld:%02lld.%lld", tenths / 36000,
                                    tenths / 600 % 60, tenths / 10 % 60, tenths % 10));
    return text;
}

std::wstring ProgressText(const RecordState& state, std::size_t width) {
    const std::wstring size = state.fileBytes ? SizeText(*state.fileBytes) : std::wstring();
    const std::wstring free = state.diskFreeBytes ? SizeText(*state.diskFreeBytes) + L" free" : std::wstring();
    std::wstring line = ClockText(state.elapsed);
    for (const std::wstring& field : {PicturesText(state), size, free}) {
        // The last cell stays free: some terminals begin a new line when it is filled.
        if (!field.empty() && line.size() + kGap.size() + field.size() < width) {
            line.append(kGap).append(field);
        }
    }
    return line;
}

std::unique_ptr<Report> MakeTextReport(Verbosity verbosity) {
    return std::make_unique<TextReport>(verbosity);
}

} // namespace kxrecord
