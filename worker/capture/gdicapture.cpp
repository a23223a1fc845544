// Captures a part of the screen with GDI. What changed is found by comparing the picture with the one before.
#include "worker/capture/gdicapture.h"

#include "worker/capture/difference.h"
#include "worker/capture/gdi.h"
#include "worker/capture/placement.h"

#include <cstdint>
#include <optional>

namespace kxvcr {

namespace {

int Signed(std::uint32_t value) noexcept {
    return static_cast<int>(value);
}

bool CopyScreen(HDC picture, const ScreenRect& visible, const ScreenRect& source, const ScreenRect& target) noexcept {
    // Taken afresh each time: a device context from before a change of the display may show the old one.
    const ScreenDc screen(GetDC(nullptr));
    if (!screen) {
        return false;
    }
    const ScreenRect shown = PartInPicture(visible, source, target);
    if (shown.width == 0 || shown.height == 0) {
        return true;
    }
    if (shown.width == visible.width && shown.height == visible.height) {
        return BitBlt(picture, shown.left, shown.top, Signed(shown.width), Signed(shown.height), screen.Get(),
                      visible.left, visible.top, SRCCOPY) != FALSE;
    }
    SetStretchBltMode(picture, HALFTONE);
    SetBrushOrgEx(picture, 0, 0, nullptr); // as HALFTONE asks
    return StretchBlt(picture, shown.left, shown.top, Signed(shown.width), Signed(shown.height), screen.Get(),
                      visible.left, visible.top, Signed(visible.width), Signed(visible.height), SRCCOPY) != FALSE;
}

void DrawCursor(HDC picture, const ScreenRect& source, const ScreenRect& target) noexcept {
    CURSORINFO cursor = {};
    cursor.cbSize = sizeof(cursor);
    if (!GetCursorInfo(&cursor) || (cursor.flags & CURSOR_SHOWING) == 0 || cursor.hCursor == nullptr) {
        return;
    }
    // The shape belongs to another program, and may be gone or out of reach; the ordinary arrow shows the place then.
    HCURSOR shape = cursor.hCursor;
    ICONINFO icon = {};
    if (!GetIconInfo(shape, &icon)) {
        shape = LoadCursorW(nullptr, IDC_ARROW);
        if (!GetIconInfo(shape, &icon)) {
            return;
        }
    }
    const Bitmap mask(icon.hbmMask);
    const Bitmap color(icon.hbmColor);
    const PicturePoint place = PlaceInPicture(cursor.ptScreenPos, source, target);
    DrawIconEx(picture, place.x - Signed(icon.xHotspot), place.y - Signed(icon.yHotspot), shape, 0, 0, 0, nullptr,
               DI_NORMAL);
}

} // namespace

Grab GdiCapture::Take(Picture& target, const Picture* before) noexcept {
    return TakeFrom(SourceNow(m_area), target, before);
}

Grab GdiCapture::TakeFrom(const ScreenRect& source, Picture& target, const Picture* before) noexcept {
    if (source.width == 0 || source.height == 0) {
        return Grab::Failed;
    }
    const HDC picture = target.buffer.Dc();
    const ScreenRect& area = m_area.rect;
    const ScreenRect shown = Letterbox(source, area.width, area.height);
    const bool covers = shown.width == area.width && shown.height == area.height;
    const ScreenRect visible = Intersection(source, WholeScreen());
    if (!covers || visible != source) {
        PatBlt(picture, 0, 0, Signed(area.width), Signed(area.height), BLACKNESS);
    }
    if (!CopyScreen(picture, visible, source, shown)) {
        return Grab::Failed;
    }
    if (m_drawCursor) {
        DrawCursor(picture, source, shown);
    }
    GdiFlush(); // the drawing may still be queued, and the pixels are read directly

    target.changed.clear();
    target.presentedTicks.reset();
    if (before == nullptr) {
        return Grab::Changed;
    }
    const std::optional<PictureRect> different = DifferentRows(before->buffer, target.buffer);
    if (!different) {
        return Grab::Unchanged;
    }
    target.changed.push_back(*different);
    return Grab::Changed;
}

} // namespace kxvcr
