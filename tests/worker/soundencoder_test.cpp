// AAC and Opus: times, formats and, for Opus, what its decoder gives.
#include "worker/sound/makesoundencoder.h"

#include "worker/soundsignals.h"

#include <gtest/gtest.h>
#include <opus/opus.h>

#include <memory>
#include <vector>

namespace kxvcr {

namespace {

using kxtest::Clicks;
using kxtest::Peak;
using kxtest::Side;
using kxtest::Signal;
using kxtest::Tone;

std::vector<float> Stereo(const Signal& signal, std::int64_t first, std::uint32_t frames) {
    std::vector<float> samples;
    for (std::uint32_t frame = 0; frame < frames; ++frame) {
        samples.insert(samples.end(), 2, static_cast<float>(signal(static_cast<double>(first + frame) / kSoundRate)));
    }
    return samples;
}

// The packets of so many blocks of a signal.
std::vector<SharedPacket> Encode(SoundEncoder& encoder, const Signal& signal, int blocks) {
    const std::uint32_t length = encoder.Format().samplesPerPacket;
    std::vector<SharedPacket> packets;
    for (int block = 0; block < blocks; ++block) {
        const std::int64_t first = std::int64_t{block} * length;
        packets.push_back(encoder.Encode(Stereo(signal, first, length), first));
    }
    return packets;
}

class SoundEncoders : public testing::TestWithParam<Codec> {};

TEST_P(SoundEncoders, Packets_FollowEachOtherAndBeginWithTheDelay) {
    const auto encoder = MakeSoundEncoder(GetParam());
    ASSERT_NE(encoder, nullptr);
    const SoundFormat& format = encoder->Format();
    const auto packets = Encode(*encoder, Tone(440, 0.5), 50);
    for (std::size_t i = 0; i < packets.size(); ++i) {
        ASSERT_NE(packets[i], nullptr);
        EXPECT_EQ(packets[i]->stream, Stream::Sound);
        EXPECT_TRUE(packets[i]->isKey);
        const auto first = static_cast<std::int64_t>(i) * format.samplesPerPacket;
        EXPECT_EQ(packets[i]->time, FrameTime(first - format.delaySamples));
        EXPECT_GT(packets[i]->bytes.size(), 20u);
    }
}

TEST_P(SoundEncoders, SoundAboveFullScale_IsEncoded) {
    const auto encoder = MakeSoundEncoder(GetParam());
    const auto packets = Encode(*encoder, Tone(440, 5), 10);
    for (const SharedPacket& packet : packets) {
        EXPECT_NE(packet, nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(Codecs, SoundEncoders, testing::Values(Codec::H264, Codec::Vp9),
                         [](const auto& codec) { return codec.param == Codec::H264 ? "AacLc" : "Opus"; });

TEST(SoundEncoder, BesideH264_IsAacWithItsConfiguration) {
    const SoundFormat format = MakeSoundEncoder(Codec::H264)->Format();
    EXPECT_EQ(format.codec, Codec::AacLc);
    EXPECT_EQ(format.samplesPerPacket, 1024u);
    EXPECT_EQ(format.decoderConfig, (std::vector{std::byte{0x11}, std::byte{0x90}}));
}

TEST(SoundEncoder, BesideVp9_IsOpusWithItsHead) {
    const SoundFormat format = MakeSoundEncoder(Codec::Vp9)->Format();
    EXPECT_EQ(format.codec, Codec::Opus);
    EXPECT_EQ(format.samplesPerPacket, 960u);
    ASSERT_EQ(format.decoderConfig.size(), 19u);
    EXPECT_EQ(static_cast<char>(format.decoderConfig[0]), 'O');
    EXPECT_EQ(std::to_integer<std::uint32_t>(format.decoderConfig[9]), 2u);
    EXPECT_EQ(std::to_integer<std::uint32_t>(format.decoderConfig[10]) +
                  256 * std::to_integer<std::uint32_t>(format.decoderConfig[11]),
              format.delaySamples);
}

TEST(SoundEncoder, OpusDecoded_HasItsClickWhereItWas) {
    const auto encoder = MakeSoundEncoder(Codec::Vp9);
    const auto packets = Encode(*encoder, Clicks(), 75);
    const std::unique_ptr<OpusDecoder, void (*)(OpusDecoder*)> decoder(
        opus_decoder_create(kSoundRate, kSoundChannels, nullptr), opus_decoder_destroy);
    std::vector<float> decoded;
    for (const SharedPacket& packet : packets) {
        std::vector<float> block(960 * kSoundChannels);
        ASSERT_EQ(opus_decode_float(decoder.get(), reinterpret_cast<const unsigned char*>(packet->bytes.data()),
                                    static_cast<opus_int32>(packet->bytes.size()), block.data(), 960, 0),
                  960);
        decoded.insert(decoded.end(), block.begin(), block.end());
    }
    const auto left = Side(decoded, 0);
    const std::size_t half = kSoundRate / 2;
    const double heard = static_cast<double>(Peak(std::span(left).subspan(half)) + half);
    EXPECT_NEAR(heard - encoder->Format().delaySamples, kSoundRate, 24);
}

} // namespace

} // namespace kxvcr
