// Fits captured pictures to an encoder: size by scaling or filling up, colours by conversion, and only where they
// changed.
#include "worker/video/encoderinput.h"

#include <libyuv/scale_argb.h>

#include <algorithm>
#include <cmath>

namespace kxvcr {

namespace {

constexpr std::uint32_t kBlockSide = 16;

struct Size {
    std::uint32_t width;
    std::uint32_t height;
};

constexpr std::uint32_t RoundUp(std::uint32_t value, std::uint32_t step) noexcept {
    return (value + step - 1) / step * step;
}

std::uint64_t Blocks(const Size& size) noexcept {
    return std::uint64_t{RoundUp(size.width, kBlockSide) / kBlockSide} *
           (RoundUp(size.height, kBlockSide) / kBlockSide);
}

bool IsTooLarge(const Size& size, const SizeLimits& limits) noexcept {
    return std::max(size.width, size.height) > limits.largestSide || Blocks(size) > limits.mostBlocks;
}

// The largest even size with the same proportions that the encoder takes.
Size Fit(const Size& size, const SizeLimits& limits) noexcept {
    Size fitting = size;
    const double blockLimit = std::sqrt(static_cast<double>(limits.mostBlocks) * kBlockSide * kBlockSide /
                                        (static_cast<double>(size.width) * size.height));
    const double sideLimit = static_cast<double>(limits.largestSide) / std::max(size.width, size.height);
    double scale = std::min({blockLimit, sideLimit, 1.0});
    constexpr double kStep = 0.999;
    for (; IsTooLarge(fitting, limits); scale *= kStep) {
        fitting = {static_cast<std::uint32_t>(size.width * scale / 2) * 2,
                   static_cast<std::uint32_t>(size.height * scale / 2) * 2};
    }
    return {RoundUp(std::max(fitting.width, limits.smallestSide), 2),
            RoundUp(std::max(fitting.height, limits.smallestSide), 2)};
}

YuvPicture PictureFor(const Size& size, const SizeLimits& limits) {
    const Size fitting = Fit(size, limits);
    return YuvPicture(fitting.width, fitting.height);
}

} // namespace

EncoderInput::EncoderInput(std::uint32_t width, std::uint32_t height, const SizeLimits& limits)
    : m_width(width),
      m_height(height),
      m_picture(PictureFor({width, height}, limits)) {
    if (IsTooLarge({width, height}, limits)) {
        m_scaled.resize(kBytesPerPixel * m_picture.Width() * m_picture.Height());
    }
}

bool EncoderInput::Update(const PictureView& picture) noexcept {
    if (picture.width != m_width || picture.height != m_height || picture.stride < m_width * kBytesPerPixel ||
        picture.pixels.size() < (m_height - 1) * picture.stride + m_width * kBytesPerPixel) {
        return false;
    }
    const PictureRect whole = {0, 0, m_picture.Width(), m_picture.Height()};
    if (!m_scaled.empty()) {
        const std::size_t stride = kBytesPerPixel * m_picture.Width();
        if (libyuv::ARGBScale(reinterpret_cast<const std::uint8_t*>(picture.pixels.data()),
                              static_cast<int>(picture.stride), static_cast<int>(m_width), static_cast<int>(m_height),
                              reinterpret_cast<std::uint8_t*>(m_scaled.data()), static_cast<int>(stride),
                              static_cast<int>(whole.width), static_cast<int>(whole.height), libyuv::kFilterBox) != 0) {
            return false;
        }
        Convert({m_scaled, whole.width, whole.height, stride, picture.captured, {}}, Matrix(), whole, m_picture);
        return true;
    }
    if (picture.changed.empty() || !m_isComplete) {
        Convert(picture, Matrix(), whole, m_picture);
    } else {
        for (const PictureRect& area : picture.changed) {
            ConvertArea(picture, area);
        }
    }
    m_isComplete = true;
    return true;
}

// Widens the area to whole blocks of two by two pixels, and what touches the picture's edge to the filled up edge.
void EncoderInput::ConvertArea(const PictureView& picture, const PictureRect& area) noexcept {
    const std::uint32_t left = std::min(area.left, m_width) / 2 * 2;
    const std::uint32_t top = std::min(area.top, m_height) / 2 * 2;
    const std::uint64_t right = std::uint64_t{area.left} + area.width;
    const std::uint64_t bottom = std::uint64_t{area.top} + area.height;
    const std::uint32_t evenRight =
        right >= m_width ? m_picture.Width() : RoundUp(static_cast<std::uint32_t>(right), 2);
    const std::uint32_t evenBottom =
        bottom >= m_height ? m_picture.Height() : RoundUp(static_cast<std::uint32_t>(bottom), 2);
    if (area.width == 0 || area.height == 0 || left >= m_width || top >= m_height) {
        return;
    }
    Convert(picture, Matrix(), {left, top, evenRight - left, evenBottom - top}, m_picture);
}

} // namespace kxvcr
