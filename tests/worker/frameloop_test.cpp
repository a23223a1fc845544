// The recording loop: a picture for every slot, whatever the source and the sink do.
#include "worker/recorder.h"

#include "common/win/handle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

using namespace kxvcr;

constexpr std::uint32_t kFramesPerSecond = 50;

// Ends the recording with its last picture. One picture may take long.
class FakePictures final : public PictureSource {
public:
    FakePictures(HANDLE stop, std::uint64_t count) : m_stop(stop), m_left(count) {}

    std::span<const std::byte> Take(RecordStatistics& statistics) override {
        ++statistics.captured;
        if (statistics.captured == slowPicture) {
            WaitForSingleObject(m_stop, slowMs);
        }
        if (--m_left == 0) {
            SetEvent(m_stop);
        }
        m_picture.assign(1, static_cast<std::byte>(statistics.captured));
        return m_picture;
    }

    std::uint64_t slowPicture = 0;
    DWORD slowMs = 0;

private:
    HANDLE m_stop;
    std::uint64_t m_left;
    std::vector<std::byte> m_picture;
};

class FakeSink final : public FrameSink {
public:
    bool AddFrame(std::uint64_t slot, std::span<const std::byte> jpeg) override {
        if (slots.size() == room) {
            return false;
        }
        slots.push_back(slot);
        pictures.push_back(std::to_integer<int>(jpeg[0]));
        return true;
    }
    void Finish(std::uint64_t endSlot) override { ends.push_back(endSlot); }

    std::size_t room = SIZE_MAX;
    std::vector<std::uint64_t> slots;
    std::vector<int> pictures;
    std::vector<std::uint64_t> ends;
};

class FrameLoopTest : public testing::Test {
protected:
    void ExpectEverySlotOnce() {
        for (std::size_t i = 0; i < sink.slots.size(); ++i) {
            EXPECT_EQ(sink.slots[i], i);
        }
    }

    kx::KernelHandle stop{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    FakeSink sink;
};

TEST_F(FrameLoopTest, Stop_FinishesTheSinkBehindTheLastSlot) {
    FakePictures pictures(stop.Get(), 5);
    FrameLoop loop(pictures, sink, kFramesPerSecond);

    EXPECT_TRUE(loop.Run(stop.Get()));

    ExpectEverySlotOnce();
    EXPECT_EQ(sink.ends, std::vector<std::uint64_t>{sink.slots.size()});
    EXPECT_EQ(loop.Statistics().captured, 5u);
    EXPECT_EQ(loop.Statistics().captured + loop.Statistics().repeated, loop.Statistics().written);
}

TEST_F(FrameLoopTest, SlowPicture_IsFollowedByRepeatsInTheMissedSlots) {
    FakePictures pictures(stop.Get(), 4);
    pictures.slowPicture = 2;
    pictures.slowMs = 200; // ten slots
    FrameLoop loop(pictures, sink, kFramesPerSecond);

    EXPECT_TRUE(loop.Run(stop.Get()));

    ExpectEverySlotOnce();
    EXPECT_GE(loop.Statistics().repeated, 8u);
    ASSERT_GE(sink.pictures.size(), 9u);
    EXPECT_EQ(std::count(sink.pictures.begin() + 1, sink.pictures.begin() + 9, 2), 8);
}

TEST_F(FrameLoopTest, SinkThatRefuses_EndsTheLoop) {
    FakePictures pictures(stop.Get(), 100);
    sink.room = 3;
    FrameLoop loop(pictures, sink, kFramesPerSecond);

    EXPECT_FALSE(loop.Run(stop.Get()));

    EXPECT_EQ(loop.Statistics().written, 3u);
    EXPECT_EQ(sink.ends.size(), 1u);
}

} // namespace
