// When the encoder is asked for less and when for more again.
#include "worker/effortladder.h"

#include <gtest/gtest.h>

#include <vector>

namespace kxvcr {

namespace {

using namespace std::chrono_literals;

// An encoder at work, one picture in each tenth of a second.
class EffortLadderTest : public testing::Test {
protected:
    // Goes on for so long; each picture takes @p took, and @p lost pictures are lost beside each.
    void Work(MediaTime length, MediaTime took, std::uint64_t lost) {
        for (const MediaTime end = now + length; now < end;) {
            now += 100ms;
            dropped += lost;
            if (ladder.Note(now, took, dropped)) {
                steps.push_back(ladder.Rung().step);
                efforts.push_back(ladder.Rung().effort);
                times.push_back(now);
            }
        }
    }

    EffortLadder ladder;
    MediaTime now{};
    std::uint64_t dropped = 0;
    std::vector<std::uint32_t> steps;
    std::vector<Effort> efforts;
    std::vector<MediaTime> times;
};

TEST_F(EffortLadderTest, EncoderThatKeepsUp_StaysAtTheTop) {
    Work(60s, 80ms, 0);

    EXPECT_TRUE(steps.empty());
    EXPECT_EQ(ladder.Rung().effort, Effort::Screen);
    EXPECT_EQ(ladder.Rung().step, 1u);
}

TEST_F(EffortLadderTest, LostPictures_FirstCostTheSearchForScreenContentThenEverySecondPicture) {
    Work(3s, 98ms, 1);

    EXPECT_EQ(efforts, (std::vector<Effort>{Effort::Camera, Effort::Camera}));
    EXPECT_EQ(steps, (std::vector<std::uint32_t>{1, 2}));
    EXPECT_TRUE(ladder.WentDown());
}

TEST_F(EffortLadderTest, PicturesLostWhileTheEncoderIsIdle_AreNotItsFault) {
    Work(30s, 20ms, 1);

    EXPECT_TRUE(steps.empty());
}

TEST_F(EffortLadderTest, CalmTime_LeadsBackUpOneRungAtATime) {
    Work(3s, 98ms, 1);
    const MediaTime calm = now;

    Work(20s, 10ms, 0);

    EXPECT_EQ(steps, (std::vector<std::uint32_t>{1, 2, 1, 1}));
    EXPECT_EQ(efforts.back(), Effort::Screen);
    EXPECT_FALSE(ladder.WentDown());
    EXPECT_GE(times[2] - calm, 4s);
}

TEST_F(EffortLadderTest, LoadThatTheRungAboveCouldNotBear_StaysWhereItIs) {
    Work(3s, 98ms, 1);

    Work(60s, 60ms, 0);

    EXPECT_EQ(steps, (std::vector<std::uint32_t>{1, 2}));
}

TEST_F(EffortLadderTest, TryThatFails_IsRepeatedAfterALongerCalm) {
    Work(1s, 98ms, 1);
    for (int i = 0; i < 3; ++i) {
        while (ladder.Rung().effort != Effort::Screen) {
            Work(1s, 10ms, 0);
        }
        while (ladder.Rung().effort == Effort::Screen) {
            Work(1s, 98ms, 1);
        }
    }

    // Down, up, down, up, down, up, down: each calm is twice the one before.
    ASSERT_EQ(times.size(), 7u);
    EXPECT_NEAR(static_cast<double>((times[1] - times[0]).count()), 5e7, 1.1e7);
    EXPECT_NEAR(static_cast<double>((times[3] - times[2]).count()), 10e7, 1.1e7);
    EXPECT_NEAR(static_cast<double>((times[5] - times[4]).count()), 20e7, 1.1e7);
}

} // namespace

} // namespace kxvcr
