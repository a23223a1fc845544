// A recording's file in the background: everything arrives, a slow disk delays nobody, a bad one is noticed.
#include "worker/file/filesink.h"

#include "common/win/handle.h"
#include "matroskareader.h"
#include "memoryfile.h"
#include "worker/capture/pacing.h"

#include <gtest/gtest.h>

namespace {

using namespace kxvcr;
using kxtest::ForwardingFile;
using kxtest::MatroskaFile;
using kxtest::MemoryFile;
using kxtest::ReadMatroska;

constexpr VideoFormat kFormat{640, 360, 30};
constexpr std::size_t kPictureBytes = 1000;
constexpr std::size_t kPlenty = std::size_t{1} << 30;
constexpr DWORD kLimitMs = 20'000;

std::vector<std::byte> Picture(std::uint64_t slot) {
    return std::vector<std::byte>(kPictureBytes, static_cast<std::byte>(slot % 251));
}

// A disk whose writes wait while its gate is closed.
class GatedFile final : public OutputFile {
public:
    explicit GatedFile(MemoryFile& target) : m_target(target) {}

    bool WriteAt(std::uint64_t offset, std::span<const std::byte> source) override {
        return WaitForSingleObject(gate.Get(), kLimitMs) == WAIT_OBJECT_0 && m_target.WriteAt(offset, source);
    }
    bool Truncate(std::uint64_t size) override { return m_target.Truncate(size); }
    bool Flush() override { return m_target.Flush(); }
    void Discard() noexcept override { m_target.Discard(); }

    kx::KernelHandle gate{CreateEventW(nullptr, TRUE, TRUE, nullptr)};

private:
    MemoryFile& m_target;
};

class FileSinkTest : public testing::Test {
protected:
    std::unique_ptr<FileSink> Open(OutputFile& target, std::size_t memoryLimit = kPlenty) {
        auto file = std::make_unique<ForwardingFile>(target);
        auto writer = MatroskaWriter::Create(*file, kFormat);
        auto sink = std::make_unique<FileSink>(std::move(file), std::move(writer), memoryLimit);
        EXPECT_TRUE(sink->Start());
        return sink;
    }
    static void ExpectFrames(const MatroskaFile& file, std::uint64_t firstSlot, std::uint64_t count) {
        ASSERT_EQ(file.frames.size(), count);
        for (std::uint64_t i = 0; i < count; ++i) {
            EXPECT_EQ(file.frames[i].milliseconds, static_cast<std::int64_t>(i * 1000 / 30));
            EXPECT_EQ(file.frames[i].bytes, Picture(firstSlot + i)) << i;
        }
    }

