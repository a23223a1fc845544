/**
 * @file
 * The shape of the mouse pointer, as the duplication of an output describes it.
 */
#pragma once

#include "worker/capture/picturebuffer.h"
#include "worker/capture/placement.h"

#include <dxgi1_2.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kxvcr {

/** A pointer's pixels. Without any until one was read. */
class PointerShape {
public:
    /**
     * Takes a shape over: monochrome, with colours, or with masked colours.
     * @return false, and the shape stays what it was, when it is of no such kind or the bytes are too few
     * @throws std::bad_alloc
     */
    bool Read(const DXGI_OUTDUPL_POINTER_SHAPE_INFO& info, std::span<const std::byte> bytes);

    std::uint32_t Width() const noexcept { return m_width; }
    std::uint32_t Height() const noexcept { return m_height; }
    POINT HotSpot() const noexcept { return m_hotSpot; }

    /** Draws it into a picture, as far as it reaches into it. @param place of its upper left pixel */
    void Draw(const PictureBuffer& picture, const PicturePoint& place) const noexcept;

private:
    enum class Kind : std::uint8_t {
        Blended, // the fourth byte says how much of the colour covers the screen
        Masked,  // the fourth byte is 0: the colour replaces the screen's; else the two are combined with exclusive or
    };

    void ReadMonochrome(const DXGI_OUTDUPL_POINTER_SHAPE_INFO& info, std::span<const std::byte> bytes);
    void ReadColored(const DXGI_OUTDUPL_POINTER_SHAPE_INFO& info, std::span<const std::byte> bytes);

    Kind m_kind = Kind::Blended;
    std::uint32_t m_width = 0;
    std::uint32_t m_height = 0;
    POINT m_hotSpot = {};
    std::vector<std::uint8_t> m_pixels; // rows without gaps: blue, green, red and the fourth byte
};

} // namespace kxvcr
