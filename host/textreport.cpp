#include "report.h"

#include "console.h"
#include "text.h"

#include <cwchar>
#include <iterator>
#include <utility>

namespace {

using std::chrono::milliseconds;

constexpr wchar_t kPrefix[] = L"kxrecord: ";

std::wstring ClockText(milliseconds time) {
    const long long tenths = time.count() / 100;
    wchar_t text[40] = {};
    static_cast<void>(std::swprintf(text, std::size(text), L"%02lld:%02lld:%02lld.%lld", tenths / 36000,
                                    tenths / 600 % 60, tenths / 10 % 60, tenths % 10));
    return text;
}

class TextReport : public Report {
public:
    void Error(unsigned long, const std::wstring& sentence) override { Complain(sentence); }
    void Warning(const std::wstring& sentence) override { Complain(sentence); }

    void Keeping(std::chrono::seconds length) override {
        Write(Stream::Output, L"Keeping the last " + std::to_wstring(length.count()) +
                                  L" s of the screen (Enter begins the recording with them, Ctrl-C ends)\n");
    }

    void NotRecorded(unsigned long) override { Write(Stream::Output, L"Nothing was recorded\n"); }

    void Recording(const RecordStart& start) override {
        m_file = start.file;
        Write(Stream::Output, L"Recording to " + m_file + L" (Ctrl-C stops)\n");
    }

    void RecordProgress(const RecordState& state) override {
        std::wstring line = ClockText(state.elapsed) + L"  " + std::to_wstring(state.framesDue) + L" frames due";
        if (state.fileBytes) {
            line += L"  " + SizeText(*state.fileBytes);
        }
        if (state.diskFreeBytes) {
            line += L"  " + SizeText(*state.diskFreeBytes) + L" free";
        }
        Redraw(line);
    }

    void Recorded(const RecordState& state, unsigned long) override {
        Redraw({});
        Write(Stream::Output, L"Recorded " + ClockText(state.elapsed) + L" to " + m_file + L"\n");
    }

    void Serving(const LiveStart& start) override {
        Write(Stream::Output, L"Serving the screen at " + start.url + L" (Ctrl-C stops)\n");
        if (!start.networkUrl.empty()) {
            Write(Stream::Output, L"For other machines: " + start.networkUrl + L"\n");
        }
    }

    void LiveProgress(milliseconds elapsed) override { Redraw(ClockText(elapsed)); }

    void Served(milliseconds elapsed, unsigned long) override {
        Redraw({});
        Write(Stream::Output, L"Served for " + ClockText(elapsed) + L"\n");
    }

private:
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

    bool m_redraws = IsTerminal(Stream::Output);
    std::size_t m_drawn = 0;
    std::wstring m_file;
};

} // namespace

std::unique_ptr<Report> MakeTextReport() {
    return std::make_unique<TextReport>();
}
