// A device's sound as two channels.
#include "worker/sound/mixdown.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kxvcr {

namespace {

constexpr float kMinus3Decibels = 0.70710678F;

// By the bit of a channel's speaker, from SPEAKER_FRONT_LEFT on.
constexpr std::array<std::array<float, 2>, 11> kGainsOfSpeakers = {{
    {1, 0},                             // front left
    {0, 1},                             // front right
    {kMinus3Decibels, kMinus3Decibels}, // front centre
    {0, 0},                             // low frequencies
    {kMinus3Decibels, 0},               // back left
    {0, kMinus3Decibels},               // back right
    {kMinus3Decibels, 0},               // front left of centre
    {0, kMinus3Decibels},               // front right of centre
    {0.5F, 0.5F},                       // back centre
    {kMinus3Decibels, 0},               // side left
    {0, kMinus3Decibels},               // side right
}};

// What a device with so many channels means when it does not say.
std::uint32_t UsualSpeakers(std::uint32_t channels) noexcept {
    constexpr std::uint32_t kUsual[] = {0, 0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x13F, 0x63F};
    return channels < std::size(kUsual) ? kUsual[channels] : 0x63F;
}

std::size_t SizeOf(SampleType type) noexcept {
    switch (type) {
    case SampleType::Int16:
        return 2;
    case SampleType::Int24:
        return 3;
    case SampleType::Float32:
    case SampleType::Int32:
        break;
    }
    return 4;
}

float SampleAt(const std::byte* bytes, SampleType type) noexcept {
    constexpr float kFullScale = 2'147'483'648.0F; // of 32 bits, into whose upper ones the shorter are put
    std::uint32_t bits = 0;
    const std::size_t size = SizeOf(type);
    std::memcpy(reinterpret_cast<std::byte*>(&bits) + (sizeof(bits) - size), bytes, size);
    if (type == SampleType::Float32) {
        return std::bit_cast<float>(bits);
    }
    return static_cast<float>(static_cast<std::int32_t>(bits)) / kFullScale;
}
static_assert(std::endian::native == std::endian::little);

} // namespace

Mixdown::Mixdown(const DeviceFormat& format) : m_format(format), m_sampleSize(SizeOf(format.type)) {
    if (format.channels == 1) {
        m_gains = {{1, 1}};
        return;
    }
    std::uint32_t speakers = format.speakers != 0 ? format.speakers : UsualSpeakers(format.channels);
    for (std::uint32_t channel = 0; channel < format.channels; ++channel) {
        const auto speaker = static_cast<std::size_t>(std::countr_zero(speakers));
        m_gains.push_back(speaker < kGainsOfSpeakers.size() ? kGainsOfSpeakers[speaker] : Gains{});
        speakers &= speakers - 1;
    }
}

void Mixdown::Append(const SoundPiece& piece, std::vector<float>& target) const {
    const std::size_t before = target.size();
    target.resize(before + std::size_t{piece.frames} * 2);
    const std::size_t frames =
        std::min<std::size_t>(piece.frames, piece.samples.size() / (m_sampleSize * m_gains.size()));
    const std::byte* sample = piece.samples.data();
    for (std::size_t frame = 0; frame < frames; ++frame) {
        float* const sides = &target[before + frame * 2];
        for (const Gains& gains : m_gains) {
            const float value = SampleAt(sample, m_format.type);
            sides[0] += value * gains[0];
            sides[1] += value * gains[1];
            sample += m_sampleSize;
        }
    }
}

} // namespace kxvcr
