// Tones a high dynamic range down. There are only 65,536 halves, so that each one's tone is computed in advance.
#include "worker/capture/toning.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kxvcr {

namespace {

constexpr std::size_t kHalves = std::size_t{1} << 16;
constexpr double kNitsOfOne = 80;

double ValueOfHalf(std::uint32_t half) noexcept {
    constexpr std::uint32_t kLargestExponent = 31;
    constexpr int kFractionBits = 10;
    constexpr int kBias = 15;
    const double sign = (half >> 15) != 0 ? -1 : 1;
    const std::uint32_t exponent = half >> kFractionBits & kLargestExponent;
    const std::uint32_t fraction = half & ((1U << kFractionBits) - 1);
    if (exponent == kLargestExponent) {
        return fraction != 0 ? 0 : sign * std::numeric_limits<double>::infinity(); // no number is black
    }
    const std::uint32_t leading = exponent == 0 ? 0 : 1U << kFractionBits;
    const int power = std::max(static_cast<int>(exponent), 1) - kBias - kFractionBits;
    return sign * std::ldexp(static_cast<double>(leading | fraction), power);
}

std::byte ToneOf(double light) noexcept {
    const double clipped = std::clamp(light, 0.0, 1.0);
    const double coded = clipped <= 0.0031308 ? 12.92 * clipped : 1.055 * std::pow(clipped, 1 / 2.4) - 0.055;
    return static_cast<std::byte>(std::lround(coded * 255));
}

} // namespace

Toning::Toning(double whiteNits) : m_tones(kHalves) {
    for (std::uint32_t half = 0; half < kHalves; ++half) {
        m_tones[half] = ToneOf(ValueOfHalf(half) * kNitsOfOne / whiteNits);
    }
}

} // namespace kxvcr
