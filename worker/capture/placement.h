/**
 * @file
 * Where in a picture the screen's pixels go when the screen's size is another than the picture's.
 */
#pragma once

#include "worker/capture/screenlayout.h"

#include <cstdint>

namespace kxvcr {

/**
 * The largest rectangle with the source's proportions in the middle of a picture.
 * @param source must have pixels
 */
ScreenRect Letterbox(const ScreenRect& source, std::uint32_t width, std::uint32_t height) noexcept;

/** A place in a picture; outside of it when a coordinate is negative or past its size. */
struct PicturePoint {
    std::int32_t x = 0;
    std::int32_t y = 0;

    friend bool operator==(const PicturePoint&, const PicturePoint&) = default;
};

/** Where a point of the screen is in the picture when @p source is shown as @p target. */
PicturePoint PlaceInPicture(POINT onScreen, const ScreenRect& source, const ScreenRect& target) noexcept;

/** Where @p part of @p source is in the picture when all of it is shown as @p target; may have no pixels. */
ScreenRect PartInPicture(const ScreenRect& part, const ScreenRect& source, const ScreenRect& target) noexcept;

} // namespace kxvcr