    MemoryFile disk;
};

TEST_F(FileSinkTest, PicturesAndBacklog_AreWrittenInOrderFromTimeZero) {
    PictureQueue backlog;
    for (std::uint64_t slot = 500; slot < 560; ++slot) {
        backlog.Add(slot, Picture(slot));
    }
    const auto sink = Open(disk);

    sink->Begin(std::move(backlog));
    for (std::uint64_t slot = 560; slot < 600; ++slot) {
        EXPECT_TRUE(sink->AddFrame(slot, Picture(slot)));
    }
    sink->Finish(600);

    const MatroskaFile file = ReadMatroska(disk.bytes);
    ExpectFrames(file, 500, 100);
    EXPECT_EQ(file.durationMs, 3333.0);
    EXPECT_TRUE(file.segmentEndsWithFile);
    EXPECT_EQ(file.cuePositions, file.clusterPositions);
    EXPECT_EQ(sink->Statistics().written, 100u);
    EXPECT_FALSE(sink->CutShort());
    EXPECT_GE(disk.flushes, 1u);
}

TEST_F(FileSinkTest, SlowDisk_DelaysNoPicture) {
    GatedFile slow(disk);
    const auto sink = Open(slow);
    ResetEvent(slow.gate.Get());

    for (std::uint64_t slot = 0; slot < 90; ++slot) {
        EXPECT_TRUE(sink->AddFrame(slot, Picture(slot)));
    }
    EXPECT_LT(ReadMatroska(disk.bytes).frames.size(), 2u);
    SetEvent(slow.gate.Get());
    sink->Finish(90);

    ExpectFrames(ReadMatroska(disk.bytes), 0, 90);
    EXPECT_GT(sink->Statistics().mostBytesWaiting, 80 * kPictureBytes);
}

TEST_F(FileSinkTest, FullQueue_WaitsForTheDiskAndLosesNothing) {
    const auto sink = Open(disk, 3 * kPictureBytes);

    for (std::uint64_t slot = 0; slot < 300; ++slot) {
        EXPECT_TRUE(sink->AddFrame(slot, Picture(slot)));
    }
    sink->Finish(300);

    ExpectFrames(ReadMatroska(disk.bytes), 0, 300);
    EXPECT_LT(sink->Statistics().mostBytesWaiting, 5 * (kPictureBytes + PictureQueue::kBytesPerPicture));
}

TEST_F(FileSinkTest, FullDisk_RefusesPicturesAndLeavesAFinishedFile) {
    disk.capacity = 20 * kPictureBytes;
    const auto sink = Open(disk, 3 * kPictureBytes);

    std::uint64_t slot = 0;
    while (slot < 100 && sink->AddFrame(slot, Picture(slot))) {
        ++slot;
    }
    EXPECT_LT(slot, 25u);
    sink->Finish(slot);

    EXPECT_TRUE(sink->CutShort());
    const MatroskaFile file = ReadMatroska(disk.bytes);
    ExpectFrames(file, 0, sink->Statistics().written);
    EXPECT_GT(file.frames.size(), 15u);
    EXPECT_TRUE(file.segmentEndsWithFile);
    EXPECT_FALSE(file.hasTornEnd);
}

TEST_F(FileSinkTest, FinishThatTakesTooLong_LeavesTheRestOut) {
    GatedFile slow(disk);
    const auto sink = Open(slow);
    ResetEvent(slow.gate.Get());
    for (std::uint64_t slot = 0; slot < 90; ++slot) {
        sink->AddFrame(slot, Picture(slot));
    }

    sink->LimitFinish(NowTicks());
    SetEvent(slow.gate.Get());
    sink->Finish(90);

    EXPECT_TRUE(sink->CutShort());
    const MatroskaFile file = ReadMatroska(disk.bytes);
    EXPECT_LE(file.frames.size(), 1u);
    EXPECT_TRUE(file.segmentEndsWithFile);
}

TEST_F(FileSinkTest, FinishWithALimit_DoesNotWaitForTheDisk) {
    const auto sink = Open(disk);
    sink->AddFrame(0, Picture(0));

    sink->LimitFinish(NowTicks() + 3600 * TicksPerSecond());
    sink->Finish(1);

    EXPECT_EQ(disk.flushes, 0u);
    EXPECT_FALSE(sink->CutShort());
    ExpectFrames(ReadMatroska(disk.bytes), 0, 1);
}

TEST_F(FileSinkTest, WithoutPictures_TheFileIsFinished) {
    const auto sink = Open(disk);

    sink->Finish(0);

    EXPECT_TRUE(ReadMatroska(disk.bytes).segmentEndsWithFile);
    EXPECT_FALSE(sink->CutShort());
}

TEST_F(FileSinkTest, Discard_RemovesTheFile) {
    const auto sink = Open(disk);

    sink->Discard();

    EXPECT_TRUE(disk.isDiscarded);
}

TEST_F(FileSinkTest, LongRecording_ReachesTheDiskAboutOnceASecond) {
    const FrameTimer timer;
    const kx::KernelHandle never(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const auto sink = Open(disk);
    const FrameClock clock(NowTicks(), TicksPerSecond(), kFormat.framesPerSecond);

    for (std::uint64_t slot = 0; slot < 75; ++slot) {
        timer.WaitUntil(clock.DueTicks(slot), never.Get());
        sink->AddFrame(slot, Picture(slot));
    }
    sink->Finish(75);

    EXPECT_GE(disk.flushes, 3u); // after one and two seconds, and at the end
    EXPECT_LE(disk.flushes, 4u);
}

} // namespace
