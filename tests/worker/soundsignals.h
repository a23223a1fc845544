/**
 * @file
 * Sound for tests: made sample by sample, and measured.
 */
#pragma once

#include "worker/sound/soundencoder.h"
#include "worker/sound/soundsource.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <numbers>
#include <span>
#include <vector>

namespace kxtest {

/** A signal: its value at a moment in seconds. */
using Signal = std::function<double(double)>;

inline Signal Tone(double frequency, double amplitude) {
    return [=](double time) { return amplitude * std::sin(2 * std::numbers::pi * frequency * time); };
}

/** A short pulse at each whole second: half a period of a cosine, 1 ms long. */
inline Signal Clicks() {
    return [](double time) {
        const double distance = time - std::round(time);
        return std::abs(distance) < 0.0005 ? std::cos(std::numbers::pi * distance / 0.001) : 0.0;
    };
}

/** Floating-point samples of @p signal from @p start on, the same on every channel. */
inline std::vector<std::byte> FloatSamples(const Signal& signal, double start, double rate, std::uint32_t frames,
                                           std::uint32_t channels) {
    std::vector<float> samples;
    for (std::uint32_t frame = 0; frame < frames; ++frame) {
        samples.insert(samples.end(), channels, static_cast<float>(signal(start + frame / rate)));
    }
    std::vector<std::byte> bytes(samples.size() * sizeof(float));
    std::memcpy(bytes.data(), samples.data(), bytes.size());
    return bytes;
}

/** One channel of sound in stereo. */
inline std::vector<float> Side(std::span<const float> samples, std::size_t channel) {
    std::vector<float> side;
    for (std::size_t i = channel; i < samples.size(); i += kxvcr::kSoundChannels) {
        side.push_back(samples[i]);
    }
    return side;
}

/** The amplitude of a frequency in @p samples, which should be many of its periods. */
inline double Amplitude(std::span<const float> samples, double frequency) {
    double cosine = 0;
    double sine = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double angle = 2 * std::numbers::pi * frequency * static_cast<double>(i) / kxvcr::kSoundRate;
        cosine += samples[i] * std::cos(angle);
        sine += samples[i] * std::sin(angle);
    }
    return 2 * std::hypot(cosine, sine) / static_cast<double>(samples.size());
}

/** The root of the mean of the squares. */
inline double Level(std::span<const float> samples) {
    double sum = 0;
    for (const float sample : samples) {
        sum += double{sample} * sample;
    }
    return samples.empty() ? 0 : std::sqrt(sum / static_cast<double>(samples.size()));
}

/** The place of the largest sample. */
inline std::size_t Peak(std::span<const float> samples) {
    std::size_t peak = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        peak = samples[i] > samples[peak] ? i : peak;
    }
    return peak;
}

} // namespace kxtest
