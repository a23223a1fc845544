// The recording's file: what a whole one holds, and that every unlucky end leaves one that plays.
#include "matroskareader.h"
#include "memoryfile.h"
#include "worker/file/matroskawriter.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using kxtest::MatroskaFile;
using kxtest::MemoryFile;
using kxtest::ReadMatroska;
using kxvcr::MatroskaWriter;

constexpr kxvcr::VideoFormat kFormat{640, 360, 30};
constexpr std::size_t kFrameBytes = 1000;

// A picture that can be told from the ones of other slots.
std::vector<std::byte> Picture(std::uint64_t slot) {
    return std::vector<std::byte>(kFrameBytes, static_cast<std::byte>(slot % 251));
}

// Adds frames until one is refused; returns how many were taken.
std::uint64_t AddFrames(MatroskaWriter& writer, std::uint64_t count) {
    for (std::uint64_t slot = 0; slot < count; ++slot) {
        if (!writer.AddFrame(slot, Picture(slot))) {
            return slot;
        }
    }
    return count;
}

void ExpectFrames(const MatroskaFile& file, std::uint64_t count) {
    ASSERT_EQ(file.frames.size(), count);
    for (std::uint64_t slot = 0; slot < count; ++slot) {
        EXPECT_EQ(file.frames[slot].milliseconds, static_cast<std::int64_t>(slot * 1000 / kFormat.framesPerSecond));
        EXPECT_EQ(file.frames[slot].bytes, Picture(slot)) << "slot " << slot;
    }
}

TEST(MatroskaWriter, FinishedFile_HoldsFormatFramesAndIndex) {
    MemoryFile disk;
    const auto writer = MatroskaWriter::Create(disk, kFormat);

    AddFrames(*writer, 95);
    writer->Finish(95);

    const MatroskaFile file = ReadMatroska(disk.bytes);
    EXPECT_EQ(file.docType, "matroska");
    EXPECT_EQ(file.codec, "V_MJPEG");
    EXPECT_EQ(file.width, 640u);
    EXPECT_EQ(file.height, 360u);
    EXPECT_EQ(file.defaultDurationNs, 33'333'333u);
    EXPECT_EQ(file.durationMs, 3166.0);
    EXPECT_TRUE(file.segmentEndsWithFile);
    EXPECT_FALSE(file.hasTornEnd);
    EXPECT_EQ(file.openClusters, 0u);
    EXPECT_EQ(file.wrongClusterSizes, 0u);
    EXPECT_EQ(file.clusterPositions.size(), 4u);
    EXPECT_EQ(file.cuePositions, file.clusterPositions);
    EXPECT_EQ(writer->Size(), disk.bytes.size());
    ExpectFrames(file, 95);
}

TEST(MatroskaWriter, FileWithoutFrames_HasAHeadAndNoIndex) {
    MemoryFile disk;
    const auto writer = MatroskaWriter::Create(disk, kFormat);

    writer->Finish(0);

    const MatroskaFile file = ReadMatroska(disk.bytes);
    EXPECT_EQ(file.codec, "V_MJPEG");
    EXPECT_TRUE(file.segmentEndsWithFile);
    EXPECT_TRUE(file.frames.empty());
    EXPECT_TRUE(file.cuePositions.empty());
}

TEST(MatroskaWriter, AbandonedFile_PlaysToItsLastFrameAndKnowsItsLengthToTheSecond) {
    MemoryFile disk;
    const auto writer = MatroskaWriter::Create(disk, kFormat);

    AddFrames(*writer, 95);

    const MatroskaFile file = ReadMatroska(disk.bytes);
    EXPECT_FALSE(file.segmentSizeKnown);
    EXPECT_EQ(file.openClusters, 1u);
    EXPECT_EQ(file.durationMs, 3000.0);
    EXPECT_FALSE(file.hasTornEnd);
    ExpectFrames(file, 95);
}

