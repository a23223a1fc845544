/**
 * @file
 * Captures a part of the screen with GDI, with or without the mouse pointer.
 */
#pragma once

#include "worker/capture/capturearea.h"
#include "worker/capture/gdi.h"

#include <cstddef>
#include <memory>
#include <span>

namespace kxvcr {

/** A bitmap in memory: rows from top to bottom without gaps, four bytes (blue, green, red, unused) a pixel. */
class PictureBuffer {
public:
    PictureBuffer() = default;

    /** An empty object when the system refuses the memory. */
    static PictureBuffer Create(std::uint32_t width, std::uint32_t height) noexcept;

    explicit operator bool() const noexcept { return static_cast<bool>(m_selection); }
    HDC Dc() const noexcept { return m_dc.Get(); }
    std::span<const std::byte> Pixels() const noexcept { return m_pixels; }

private:
    MemoryDc m_dc;
    Bitmap m_bitmap;
    BitmapSelection m_selection;
    std::span<const std::byte> m_pixels;
};

enum class Grab {
    Failed,    ///< the screen could not be read; Pixels() is as before
    Unchanged, ///< no pixel differs from the picture before
    Changed,   ///< Pixels() is a new picture
};

/** Captures one area; the pictures keep the area's first size. To be used by one thread at a time. */
class ScreenCapture {
public:
    /** @return null when the system refuses a device context or the memory. @throws std::bad_alloc */
    static std::unique_ptr<ScreenCapture> Create(const CaptureArea& area, bool drawCursor);

    /**
     * Takes a picture. When a followed screen or monitor has another size than at first, its picture is scaled into
     * the first size with its proportions kept; what lies outside the screen is black.
     */
    Grab Take() noexcept;

    /** The last picture, valid until the next Take(). */
    std::span<const std::byte> Pixels() const noexcept { return m_current.Pixels(); }

private:
    ScreenCapture(const CaptureArea& area, bool drawCursor) noexcept : m_area(area), m_drawCursor(drawCursor) {}

    ScreenRect SourceNow() const noexcept;
    bool CopyScreen(const ScreenRect& source, const ScreenRect& target) const noexcept;
    void DrawCursor(const ScreenRect& source, const ScreenRect& target) const noexcept;

    CaptureArea m_area;
    bool m_drawCursor;
    PictureBuffer m_current;
    PictureBuffer m_next;
    bool m_hasPicture = false;
};

} // namespace kxvcr
