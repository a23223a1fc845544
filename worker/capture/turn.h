/**
 * @file
 * The pictures of displays that stand on their side or on their head: the system hands them out as the panel shows
 * them, and they are turned upright.
 */
#pragma once

#include "worker/capture/toning.h"
#include "worker/video/videoencoder.h"

#include <cstddef>
#include <cstdint>

namespace kxvcr {

/** By how much a picture is turned clockwise to stand upright. */
enum class Turn : std::uint8_t { None, Quarter, Half, ThreeQuarters };

/** What turns back. */
constexpr Turn Back(Turn turn) noexcept {
    switch (turn) {
    case Turn::Quarter:
        return Turn::ThreeQuarters;
    case Turn::ThreeQuarters:
        return Turn::Quarter;
    default:
        return turn;
    }
}

struct PixelSize {
    std::uint32_t width = 0;
    std::uint32_t height = 0;

    friend bool operator==(const PixelSize&, const PixelSize&) = default;
};

/** The size of a picture that was turned. */
constexpr PixelSize Turned(const PixelSize& size, Turn turn) noexcept {
    return turn == Turn::Quarter || turn == Turn::ThreeQuarters ? PixelSize{size.height, size.width} : size;
}

/** Where a part of a picture is when the picture was turned. @param size the picture's, before */
PictureRect Turned(const PictureRect& part, const PixelSize& size, Turn turn) noexcept;

/** Pixels that the system lends, row by row. */
struct SurfaceView {
    const std::byte* pixels = nullptr;
    std::size_t stride = 0; ///< bytes from one row to the next
    const Toning* toning =
        nullptr; ///< null: four bytes (blue, green, red, unused) a pixel; else what tones halves down
};

/**
 * Copies a part of a surface and turns it.
 * @param target four bytes a pixel: where the upper left pixel of the turned part goes
 */
void CopyTurned(const SurfaceView& surface, const PictureRect& part, Turn turn, std::byte* target,
                std::size_t targetStride) noexcept;

} // namespace kxvcr
