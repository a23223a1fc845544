// The quantiser of each picture: by the quality, and by what the stream may still spend.
#include "worker/video/ratecontrol.h"

#include <gtest/gtest.h>

#include <chrono>

namespace kxvcr {

namespace {

using namespace std::chrono_literals;

constexpr int kQuantiser = 24;
constexpr double kBitRate = 800'000; // 100000 bytes a second, 300000 in the reserve

TEST(RateControl, Qualities_GoFromCoarseToFine) {
    EXPECT_EQ(QuantiserOf(1), 44);
    EXPECT_EQ(QuantiserOf(50), 32);
    EXPECT_EQ(QuantiserOf(80), 24);
    EXPECT_EQ(QuantiserOf(90), 18);
    EXPECT_EQ(QuantiserOf(100), 12);
}

TEST(RateControl, QualitiesOutOfRange_AreTheEnds) {
    EXPECT_EQ(QuantiserOf(0), 44);
    EXPECT_EQ(QuantiserOf(1000), 12);
}

TEST(RateControl, BitRate_IsTheGivenOne) {
    EXPECT_EQ(BitRateOf({1920, 1080, 30, 80, 123456}, 1920, 1080), 123456);
}

TEST(RateControl, DefaultBitRate_GrowsWithThePictures) {
    EXPECT_EQ(BitRateOf({16, 16, 1, 80, 0}, 16, 16), 1'000'000);
    EXPECT_EQ(BitRateOf({1920, 1080, 30, 80, 0}, 1920, 1080), 15'552'000);
    EXPECT_EQ(BitRateOf({1920, 1080, 60, 80, 0}, 1920, 1080), 31'104'000);
    EXPECT_EQ(BitRateOf({3840, 2160, 30, 80, 0}, 3840, 2160), 62'208'000);
}

TEST(RateControl, SpendingAThirdOfTheReserve_ChangesNothing) {
    RateControl control(kQuantiser, kBitRate);
    EXPECT_EQ(control.QuantiserAt(0s), kQuantiser);
    control.Spend(100'000);

    EXPECT_EQ(control.QuantiserAt(1ms), kQuantiser);
}

TEST(RateControl, SpendingMore_CoarsensUpToTheLargest) {
    RateControl control(kQuantiser, kBitRate);
    control.QuantiserAt(0s);
    control.Spend(200'000);
    EXPECT_EQ(control.QuantiserAt(1ms), 37); // half way
    control.Spend(200'000);

    EXPECT_EQ(control.QuantiserAt(2ms), 51);
}

TEST(RateControl, Time_FillsTheReserveAgain) {
    RateControl control(kQuantiser, kBitRate);
    control.QuantiserAt(0s);
    control.Spend(300'000);
    EXPECT_EQ(control.QuantiserAt(1s), 37);

    EXPECT_EQ(control.QuantiserAt(2s), kQuantiser);
}

TEST(RateControl, LongRest_SavesNoMoreThanTheReserve) {
    RateControl control(kQuantiser, kBitRate);
    control.QuantiserAt(0s);
    EXPECT_EQ(control.QuantiserAt(1h), kQuantiser);
    control.Spend(300'000);

    EXPECT_EQ(control.QuantiserAt(1h + 1ms), 51);
}

} // namespace

} // namespace kxvcr
