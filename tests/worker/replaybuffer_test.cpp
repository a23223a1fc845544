// The replay's memory: what is kept, what goes first, and that equal pictures cost nothing.
#include "worker/replay/replaybuffer.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

using kxvcr::PictureQueue;
using kxvcr::QueuedPicture;
using kxvcr::ReplayBuffer;

constexpr std::size_t kPictureBytes = 1000;
constexpr std::size_t kCost = kPictureBytes + PictureQueue::kBytesPerPicture;
constexpr std::size_t kPlenty = 1000 * kCost;

std::vector<std::byte> Picture(int number) {
    return std::vector<std::byte>(kPictureBytes, static_cast<std::byte>(number));
}

// Slots and the numbers of their pictures.
using Contents = std::vector<std::pair<std::uint64_t, int>>;

Contents TakeAll(PictureQueue queue) {
    Contents contents;
    while (!queue.Empty()) {
        const QueuedPicture picture = queue.TakeFirst();
        EXPECT_EQ(picture.jpeg->size(), kPictureBytes);
        contents.emplace_back(picture.slot, std::to_integer<int>(picture.jpeg->front()));
    }
    EXPECT_EQ(queue.Bytes(), 0u);
    return contents;
}

TEST(ReplayBuffer, FewerSlotsThanTheLimit_AreAllKept) {
    ReplayBuffer replay(5, kPlenty);

    for (int slot = 0; slot < 5; ++slot) {
        replay.Add(static_cast<std::uint64_t>(slot), Picture(slot));
    }

    EXPECT_EQ(TakeAll(replay.Take()), (Contents{{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 4}}));
}

TEST(ReplayBuffer, MoreSlotsThanTheLimit_LoseTheOldest) {
    ReplayBuffer replay(3, kPlenty);

    for (int slot = 0; slot < 100; ++slot) {
        replay.Add(static_cast<std::uint64_t>(slot), Picture(slot));
    }

    EXPECT_EQ(replay.Bytes(), 3 * kCost);
    EXPECT_EQ(TakeAll(replay.Take()), (Contents{{97, 97}, {98, 98}, {99, 99}}));
}

TEST(ReplayBuffer, EqualPictures_ShareOneBlockForAnHour) {
    constexpr std::uint64_t kHour = 3600 * 30;
    ReplayBuffer replay(kHour, kPlenty);

    for (std::uint64_t slot = 0; slot < kHour; ++slot) {
        replay.Add(slot, Picture(7));
    }

    EXPECT_EQ(replay.Bytes(), kCost);
    EXPECT_EQ(replay.Take().FirstSlot(), 0u);
}

TEST(ReplayBuffer, EqualPicturesPastTheLimit_LoseSlotsAndKeepTheBlock) {
    ReplayBuffer replay(3, kPlenty);

    for (std::uint64_t slot = 0; slot < 10; ++slot) {
        replay.Add(slot, Picture(slot < 8 ? 1 : 2));
    }

    EXPECT_EQ(replay.Bytes(), 2 * kCost);
    EXPECT_EQ(TakeAll(replay.Take()), (Contents{{7, 1}, {8, 2}, {9, 2}}));
}

TEST(ReplayBuffer, MemoryLimit_DropsTheOldestPicturesFirst) {
    ReplayBuffer replay(100, 4 * kCost);

    for (int slot = 0; slot < 20; ++slot) {
        replay.Add(static_cast<std::uint64_t>(slot), Picture(slot));
        EXPECT_LE(replay.Bytes(), 4 * kCost);
    }

    EXPECT_EQ(TakeAll(replay.Take()), (Contents{{16, 16}, {17, 17}, {18, 18}, {19, 19}}));
}

TEST(ReplayBuffer, PictureLargerThanTheLimit_IsKeptAlone) {
    ReplayBuffer replay(100, kCost - 1);

    replay.Add(0, Picture(1));
    replay.Add(1, Picture(2));

    EXPECT_EQ(TakeAll(replay.Take()), (Contents{{1, 2}}));
}

TEST(ReplayBuffer, SlotsLeftOut_StayLeftOutAndCountAsTime) {
    ReplayBuffer replay(10, kPlenty);

    replay.Add(0, Picture(1));
    replay.Add(1, Picture(1));
    replay.Add(9, Picture(1));
    replay.Add(10, Picture(2));

    EXPECT_EQ(TakeAll(replay.Take()), (Contents{{1, 1}, {9, 1}, {10, 2}}));
}

TEST(ReplayBuffer, WithoutSlots_KeepsNothing) {
    ReplayBuffer replay;

    replay.Add(0, Picture(1));

    EXPECT_TRUE(replay.Take().Empty());
}

TEST(ReplayBuffer, AfterTake_IsEmptyAndGoesOn) {
    ReplayBuffer replay(10, kPlenty);
    replay.Add(0, Picture(1));
    replay.Take();

    EXPECT_EQ(replay.Bytes(), 0u);
    replay.Add(1, Picture(1));

    EXPECT_EQ(TakeAll(replay.Take()), (Contents{{1, 1}}));
}

TEST(PictureQueue, PicturesAddedWhileTheyAreTakenOut_KeepTheirSlots) {
    PictureQueue queue;
    Contents contents;
    queue.Add(0, Picture(1));

    for (int slot = 1; slot < 9; ++slot) {
        queue.Add(static_cast<std::uint64_t>(slot), Picture(1 + slot / 4));
        const QueuedPicture picture = queue.TakeFirst();
        contents.emplace_back(picture.slot, std::to_integer<int>(picture.jpeg->front()));
    }
    contents.push_back(TakeAll(std::move(queue)).at(0));

    EXPECT_EQ(contents, (Contents{{0, 1}, {1, 1}, {2, 1}, {3, 1}, {4, 2}, {5, 2}, {6, 2}, {7, 2}, {8, 3}}));
}

} // namespace
