// Turns pictures: a walk along the rows of the surface is a walk along rows or columns of the target, forwards or
// backwards, so that a turn is where the walk begins and what its two steps are.
#include "worker/capture/turn.h"

#include "worker/capture/picturebuffer.h"

#include <cstring>

namespace kxvcr {

namespace {

struct Walk {
    std::ptrdiff_t start = 0;
    std::ptrdiff_t toNextPixel = 0;
    std::ptrdiff_t toNextRow = 0;
};

Walk WalkOf(const PictureRect& part, Turn turn, std::size_t targetStride) noexcept {
    constexpr auto pixel = static_cast<std::ptrdiff_t>(kBytesPerPixel);
    const auto row = static_cast<std::ptrdiff_t>(targetStride);
    const std::ptrdiff_t lastColumn = std::ptrdiff_t{part.width} - 1;
    const std::ptrdiff_t lastRow = std::ptrdiff_t{part.height} - 1;
    switch (turn) {
    case Turn::Quarter:
        return {lastRow * pixel, row, -pixel};
    case Turn::Half:
        return {lastRow * row + lastColumn * pixel, -pixel, -row};
    case Turn::ThreeQuarters:
        return {lastColumn * row, -row, pixel};
    default:
        return {0, pixel, row};
    }
}

void CopyPixel(const std::byte* from, std::byte* to) noexcept {
    std::memcpy(to, from, kBytesPerPixel);
}

} // namespace

PictureRect Turned(const PictureRect& part, const PixelSize& size, Turn turn) noexcept {
    switch (turn) {
    case Turn::Quarter:
        return {size.height - part.top - part.height, part.left, part.height, part.width};
    case Turn::Half:
        return {size.width - part.left - part.width, size.height - part.top - part.height, part.width, part.height};
    case Turn::ThreeQuarters:
        return {part.top, size.width - part.left - part.width, part.height, part.width};
    default:
        return part;
    }
}

void CopyTurned(const SurfaceView& surface, const PictureRect& part, Turn turn, std::byte* target,
                std::size_t targetStride) noexcept {
    const std::size_t pixelSize = surface.toning == nullptr ? kBytesPerPixel : Toning::kBytesPerPixel;
    const std::byte* source = surface.pixels + part.top * surface.stride + part.left * pixelSize;
    const Walk walk = WalkOf(part, turn, targetStride);
    std::byte* row = target + walk.start;
    for (std::uint32_t y = 0; y < part.height; ++y, source += surface.stride, row += walk.toNextRow) {
        if (turn == Turn::None && surface.toning == nullptr) {
            std::memcpy(row, source, part.width * kBytesPerPixel);
            continue;
        }
        std::byte* to = row;
        const std::byte* from = source;
        for (std::uint32_t x = 0; x < part.width; ++x, from += pixelSize, to += walk.toNextPixel) {
            if (surface.toning == nullptr) {
                CopyPixel(from, to);
            } else {
                surface.toning->Pixel(from, to);
            }
        }
    }
}

} // namespace kxvcr
