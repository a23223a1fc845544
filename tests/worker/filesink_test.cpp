// A recording's file in the background: everything arrives, a slow disk delays nobody, a bad one is noticed.
#include "worker/file/filesink.h"

#include "common/win/handle.h"
#include "memoryfile.h"
#include "pipelinedoubles.h"
#include "worker/ticks.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

namespace kxvcr {

namespace {

using namespace std::chrono_literals;

using kx::KernelHandle;
using kxtest::ForwardingFile;
using kxtest::MemoryFile;
using kxtest::NumberIn;
using kxtest::NumberPacket;

constexpr std::uint32_t kFramesPerSecond = 30;
constexpr std::size_t kPictureBytes = 1000;
constexpr std::size_t kCost = kPictureBytes + FileSink::kBytesPerPacket;
constexpr std::size_t kPlenty = std::size_t{1} << 30;
constexpr DWORD kLimitMs = 20'000;

MediaTime TimeOf(std::uint32_t slot) {
    return SlotTime(slot, kFramesPerSecond);
}

SharedPacket PictureOf(std::uint32_t slot) {
    return NumberPacket(slot, TimeOf(slot), slot % 60 == 0, kPictureBytes);
}

// What a writer was told, kept beyond the writer's life.
struct Told {
    std::vector<std::uint32_t> numbers;
    std::vector<MediaTime> flushes;
    std::vector<std::size_t> numbersAtFlush;
    std::vector<MediaTime> ends;
    KernelHandle gate{CreateEventW(nullptr, TRUE, TRUE, nullptr)}; // a disk that waits while it is closed
    std::size_t room = SIZE_MAX;                                   // packets until the disk is full
    bool flushFails = false;
};

class TellingWriter final : public MediaWriter {
public:
    explicit TellingWriter(Told& told) : m_told(told) {}

    bool Add(const SharedPacket& packet) override {
        WaitForSingleObject(m_told.gate.Get(), kLimitMs);
        if (m_told.numbers.size() == m_told.room) {
            SetLastError(ERROR_DISK_FULL);
            return false;
        }
        m_told.numbers.push_back(NumberIn(packet->bytes));
        return true;
    }
    void Finish(MediaTime end) override { m_told.ends.push_back(end); }
    bool Flush(MediaTime until) override {
        m_told.flushes.push_back(until);
        m_told.numbersAtFlush.push_back(m_told.numbers.size());
        return !m_told.flushFails;
    }
    std::uint64_t Size() const noexcept override { return m_told.numbers.size() * kPictureBytes; }

private:
    Told& m_told;
};

class FileSinkTest : public testing::Test {
protected:
    std::unique_ptr<FileSink> Open(std::size_t memoryLimit = kPlenty, MediaTime start = MediaTime(0)) {
        FileSinkOwner owner;
        owner.settled = [this] { return MediaTime(settled.load()); };
        owner.onProgress = [this](const FileProgress& now) { progress.push_back(now); };
        owner.onCutShort = [this] { SetEvent(cutShort.Get()); };
        auto sink =
            std::make_unique<FileSink>(std::make_unique<ForwardingFile>(disk), std::make_unique<TellingWriter>(told),
                                       start, memoryLimit, std::move(owner));
        EXPECT_TRUE(sink->Start());
        return sink;
    }
    void Give(FileSink& sink, std::uint32_t from, std::uint32_t to) {
        for (std::uint32_t slot = from; slot < to; ++slot) {
            ASSERT_TRUE(sink.Add(PictureOf(slot)));
            settled = TimeOf(slot + 1).count();
        }
    }
    void ExpectSlots(std::uint32_t from, std::uint32_t to) const {
        ASSERT_EQ(told.numbers.size(), to - from);
        for (std::uint32_t i = 0; i < told.numbers.size(); ++i) {
            ASSERT_EQ(told.numbers[i], from + i);
        }
    }
    void WaitForCutShort() const { ASSERT_EQ(WaitForSingleObject(cutShort.Get(), kLimitMs), WAIT_OBJECT_0); }
    void Wait(DWORD milliseconds) const { WaitForSingleObject(never.Get(), milliseconds); }

