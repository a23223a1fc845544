// What changed, and what changed since an older picture.
#include "worker/capture/changedarea.h"

#include <gtest/gtest.h>

#include <vector>

namespace kxvcr {

namespace {

std::vector<PictureRect> RectsOf(const ChangedArea& area) {
    return {area.Rects().begin(), area.Rects().end()};
}

TEST(ChangedArea, RectangleWithoutPixels_IsNone) {
    ChangedArea area;
    area.Add(PictureRect{3, 4, 0, 7});
    area.Add(PictureRect{3, 4, 7, 0});

    EXPECT_TRUE(area.IsEmpty());
}

TEST(ChangedArea, RectangleInAnother_IsNotAddedTwice) {
    ChangedArea area;
    area.Add(PictureRect{10, 10, 20, 20});
    area.Add(PictureRect{12, 12, 18, 18});
    area.Add(PictureRect{12, 12, 18, 19});

    EXPECT_EQ(RectsOf(area), (std::vector<PictureRect>{{10, 10, 20, 20}, {12, 12, 18, 19}}));
}

TEST(ChangedArea, OneMoreThanItHolds_BecomesWhatEnclosesThemAll) {
    ChangedArea area;
    for (std::uint32_t i = 0; i < ChangedArea::kMost; ++i) {
        area.Add(PictureRect{5 + 2 * i, 7, 1, 1});
    }
    EXPECT_EQ(area.Rects().size(), ChangedArea::kMost);

    area.Add(PictureRect{1, 90, 2, 3});

    EXPECT_EQ(RectsOf(area), (std::vector<PictureRect>{{1, 7, 4 + 2 * ChangedArea::kMost - 1, 86}}));
}

ChangedArea AreaAt(std::uint32_t left) {
    ChangedArea area;
    area.Add(PictureRect{left, 0, 1, 1});
    return area;
}

TEST(ChangeHistory, ChangesSinceAVersion_AreThoseOfTheNewerOnes) {
    ChangeHistory history;
    const std::uint64_t first = history.Add(AreaAt(1));
    history.Add(AreaAt(2));
    const std::uint64_t newest = history.Add(AreaAt(3));

    ChangedArea sinceFirst;
    ASSERT_TRUE(history.Since(first, sinceFirst));
    EXPECT_EQ(RectsOf(sinceFirst), (std::vector<PictureRect>{{2, 0, 1, 1}, {3, 0, 1, 1}}));
    ChangedArea sinceNewest;
    ASSERT_TRUE(history.Since(newest, sinceNewest));
    EXPECT_TRUE(sinceNewest.IsEmpty());
}

TEST(ChangeHistory, VersionThatNeverWas_IsNotKnown) {
    ChangeHistory history;
    const std::uint64_t version = history.Add(AreaAt(1));
    ChangedArea area;

    EXPECT_FALSE(history.Since(0, area));
    EXPECT_FALSE(history.Since(version + 1, area));
    EXPECT_TRUE(area.IsEmpty());
}

TEST(ChangeHistory, VersionThatIsTooOld_IsNotKnown) {
    constexpr std::uint32_t kKept = 8;
    ChangeHistory history;
    const std::uint64_t version = history.Add(AreaAt(1));
    for (std::uint32_t i = 0; i < kKept; ++i) {
        history.Add(AreaAt(10 + i));
    }
    ChangedArea area;
    ASSERT_TRUE(history.Since(version, area));
    EXPECT_EQ(area.Rects().size(), kKept);

    history.Add(AreaAt(20));
    EXPECT_FALSE(history.Since(version, area));
}

TEST(ChangeHistory, VersionsBeforeABreak_AreNotKnown) {
    ChangeHistory history;
    const std::uint64_t before = history.Add(AreaAt(1));
    history.Forget();
    const std::uint64_t after = history.Add(AreaAt(2));
    history.Add(AreaAt(3));
    ChangedArea area;

    EXPECT_FALSE(history.Since(before, area));
    ASSERT_TRUE(history.Since(after, area));
    EXPECT_EQ(RectsOf(area), (std::vector<PictureRect>{{3, 0, 1, 1}}));
}

} // namespace

} // namespace kxvcr
