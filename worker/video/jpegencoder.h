/**
 * @file
 * Encodes pictures as JPEG, 4:2:0.
 */
#pragma once

#include "common/win/owner.h"

#include <turbojpeg.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kxvcr {

using JpegCompressor = kx::Owner<kx::FreedBy<tjhandle, &tjDestroy>>;

/** One compressor and its output block for pictures of one size. */
class JpegEncoder {
public:
    /**
     * @param width, height of every picture, in pixels
     * @param quality 1 to 100
     * @throws std::bad_alloc
     */
    JpegEncoder(std::uint32_t width, std::uint32_t height, std::uint32_t quality);

    /**
     * Encodes one picture.
     * @param pixels rows from top to bottom without gaps, four bytes (blue, green, red, unused) a pixel
     * @return the JPEG, valid until the next call; empty when the picture could not be encoded
     */
    std::span<const std::byte> Encode(std::span<const std::byte> pixels) noexcept;

    /** Why the last call failed; a text of the library. */
    const char* LastError() const noexcept;

private:
    std::uint32_t m_width;
    std::uint32_t m_height;
    std::uint32_t m_quality;
    JpegCompressor m_compressor;
    std::vector<std::byte> m_output;
};

} // namespace kxvcr
