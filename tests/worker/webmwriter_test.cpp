// The WebM and Matroska file: what a whole one holds, and that every unlucky end leaves one that plays.
#include "worker/file/webmwriter.h"

#include "faultyfile.h"
#include "matroskareader.h"
#include "memoryfile.h"
#include "testpackets.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kxtest {

namespace {

using kxvcr::DocType;
using kxvcr::MediaTime;
using kxvcr::MediaWriter;

std::unique_ptr<MediaWriter> Open(kxvcr::OutputFile& file, const kxvcr::StreamFormat& format = Vp9(),
                                  MediaTime start = {}) {
    return kxvcr::CreateWebmWriter(file, DocType::WebM, format, start);
}

std::int64_t MillisecondsOfSlot(std::uint64_t slot) {
    return static_cast<std::int64_t>((slot * 1000 + kRate / 2) / kRate);
}

void ExpectPictures(const MatroskaFile& file, std::uint64_t count) {
    ASSERT_EQ(file.frames.size(), count);
    for (std::uint64_t number = 0; number < count; ++number) {
        const MatroskaFrame& frame = file.frames[number];
        EXPECT_EQ(frame.track, 1u);
        EXPECT_EQ(frame.milliseconds, MillisecondsOfSlot(number));
        EXPECT_EQ(frame.isKey, number % kKeyInterval == 0);
        EXPECT_EQ(frame.bytes, Picture(number)->bytes) << number;
    }
}

void ExpectFinished(const MatroskaFile& file) {
    EXPECT_TRUE(file.segmentEndsWithFile);
    EXPECT_FALSE(file.hasTornEnd);
    EXPECT_EQ(file.openClusters, 0u);
    EXPECT_EQ(file.wrongClusterSizes, 0u);
}

TEST(WebmWriter, FinishedFile_HoldsFormatPicturesAndIndex) {
    MemoryFile disk;
    const auto writer = Open(disk);

    AddPictures(*writer, 0, 95);
    writer->Finish(kxvcr::SlotTime(95, kRate));

    const MatroskaFile file = ReadMatroska(disk.bytes);
    EXPECT_EQ(file.docType, "webm");
    EXPECT_EQ(file.codec, "V_VP9");
    EXPECT_EQ(file.soundCodec, "");
    EXPECT_EQ(file.width, 640u);
    EXPECT_EQ(file.height, 360u);
    EXPECT_EQ(file.matrixCoefficients, 1u); // BT.709
    EXPECT_EQ(file.range, 1u);              // limited
    EXPECT_EQ(file.durationMs, 3167.0);
    ExpectFinished(file);
    EXPECT_EQ(file.clusterPositions.size(), 2u);
    EXPECT_EQ(file.cuePositions, file.clusterPositions);
    EXPECT_EQ(file.cueTimes, (std::vector<std::uint64_t>{0, 2000}));
    EXPECT_EQ(writer->Size(), disk.bytes.size());
    ExpectPictures(file, 95);
}

TEST(WebmWriter, Vp9Stream_HasItsFeaturesAsPrivateData) {
    MemoryFile disk;
    const auto writer = Open(disk);

    const MatroskaFile file = ReadMatroska(disk.bytes);

    std::vector<std::byte> features;
    for (const int value : {1, 1, 0, 2, 1, 31, 3, 1, 8, 4, 1, 1}) {
        features.push_back(static_cast<std::byte>(value));
    }
    EXPECT_EQ(file.codecPrivates, (std::vector<std::vector<std::byte>>{features}));
}

TEST(WebmWriter, H264WithAac_IsMatroska) {
    MemoryFile disk;
    const auto writer = kxvcr::CreateWebmWriter(disk, DocType::Matroska, H264(Aac()), {});

    const MatroskaFile file = ReadMatroska(disk.bytes);

    EXPECT_EQ(file.docType, "matroska");
    EXPECT_EQ(file.codec, "V_MPEG4/ISO/AVC");
    EXPECT_EQ(file.soundCodec, "A_AAC");
    EXPECT_EQ(file.matrixCoefficients, 6u); // SMPTE 170M
    EXPECT_EQ(file.codecPrivates, (std::vector{H264().picture.decoderConfig, Aac().decoderConfig}));
    EXPECT_EQ(file.channels, 2u);
    EXPECT_EQ(file.codecDelayNs, 21'333'333u);
    EXPECT_EQ(file.seekPreRollNs, 0u);
}

TEST(WebmWriter, Sound_IsWrittenBeforeItsDecodersDelayIsSubtracted) {
    MemoryFile disk;
    const auto writer = Open(disk, Vp9(Opus()));
    writer->Add(Picture(0));
    for (std::int64_t i = 0; i < 5; ++i) {
        writer->Add(Sound(Opus(), i));
    }
    writer->Finish(Seconds(1));

    const MatroskaFile file = ReadMatroska(disk.bytes);
    EXPECT_EQ(file.soundCodec, "A_OPUS");
    EXPECT_EQ(file.codecDelayNs, 6'500'000u);
    EXPECT_EQ(file.seekPreRollNs, 80'000'000u);
    ASSERT_EQ(file.frames.size(), 6u);
    for (std::size_t i = 1; i < file.frames.size(); ++i) {
        EXPECT_EQ(file.frames[i].track, 2u);
        EXPECT_EQ(file.frames[i].milliseconds, static_cast<std::int64_t>(i - 1) * 20);
        EXPECT_TRUE(file.frames[i].isKey);
    }
}

TEST(WebmWriter, SoundThatComesLaterThanItsPicture_KeepsItsTime) {
    MemoryFile disk;
    const auto writer = Open(disk, Vp9(Opus()));
    AddPictures(*writer, 0, 61); // the last one begins a cluster

    writer->Add(Sound(Opus(), 98)); // 1960 ms
    writer->Finish(Seconds(3));

    const MatroskaFile file = ReadMatroska(disk.bytes);
    EXPECT_EQ(file.clusterPositions.size(), 2u);
    EXPECT_EQ(file.frames.back().milliseconds, 1960);
}

TEST(WebmWriter, FileWithoutPictures_HasAHeadAndNoIndex) {
    MemoryFile disk;
    const auto writer = Open(disk);

    writer->Finish(Seconds(1));

    const MatroskaFile file = ReadMatroska(disk.bytes);
    EXPECT_EQ(file.codec, "V_VP9");
    EXPECT_TRUE(file.segmentEndsWithFile);
    EXPECT_TRUE(file.frames.empty());
    EXPECT_TRUE(file.cuePositions.empty());
    EXPECT_EQ(file.durationMs, 0.0);
    EXPECT_FALSE(writer->Add(Picture(0)));
}

TEST(WebmWriter, Packet_ReachesTheFileInOneWrite) {
    MemoryFile disk;
    const auto writer = Open(disk);
    AddPictures(*writer, 0, 1);
    const std::size_t before = disk.writes;

    writer->Add(Picture(1));

    EXPECT_EQ(disk.writes, before + 1);
    EXPECT_EQ(ReadMatroska(disk.bytes).frames.size(), 2u);
}

TEST(WebmWriter, Flush_SaysTheLengthSoFar) {
    MemoryFile disk;
    const auto writer = Open(disk);
    writer->Add(Picture(0));
    std::vector<double> lengths;

    for (const double until : {0.5, 1.0, 14.2}) {
        EXPECT_TRUE(writer->Flush(Seconds(until)));
        lengths.push_back(ReadMatroska(disk.bytes).durationMs);
    }

    EXPECT_EQ(lengths, (std::vector<double>{500, 1000, 14'200}));
    EXPECT_EQ(ReadMatroska(disk.bytes).openClusters, 1u);
}

TEST(WebmWriter, LongTimeWithoutAKeyPicture_BeginsAnotherClusterThatIsNotInTheIndex) {
    MemoryFile disk;
    const auto writer = Open(disk, Vp9(Opus()));
    writer->Add(Picture(0));
    for (std::int64_t i = 0; i < 2'000; ++i) { // 40 seconds
        writer->Add(Sound(Opus(), i));
    }
    writer->Finish(Seconds(40));

    const MatroskaFile file = ReadMatroska(disk.bytes);
    EXPECT_EQ(file.clusterPositions.size(), 8u);
    EXPECT_EQ(file.cueTimes, std::vector<std::uint64_t>{0});
    EXPECT_EQ(file.frames.back().milliseconds, 39'980);
}

TEST(WebmWriter, StartBetweenKeyPictures_GivesEarlierPicturesTheTimeZero) {
    MemoryFile disk;
    const auto writer = Open(disk, Vp9(), kxvcr::SlotTime(75, kRate));

    AddPictures(*writer, 60, 130);
    writer->Finish(kxvcr::SlotTime(130, kRate));

    const MatroskaFile file = ReadMatroska(disk.bytes);
    ASSERT_EQ(file.frames.size(), 70u);
    for (std::size_t i = 0; i < 70; ++i) {
        EXPECT_EQ(file.frames[i].milliseconds, i < 15 ? 0 : MillisecondsOfSlot(i - 15));
    }
    EXPECT_EQ(file.durationMs, 1833.0);
}

TEST(WebmWriter, SoundBeforeTheStart_IsLeftOut) {
    MemoryFile disk;
    const auto writer = Open(disk, Vp9(Opus()), Seconds(1));
    writer->Add(Picture(0));
    for (std::int64_t i = 0; i < 60; ++i) {
        EXPECT_TRUE(writer->Add(Sound(Opus(), i)));
    }
    writer->Finish(Seconds(2));

    // Packet 50 is heard at 1000 ms less 6.5 ms, packet 49 ends there.
    const MatroskaFile file = ReadMatroska(disk.bytes);
    ASSERT_EQ(file.frames.size(), 11u);
    EXPECT_EQ(file.frames[1].bytes, Sound(Opus(), 50)->bytes);
    EXPECT_EQ(file.frames[1].milliseconds, 0);
}

// Where the machine stopped: at any byte of the last seconds, with the start of a cluster in the middle of them.
TEST(WebmWriter, FileCutAtAnyByte_PlaysEveryWholePacket) {
    constexpr std::uint64_t kPictures = 80;
    constexpr std::uint64_t kCutFrom = 50;
    MemoryFile disk;
    const auto writer = Open(disk);
    std::vector<std::size_t> ends;
    for (std::uint64_t number = 0; number < kPictures; ++number) {
        writer->Add(Picture(number));
        ends.push_back(disk.bytes.size());
    }

    for (std::size_t size = disk.bytes.size(); size >= ends[kCutFrom]; --size) {
        const std::vector<std::byte> cut(disk.bytes.begin(), disk.bytes.begin() + static_cast<std::ptrdiff_t>(size));
        const auto whole = std::upper_bound(ends.begin(), ends.end(), size) - ends.begin();
        ASSERT_EQ(ReadMatroska(cut).frames.size(), static_cast<std::size_t>(whole)) << "cut at byte " << size;
    }
}

// Every capacity between an empty and a complete file: whatever write meets the end of the disk, the file plays.
TEST(WebmWriter, FullDisk_KeepsEveryPictureThatFitted) {
    MemoryFile whole;
    AddPictures(*Open(whole), 0, 130);
    std::size_t withIndex = 0;

    for (std::uint64_t capacity = 600; capacity < whole.bytes.size(); capacity += 37) {
        MemoryFile disk(capacity);
        const auto writer = Open(disk);
        ASSERT_NE(writer, nullptr);

        const std::uint64_t taken = AddPictures(*writer, 0, 130);

        EXPECT_FALSE(writer->Add(Picture(130)));
        EXPECT_FALSE(writer->Flush(Seconds(5)));
        const MatroskaFile file = ReadMatroska(disk.bytes);
        ExpectPictures(file, taken);
        ExpectFinished(file);
        EXPECT_EQ(file.durationMs, taken == 0 ? 0.0 : static_cast<double>(MillisecondsOfSlot(taken - 1))) << capacity;
        if (!file.cuePositions.empty()) {
            ++withIndex;
            EXPECT_EQ(file.cuePositions, file.clusterPositions) << capacity;
        }
    }
    EXPECT_GT(withIndex, 0u);
}

TEST(WebmWriter, FullDiskAtTheStart_GivesNoWriter) {
    MemoryFile disk(100);

    EXPECT_EQ(Open(disk), nullptr);
}

// One write after the other fails, once or for good, and leaves half of its bytes.
TEST(WebmWriter, AnyWriteThatFails_LeavesEveryPacketBeforeIt) {
    const auto record = [](kxvcr::OutputFile& disk) {
        const auto writer = Open(disk);
        if (!writer) {
            return;
        }
        for (std::uint64_t number = 0; number < 70; ++number) {
            writer->Add(Picture(number));
            if (number % 8 == 7) {
                writer->Flush(kxvcr::SlotTime(number + 1, kRate));
            }
        }
        writer->Finish(Seconds(3));
    };
    FaultyFile faultless(0, 0);
    record(faultless);
    ASSERT_EQ(ReadMatroska(faultless.Bytes()).frames.size(), 70u);

    FailEachWrite(1, faultless.Writes(), record, [](std::size_t failing, const std::vector<std::byte>& bytes) {
        const MatroskaFile file = ReadMatroska(bytes);
        EXPECT_EQ(file.codec, "V_VP9");
        for (std::size_t i = 0; i < file.frames.size(); ++i) {
            ASSERT_EQ(file.frames[i].bytes, Picture(i)->bytes) << failing;
        }
    });
}

TEST(WebmWriter, PictureAfterAnHour_KeepsItsTimeAndTheLengthIsExact) {
    MemoryFile disk;
    const auto writer = Open(disk);

    writer->Add(Picture(0));
    writer->Add(Picture(1, Seconds(36'000.001)));
    writer->Finish(Seconds(36'000.035));

    const MatroskaFile file = ReadMatroska(disk.bytes);
    ASSERT_EQ(file.frames.size(), 2u);
    EXPECT_EQ(file.frames[1].milliseconds, 36'000'001);
    EXPECT_EQ(file.durationMs, 36'000'035.0);
}

} // namespace

} // namespace kxtest
