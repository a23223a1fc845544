// Captures a part of the screen with GDI. Two pictures take turns, so that the new one can be compared with the old.
#include "worker/capture/capture.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kxvcr {

namespace {

constexpr std::size_t kBytesPerPixel = 4;

int Signed(std::uint32_t value) noexcept {
    return static_cast<int>(value);
}

// The largest rectangle with the source's proportions in the middle of a picture.
ScreenRect Letterbox(const ScreenRect& source, std::uint32_t width, std::uint32_t height) noexcept {
    const std::uint64_t byWidth = std::uint64_t{source.width} * height;
    const std::uint64_t byHeight = std::uint64_t{source.height} * width;
    ScreenRect target{0, 0, width, height};
    if (byWidth > byHeight) {
        target.height = static_cast<std::uint32_t>(std::max<std::uint64_t>(byHeight / source.width, 1));
    } else {
        target.width = static_cast<std::uint32_t>(std::max<std::uint64_t>(byWidth / source.height, 1));
    }
    target.left = Signed((width - target.width) / 2);
    target.top = Signed((height - target.height) / 2);
    return target;
}

} // namespace

PictureBuffer PictureBuffer::Create(std::uint32_t width, std::uint32_t height) noexcept {
    PictureBuffer buffer;
    buffer.m_dc = MemoryDc(CreateCompatibleDC(nullptr));
    if (!buffer.m_dc) {
        return {};
    }
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = Signed(width);
    info.bmiHeader.biHeight = -Signed(height); // negative: rows from top to bottom
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    buffer.m_bitmap = Bitmap(CreateDIBSection(buffer.m_dc.Get(), &info, DIB_RGB_COLORS, &bits, nullptr, 0));
    if (!buffer.m_bitmap) {
        return {};
    }
    buffer.m_selection = BitmapSelection(buffer.m_dc.Get(), buffer.m_bitmap.Get());
    buffer.m_pixels = {static_cast<const std::byte*>(bits), kBytesPerPixel * width * height};
    return buffer;
}

std::unique_ptr<ScreenCapture> ScreenCapture::Create(const CaptureArea& area, bool drawCursor) {
    std::unique_ptr<ScreenCapture> capture(new ScreenCapture(area, drawCursor));
    capture->m_current = PictureBuffer::Create(area.rect.width, area.rect.height);
    capture->m_next = PictureBuffer::Create(area.rect.width, area.rect.height);
    if (!capture->m_current || !capture->m_next) {
        return nullptr;
    }
    return capture;
}

ScreenRect ScreenCapture::SourceNow() const noexcept {
    if (m_area.wholeScreen) {
        return WholeScreen();
    }
    if (m_area.monitor != nullptr) {
        return MonitorArea(m_area.monitor);
    }
    return m_area.rect;
}

bool ScreenCapture::CopyScreen(const ScreenRect& source, const ScreenRect& target) const noexcept {
    // Taken afresh each time: a device context from before a change of the display may show the old one.
    const ScreenDc screen(GetDC(nullptr));
    if (!screen) {
        return false;
    }
    if (target.width == source.width && target.height == source.height) {
        const ScreenRect visible = Intersection(source, WholeScreen());
        if (visible.width == 0) {
            return true;
        }
        return BitBlt(m_next.Dc(), target.left + visible.left - source.left, target.top + visible.top - source.top,
                      Signed(visible.width), Signed(visible.height), screen.Get(), visible.left, visible.top,
                      SRCCOPY) != FALSE;
    }
    SetStretchBltMode(m_next.Dc(), HALFTONE);
    SetBrushOrgEx(m_next.Dc(), 0, 0, nullptr); // as HALFTONE asks
    return StretchBlt(m_next.Dc(), target.left, target.top, Signed(target.width), Signed(target.height), screen.Get(),
                      source.left, source.top, Signed(source.width), Signed(source.height), SRCCOPY) != FALSE;
}

void ScreenCapture::DrawCursor(const ScreenRect& source, const ScreenRect& target) const noexcept {
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
    const int x = MulDiv(cursor.ptScreenPos.x - source.left, Signed(target.width), Signed(source.width));
    const int y = MulDiv(cursor.ptScreenPos.y - source.top, Signed(target.height), Signed(source.height));
    DrawIconEx(m_next.Dc(), target.left + x - Signed(icon.xHotspot), target.top + y - Signed(icon.yHotspot), shape, 0,
               0, 0, nullptr, DI_NORMAL);
}

Grab ScreenCapture::Take() noexcept {
    const ScreenRect source = SourceNow();
    if (source.width == 0 || source.height == 0) {
        return Grab::Failed;
    }
    const ScreenRect target = Letterbox(source, m_area.rect.width, m_area.rect.height);
    const bool covers = target.width == m_area.rect.width && target.height == m_area.rect.height;
    if (!covers || !Contains(WholeScreen(), source)) {
        PatBlt(m_next.Dc(), 0, 0, Signed(m_area.rect.width), Signed(m_area.rect.height), BLACKNESS);
    }
    if (!CopyScreen(source, target)) {
        return Grab::Failed;
    }
    if (m_drawCursor) {
        DrawCursor(source, target);
    }
    GdiFlush(); // the drawing may still be queued, and the pixels are read directly

    const std::span<const std::byte> before = m_current.Pixels();
    const std::span<const std::byte> after = m_next.Pixels();
    if (m_hasPicture && std::memcmp(before.data(), after.data(), after.size()) == 0) {
        return Grab::Unchanged;
    }
    std::swap(m_current, m_next);
    m_hasPicture = true;
    return Grab::Changed;
}

} // namespace kxvcr
