// What a slow viewer of the video stream loses.
#include "worker/live/fragmentqueue.h"

#include <gtest/gtest.h>

#include <chrono>

namespace kxvcr {

namespace {

using namespace std::chrono_literals;

Fragment FragmentAt(MediaTime time, bool isKey, Stream stream = Stream::Picture, std::size_t size = 1000) {
    return {stream, isKey, time, std::make_shared<const std::vector<std::byte>>(size)};
}

bool IsEmpty(FragmentQueue& queue) {
    return queue.Take().bytes == nullptr;
}

TEST(FragmentQueue, NewViewer_BeginsWithAKeyPicture) {
    FragmentQueue queue;
    queue.Add(FragmentAt(0s, false));
    queue.Add(FragmentAt(0s, true, Stream::Sound));
    EXPECT_TRUE(queue.WaitsForKey());
    EXPECT_TRUE(IsEmpty(queue));

    queue.Add(FragmentAt(1s, true));

    EXPECT_FALSE(queue.WaitsForKey());
    EXPECT_EQ(queue.Take().time, 1s);
    EXPECT_EQ(queue.LostGroups(), 0u);
}

TEST(FragmentQueue, FragmentsInTime_ComeInOrder) {
    FragmentQueue queue;
    queue.Add(FragmentAt(0ms, true));
    queue.Add(FragmentAt(10ms, true, Stream::Sound));
    queue.Add(FragmentAt(33ms, false));

    EXPECT_EQ(queue.Take().time, 0ms);
    EXPECT_EQ(queue.Take().stream, Stream::Sound);
    EXPECT_EQ(queue.Take().time, 33ms);
    EXPECT_TRUE(IsEmpty(queue));
}

TEST(FragmentQueue, ViewerTwoSecondsBehind_LosesEverythingUpToAKeyPicture) {
    FragmentQueue queue;
    queue.Add(FragmentAt(0ms, true));
    queue.Add(FragmentAt(1000ms, false));
    queue.Add(FragmentAt(2000ms, false));
    ASSERT_EQ(queue.LostGroups(), 0u);

    queue.Add(FragmentAt(2033ms, false));
    queue.Add(FragmentAt(2066ms, false));

    EXPECT_TRUE(queue.WaitsForKey());
    EXPECT_TRUE(IsEmpty(queue));
    EXPECT_EQ(queue.LostGroups(), 1u);
    queue.Add(FragmentAt(2100ms, true));
    EXPECT_EQ(queue.Take().time, 2100ms);
}

TEST(FragmentQueue, ManyBytes_AreTooMuchWhateverTheirTime) {
    FragmentQueue queue;
    queue.Add(FragmentAt(0ms, true, Stream::Picture, 3u << 20));
    ASSERT_EQ(queue.LostGroups(), 0u);

    queue.Add(FragmentAt(33ms, false, Stream::Picture, 2u << 20));

    EXPECT_TRUE(IsEmpty(queue));
    EXPECT_EQ(queue.LostGroups(), 1u);
}

TEST(FragmentQueue, OneFragment_IsNeverTooMuch) {
    FragmentQueue queue;
    queue.Add(FragmentAt(0ms, true, Stream::Picture, 20u << 20));

    EXPECT_EQ(queue.Take().bytes->size(), 20u << 20);
    queue.Add(FragmentAt(3600s, false));
    EXPECT_EQ(queue.Take().time, 3600s);
    EXPECT_EQ(queue.LostGroups(), 0u);
}

TEST(FragmentQueue, Gap_LosesTheGroup) {
    FragmentQueue queue;
    queue.Add(FragmentAt(0ms, true));

    queue.NoteGap();
    queue.NoteGap();
    queue.Add(FragmentAt(33ms, false));

    EXPECT_TRUE(IsEmpty(queue));
    EXPECT_EQ(queue.LostGroups(), 1u);
}

} // namespace

} // namespace kxvcr
