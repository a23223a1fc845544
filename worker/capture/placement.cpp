// Where in a picture the screen's pixels go. The arithmetic is in whole numbers of 64 bits, so that no size overflows.
#include "worker/capture/placement.h"

#include <algorithm>

namespace kxvcr {

ScreenRect Letterbox(const ScreenRect& source, std::uint32_t width, std::uint32_t height) noexcept {
    const std::uint64_t byWidth = std::uint64_t{source.width} * height;
    const std::uint64_t byHeight = std::uint64_t{source.height} * width;
    ScreenRect target{0, 0, width, height};
    if (byWidth > byHeight) {
        target.height = static_cast<std::uint32_t>(std::max<std::uint64_t>(byHeight / source.width, 1));
    } else {
        target.width = static_cast<std::uint32_t>(std::max<std::uint64_t>(byWidth / source.height, 1));
    }
    target.left = static_cast<std::int32_t>((width - target.width) / 2);
    target.top = static_cast<std::int32_t>((height - target.height) / 2);
    return target;
}

PicturePoint PlaceInPicture(POINT onScreen, const ScreenRect& source, const ScreenRect& target) noexcept {
    const auto scale = [](std::int64_t offset, std::uint32_t from, std::uint32_t to) {
        return static_cast<std::int32_t>(offset * to / from);
    };
    return {target.left + scale(std::int64_t{onScreen.x} - source.left, source.width, target.width),
            target.top + scale(std::int64_t{onScreen.y} - source.top, source.height, target.height)};
}

ScreenRect PartInPicture(const ScreenRect& part, const ScreenRect& source, const ScreenRect& target) noexcept {
    const auto right = static_cast<LONG>(part.left + std::int64_t{part.width});
    const auto bottom = static_cast<LONG>(part.top + std::int64_t{part.height});
    const PicturePoint start = PlaceInPicture({part.left, part.top}, source, target);
    const PicturePoint end = PlaceInPicture({right, bottom}, source, target);
    return {start.x, start.y, static_cast<std::uint32_t>(end.x - start.x), static_cast<std::uint32_t>(end.y - start.y)};
}

} // namespace kxvcr
