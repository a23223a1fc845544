// The windows that can be recorded. Titles are asked of the system, not of the programs, which may hang.
#include "host/windowlist.h"

#include "common/win/handle.h"
#include "common/win/modulepath.h"
#include "common/win/toplevelwindow.h"
#include "host/handlelist.h"
#include "host/text.h"

#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

namespace kxrecord {

namespace {

constexpr wchar_t kListHint[] = L"; \"kxrecord windows\" lists what can be recorded";
constexpr std::wstring_view kHandlePrefix = L"0x";
constexpr std::size_t kHandleDigits = 8;
constexpr std::size_t kMostNamed = 8; ///< windows in a sentence

std::wstring TitleOf(HWND window) {
    std::wstring title(static_cast<std::size_t>(GetWindowTextLengthW(window)) + 1, L'\0');
    title.resize(static_cast<std::size_t>(GetWindowTextW(window, title.data(), static_cast<int>(title.size()))));
    return title;
}

std::wstring ProgramOf(HWND window) {
    DWORD id = 0;
    GetWindowThreadProcessId(window, &id);
    const kx::KernelHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    std::wstring path(kx::kLongestPath, L'\0');
    auto size = static_cast<DWORD>(path.size());
    if (!process || !QueryFullProcessImageNameW(process.Get(), 0, path.data(), &size)) {
        return {};
    }
    path.resize(size);
    return path.substr(path.rfind(L'\\') + 1); // all of it when there is no separator
}

std::optional<WindowInfo> InfoOf(HWND window, HWND console) {
    const kx::WindowView view = kx::ViewOfWindow(window);
    const bool isMinimized = view.state == kx::WindowState::Minimized;
    if (view.state != kx::WindowState::Shown && !isMinimized) {
        return std::nullopt;
    }
    std::wstring title = TitleOf(window);
    if (title.empty()) {
        return std::nullopt;
    }
    const RECT& frame = view.frame;
    return WindowInfo{kx::NumberOfWindow(window),
                      std::move(title),
                      ProgramOf(window),
                      isMinimized,
                      {frame.left, frame.top, frame.right - frame.left, frame.bottom - frame.top},
                      window == console};
}

// A terminal that draws in a window of its own owns the console's.
HWND OwnConsole() {
    const HWND console = GetConsoleWindow();
    return console == nullptr ? nullptr : GetAncestor(console, GA_ROOTOWNER);
}

std::wstring Named(const WindowInfo& window) {
    return L"\"" + Printable(window.title) + L"\" (" + HandleText(window.handle) + L")";
}

using Found = std::vector<WindowInfo>;

template <class Condition>
Found Those(const Found& windows, Condition condition) {
    Found found;
    std::ranges::copy_if(windows, std::back_inserter(found), condition);
    return found;
}

std::optional<std::uint32_t> HandleIn(const std::wstring& wanted) {
    const std::wstring_view digits = std::wstring_view(wanted).substr(std::min(kHandlePrefix.size(), wanted.size()));
    const bool isHandle = wanted.starts_with(kHandlePrefix) && !digits.empty() && digits.size() <= kHandleDigits &&
                          digits.find_first_not_of(L"0123456789abcdefABCDEF") == std::wstring_view::npos;
    return isHandle ? std::optional(static_cast<std::uint32_t>(std::wcstoul(digits.data(), nullptr, 16)))
                    : std::nullopt;
}

bool IsEqual(std::wstring_view a, std::wstring_view b) {
    return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(), static_cast<int>(b.size()), TRUE) ==
           CSTR_EQUAL;
}

bool Contains(std::wstring_view text, std::wstring_view part) {
    return FindStringOrdinal(FIND_FROMSTART, text.data(), static_cast<int>(text.size()), part.data(),
                             static_cast<int>(part.size()), TRUE) >= 0;
}

Found ThoseOfTitle(const Found& windows, const std::wstring& wanted) {
    const Found whole = Those(
        windows, [&wanted](const WindowInfo& known) { return !known.isOwnConsole && IsEqual(known.title, wanted); });
    return !whole.empty() ? whole : Those(windows, [&wanted](const WindowInfo& known) {
        return !known.isOwnConsole && Contains(known.title, wanted);
    });
}

std::wstring TooManySentence(const Found& found, const std::wstring& wanted) {
    std::wstring names;
    for (std::size_t i = 0; i < std::min(found.size(), kMostNamed); ++i) {
        names += (i == 0 ? L"" : L", ") + Named(found[i]);
    }
    if (found.size() > kMostNamed) {
        names += L" and " + std::to_wstring(found.size() - kMostNamed) + L" more";
    }
    return std::to_wstring(found.size()) + L" windows go with \"" + Printable(wanted) + L"\": " + names +
           L"; give more of the title, or the handle";
}

} // namespace

std::vector<WindowInfo> CurrentWindows() {
    HandleList<HWND> handles;
    const auto add = [](HWND window, LPARAM found) noexcept -> BOOL {
        reinterpret_cast<HandleList<HWND>*>(found)->Add(window);
        return TRUE;
    };
    EnumWindows(add, reinterpret_cast<LPARAM>(&handles));
    const HWND console = OwnConsole();
    std::vector<WindowInfo> windows;
    for (const HWND window : handles.Take()) {
        if (std::optional<WindowInfo> info = InfoOf(window, console)) {
            windows.push_back(std::move(*info));
        }
    }
    return windows;
}

std::wstring HandleText(std::uint32_t handle) {
    wchar_t text[20] = {};
    static_cast<void>(std::swprintf(text, std::size(text), L"0x%08x", static_cast<unsigned int>(handle)));
    return text;
}

std::variant<WindowInfo, Failure> ChooseWindow(const std::vector<WindowInfo>& windows, const std::wstring& wanted) {
    const std::optional<std::uint32_t> handle = HandleIn(wanted);
    const Found found = handle ? Those(windows, [&handle](const WindowInfo& known) { return known.handle == *handle; })
                               : ThoseOfTitle(windows, wanted);
    if (found.empty()) {
        return HostFailure(Exit::NoWindow,
                           handle ? L"there is no window " + wanted + L" to record" + kListHint
                                  : L"no window's title has \"" + Printable(wanted) + L"\" in it" + kListHint);
    }
    if (found.size() > 1) {
        return HostFailure(Exit::NoWindow, TooManySentence(found, wanted));
    }
    if (found.front().isMinimized) {
        return HostFailure(Exit::NoWindow, L"the window " + Named(found.front()) + L" is minimised; restore it first");
    }
    return found.front();
}

} // namespace kxrecord
