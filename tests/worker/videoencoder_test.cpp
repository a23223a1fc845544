// What holds for every encoder of pictures, whatever its codec.
#include "tests/worker/picture.h"
#include "worker/video/makeencoder.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace kxvcr::test {

namespace {

constexpr std::uint32_t kRate = 30;

class EveryVideoEncoder : public testing::TestWithParam<Codec> {
protected:
    static std::unique_ptr<VideoEncoder> Make(std::uint32_t width, std::uint32_t height, std::uint32_t bitRate = 0) {
        MadeEncoder made = MakeEncoder(GetParam(), {width, height, kRate, kDefaultQuality, bitRate});
        EXPECT_EQ(made.result, Result::Accepted);
        return std::move(made.encoder);
    }

    // A moving picture without rest: the bytes of so many seconds of it.
    static std::size_t BytesOf(std::uint32_t bitRate, std::uint64_t seconds) {
        const auto encoder = Make(160, 96, bitRate);
        Picture picture(160, 96);
        std::size_t bytes = 0;
        for (std::uint64_t slot = 0; slot < seconds * kRate; ++slot) {
            picture.FillWithNoise({0, 0, 160, 96}, static_cast<std::uint32_t>(slot));
            bytes += encoder->Encode(picture.View(), SlotTime(slot, kRate), false)->bytes.size();
        }
        return bytes;
    }
};

INSTANTIATE_TEST_SUITE_P(Codecs, EveryVideoEncoder, testing::Values(Codec::H264, Codec::Vp9),
                         [](const auto& codec) { return codec.param == Codec::H264 ? "H264" : "Vp9"; });

TEST_P(EveryVideoEncoder, BitRate_IsKeptOverSomeSeconds) {
    constexpr std::uint32_t kBitRate = 1'000'000;
    constexpr std::uint64_t kSeconds = 12;
    constexpr std::uint64_t kReserveSeconds = 3;

    EXPECT_LE(BytesOf(kBitRate, kSeconds) * 8, kBitRate * (kSeconds + kReserveSeconds));
    EXPECT_GT(BytesOf(kBitRate * 10, kSeconds) * 8, kBitRate * (kSeconds + kReserveSeconds));
}

TEST_P(EveryVideoEncoder, KeyInterval_CountsFromTheKeyPictureBefore) {
    const auto encoder = Make(320, 240);
    ASSERT_NE(encoder, nullptr);
    Picture picture = Page(320, 240);
    std::vector<std::uint64_t> keys;
    for (std::uint64_t slot = 0; slot < 6 * kRate; ++slot) {
        if (slot == kRate) {
            encoder->SetKeyInterval(std::chrono::seconds(4));
        }
        picture.Write({16, 48, 128, 40}, static_cast<std::uint32_t>(slot), {0, 90, 0});
        const SharedPacket packet = encoder->Encode(picture.View(), SlotTime(slot, kRate), false);
        ASSERT_NE(packet, nullptr) << slot;
        if (packet->isKey) {
            keys.push_back(slot);
        }
    }
    EXPECT_EQ(keys, (std::vector<std::uint64_t>{0, 4 * kRate}));
}

TEST_P(EveryVideoEncoder, WrongSize_FailsAndTheNextPictureIsAKeyPicture) {
    const auto encoder = Make(320, 240);
    ASSERT_NE(encoder, nullptr);
    encoder->Encode(Page(320, 240).View(), SlotTime(0, kRate), false);

    EXPECT_EQ(encoder->Encode(Page(320, 238).View(), SlotTime(1, kRate), false), nullptr);
    const SharedPacket packet = encoder->Encode(Page(320, 240).View(), SlotTime(2, kRate), false);

    ASSERT_NE(packet, nullptr);
    EXPECT_TRUE(packet->isKey);
}

} // namespace

} // namespace kxvcr::test
