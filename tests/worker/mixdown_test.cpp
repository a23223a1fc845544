// Channels and sample types of devices as stereo.
#include "worker/sound/mixdown.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <vector>

namespace kxvcr {

namespace {

constexpr float kMinus3Decibels = 0.70710678F;

template <class Sample>
std::vector<float> Mixed(const DeviceFormat& format, std::initializer_list<Sample> samples) {
    std::vector<std::byte> bytes(samples.size() * sizeof(Sample));
    std::memcpy(bytes.data(), samples.begin(), bytes.size());
    std::vector<float> mixed;
    Mixdown(format).Append({bytes, static_cast<std::uint32_t>(samples.size() / format.channels), 0, false}, mixed);
    return mixed;
}

DeviceFormat Floats(std::uint32_t channels, std::uint32_t speakers = 0) {
    return {48'000, channels, speakers, SampleType::Float32};
}

TEST(Mixdown, Stereo_StaysAsItIs) {
    EXPECT_EQ(Mixed(Floats(2), {0.5F, -0.25F, 1.0F, 0.0F}), (std::vector<float>{0.5F, -0.25F, 1.0F, 0.0F}));
}

TEST(Mixdown, Mono_IsHeardOnBothSides) {
    EXPECT_EQ(Mixed(Floats(1), {0.5F, -0.25F}), (std::vector<float>{0.5F, 0.5F, -0.25F, -0.25F}));
}

TEST(Mixdown, FiveAndOne_MixesCentreAndBackWithoutTheLowFrequencies) {
    const auto mixed = Mixed(Floats(6, 0x3F), {0.1F, 0.2F, 0.3F, 1.0F, 0.4F, 0.5F});
    ASSERT_EQ(mixed.size(), 2u);
    EXPECT_FLOAT_EQ(mixed[0], 0.1F + kMinus3Decibels * (0.3F + 0.4F));
    EXPECT_FLOAT_EQ(mixed[1], 0.2F + kMinus3Decibels * (0.3F + 0.5F));
}

TEST(Mixdown, SevenAndOne_MixesTheSidesAsWell) {
    const auto mixed = Mixed(Floats(8, 0x63F), {0.1F, 0.2F, 0.0F, 1.0F, 0.0F, 0.0F, 0.4F, 0.5F});
    ASSERT_EQ(mixed.size(), 2u);
    EXPECT_FLOAT_EQ(mixed[0], 0.1F + kMinus3Decibels * 0.4F);
    EXPECT_FLOAT_EQ(mixed[1], 0.2F + kMinus3Decibels * 0.5F);
}

TEST(Mixdown, ChannelsWithoutSpeakers_AreTheUsualOnesOfTheirNumber) {
    const std::initializer_list<float> frame = {0.1F, 0.2F, 0.3F, 1.0F, 0.4F, 0.5F, 0.6F, 0.7F};
    EXPECT_EQ(Mixed(Floats(8), frame), Mixed(Floats(8, 0x63F), frame));
}

TEST(Mixdown, ChannelBeyondTheSpeakers_IsNotHeard) {
    EXPECT_EQ(Mixed(Floats(3, 0x3), {0.1F, 0.2F, 0.9F}), (std::vector<float>{0.1F, 0.2F}));
}

TEST(Mixdown, Integers_AreFractionsOfFullScale) {
    EXPECT_EQ(Mixed<std::int16_t>({48'000, 2, 0, SampleType::Int16}, {16'384, -32'768}),
              (std::vector<float>{0.5F, -1.0F}));
    EXPECT_EQ(Mixed<std::int32_t>({48'000, 2, 0, SampleType::Int32}, {1 << 30, INT32_MIN}),
              (std::vector<float>{0.5F, -1.0F}));
    EXPECT_EQ(Mixed<std::uint8_t>({48'000, 1, 0, SampleType::Int24}, {0, 0, 0x40}).front(), 0.5F);
    EXPECT_EQ(Mixed<std::uint8_t>({48'000, 1, 0, SampleType::Int24}, {0, 0, 0x80}).front(), -1.0F);
}

TEST(Mixdown, PieceWithoutSamples_IsSilence) {
    std::vector<float> mixed = {1.0F};
    Mixdown(Floats(6)).Append({{}, 2, 0, false}, mixed);
    EXPECT_EQ(mixed, (std::vector<float>{1.0F, 0.0F, 0.0F, 0.0F, 0.0F}));
}

TEST(Mixdown, PieceThatIsCutShort_EndsWithSilence) {
    const float samples[] = {0.5F, 0.5F, 0.5F};
    std::vector<float> mixed;
    Mixdown(Floats(2)).Append({std::as_bytes(std::span(samples)), 2, 0, false}, mixed);
    EXPECT_EQ(mixed, (std::vector<float>{0.5F, 0.5F, 0.0F, 0.0F}));
}

} // namespace

} // namespace kxvcr
