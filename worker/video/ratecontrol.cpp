// Keeps a stream's quality even and its bit rate below a cap.
#include "worker/video/ratecontrol.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace kxvcr {

namespace {

// Quantisers that stand for qualities; between them the quantiser is interpolated.
struct QualityPoint {
    std::uint32_t quality;
    int quantiser;
};
constexpr QualityPoint kWorst = {1, 44}; // text is barely read
constexpr QualityPoint kUsual = {80, 24};
constexpr QualityPoint kBest = {100, 12};
constexpr int kLargestQuantiser = 51;

// The cap when none is given: what a moving picture of good quality takes.
constexpr double kDefaultBitsPerPixel = 0.25;
constexpr double kLeastDefaultBitRate = 1'000'000;

constexpr double kReserveSeconds = 3;
constexpr double kFreePart = 1.0 / 3; // of the reserve, which may be spent before the quantiser grows

int Interpolate(const QualityPoint& low, const QualityPoint& high, std::uint32_t quality) noexcept {
    const double part = static_cast<double>(quality - low.quality) / (high.quality - low.quality);
    return static_cast<int>(std::lround(low.quantiser + part * (high.quantiser - low.quantiser)));
}

} // namespace

int QuantiserOf(std::uint32_t quality) noexcept {
    const std::uint32_t allowed = std::clamp(quality, kWorst.quality, kBest.quality);
    return allowed < kUsual.quality ? Interpolate(kWorst, kUsual, allowed) : Interpolate(kUsual, kBest, allowed);
}

double BitRateOf(const EncoderSettings& settings, std::uint32_t width, std::uint32_t height) noexcept {
    if (settings.bitRate != 0) {
        return settings.bitRate;
    }
    const double pixels = static_cast<double>(width) * height;
    return std::max(pixels * settings.framesPerSecond * kDefaultBitsPerPixel, kLeastDefaultBitRate);
}

int RateControl::QuantiserAt(MediaTime time) noexcept {
    if (m_last) {
        const double seconds = std::chrono::duration<double>(time - *m_last).count();
        m_spentBits = std::max(m_spentBits - seconds * m_bitsPerSecond, 0.0);
    }
    m_last = time;
    const double spentPart = m_spentBits / (m_bitsPerSecond * kReserveSeconds);
    const double tooMuch = std::clamp((spentPart - kFreePart) / (1 - kFreePart), 0.0, 1.0);
    return m_smallest + static_cast<int>(std::lround(tooMuch * (kLargestQuantiser - m_smallest)));
}

void RateControl::Spend(std::size_t bytes) noexcept {
    constexpr double kBitsPerByte = 8;
    m_spentBits += static_cast<double>(bytes) * kBitsPerByte;
}

} // namespace kxvcr
