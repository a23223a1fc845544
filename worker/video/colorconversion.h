/**
 * @file
 * Turns the screen's colours into those of a video: limited range, one pair of colour differences for four pixels.
 */
#pragma once

#include "worker/packet.h"
#include "worker/video/videoencoder.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kxvcr {

/** A picture in three planes: brightness, and the differences of blue and red at half its width and height. */
class YuvPicture {
public:
    /**
     * @param width, height in pixels; even
     * @throws std::bad_alloc
     */
    YuvPicture(std::uint32_t width, std::uint32_t height);

    std::uint32_t Width() const noexcept { return m_width; }
    std::uint32_t Height() const noexcept { return m_height; }
    std::size_t LumaStride() const noexcept { return m_lumaStride; }       ///< bytes from one row to the next
    std::size_t ChromaStride() const noexcept { return m_lumaStride / 2; } ///< bytes from one row to the next
    std::uint8_t* Luma() noexcept { return m_samples.data(); }
    std::uint8_t* Blue() noexcept { return m_samples.data() + m_lumaStride * m_height; }
    std::uint8_t* Red() noexcept { return Blue() + ChromaStride() * (m_height / 2); }

private:
    std::uint32_t m_width;
    std::uint32_t m_height;
    std::size_t m_lumaStride;
    std::vector<std::uint8_t> m_samples;
};

/** What videos of so many lines are made with, and what a player assumes that is not told. */
constexpr ColorMatrix MatrixForHeight(std::uint32_t height) noexcept {
    return height < 720 ? ColorMatrix::Bt601 : ColorMatrix::Bt709;
}

/**
 * Converts a part of a picture into the same place of @p target. Each block of two by two pixels depends on nothing
 * else, so that a picture converted in parts is the picture converted at once.
 * @param area in @p target, with even edges; where it reaches beyond @p source, that one's last column and row are
 *        repeated
 */
void Convert(const PictureView& source, ColorMatrix matrix, const PictureRect& area, YuvPicture& target) noexcept;

} // namespace kxvcr
