// The track of sound in an MP4 file: when it is heard, what comes before it, and what is missing in it.
#include "worker/file/mp4writer.h"

#include "memoryfile.h"
#include "mp4reader.h"
#include "testpackets.h"

#include <gtest/gtest.h>

namespace kxtest {

namespace {

std::unique_ptr<kxvcr::Mp4Writer> Open(kxvcr::OutputFile& file, kxvcr::MediaTime start = {}) {
    return kxvcr::Mp4Writer::Create(file, H264(Aac()), start);
}

TEST(Mp4Writer, Sound_IsHeardFromTheStartOnWithoutItsDecodersDelay) {
    MemoryFile disk;
    const auto writer = Open(disk);
    AddPictures(*writer, 0, 30);
    for (std::int64_t i = 0; i < 60; ++i) {
        ASSERT_TRUE(writer->Add(Sound(Aac(), i)));
    }

    writer->Finish(Seconds(1));

    const Mp4File file = ReadMp4(disk.bytes);
    ASSERT_EQ(file.tracks.size(), 2u);
    const Mp4Track& sound = file.tracks[1];
    EXPECT_EQ(sound.edits, (std::vector<Mp4Edit>{{90'000, 1024}})) << "cut at the last picture's end";
    ASSERT_EQ(sound.samples.size(), 60u);
    for (std::size_t i = 0; i < sound.samples.size(); ++i) {
        EXPECT_EQ(sound.samples[i].time, static_cast<std::int64_t>(i) * 1024);
        EXPECT_EQ(sound.samples[i].duration, 1024);
        EXPECT_EQ(BytesOf(disk.bytes, sound.samples[i]), Sound(Aac(), static_cast<std::int64_t>(i))->bytes);
    }
}

TEST(Mp4Writer, SoundInFragments_HasTheSameTimesAsPictures) {
    MemoryFile disk;
    const auto writer = Open(disk);
    writer->Add(Picture(0));
    for (std::int64_t i = 0; i < 200; ++i) {
        writer->Add(Sound(Aac(), i));
    }

    writer->Flush(Seconds(4));

    const Mp4Track sound = ReadMp4(disk.bytes).tracks[1];
    EXPECT_EQ(sound.edits, (std::vector<Mp4Edit>{{0, 2048}}));
    ASSERT_EQ(sound.samples.size(), 200u);
    EXPECT_EQ(sound.samples[1].time - 2048, 0) << "packet 1 is heard at the file's time 0";
    EXPECT_EQ(sound.samples[199].time - 2048, 198 * 1024);
}

TEST(Mp4Writer, SoundBeforeTheStart_BeginsOnePacketEarlyForTheDecoder) {
    MemoryFile disk;
    const auto writer = Open(disk, Seconds(1));
    for (std::int64_t i = 0; i < 100; ++i) {
        writer->Add(Sound(Aac(), i));
    }
    AddPictures(*writer, 0, 60);

    writer->Finish(Seconds(2));

    // Second 1 is sample 48,000: 896 samples into packet 47, whose time is 46 * 1024 samples.
    const Mp4Track sound = ReadMp4(disk.bytes).tracks[1];
    EXPECT_EQ(BytesOf(disk.bytes, sound.samples.at(0)), Sound(Aac(), 46)->bytes);
    EXPECT_EQ(sound.edits, (std::vector<Mp4Edit>{{90'000, 1024 + 896}}));
}

TEST(Mp4Writer, SoundThatComesLate_BeginsWithSilence) {
    MemoryFile disk;
    const auto writer = Open(disk);
    AddPictures(*writer, 0, 60);
    for (std::int64_t i = 48; i < 90; ++i) { // from sample 47 * 1024 on
        writer->Add(Sound(Aac(), i));
    }

    writer->Finish(Seconds(2));

    const Mp4Track sound = ReadMp4(disk.bytes).tracks[1];
    const std::uint64_t silence = std::uint64_t{47} * 1024 * 90'000 / 48'000;
    const std::uint64_t heard = std::uint64_t{89} * 1024 * 90'000 / 48'000 - silence;
    EXPECT_EQ(sound.edits, (std::vector<Mp4Edit>{{silence, -1}, {heard, 0}}));
    EXPECT_EQ(sound.duration, silence + heard);
}

TEST(Mp4Writer, GapInTheSound_IsKept) {
    for (const bool finished : {false, true}) {
        MemoryFile disk;
        const auto writer = Open(disk);
        writer->Add(Picture(0));
        for (const std::int64_t i : {0, 1, 2, 12, 13}) {
            writer->Add(Sound(Aac(), i));
        }
        if (finished) {
            writer->Finish(Seconds(1));
        } else {
            writer->Flush(Seconds(1));
        }

        const Mp4Track sound = ReadMp4(disk.bytes).tracks[1];
        ASSERT_EQ(sound.samples.size(), 5u);
        EXPECT_EQ(sound.samples[2].duration, 10 * 1024);
        EXPECT_EQ(sound.samples[4].time - sound.samples[0].time, 13 * 1024);
    }
}

TEST(Mp4Writer, FileWithoutASoundsPackets_HasNoTrackOfSound) {
    MemoryFile disk;
    const auto writer = Open(disk);
    AddPictures(*writer, 0, 10);

    writer->Finish(Seconds(1));

    EXPECT_EQ(ReadMp4(disk.bytes).tracks.size(), 1u);
}

} // namespace

} // namespace kxtest
