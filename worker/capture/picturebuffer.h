/**
 * @file
 * The memory of a picture: a bitmap that GDI can draw into and whose pixels can be read.
 */
#pragma once

#include "worker/capture/gdi.h"
#include "worker/video/videoencoder.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace kxvcr {

/** A bitmap in memory: rows from top to bottom without gaps, kBytesPerPixel bytes a pixel. */
class PictureBuffer {
public:
    PictureBuffer() = default;
    PictureBuffer(PictureBuffer&&) noexcept = default;
    PictureBuffer& operator=(PictureBuffer other) noexcept; ///< what it had goes in the destructor's order

    /** An empty object when the system refuses the memory. */
    static PictureBuffer Create(std::uint32_t width, std::uint32_t height) noexcept;

    explicit operator bool() const noexcept { return static_cast<bool>(m_selection); }
    HDC Dc() const noexcept { return m_dc.Get(); }
    std::span<std::byte> Pixels() const noexcept { return m_pixels; }
    std::uint32_t Width() const noexcept { return m_width; }
    std::uint32_t Height() const noexcept { return m_height; }

    /** Bytes from one row to the next. */
    std::size_t Stride() const noexcept { return kBytesPerPixel * m_width; }

private:
    MemoryDc m_dc;
    Bitmap m_bitmap;
    BitmapSelection m_selection;
    std::span<std::byte> m_pixels;
    std::uint32_t m_width = 0;
    std::uint32_t m_height = 0;
};

} // namespace kxvcr
