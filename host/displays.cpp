// The monitors, as the system tells of them.
#include "host/displays.h"

#include "host/handlelist.h"

#include <windows.h>

#include <shellscalingapi.h>

#include <algorithm>
#include <tuple>

namespace kxrecord {

namespace {

constexpr unsigned int kDpiOfFullSize = 96;

ScreenArea AreaOf(const RECT& area) {
    return {area.left, area.top, area.right - area.left, area.bottom - area.top};
}

unsigned int ScalingPercent(HMONITOR monitor) {
    UINT across = 0;
    UINT down = 0;
    const HRESULT result = GetDpiForMonitor(monitor, MDT_EFFECTIVE_DPI, &across, &down);
    return SUCCEEDED(result) ? across * 100 / kDpiOfFullSize : 0;
}

std::wstring DescriptionOf(const wchar_t* device) {
    DISPLAY_DEVICEW monitor = {};
    monitor.cb = sizeof(monitor);
    return EnumDisplayDevicesW(device, 0, &monitor, 0) ? monitor.DeviceString : L"";
}

Display DisplayOf(HMONITOR monitor) {
    MONITORINFOEXW info = {};
    info.cbSize = sizeof(info);
    if (!GetMonitorInfoW(monitor, &info)) {
        return {};
    }
    return {AreaOf(info.rcMonitor), (info.dwFlags & MONITORINFOF_PRIMARY) != 0, ScalingPercent(monitor), info.szDevice,
            DescriptionOf(info.szDevice)};
}

std::vector<HMONITOR> Monitors() {
    HandleList<HMONITOR> monitors;
    const auto add = [](HMONITOR monitor, HDC, LPRECT, LPARAM found) noexcept -> BOOL {
        reinterpret_cast<HandleList<HMONITOR>*>(found)->Add(monitor);
        return TRUE;
    };
    EnumDisplayMonitors(nullptr, nullptr, add, reinterpret_cast<LPARAM>(&monitors));
    return monitors.Take();
}

} // namespace

std::wstring AreaText(const ScreenArea& area) {
    return std::to_wstring(area.width) + L"x" + std::to_wstring(area.height) + L" from " + std::to_wstring(area.left) +
           L"," + std::to_wstring(area.top) + L" on";
}

std::vector<Display> CurrentDisplays() {
    std::vector<Display> displays;
    for (const HMONITOR monitor : Monitors()) {
        displays.push_back(DisplayOf(monitor));
    }
    // The primary monitor is the one whose corner is 0,0.
    std::ranges::sort(displays, {}, [](const Display& display) {
        const ScreenArea& area = display.area;
        return std::make_tuple(area.left != 0 || area.top != 0, area.left, area.top);
    });
    return displays;
}

Screen CurrentScreen() {
    Screen screen;
    screen.whole = {GetSystemMetrics(SM_XVIRTUALSCREEN), GetSystemMetrics(SM_YVIRTUALSCREEN),
                    GetSystemMetrics(SM_CXVIRTUALSCREEN), GetSystemMetrics(SM_CYVIRTUALSCREEN)};
    for (const Display& display : CurrentDisplays()) {
        screen.monitors.push_back(display.area);
    }
    return screen;
}

} // namespace kxrecord
