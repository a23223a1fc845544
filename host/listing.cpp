// Lists what can be recorded, for people and for machines.
#include "host/listing.h"

#include "common/win/utf8.h"
#include "host/console.h"
#include "host/json.h"
#include "host/text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

namespace kxrecord {

namespace {

using nlohmann::ordered_json;

template <std::size_t kColumns>
using Row = std::array<std::wstring, kColumns>;

// The columns of all rows below each other, with two blanks between them and none at the end.
template <std::size_t kColumns>
std::wstring Aligned(const std::vector<Row<kColumns>>& rows) {
    std::array<std::size_t, kColumns> widths = {};
    for (const Row<kColumns>& row : rows) {
        for (std::size_t i = 0; i + 1 < kColumns; ++i) {
            widths[i] = std::max(widths[i], row[i].size() + 2);
        }
    }
    std::wstring lines;
    for (const Row<kColumns>& row : rows) {
        for (std::size_t i = 0; i < kColumns; ++i) {
            lines += row[i] + std::wstring(std::max(widths[i], row[i].size()) - row[i].size(), L' ');
        }
        lines.resize(lines.find_last_not_of(L' ') + 1);
        lines += L'\n';
    }
    return lines;
}

void AddArea(const ScreenArea& area, bool isKnown, ordered_json& object) {
    object["left"] = isKnown ? ordered_json(area.left) : ordered_json();
    object["top"] = isKnown ? ordered_json(area.top) : ordered_json();
    object["width"] = isKnown ? ordered_json(area.width) : ordered_json();
    object["height"] = isKnown ? ordered_json(area.height) : ordered_json();
}

std::wstring TextOf(const ordered_json& document) {
    constexpr int kIndent = 2;
    return kx::WideFromUtf8(document.dump(kIndent)) + L"\n";
}

std::wstring ScalingText(unsigned int percent) {
    return percent == 0 ? std::wstring(L"?") : std::to_wstring(percent) + L" %";
}

} // namespace

ordered_json WindowObject(const WindowInfo& window) {
    ordered_json object;
    object["handle"] = window.handle;
    object["title"] = kx::Utf8FromWide(window.title);
    object["program"] = OrNull(window.program);
    object["minimized"] = window.isMinimized;
    AddArea(window.frame, !window.isMinimized, object);
    return object;
}

std::wstring WindowLines(const std::vector<WindowInfo>& windows) {
    if (windows.empty()) {
        return L"There is no window to record\n";
    }
    std::vector<Row<4>> rows;
    for (const WindowInfo& window : windows) {
        rows.push_back({HandleText(window.handle), window.isMinimized ? L"minimised" : AreaText(window.frame),
                        Printable(window.program), Printable(window.title)});
    }
    return Aligned(rows);
}

std::wstring WindowsJson(const std::vector<WindowInfo>& windows) {
    ordered_json document = SchemaObject();
    document["windows"] = ordered_json::array();
    for (const WindowInfo& window : windows) {
        document["windows"].push_back(WindowObject(window));
    }
    return TextOf(document);
}

std::wstring DisplayLines(const std::vector<Display>& displays) {
    if (displays.empty()) {
        return L"There is no screen to record\n";
    }
    std::vector<Row<6>> rows;
    for (const Display& display : displays) {
        rows.push_back({std::to_wstring(rows.size() + 1), AreaText(display.area), display.isPrimary ? L"primary" : L"",
                        ScalingText(display.scalingPercent), Printable(display.name), Printable(display.description)});
    }
    return Aligned(rows);
}

std::wstring DisplaysJson(const std::vector<Display>& displays) {
    ordered_json document = SchemaObject();
    document["displays"] = ordered_json::array();
    for (const Display& display : displays) {
        ordered_json object;
        object["monitor"] = document["displays"].size() + 1;
        AddArea(display.area, true, object);
        object["primary"] = display.isPrimary;
        object["scalingPercent"] = display.scalingPercent == 0 ? ordered_json() : ordered_json(display.scalingPercent);
        object["name"] = kx::Utf8FromWide(display.name);
        object["description"] = OrNull(display.description);
        document["displays"].push_back(std::move(object));
    }
    return TextOf(document);
}

std::wstring SoundLines(const std::vector<kx::SoundEndpoint>& sounds) {
    if (sounds.empty()) {
        return L"There is no sound device\n";
    }
    std::vector<Row<4>> rows;
    for (const kx::SoundEndpoint& sound : sounds) {
        rows.push_back({sound.isCapture ? L"microphone" : L"machine", sound.isDefault ? L"default" : L"",
                        Printable(sound.name), Printable(sound.id)});
    }
    return Aligned(rows);
}

std::wstring SoundsJson(const std::vector<kx::SoundEndpoint>& sounds) {
    ordered_json document = SchemaObject();
    document["sounds"] = ordered_json::array();
    for (const kx::SoundEndpoint& sound : sounds) {
        ordered_json object;
        object["id"] = kx::Utf8FromWide(sound.id);
        object["name"] = kx::Utf8FromWide(sound.name);
        object["source"] = sound.isCapture ? "microphone" : "machine";
        object["default"] = sound.isDefault;
        document["sounds"].push_back(std::move(object));
    }
    return TextOf(document);
}

void PrintList(const ListOptions& options) {
    switch (options.what) {
    case Listed::Windows:
        Write(Stream::Output, options.json ? WindowsJson(CurrentWindows()) : WindowLines(CurrentWindows()));
        return;
    case Listed::Displays:
        Write(Stream::Output, options.json ? DisplaysJson(CurrentDisplays()) : DisplayLines(CurrentDisplays()));
        return;
    case Listed::Sounds:
        Write(Stream::Output, options.json ? SoundsJson(CurrentSounds()) : SoundLines(CurrentSounds()));
        return;
    }
}

} // namespace kxrecord
