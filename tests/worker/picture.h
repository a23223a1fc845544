/**
 * @file
 * Pictures for the encoders' tests: drawn, compared, and decoded again.
 */
#pragma once

#include "worker/video/videoencoder.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kxvcr::test {

struct Color {
    std::uint8_t blue = 0;
    std::uint8_t green = 0;
    std::uint8_t red = 0;

    friend bool operator==(const Color&, const Color&) = default;
};

/** Rows from top to bottom without gaps, four bytes a pixel. */
class Picture {
public:
    Picture(std::uint32_t width, std::uint32_t height, Color color = {});

    std::uint32_t Width() const noexcept { return m_width; }
    std::uint32_t Height() const noexcept { return m_height; }
    Color At(std::uint32_t x, std::uint32_t y) const;
    void Set(std::uint32_t x, std::uint32_t y, Color color);
    void Fill(const PictureRect& area, Color color);
    void FillWithNoise(const PictureRect& area, std::uint32_t seed);

    /** Dark strokes of two pixels on what is there, like lines of text. */
    void Write(const PictureRect& area, std::uint32_t seed, Color color);

    PictureView View(std::span<const PictureRect> changed = {}) const;

private:
    std::uint32_t m_width;
    std::uint32_t m_height;
    std::vector<std::byte> m_pixels;
};

/** A page: light ground, a coloured bar, text in black, blue and red. */
Picture Page(std::uint32_t width, std::uint32_t height, std::uint32_t seed = 1);

/** A decoded picture's samples. */
struct Samples {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> luma;
    std::vector<std::uint8_t> blue; ///< of half the width and height, rounded up
    std::vector<std::uint8_t> red;
};

/** What a player shows for the samples, by the definition of the matrix. */
Color Shown(const Samples& samples, ColorMatrix matrix, std::uint32_t x, std::uint32_t y);

/** The signal to noise ratio in dB between the brightness of a picture, by the matrix's definition, and the samples. */
double LumaPsnr(const Picture& picture, const Samples& samples, ColorMatrix matrix);

} // namespace kxvcr::test