// Where the machine stopped: at any byte of the last two seconds, with the start of a cluster in the middle of them.
TEST(MatroskaWriter, FileCutAtAnyByte_PlaysEveryWholeFrame) {
    constexpr std::uint64_t kFrames = 95;
    constexpr std::uint64_t kCutFrom = kFrames - 2 * 30;
    const std::vector<std::byte> picture(40, std::byte{1});
    MemoryFile disk;
    const auto writer = MatroskaWriter::Create(disk, kFormat);
    std::vector<std::size_t> ends;
    for (std::uint64_t slot = 0; slot < kFrames; ++slot) {
        writer->AddFrame(slot, picture);
        ends.push_back(disk.bytes.size());
    }

    std::size_t cuts = 0;
    for (std::size_t size = disk.bytes.size(); size >= ends[kCutFrom]; --size) {
        const std::vector<std::byte> cut(disk.bytes.begin(), disk.bytes.begin() + static_cast<std::ptrdiff_t>(size));
        const auto whole = std::upper_bound(ends.begin(), ends.end(), size) - ends.begin();
        const MatroskaFile file = ReadMatroska(cut);
        ASSERT_EQ(file.frames.size(), static_cast<std::size_t>(whole)) << "cut at byte " << size;
        ASSERT_EQ(file.frames.back().bytes, picture);
        ++cuts;
    }
    EXPECT_GT(cuts, 60 * picture.size());
}

TEST(MatroskaWriter, FrameInAnOpenCluster_ReachesTheFileInOneWrite) {
    MemoryFile disk;
    const auto writer = MatroskaWriter::Create(disk, kFormat);
    AddFrames(*writer, 1);
    const std::size_t before = disk.writes;

    writer->AddFrame(1, Picture(1));

    EXPECT_EQ(disk.writes, before + 1);
}

// Every capacity between an empty and a complete file: whatever write meets the end of the disk, the file plays.
TEST(MatroskaWriter, FullDisk_KeepsEveryFrameThatFitted) {
    MemoryFile whole;
    AddFrames(*MatroskaWriter::Create(whole, kFormat), 65);
    std::size_t withIndex = 0;

    for (std::uint64_t capacity = 300; capacity < whole.bytes.size(); capacity += 37) {
        MemoryFile disk(capacity);
        const auto writer = MatroskaWriter::Create(disk, kFormat);
        ASSERT_NE(writer, nullptr);

        const std::uint64_t taken = AddFrames(*writer, 65);

        EXPECT_FALSE(writer->AddFrame(65, Picture(65)));
        const MatroskaFile file = ReadMatroska(disk.bytes);
        ExpectFrames(file, taken);
        EXPECT_GE((taken + 1) * (kFrameBytes + 100) + 400, capacity);
        EXPECT_TRUE(file.segmentEndsWithFile) << capacity;
        EXPECT_EQ(file.openClusters, 0u) << capacity;
        EXPECT_EQ(file.wrongClusterSizes, 0u) << capacity;
        EXPECT_FALSE(file.hasTornEnd) << capacity;
        EXPECT_EQ(file.durationMs, std::max(1.0, static_cast<double>(taken * 1000 / 30))) << capacity;
        if (!file.cuePositions.empty()) {
            ++withIndex;
            EXPECT_EQ(file.cuePositions, file.clusterPositions) << capacity;
        }
    }
    EXPECT_GT(withIndex, 0u);
}

TEST(MatroskaWriter, FullDiskAtTheStart_GivesNoWriter) {
    MemoryFile disk(100);

    EXPECT_EQ(MatroskaWriter::Create(disk, kFormat), nullptr);
}

TEST(MatroskaWriter, FrameAfterALongGap_KeepsItsTime) {
    MemoryFile disk;
    const auto writer = MatroskaWriter::Create(disk, kFormat);
    constexpr std::uint64_t kOneHour = 3600 * 30;

    writer->AddFrame(0, Picture(0));
    writer->AddFrame(kOneHour, Picture(1));
    writer->Finish(kOneHour + 1);

    const MatroskaFile file = ReadMatroska(disk.bytes);
    ASSERT_EQ(file.frames.size(), 2u);
    EXPECT_EQ(file.frames[1].milliseconds, 3'600'000);
    EXPECT_EQ(file.durationMs, 3'600'033.0);
}

} // namespace
