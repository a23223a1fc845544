// What the queue between capture and encoder promises about time, and how it ends.
#include "worker/capture/picturequeue.h"

#include <gtest/gtest.h>

namespace kxvcr {

namespace {

QueuedPicture At(int time) {
    return {{}, MediaTime(time), MediaTime(time), false};
}

TEST(PictureQueue, Settled_IsTheOldestPictureThatIsNotEncodedYet) {
    PictureQueue queue;
    queue.LookedUntil(MediaTime(10));
    EXPECT_EQ(queue.Settled(), MediaTime(10));

    queue.Add(At(10));
    queue.LookedUntil(MediaTime(20));
    queue.Add(At(20));
    queue.LookedUntil(MediaTime(30));
    EXPECT_EQ(queue.Settled(), MediaTime(10));

    EXPECT_EQ(queue.Take()->time, MediaTime(10));
    EXPECT_EQ(queue.Settled(), MediaTime(10));
    EXPECT_EQ(queue.Take()->time, MediaTime(20));
    EXPECT_EQ(queue.Settled(), MediaTime(20));
    queue.Close(false);
    EXPECT_FALSE(queue.Take());
    EXPECT_EQ(queue.Settled(), MediaTime(30));
}

TEST(PictureQueue, Room_IsForAFewPictures) {
    PictureQueue queue;
    for (std::size_t i = 0; i < PictureQueue::kMost; ++i) {
        EXPECT_TRUE(queue.HasRoom());
        queue.Add(At(static_cast<int>(i)));
    }
    EXPECT_FALSE(queue.HasRoom());

    queue.Take();

    EXPECT_TRUE(queue.HasRoom());
}

TEST(PictureQueue, ClosedQueue_GivesOutWhatWaits) {
    PictureQueue queue;
    queue.Add(At(1));

    queue.Close(false);

    EXPECT_EQ(queue.Take()->time, MediaTime(1));
    EXPECT_FALSE(queue.Take());
}

TEST(PictureQueue, ClosedQueueThatDrops_GivesOutNothing) {
    PictureQueue queue;
    queue.Add(At(1));

    queue.Close(true);

    EXPECT_FALSE(queue.Take());
}

TEST(PicturePool, Picture_IsFreeAgainWhenItsLastHolderLetsGo) {
    const auto pool = PicturePool::Create(2, 4, 4);
    SharedPicture first = pool->TakeFree();
    const SharedPicture second = pool->TakeFree();
    SharedPicture again = first;
    EXPECT_NE(first.Get(), second.Get());
    EXPECT_FALSE(pool->TakeFree());

    first = {};
    EXPECT_FALSE(pool->TakeFree());
    again = {};

    EXPECT_TRUE(pool->TakeFree());
}

} // namespace

} // namespace kxvcr
