/**
 * @file
 * Pixels on their way within a picture and from one to another of the same size.
 */
#pragma once

#include "worker/capture/picturebuffer.h"
#include "worker/video/videoencoder.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kxvcr {

/** The first byte of a pixel. */
inline std::byte* PixelAt(const PictureBuffer& picture, std::uint32_t x, std::uint32_t y) noexcept {
    return picture.Pixels().data() + y * picture.Stride() + x * kBytesPerPixel;
}

/** Copies a part to the same place of another picture. */
inline void CopyPart(const PictureBuffer& from, const PictureRect& part, const PictureBuffer& to) noexcept {
    for (std::uint32_t y = part.top; y < part.top + part.height; ++y) {
        std::memcpy(PixelAt(to, part.left, y), PixelAt(from, part.left, y), part.width * kBytesPerPixel);
    }
}

/** Moves what begins at @p from to @p to, which may overlap it. */
inline void MovePart(const PictureBuffer& picture, const PictureRect& from, const PictureRect& to) noexcept {
    const bool downwards = to.top > from.top; // from the last row on, so that none is overwritten before it has moved
    for (std::uint32_t i = 0; i < to.height; ++i) {
        const std::uint32_t row = downwards ? to.height - 1 - i : i;
        std::memmove(PixelAt(picture, to.left, to.top + row), PixelAt(picture, from.left, from.top + row),
                     to.width * kBytesPerPixel);
    }
}

} // namespace kxvcr
