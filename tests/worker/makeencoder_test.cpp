// Every way in which there is no encoder, and memory that is refused at any point.
#include "tests/worker/picture.h"
#include "tests/worker/scarcememory.h"
#include "worker/video/makeencoder.h"

#include <gtest/gtest.h>

namespace kxvcr::test {

namespace {

constexpr EncoderSettings kSettings = {64, 64, 30, kDefaultQuality, 0};
constexpr int kMostAllocations = 1000;

TEST(MakeEncoder, CodecWithoutAnEncoder_IsRefused) {
    const MadeEncoder made = MakeEncoder(Codec::Opus, kSettings);

    EXPECT_EQ(made.encoder, nullptr);
    EXPECT_EQ(made.result, Result::EncoderFailed);
}

class ScarceMemory : public testing::TestWithParam<Codec> {};

TEST_P(ScarceMemory, AnyAllocationRefused_IsOutOfResources) {
    int granted = 0;
    for (; granted < kMostAllocations; ++granted) {
        MadeEncoder made;
        bool refused = false;
        {
            const RefuseAllocations scarce(granted);
            made = MakeEncoder(GetParam(), kSettings);
            refused = scarce.HasRefused();
        }
        if (!refused) {
            EXPECT_EQ(made.result, Result::Accepted);
            break;
        }
        EXPECT_EQ(made.result, Result::OutOfResources) << "after " << granted;
        EXPECT_EQ(made.encoder, nullptr);
    }
    EXPECT_GT(granted, 0);
    EXPECT_LT(granted, kMostAllocations);
}

TEST_P(ScarceMemory, AllocationRefusedForAPicture_LosesThatPictureAlone) {
    const MadeEncoder made = MakeEncoder(GetParam(), kSettings);
    ASSERT_NE(made.encoder, nullptr);
    const Picture picture = Page(64, 64);
    std::uint64_t slot = 0;
    const auto encode = [&] { return made.encoder->Encode(picture.View(), SlotTime(slot++, 30), false); };
    ASSERT_NE(encode(), nullptr);
    int granted = 0;
    for (; granted < kMostAllocations; ++granted) {
        SharedPacket packet;
        bool refused = false;
        {
            const RefuseAllocations scarce(granted);
            packet = encode();
            refused = scarce.HasRefused();
        }
        if (!refused) {
            EXPECT_NE(packet, nullptr);
            break;
        }
        EXPECT_EQ(packet, nullptr) << "after " << granted;
        const SharedPacket next = encode();
        ASSERT_NE(next, nullptr);
        EXPECT_TRUE(next->isKey);
    }
    EXPECT_GT(granted, 0);
    EXPECT_LT(granted, kMostAllocations);
}

INSTANTIATE_TEST_SUITE_P(Codecs, ScarceMemory, testing::Values(Codec::H264, Codec::Vp9),
                         [](const auto& codec) { return codec.param == Codec::H264 ? "H264" : "Vp9"; });

} // namespace

} // namespace kxvcr::test
