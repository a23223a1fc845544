/**
 * @file
 * Brings captured pictures into the size and the colours that an encoder takes.
 */
#pragma once

#include "worker/packet.h"
#include "worker/video/colorconversion.h"
#include "worker/video/videoencoder.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kxvcr {

/** What sizes an encoder takes. */
struct SizeLimits {
    std::uint32_t smallestSide = 0;
    std::uint32_t largestSide = 0;
    std::uint64_t mostBlocks = 0; ///< of 16 by 16 pixels
};

/**
 * The newest picture as the encoder sees it. Pictures of odd or too small sizes are filled up by repeating their last
 * column and row, too large ones are scaled down with their proportions kept.
 */
class EncoderInput {
public:
    /**
     * @param width, height of the captured pictures, in pixels
     * @throws std::bad_alloc
     */
    EncoderInput(std::uint32_t width, std::uint32_t height, const SizeLimits& limits);

    /**
     * Takes what changed of a picture; all of it when that is not known, when it is the first, or after Forget().
     * @return false when the picture has not the size that was said, or too few bytes
     */
    bool Update(const PictureView& picture) noexcept;

    /** Has the next picture taken as a whole. */
    void Forget() noexcept { m_isComplete = false; }

    YuvPicture& Picture() noexcept { return m_picture; }
    ColorMatrix Matrix() const noexcept { return MatrixForHeight(m_picture.Height()); }

private:
    void ConvertArea(const PictureView& picture, const PictureRect& area) noexcept;

    std::uint32_t m_width;
    std::uint32_t m_height;
    YuvPicture m_picture;
    std::vector<std::byte> m_scaled; ///< empty when the pictures are not scaled
    bool m_isComplete = false;
};

} // namespace kxvcr
