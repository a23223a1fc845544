// Changes a sound's sample rate. Between two places of the table the coefficients are interpolated, so that the ratio
// can be any number and can change at any frame.
#include "worker/sound/resampler.h"

#include "worker/sound/soundencoder.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace kxvcr {

namespace {

constexpr std::size_t kPlaces = 512;  // of the table, between two frames
constexpr double kZeroCrossings = 24; // of the sinc, on each side
constexpr double kPassed = 0.91;      // of the lower of both rates' halves
constexpr double kBeta = 8;           // of the Kaiser window: 80 dB
constexpr double kMillion = 1e6;

// The modified Bessel function of the first kind and order 0.
double Bessel(double x) noexcept {
    double sum = 1;
    double term = 1;
    for (int k = 1; term > sum * 1e-12; ++k) {
        term *= (x / (2 * k)) * (x / (2 * k));
        sum += term;
    }
    return sum;
}

double Sinc(double x) noexcept {
    const double angle = std::numbers::pi * x;
    return std::abs(angle) < 1e-9 ? 1 : std::sin(angle) / angle;
}

} // namespace

Resampler::Resampler(std::uint32_t samplesPerSecond)
    : m_ratio(static_cast<double>(samplesPerSecond) / kSoundRate),
      m_step(m_ratio),
      m_half(static_cast<std::size_t>(std::ceil(kZeroCrossings * std::max(m_ratio, 1.0)))) {
    const double cutoff = kPassed / std::max(m_ratio, 1.0);
    const auto half = static_cast<double>(m_half);
    m_table.reserve((kPlaces + 1) * 2 * m_half);
    for (std::size_t place = 0; place <= kPlaces; ++place) {
        for (std::size_t tap = 0; tap < 2 * m_half; ++tap) {
            const double distance =
                static_cast<double>(tap) - half + 1 - static_cast<double>(place) / static_cast<double>(kPlaces);
            const double inside = std::max(1 - distance * distance / (half * half), 0.0);
            m_table.push_back(static_cast<float>(cutoff * Sinc(cutoff * distance) * Bessel(kBeta * std::sqrt(inside)) /
                                                 Bessel(kBeta)));
        }
    }
    Restart();
}

void Resampler::Stretch(std::int32_t partsPerMillion) noexcept {
    m_step = m_ratio / (1 + partsPerMillion / kMillion);
}

void Resampler::Restart() {
    m_given.assign(m_half * kSoundChannels, 0.0F);
    m_place = static_cast<double>(m_half);
}

double Resampler::Waiting() const noexcept {
    return (static_cast<double>(m_given.size() / kSoundChannels) - m_place) / m_step;
}

void Resampler::Append(std::span<const float> samples, std::vector<float>& target) {
    m_given.insert(m_given.end(), samples.begin(), samples.end());
    const std::size_t frames = m_given.size() / kSoundChannels;
    while (static_cast<std::size_t>(m_place) + m_half < frames) {
        AppendFrame(target);
        m_place += m_step;
    }
    const std::size_t done = std::min(static_cast<std::size_t>(m_place) - m_half, frames);
    m_given.erase(m_given.begin(), m_given.begin() + static_cast<std::ptrdiff_t>(done * kSoundChannels));
    m_place -= static_cast<double>(done);
}

void Resampler::AppendFrame(std::vector<float>& target) const {
    const auto frame = static_cast<std::size_t>(m_place);
    const double place = (m_place - static_cast<double>(frame)) * static_cast<double>(kPlaces);
    const auto row = static_cast<std::size_t>(place);
    const auto share = static_cast<float>(place - static_cast<double>(row));
    const std::size_t taps = 2 * m_half;
    const float* const before = &m_table[row * taps];
    const float* const behind = before + taps;
    const float* sample = &m_given[(frame + 1 - m_half) * kSoundChannels];
    float left = 0;
    float right = 0;
    for (std::size_t tap = 0; tap < taps; ++tap, sample += kSoundChannels) {
        const float coefficient = before[tap] + (behind[tap] - before[tap]) * share;
        left += coefficient * sample[0];
        right += coefficient * sample[1];
    }
    target.push_back(left);
    target.push_back(right);
}

} // namespace kxvcr
