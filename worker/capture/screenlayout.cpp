// Where the screen's pixels are: asks Windows for the virtual screen and its monitors and puts the monitors into
// an order that hosts can count on.
#include "worker/capture/screenlayout.h"

#include <algorithm>
#include <cstddef>
#include <tuple>

namespace kxvcr {

bool Contains(const ScreenRect& outer, const ScreenRect& inner) noexcept {
    if (inner.width == 0 || inner.height == 0) {
        return false;
    }
    const auto covers = [](std::int64_t outerStart, std::int64_t outerLength, std::int64_t start, std::int64_t length) {
        return start >= outerStart && start + length <= outerStart + outerLength;
    };
    return covers(outer.left, outer.width, inner.left, inner.width) &&
           covers(outer.top, outer.height, inner.top, inner.height);
}

ScreenRect Intersection(const ScreenRect& a, const ScreenRect& b) noexcept {
    const auto end = [](std::int32_t start, std::uint32_t length) { return std::int64_t{start} + length; };
    const std::int32_t left = std::max(a.left, b.left);
    const std::int32_t top = std::max(a.top, b.top);
    const std::int64_t width = std::min(end(a.left, a.width), end(b.left, b.width)) - left;
    const std::int64_t height = std::min(end(a.top, a.height), end(b.top, b.height)) - top;
    if (width <= 0 || height <= 0) {
        return {};
    }
    return {left, top, static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
}

ScreenRect WholeScreen() noexcept {
    return {GetSystemMetrics(SM_XVIRTUALSCREEN), GetSystemMetrics(SM_YVIRTUALSCREEN),
            static_cast<std::uint32_t>(GetSystemMetrics(SM_CXVIRTUALSCREEN)),
            static_cast<std::uint32_t>(GetSystemMetrics(SM_CYVIRTUALSCREEN))};
}

ScreenRect MonitorArea(HMONITOR monitor) noexcept {
    MONITORINFO info = {};
    info.cbSize = sizeof(info);
    if (!GetMonitorInfoW(monitor, &info)) {
        return {};
    }
    const RECT& area = info.rcMonitor;
    return {area.left, area.top, static_cast<std::uint32_t>(area.right - area.left),
            static_cast<std::uint32_t>(area.bottom - area.top)};
}

namespace {

// No exception may pass through the system's enumeration, so the handles land in a fixed array.
struct MonitorHandles {
    HMONITOR handles[64] = {};
    std::size_t count = 0;
};

BOOL CALLBACK CollectMonitor(HMONITOR monitor, HDC, LPRECT, LPARAM parameter) {
    auto& found = *reinterpret_cast<MonitorHandles*>(parameter);
    found.handles[found.count++] = monitor;
    return found.count < std::size(found.handles);
}

} // namespace

ScreenLayout CurrentScreenLayout() {
    MonitorHandles found;
    EnumDisplayMonitors(nullptr, nullptr, CollectMonitor, reinterpret_cast<LPARAM>(&found));
    ScreenLayout layout{WholeScreen(), {}};
    for (std::size_t i = 0; i < found.count; ++i) {
        layout.monitors.push_back({found.handles[i], MonitorArea(found.handles[i])});
    }
    // The primary monitor is the one at the origin.
    std::sort(layout.monitors.begin(), layout.monitors.end(), [](const Monitor& a, const Monitor& b) {
        const auto key = [](const ScreenRect& area) {
            return std::make_tuple(area.left != 0 || area.top != 0, area.left, area.top);
        };
        return key(a.area) < key(b.area);
    });
    return layout;
}

} // namespace kxvcr
