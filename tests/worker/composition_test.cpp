// What a frame of an output asks of the picture.
#include "worker/capture/composition.h"

#include <gtest/gtest.h>

namespace kxvcr {

namespace {

constexpr PixelSize kPicture = {100, 50};

struct PlanTest : testing::Test {
    void Plan(const OutputPlace& place) {
        frame.hasImage = true;
        PlanFrame(frame, place, kPicture, plan);
    }

    OutputFrame frame;
    FramePlan plan;
};

bool Same(const PlacedPart& part, const PictureRect& onSurface, const PictureRect& inPicture) {
    return part.onSurface == onSurface && part.inPicture == inPicture;
}

TEST_F(PlanTest, OutputThatReachesOutOfThePicture_IsReadAsFarAsItIsIn) {
    frame.isWhole = true;
    Plan({{-10, 20, 60, 60}});

    ASSERT_EQ(plan.reads.size(), 1u);
    EXPECT_TRUE(Same(plan.reads[0], {10, 0, 50, 30}, {0, 20, 50, 30}));
}

TEST_F(PlanTest, DirtyRectangle_IsClipped) {
    frame.dirty = {{0, 0, 20, 5}, {-7, -7, 13, 500}, {5, 5, 5, 9}, {9, 9, 3, 3}, {1000, 1000, 2000, 2000}};
    Plan({{-10, 0, 60, 60}});

    ASSERT_EQ(plan.reads.size(), 2u);
    EXPECT_TRUE(Same(plan.reads[0], {10, 0, 10, 5}, {0, 0, 10, 5}));
    EXPECT_TRUE(Same(plan.reads[1], {10, 0, 3, 50}, {0, 0, 3, 50}));
}

TEST_F(PlanTest, DirtyRectangleOfATurnedOutput_IsReadWhereTheSurfaceHasIt) {
    frame.dirty = {{0, 0, 10, 5}};
    Plan({{0, 0, 40, 50}, Turn::Quarter});

    ASSERT_EQ(plan.reads.size(), 1u);
    EXPECT_TRUE(Same(plan.reads[0], {0, 0, 10, 5}, {35, 0, 5, 10}));
}

TEST_F(PlanTest, MovementWithinThePicture_IsMadeThere) {
    frame.moves = {{{0, 10}, {0, 0, 20, 5}}};
    Plan({{30, 0, 60, 50}});

    ASSERT_EQ(plan.movements.size(), 1u);
    EXPECT_EQ(plan.movements[0].from, (PictureRect{30, 10, 20, 5}));
    EXPECT_EQ(plan.movements[0].to, (PictureRect{30, 0, 20, 5}));
    EXPECT_TRUE(plan.reads.empty());
}

TEST_F(PlanTest, MovementIntoThePictureFromBeyond_IsReadAndSoAreThoseAfterIt) {
    frame.moves = {{{20, 0}, {30, 0, 40, 5}}, {{0, 0}, {30, 20, 40, 25}}, {{30, 0}, {40, 30, 50, 35}}};
    Plan({{-10, 0, 60, 60}});

    ASSERT_EQ(plan.movements.size(), 1u);
    ASSERT_EQ(plan.reads.size(), 2u);
    EXPECT_TRUE(Same(plan.reads[0], {30, 20, 10, 5}, {20, 20, 10, 5}));
    EXPECT_TRUE(Same(plan.reads[1], {40, 30, 10, 5}, {30, 30, 10, 5}));
}

TEST_F(PlanTest, MovementOutOfThePicture_IsNone) {
    frame.moves = {{{20, 0}, {0, 0, 5, 5}}};
    Plan({{-10, 0, 60, 60}});

    EXPECT_TRUE(plan.movements.empty());
    EXPECT_TRUE(plan.reads.empty());
}

TEST_F(PlanTest, MovementFromBeyondTheSurface_IsRead) {
    frame.moves = {{{-5, 0}, {0, 0, 10, 10}}};
    Plan({{0, 0, 60, 50}});

    EXPECT_TRUE(plan.movements.empty());
    ASSERT_EQ(plan.reads.size(), 1u);
    EXPECT_TRUE(Same(plan.reads[0], {0, 0, 10, 10}, {0, 0, 10, 10}));
}

} // namespace

} // namespace kxvcr
