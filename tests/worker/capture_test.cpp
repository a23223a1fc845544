// Where the screen's pixels and the pointer go in a picture, and where two pictures differ.
#include "support/importpatch.h"
#include "worker/capture/difference.h"
#include "worker/capture/picturebuffer.h"
#include "worker/capture/placement.h"

#include <gtest/gtest.h>

#include <cstring>

namespace kxvcr {

namespace {

using SelectHook = kxtest::ImportHook<"GDI32.dll", "SelectObject", decltype(SelectObject)>;

// A bitmap is given back to a device context that is still there.
TEST(PictureBuffer, OneThatTakesAnothersPlace_LetsItGoInOrder) {
    int refusals = 0;
    const SelectHook hook(
        [&](HDC dc, HGDIOBJ object) {
            const HGDIOBJ before = SelectHook::Original(dc, object);
            refusals += before == nullptr ? 1 : 0;
            return before;
        },
        GetModuleHandleW(nullptr));
    PictureBuffer buffer = PictureBuffer::Create(4, 2);

    buffer = PictureBuffer::Create(8, 6);

    EXPECT_TRUE(buffer);
    EXPECT_EQ(buffer.Width(), 8u);
    EXPECT_GT(hook.Calls(), 2);
    EXPECT_EQ(refusals, 0);
}

TEST(Letterbox, SameProportions_FillThePicture) {
    EXPECT_EQ(Letterbox({0, 0, 1280, 720}, 1280, 720), (ScreenRect{0, 0, 1280, 720}));
    EXPECT_EQ(Letterbox({-5, 7, 2560, 1440}, 1280, 720), (ScreenRect{0, 0, 1280, 720}));
}

TEST(Letterbox, NarrowerSource_StandsBetweenBordersLeftAndRight) {
    EXPECT_EQ(Letterbox({0, 0, 800, 600}, 1280, 720), (ScreenRect{160, 0, 960, 720}));
}

TEST(Letterbox, WiderSource_LiesBetweenBordersAboveAndBelow) {
    EXPECT_EQ(Letterbox({0, 0, 2000, 500}, 1000, 1000), (ScreenRect{0, 375, 1000, 250}));
}

TEST(Letterbox, ExtremeProportions_KeepAPixel) {
    EXPECT_EQ(Letterbox({0, 0, 60000, 1}, 100, 100), (ScreenRect{0, 49, 100, 1}));
    EXPECT_EQ(Letterbox({0, 0, 1, 60000}, 100, 100), (ScreenRect{49, 0, 1, 100}));
}

TEST(Letterbox, LargestSizes_DoNotOverflow) {
    EXPECT_EQ(Letterbox({0, 0, 0x7FFFFFFF, 0x7FFFFFFF}, 0x7FFFFFFF, 0x7FFFFFFF),
              (ScreenRect{0, 0, 0x7FFFFFFF, 0x7FFFFFFF}));
}

TEST(PlaceInPicture, SameSize_IsTheDistanceFromTheCorner) {
    EXPECT_EQ(PlaceInPicture({110, 220}, {100, 200, 640, 360}, {0, 0, 640, 360}), (PicturePoint{10, 20}));
    EXPECT_EQ(PlaceInPicture({90, 150}, {100, 200, 640, 360}, {0, 0, 640, 360}), (PicturePoint{-10, -50}));
}

TEST(PlaceInPicture, ScaledBetweenBorders_FollowsThePicture) {
    EXPECT_EQ(PlaceInPicture({400, 300}, {0, 0, 800, 600}, {160, 0, 960, 720}), (PicturePoint{640, 360}));
    EXPECT_EQ(PlaceInPicture({-800, 0}, {-800, 0, 800, 600}, {160, 0, 960, 720}), (PicturePoint{160, 0}));
}

TEST(PartInPicture, SameSize_KeepsEveryPixel) {
    EXPECT_EQ(PartInPicture({100, 200, 50, 60}, {90, 180, 640, 360}, {0, 0, 640, 360}), (ScreenRect{10, 20, 50, 60}));
}

TEST(PartInPicture, WholeSource_IsTheWholeTarget) {
    EXPECT_EQ(PartInPicture({-7, 3, 801, 599}, {-7, 3, 801, 599}, {160, 0, 961, 720}), (ScreenRect{160, 0, 961, 720}));
}

TEST(PartInPicture, RightHalf_IsScaledBetweenTheBorders) {
    EXPECT_EQ(PartInPicture({400, 0, 400, 600}, {0, 0, 800, 600}, {160, 0, 960, 720}), (ScreenRect{640, 0, 480, 720}));
}

TEST(PartInPicture, Nothing_HasNoPixels) {
    const ScreenRect part = PartInPicture({}, {5000, 5000, 800, 600}, {0, 0, 400, 300});
    EXPECT_EQ(part.width, 0u);
    EXPECT_EQ(part.height, 0u);
}

class DifferentRowsTest : public testing::Test {
protected:
    static constexpr std::uint32_t kWidth = 203; // no multiple of what is compared at once
    static constexpr std::uint32_t kHeight = 30;

    static void Set(PictureBuffer& buffer, std::uint32_t x, std::uint32_t y) {
        buffer.Pixels()[y * buffer.Stride() + x * kBytesPerPixel] = std::byte{1};
    }

    PictureBuffer before = PictureBuffer::Create(kWidth, kHeight);
    PictureBuffer after = PictureBuffer::Create(kWidth, kHeight);
};

TEST_F(DifferentRowsTest, EqualPictures_HaveNone) {
    EXPECT_EQ(DifferentRows(before, after), std::nullopt);
}

TEST_F(DifferentRowsTest, EveryPixel_IsCompared) {
    for (std::uint32_t y = 0; y < kHeight; ++y) {
        for (std::uint32_t x = 0; x < kWidth; ++x) {
            PictureBuffer one = PictureBuffer::Create(kWidth, kHeight);
            Set(one, x, y);
            ASSERT_EQ(DifferentRows(before, one), (PictureRect{0, y, kWidth, 1})) << x << ", " << y;
        }
    }
}

TEST_F(DifferentRowsTest, RowsFromTheFirstToTheLast_AreTold) {
    Set(after, 5, 3);
    Set(after, 200, 17);

    EXPECT_EQ(DifferentRows(before, after), (PictureRect{0, 3, kWidth, 15}));
}

} // namespace

} // namespace kxvcr
