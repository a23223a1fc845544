// Draws test pictures, counts how far two are apart, and turns planes back into colours.
#include "tests/worker/picture.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace kxvcr::test {

namespace {

struct Parts {
    double red;
    double blue;
};

Parts PartsOf(ColorMatrix matrix) {
    return matrix == ColorMatrix::Bt601 ? Parts{0.299, 0.114} : Parts{0.2126, 0.0722};
}

std::uint8_t Rounded(double value) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
}

} // namespace

Picture::Picture(std::uint32_t width, std::uint32_t height, Color color)
    : m_width(width),
      m_height(height),
      m_pixels(kBytesPerPixel * width * height) {
    Fill({0, 0, width, height}, color);
}

Color Picture::At(std::uint32_t x, std::uint32_t y) const {
    const std::byte* pixel = m_pixels.data() + kBytesPerPixel * (std::size_t{y} * m_width + x);
    return {static_cast<std::uint8_t>(pixel[0]), static_cast<std::uint8_t>(pixel[1]),
            static_cast<std::uint8_t>(pixel[2])};
}

void Picture::Set(std::uint32_t x, std::uint32_t y, Color color) {
    std::byte* pixel = m_pixels.data() + kBytesPerPixel * (std::size_t{y} * m_width + x);
    pixel[0] = static_cast<std::byte>(color.blue);
    pixel[1] = static_cast<std::byte>(color.green);
    pixel[2] = static_cast<std::byte>(color.red);
    pixel[3] = std::byte{0xA5}; // a value that must not matter
}

void Picture::Fill(const PictureRect& area, Color color) {
    for (std::uint32_t y = area.top; y < area.top + area.height; ++y) {
        for (std::uint32_t x = area.left; x < area.left + area.width; ++x) {
            Set(x, y, color);
        }
    }
}

void Picture::FillWithNoise(const PictureRect& area, std::uint32_t seed) {
    std::mt19937 random(seed);
    for (std::uint32_t y = area.top; y < area.top + area.height; ++y) {
        for (std::uint32_t x = area.left; x < area.left + area.width; ++x) {
            const std::uint32_t bits = random();
            Set(x, y,
                {static_cast<std::uint8_t>(bits), static_cast<std::uint8_t>(bits >> 8),
                 static_cast<std::uint8_t>(bits >> 16)});
        }
    }
}

void Picture::Write(const PictureRect& area, std::uint32_t seed, Color color) {
    constexpr std::uint32_t kCell = 8;
    constexpr std::uint32_t kStroke = 2;
    std::mt19937 random(seed);
    for (std::uint32_t y = area.top; y + kCell <= area.top + area.height; y += kCell * 2) {
        for (std::uint32_t x = area.left; x + kCell <= area.left + area.width; x += kCell) {
            const std::uint32_t shape = random();
            const std::uint32_t shift = shape % (kCell - kStroke);
            if ((shape & 0x100) != 0) {
                Fill({x + shift, y, kStroke, kCell}, color);
            }
            if ((shape & 0x200) != 0) {
                Fill({x, y + shift, kCell - 1, kStroke}, color);
            }
        }
    }
}

PictureView Picture::View(std::span<const PictureRect> changed) const {
    return {m_pixels, m_width, m_height, kBytesPerPixel * m_width, MediaTime(0), changed};
}

Picture Page(std::uint32_t width, std::uint32_t height, std::uint32_t seed) {
    Picture page(width, height, {250, 250, 250});
    const std::uint32_t third = height / 3;
    page.Fill({0, 0, width, std::min(height, 40U)}, {160, 80, 30});
    page.Write({0, height / 8, width, third - height / 8}, seed, {0, 0, 0});
    page.Write({0, third, width, third}, seed + 1, {200, 40, 0});
    page.Write({0, 2 * third, width, third}, seed + 2, {0, 0, 200});
    return page;
}

Color Shown(const Samples& samples, ColorMatrix matrix, std::uint32_t x, std::uint32_t y) {
    const Parts parts = PartsOf(matrix);
    const std::size_t chroma = std::size_t{y / 2} * ((samples.width + 1) / 2) + x / 2;
    const double luma = (samples.luma[std::size_t{y} * samples.width + x] - 16) * 255.0 / 219;
    const double blue = (samples.blue[chroma] - 128) * 255.0 / 224 * 2 * (1 - parts.blue);
    const double red = (samples.red[chroma] - 128) * 255.0 / 224 * 2 * (1 - parts.red);
    const double green = -(parts.blue * blue + parts.red * red) / (1 - parts.blue - parts.red);
    return {Rounded(luma + blue), Rounded(luma + green), Rounded(luma + red)};
}

double LumaPsnr(const Picture& picture, const Samples& samples, ColorMatrix matrix) {
    const Parts parts = PartsOf(matrix);
    double sum = 0;
    for (std::uint32_t y = 0; y < picture.Height(); ++y) {
        for (std::uint32_t x = 0; x < picture.Width(); ++x) {
            const Color color = picture.At(x, y);
            const double luma =
                parts.red * color.red + parts.blue * color.blue + (1 - parts.red - parts.blue) * color.green;
            const double difference = 16 + luma * 219 / 255 - samples.luma[std::size_t{y} * samples.width + x];
            sum += difference * difference;
        }
    }
    const double mean = sum / (static_cast<double>(picture.Width()) * picture.Height());
    return 10 * std::log10(255.0 * 255.0 / std::max(mean, 1e-6));
}

} // namespace kxvcr::test