    MemoryFile disk;
    Told told;
    std::atomic<std::int64_t> settled = 0;
    std::vector<FileProgress> progress;
    KernelHandle cutShort{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    KernelHandle never{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

TEST_F(FileSinkTest, Packets_AreWrittenInOrderAndTheFileIsFinished) {
    const auto sink = Open();

    Give(*sink, 0, 100);
    sink->Finish(TimeOf(101));

    ExpectSlots(0, 100);
    EXPECT_EQ(told.ends, std::vector<MediaTime>{TimeOf(101)});
    EXPECT_FALSE(sink->CutShort());
    EXPECT_GE(disk.flushes, 1u);
}

TEST_F(FileSinkTest, FirstPicture_IsFlushedAtOnce) {
    const auto sink = Open();

    sink->Add(PictureOf(0));
    sink->Finish(TimeOf(1));

    ASSERT_FALSE(told.numbersAtFlush.empty());
    EXPECT_EQ(told.numbersAtFlush.front(), 1u);
}

TEST_F(FileSinkTest, RunningRecording_IsFlushedAtLeastTwiceASecondAlsoWhenNothingComes) {
    const auto sink = Open();
    sink->Add(PictureOf(0));
    settled = TimeOf(60).count();

    Wait(2200);
    sink->Finish(TimeOf(60));

    EXPECT_GE(told.flushes.size(), 5u);
    EXPECT_EQ(told.flushes.back(), TimeOf(60));
    EXPECT_GE(disk.flushes, 2u); // after each second, and at the end
    EXPECT_LE(disk.flushes, 4u);
}

TEST_F(FileSinkTest, WhatCameAtOnce_IsFlushedWhenItIsWritten) {
    const auto sink = Open();
    ResetEvent(told.gate.Get());
    Give(*sink, 0, 90);

    SetEvent(told.gate.Get());
    sink->Finish(TimeOf(90));

    ASSERT_FALSE(told.numbersAtFlush.empty());
    EXPECT_EQ(told.numbersAtFlush.back(), 90u);
}

// As the switch from a replay to a file gives them: all were captured long ago, and everything is settled.
TEST_F(FileSinkTest, PacketsOfAReplay_AreNotFlushedBeyondThoseThatStillWait) {
    const auto sink = Open(kPlenty, TimeOf(70));
    settled = TimeOf(90).count();
    std::vector<SharedPacket> kept;
    for (std::uint32_t slot = 60; slot < 90; ++slot) {
        kept.push_back(PictureOf(slot));
    }

    EXPECT_TRUE(sink->AddAll(kept));
    sink->Finish(TimeOf(90));

    ExpectSlots(60, 90);
    for (std::size_t i = 0; i < told.flushes.size(); ++i) {
        if (told.numbersAtFlush[i] != 0) {
            EXPECT_LE(told.flushes[i], TimeOf(60 + static_cast<std::uint32_t>(told.numbersAtFlush[i]))) << i;
        }
    }
}

TEST_F(FileSinkTest, ReplayForAFullDisk_IsRefused) {
    told.room = 20;
    const auto sink = Open();
    Give(*sink, 0, 21);
    WaitForCutShort();

    EXPECT_FALSE(sink->AddAll(std::vector{PictureOf(21)}));
}

TEST_F(FileSinkTest, Flush_ClaimsNoMomentWhosePictureStillWaits) {
    const auto sink = Open();
    ResetEvent(told.gate.Get());
    Give(*sink, 0, 90);

    SetEvent(told.gate.Get());
    sink->Finish(TimeOf(90));

    for (std::size_t i = 0; i < told.flushes.size(); ++i) {
        EXPECT_LE(told.flushes[i], TimeOf(static_cast<std::uint32_t>(told.numbersAtFlush[i]))) << i;
    }
}

TEST_F(FileSinkTest, SlowDisk_DelaysNobody) {
    const auto sink = Open();
    ResetEvent(told.gate.Get());

    Give(*sink, 0, 90);
    EXPECT_LT(told.numbers.size(), 2u);
    SetEvent(told.gate.Get());
    sink->Finish(TimeOf(90));

    ExpectSlots(0, 90);
    EXPECT_GT(sink->Statistics().mostBytesWaiting, 80 * kPictureBytes);
}

TEST_F(FileSinkTest, FullQueue_WaitsForTheDiskAndLosesNothing) {
    const auto sink = Open(3 * kCost);

    Give(*sink, 0, 300);
    sink->Finish(TimeOf(300));

    ExpectSlots(0, 300);
    EXPECT_LE(sink->Statistics().mostBytesWaiting, 4 * kCost);
}

TEST_F(FileSinkTest, FullDisk_SaysSoAtOnceAndRefusesPackets) {
    told.room = 20;
    const auto sink = Open();
    Give(*sink, 0, 21);

    WaitForCutShort();
    EXPECT_FALSE(sink->Add(PictureOf(21)));
    sink->Finish(TimeOf(22));

    EXPECT_TRUE(sink->CutShort());
    ExpectSlots(0, 20);
    EXPECT_EQ(told.ends, std::vector<MediaTime>{TimeOf(20)});
    EXPECT_TRUE(progress.back().isFinished);
    EXPECT_EQ(progress.back().length, TimeOf(20));
}

TEST_F(FileSinkTest, FullDiskWhileNothingComes_IsNoticed) {
    told.flushFails = true;
    const auto sink = Open();
    sink->Add(PictureOf(0));

    WaitForCutShort();
    sink->Finish(TimeOf(1));

    EXPECT_TRUE(sink->CutShort());
}

TEST_F(FileSinkTest, FinishThatTakesTooLong_LeavesTheRestOut) {
    const auto sink = Open();
    ResetEvent(told.gate.Get());
    Give(*sink, 0, 90);

    sink->LimitFinish(NowTicks());
    SetEvent(told.gate.Get());
    sink->Finish(TimeOf(90));

    EXPECT_TRUE(sink->CutShort());
    EXPECT_LE(told.numbers.size(), 1u);
    EXPECT_EQ(told.ends.size(), 1u);
    EXPECT_LE(told.ends[0], TimeOf(1));
}

TEST_F(FileSinkTest, FinishWithALimit_DoesNotWaitForTheDisk) {
    const auto sink = Open();
    Give(*sink, 0, 1);

    sink->LimitFinish(NowTicks() + 3600 * TicksPerSecond());
    sink->Finish(TimeOf(1));

    EXPECT_EQ(disk.flushes, 0u);
    EXPECT_FALSE(sink->CutShort());
    ExpectSlots(0, 1);
}

TEST_F(FileSinkTest, Progress_CountsThePicturesThatAreShown) {
    const auto sink = Open(kPlenty, TimeOf(10)); // pictures 0 to 9 are there to be decoded, 10 is the first on show

    Give(*sink, 0, 30);
    sink->Finish(TimeOf(40));

    EXPECT_EQ(progress.back().pictures, 20u);
    EXPECT_EQ(progress.back().length, TimeOf(40) - TimeOf(10));
    EXPECT_EQ(progress.back().bytes, 30 * kPictureBytes);
    EXPECT_TRUE(progress.back().isFinished);
}

TEST_F(FileSinkTest, StartBetweenTwoPictures_ShowsTheOneBefore) {
    const auto sink = Open(kPlenty, TimeOf(10) - MediaTime(1));

    Give(*sink, 0, 30);
    sink->Finish(TimeOf(40));

    EXPECT_EQ(progress.back().pictures, 21u);
}

TEST_F(FileSinkTest, WithoutPictures_TheFileIsFinished) {
    const auto sink = Open();

    sink->Finish(MediaTime(0));

    EXPECT_EQ(told.ends.size(), 1u);
    EXPECT_FALSE(sink->CutShort());
}

TEST_F(FileSinkTest, Discard_RemovesTheFile) {
    const auto sink = Open();

    sink->Discard();

    EXPECT_TRUE(disk.isDiscarded);
}

} // namespace

} // namespace kxvcr
