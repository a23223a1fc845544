// The MP4 file: fragments while it grows, tables when it is finished, the same packets in both, and that every unlucky
// end leaves a file that plays.
#include "worker/file/mp4writer.h"

#include "faultyfile.h"
#include "memoryfile.h"
#include "mp4reader.h"
#include "testpackets.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kxtest {

namespace {

using kxvcr::MediaTime;
using kxvcr::Mp4Writer;
using kxvcr::SharedPacket;

constexpr std::int64_t kTicksPerSlot = 90'000 / kRate;
constexpr std::string_view kOrdinaryFile = "ftyp mdat moov";

std::unique_ptr<Mp4Writer> Open(kxvcr::OutputFile& file, const kxvcr::StreamFormat& format = H264(),
                                MediaTime start = {}) {
    return Mp4Writer::Create(file, format, start);
}

// The track's samples must be the pictures from @p first on, each shown for its slot.
void ExpectPictures(const std::vector<std::byte>& bytes, const Mp4Track& track, std::uint64_t first,
                    std::uint64_t count) {
    ASSERT_EQ(track.samples.size(), count);
    for (std::uint64_t i = 0; i < count; ++i) {
        const Mp4Sample& sample = track.samples[i];
        EXPECT_EQ(sample.time, static_cast<std::int64_t>(i) * kTicksPerSlot) << i;
        EXPECT_EQ(sample.duration, kTicksPerSlot) << i;
        EXPECT_EQ(sample.isKey, (first + i) % kKeyInterval == 0) << i;
        EXPECT_EQ(BytesOf(bytes, sample), Picture(first + i)->bytes) << i;
    }
}

// Times and bytes of the samples that are shown or heard, in ticks since the file's time 0.
std::vector<std::pair<std::int64_t, std::vector<std::byte>>> Shown(const std::vector<std::byte>& bytes,
                                                                   const Mp4Track& track) {
    const std::int64_t begin = track.edits.empty() ? 0 : track.edits.back().mediaTime;
    std::vector<std::pair<std::int64_t, std::vector<std::byte>>> shown;
    for (const Mp4Sample& sample : track.samples) {
        if (sample.time + sample.duration > begin) {
            shown.emplace_back(sample.time - begin, BytesOf(bytes, sample));
        }
    }
    return shown;
}

TEST(Mp4Writer, NewFile_HasAHeadThatExpectsFragments) {
    MemoryFile disk;

    const auto writer = Open(disk, H264(Aac()));

    const Mp4File file = ReadMp4(disk.bytes);
    EXPECT_EQ(file.topLevel, "ftyp free moov");
    EXPECT_TRUE(file.isFragmented);
    ASSERT_EQ(file.tracks.size(), 2u);
    EXPECT_EQ(file.tracks[0].mediaType, "vide");
    EXPECT_EQ(file.tracks[0].timescale, 90'000u);
    EXPECT_EQ(file.tracks[0].width, 640u);
    EXPECT_EQ(file.tracks[0].height, 360u);
    EXPECT_EQ(file.tracks[1].mediaType, "soun");
    EXPECT_EQ(file.tracks[1].timescale, 48'000u);
    EXPECT_EQ(writer->Size(), disk.bytes.size());
}

TEST(Mp4Writer, Colours_AreTheOnesThatTheStreamSays) {
    const auto colours = [](kxvcr::ColorMatrix matrix) {
        MemoryFile disk;
        kxvcr::StreamFormat format = H264();
        format.picture.matrix = matrix;
        Open(disk, format);
        const std::string_view text(reinterpret_cast<const char*>(disk.bytes.data()), disk.bytes.size());
        constexpr std::string_view kBox = "colrnclx";
        constexpr std::size_t kCodes = 7;
        return std::string(text.substr(text.find(kBox) + kBox.size(), kCodes));
    };

    // Primaries, transfer and matrix in two bytes each, then limited range.
    EXPECT_EQ(colours(kxvcr::ColorMatrix::Bt601), std::string("\0\6\0\1\0\6\0", 7));
    EXPECT_EQ(colours(kxvcr::ColorMatrix::Bt709), std::string("\0\1\0\1\0\1\0", 7));
}

TEST(Mp4Writer, FirstPicture_ReachesTheFileAtOnce) {
    MemoryFile disk;
    const auto writer = Open(disk);

    writer->Add(Picture(0));

    const Mp4File file = ReadMp4(disk.bytes);
    ExpectPictures(disk.bytes, file.tracks[0], 0, 1);
}

TEST(Mp4Writer, FileWithoutFlushes_HoldsAllButTheLastFiveSeconds) {
    MemoryFile disk;
    const auto writer = Open(disk);

    AddPictures(*writer, 0, 1000);

    const Mp4File file = ReadMp4(disk.bytes);
    ExpectPictures(disk.bytes, file.tracks[0], 0, 901); // the first, then six times 150
    EXPECT_EQ(file.sequenceNumbers, (std::vector<std::uint32_t>{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_FALSE(file.hasTornEnd);
}

TEST(Mp4Writer, LargePictures_WaitUntilTheyAreAMebibyte) {
    constexpr std::uint64_t kPictures = 10;
    constexpr std::size_t kPictureBytes = 300'000; // three of them fit
    MemoryFile disk;
    const auto writer = Open(disk);

    for (std::uint64_t number = 0; number < kPictures; ++number) {
        auto picture = std::make_shared<kxvcr::Packet>(*Picture(number));
        picture->bytes.resize(kPictureBytes);
        writer->Add(picture);
    }

    const Mp4File file = ReadMp4(disk.bytes);
    EXPECT_EQ(file.tracks[0].samples.size(), 7u); // the first, then twice three
    EXPECT_EQ(file.sequenceNumbers, (std::vector<std::uint32_t>{1, 2, 3}));
}

TEST(Mp4Writer, Flush_BringsEveryPacketIntoTheFile) {
    MemoryFile disk;
    const auto writer = Open(disk);
    AddPictures(*writer, 0, 100);

    EXPECT_TRUE(writer->Flush(kxvcr::SlotTime(100, kRate)));

    ExpectPictures(disk.bytes, ReadMp4(disk.bytes).tracks[0], 0, 100);
    EXPECT_EQ(writer->Size(), disk.bytes.size());
}

TEST(Mp4Writer, UnchangedPicture_LastsUntilTheFlushAndInTheEndUntilTheNextOne) {
    MemoryFile disk;
    const auto writer = Open(disk);
    writer->Add(Picture(0));

    std::vector<std::int64_t> durations;
    for (const double until : {0.01, 0.5, 1.0, 4.0}) {
        writer->Flush(Seconds(until));
        durations.push_back(ReadMp4(disk.bytes).tracks[0].samples.back().duration);
    }
    writer->Add(Picture(1, Seconds(4.2)));
    writer->Flush(Seconds(4.5));

    EXPECT_EQ(durations, (std::vector<std::int64_t>{900, 45'000, 90'000, 360'000}));
    const Mp4Track track = ReadMp4(disk.bytes).tracks[0];
    ASSERT_EQ(track.samples.size(), 2u);
    EXPECT_EQ(track.samples[0].duration, 378'000);
    EXPECT_EQ(track.samples[1].time, 378'000);
    EXPECT_EQ(track.samples[1].duration, 27'000);
}

TEST(Mp4Writer, FlushWithNothingNew_WritesOnlyADuration) {
    MemoryFile disk;
    const auto writer = Open(disk);
    writer->Add(Picture(0));
    const std::size_t size = disk.bytes.size();
    const std::size_t writes = disk.writes;

    writer->Flush(Seconds(1));
    writer->Flush(Seconds(1));

    EXPECT_EQ(disk.bytes.size(), size);
    EXPECT_EQ(disk.writes, writes + 1);
}

TEST(Mp4Writer, FlushWithoutAPicture_WritesNothing) {
    MemoryFile disk;
    const auto writer = Open(disk, H264(Aac()));
    const std::size_t writes = disk.writes;
    writer->Add(Sound(Aac(), 0));

    EXPECT_TRUE(writer->Flush(Seconds(1)));

    EXPECT_EQ(disk.writes, writes);
}

TEST(Mp4Writer, FinishedFile_IsAnOrdinaryMp4) {
    MemoryFile disk;
    const auto writer = Open(disk);
    AddPictures(*writer, 0, 1000);

    writer->Finish(kxvcr::SlotTime(1000, kRate));

    const Mp4File file = ReadMp4(disk.bytes);
    EXPECT_EQ(file.topLevel, kOrdinaryFile);
    EXPECT_FALSE(file.hasTornEnd);
    EXPECT_FALSE(file.isFragmented);
    EXPECT_EQ(file.timescale, 90'000u);
    EXPECT_EQ(file.duration, 3'000'000u);
    EXPECT_EQ(file.tracks[0].duration, 3'000'000u);
    EXPECT_EQ(file.tracks[0].mediaDuration, 3'000'000u);
    EXPECT_TRUE(file.tracks[0].edits.empty());
    EXPECT_EQ(file.tracks[0].chunks, 8u);
    ExpectPictures(disk.bytes, file.tracks[0], 0, 1000);
    EXPECT_EQ(writer->Size(), disk.bytes.size());
}

TEST(Mp4Writer, FinishedFile_HasTheBoxesOfAnOrdinaryTrack) {
    MemoryFile disk;
    const auto writer = Open(disk, H264(Aac()));
    writer->Add(Sound(Aac(), 0));
    writer->Add(Sound(Aac(), 1));
    AddPictures(*writer, 0, 2);
    writer->Finish(Seconds(1));

    const auto boxes =
        ReadBoxes({disk.bytes.size(), [&](std::uint64_t at) { return disk.bytes.at(static_cast<std::size_t>(at)); }});
    const Mp4Box& movie = boxes.back();
    EXPECT_EQ(movie.ChildTypes(), "mvhd trak trak");
    const Mp4Box& pictures = movie.Child("trak", 0);
    EXPECT_EQ(pictures.ChildTypes(), "tkhd mdia");
    EXPECT_EQ(pictures.Child("mdia").Child("minf").ChildTypes(), "vmhd dinf stbl");
    EXPECT_EQ(pictures.Child("mdia").Child("minf").Child("stbl").ChildTypes(), "stsd stts stss stsc stsz stco");
    const Mp4Box& sound = movie.Child("trak", 1);
    EXPECT_EQ(sound.ChildTypes(), "tkhd edts mdia");
    EXPECT_EQ(sound.Child("mdia").Child("minf").ChildTypes(), "smhd dinf stbl");
    EXPECT_EQ(sound.Child("mdia").Child("minf").Child("stbl").ChildTypes(), "stsd stts stsc stsz stco");
}

TEST(Mp4Writer, LastPicture_LastsUntilTheExactEnd) {
    MemoryFile disk;
    const auto writer = Open(disk);
    writer->Add(Picture(0));
    writer->Add(Picture(1, Seconds(2)));

    writer->Finish(Seconds(12.3456));

    const Mp4File file = ReadMp4(disk.bytes);
    EXPECT_EQ(file.duration, 1'111'104u);
    EXPECT_EQ(file.tracks[0].samples.back().duration, 1'111'104 - 180'000);
}

TEST(Mp4Writer, FileWithoutPictures_StaysAHead) {
    MemoryFile disk;
    const auto writer = Open(disk);

    writer->Finish(Seconds(1));

    EXPECT_EQ(ReadMp4(disk.bytes).topLevel, "ftyp free moov");
    EXPECT_FALSE(writer->Add(Picture(0)));
}

// A file whose content after every single write is kept.
class WatchedFile final : public kxvcr::OutputFile {
public:
    bool WriteAt(std::uint64_t offset, std::span<const std::byte> source) override {
        sizesOfWrites.push_back(source.size());
        const bool written = m_memory.WriteAt(offset, source);
        states.push_back(m_memory.bytes);
        return written;
    }
    bool Truncate(std::uint64_t size) override { return m_memory.Truncate(size); }
    bool Flush() override {
        writesBeforeFlush = states.size();
        return m_memory.Flush();
    }
    void Discard() noexcept override {}

    std::vector<std::vector<std::byte>> states;
    std::vector<std::size_t> sizesOfWrites;
    std::size_t writesBeforeFlush = 0;

private:
    MemoryFile m_memory;
};

TEST(Mp4Writer, Finishing_LeavesAFileThatPlaysAfterEveryWrite) {
    WatchedFile disk;
    const auto writer = Open(disk);
    AddPictures(*writer, 0, 40);
    writer->Flush(kxvcr::SlotTime(40, kRate));
    const std::size_t before = disk.states.size();

    writer->Finish(kxvcr::SlotTime(40, kRate));

    ASSERT_EQ(disk.states.size(), before + 3); // the tables, the size of all fragments, the switch
    EXPECT_EQ(disk.sizesOfWrites.back(), 8u);
    EXPECT_EQ(disk.writesBeforeFlush, before + 2) << "the tables must be on the disk before the switch";
    for (std::size_t i = before; i < disk.states.size(); ++i) {
        ExpectPictures(disk.states[i], ReadMp4(disk.states[i]).tracks[0], 0, 40);
    }
    EXPECT_TRUE(ReadMp4(disk.states[before]).topLevel.ends_with(" moof mdat free"));
    EXPECT_EQ(ReadMp4(disk.states.back()).topLevel, kOrdinaryFile);
}

TEST(Mp4Writer, SwitchTornAtAnyByte_LeavesAFileThatPlays) {
    WatchedFile disk;
    const auto writer = Open(disk);
    AddPictures(*writer, 0, 40);
    writer->Finish(kxvcr::SlotTime(40, kRate));
    constexpr std::size_t kSwitchSize = 8;
    std::vector<std::byte> torn = disk.states.at(disk.states.size() - 2);
    const auto place = std::ranges::mismatch(torn, disk.states.back()).in1 - torn.begin() - 3; // "16" becomes "1"

    for (std::size_t done = 0; done <= kSwitchSize; ++done) {
        std::copy_n(disk.states.back().begin() + place, done, torn.begin() + place);
        ExpectPictures(torn, ReadMp4(torn).tracks[0], 0, 40);
    }
    EXPECT_EQ(torn, disk.states.back());
}

TEST(Mp4Writer, StartBetweenKeyPictures_ShowsFromTheStartOn) {
    constexpr std::uint64_t kStart = 75;
    for (const bool finished : {false, true}) {
        MemoryFile disk;
        const auto writer = Open(disk, H264(), kxvcr::SlotTime(kStart, kRate));
        AddPictures(*writer, 60, 130);
        if (finished) {
            writer->Finish(kxvcr::SlotTime(130, kRate));
        } else {
            writer->Flush(kxvcr::SlotTime(130, kRate));
        }

        const Mp4File file = ReadMp4(disk.bytes);
        const Mp4Track& track = file.tracks[0];
        const std::uint64_t length = 55 * kTicksPerSlot;
        EXPECT_EQ(track.edits, (std::vector<Mp4Edit>{{finished ? length : 0, 15}}));
        ASSERT_EQ(track.samples.size(), 70u);
        EXPECT_TRUE(track.samples[0].isKey);
        EXPECT_EQ(track.samples[14].duration, 1) << "a picture that is not shown lasts one tick";
        const auto shown = Shown(disk.bytes, track);
        ASSERT_EQ(shown.size(), 55u);
        for (std::size_t i = 0; i < shown.size(); ++i) {
            EXPECT_EQ(shown[i].first, static_cast<std::int64_t>(i) * kTicksPerSlot);
            EXPECT_EQ(shown[i].second, Picture(kStart + i)->bytes);
        }
        if (finished) {
            EXPECT_EQ(file.duration, length);
            EXPECT_EQ(track.mediaDuration, length + 15);
        }
    }
}

TEST(Mp4Writer, StartWhileAPictureIsStill_ShowsThatPicture) {
    for (const bool anotherComes : {false, true}) {
        MemoryFile disk;
        const auto writer = Open(disk, H264(), Seconds(5));
        writer->Add(Picture(0, Seconds(1)));
        writer->Add(Picture(1, Seconds(2)));
        writer->Flush(Seconds(5));
        EXPECT_EQ(ReadMp4(disk.bytes).topLevel, "ftyp free moov") << "another picture may come before the start";
        if (anotherComes) {
            writer->Add(Picture(2, Seconds(7)));
        }
        writer->Finish(Seconds(8));

        const Mp4File file = ReadMp4(disk.bytes);
        const auto shown = Shown(disk.bytes, file.tracks[0]);
        ASSERT_EQ(shown.size(), anotherComes ? 2u : 1u);
        EXPECT_EQ(shown[0].first, 0);
        EXPECT_EQ(shown[0].second, Picture(1)->bytes);
        EXPECT_EQ(file.duration, 270'000u);
        if (anotherComes) {
            EXPECT_EQ(shown[1].first, 180'000);
        }
    }
}

TEST(Mp4Writer, FirstPictureBehindTheStart_IsShownFromTheStartOn) {
    MemoryFile disk;
    const auto writer = Open(disk, H264(), Seconds(1));

    writer->Add(Picture(0, Seconds(1.5)));
    writer->Finish(Seconds(3));

    const Mp4File file = ReadMp4(disk.bytes);
    EXPECT_EQ(file.tracks[0].samples.at(0).time, 0);
    EXPECT_EQ(file.duration, 180'000u);
}

TEST(Mp4Writer, RecordingOfDays_KeepsItsTimes) {
    constexpr double kTenHours = 36'000;
    MemoryFile disk;
    const auto writer = Open(disk);
    for (std::uint64_t i = 0; i < 6; ++i) {
        ASSERT_TRUE(writer->Add(Picture(i, Seconds(kTenHours * static_cast<double>(i)))));
    }

    writer->Finish(Seconds(6 * kTenHours));

    const Mp4File file = ReadMp4(disk.bytes);
    EXPECT_EQ(file.duration, std::uint64_t{6} * 36'000 * 90'000);
    EXPECT_EQ(file.tracks[0].mediaDuration, file.duration);
    EXPECT_EQ(file.tracks[0].samples[5].time, std::int64_t{5} * 36'000 * 90'000);
}

// Where the machine stopped: at any byte of the last second.
TEST(Mp4Writer, FileCutAtAnyByte_PlaysEveryWholeFragment) {
    MemoryFile disk;
    const auto writer = Open(disk);
    std::vector<std::pair<std::size_t, std::size_t>> fragments; // size of the file, pictures in it
    for (std::uint64_t number = 0; number < 60; ++number) {
        writer->Add(Picture(number));
        if (number % 10 == 9) {
            writer->Flush(kxvcr::SlotTime(number + 1, kRate));
            fragments.emplace_back(disk.bytes.size(), number + 1);
        }
    }

    for (std::size_t i = 1; i < fragments.size(); ++i) {
        for (std::size_t size = fragments[i - 1].first; size < fragments[i].first; ++size) {
            const std::vector<std::byte> cut(disk.bytes.begin(),
                                             disk.bytes.begin() + static_cast<std::ptrdiff_t>(size));
            ASSERT_EQ(ReadMp4(cut).tracks[0].samples.size(), fragments[i - 1].second) << "cut at byte " << size;
        }
    }
}

// The type of a fragment is written behind the fragment, because players refuse a file with a torn one.
TEST(Mp4Writer, Fragment_IsFreeSpaceUntilItIsWhole) {
    WatchedFile disk;
    const auto writer = Open(disk);

    writer->Add(Picture(0));

    ASSERT_EQ(disk.states.size(), 3u);
    EXPECT_EQ(ReadMp4(disk.states[1]).topLevel, "ftyp free moov free mdat");
    EXPECT_EQ(ReadMp4(disk.states[2]).topLevel, "ftyp free moov moof mdat");
}

// Records three seconds with two flushes a second; the number of the pictures that were flushed.
std::uint64_t RecordThreeSeconds(Mp4Writer& writer) {
    constexpr std::uint64_t kStep = 15;
    std::uint64_t flushed = 0;
    for (std::uint64_t end = kStep; end <= 90; end += kStep) {
        if (AddPictures(writer, flushed, end) != end || !writer.Flush(kxvcr::SlotTime(end, kRate))) {
            break;
        }
        flushed = end;
    }
    return flushed;
}

// Every capacity between an empty and a complete file: whatever write meets the end of the disk, the file plays.
TEST(Mp4Writer, FullDisk_KeepsEveryFragmentThatFitted) {
    MemoryFile whole;
    RecordThreeSeconds(*Open(whole));
    std::size_t ordinary = 0;
    std::size_t fragmented = 0;

    for (std::uint64_t capacity = 1200; capacity < whole.bytes.size(); capacity += 101) {
        MemoryFile disk(capacity);
        const auto writer = Open(disk);
        ASSERT_NE(writer, nullptr);

        const std::uint64_t flushed = RecordThreeSeconds(*writer);

        EXPECT_LT(flushed, 90u);
        EXPECT_FALSE(writer->Add(Picture(90)));
        EXPECT_FALSE(writer->Flush(Seconds(4)));
        const Mp4File file = ReadMp4(disk.bytes);
        EXPECT_FALSE(file.hasTornEnd) << capacity;
        EXPECT_EQ(writer->Size(), disk.bytes.size()) << capacity;
        EXPECT_GE(file.tracks[0].samples.size(), flushed) << capacity;
        for (std::size_t i = 0; i < file.tracks[0].samples.size(); ++i) {
            ASSERT_EQ(BytesOf(disk.bytes, file.tracks[0].samples[i]), Picture(i)->bytes) << capacity;
        }
        ++(file.isFragmented ? fragmented : ordinary);
    }
    EXPECT_GT(ordinary, 0u);
    EXPECT_GT(fragmented, 0u);
}

TEST(Mp4Writer, FullDiskAtTheStart_GivesNoWriter) {
    MemoryFile disk(100);

    EXPECT_EQ(Open(disk), nullptr);
}

// One write after the other fails, once or for good, and leaves half of its bytes.
TEST(Mp4Writer, AnyWriteThatFails_LeavesAFileThatPlays) {
    const auto record = [](kxvcr::OutputFile& disk) {
        const auto writer = Open(disk, H264(Aac()), kxvcr::SlotTime(3, kRate));
        if (!writer) {
            return;
        }
        for (std::uint64_t number = 0; number < 60; ++number) {
            writer->Add(Picture(number));
            writer->Add(Sound(Aac(), static_cast<std::int64_t>(number)));
            if (number % 8 == 7) {
                writer->Flush(kxvcr::SlotTime(number + 1, kRate));
            }
        }
        writer->Finish(Seconds(2));
    };
    FaultyFile faultless(0, 0);
    record(faultless);
    ASSERT_EQ(ReadMp4(faultless.Bytes()).tracks.at(0).samples.size(), 60u);
    constexpr std::size_t kWritesOfTheHead = 2; // the second one with the first picture's edit list
    constexpr std::size_t kWritesOfAFragment = 2;

    FailEachWrite(kWritesOfTheHead, faultless.Writes(), record,
                  [](std::size_t failing, const std::vector<std::byte>& bytes) {
                      const Mp4File file = ReadMp4(bytes);
                      ASSERT_FALSE(file.tracks.empty()) << failing;
                      EXPECT_FALSE(file.hasTornEnd) << failing;
                      const std::vector<Mp4Sample>& samples = file.tracks[0].samples;
                      for (std::size_t i = 0; i < samples.size(); ++i) {
                          ASSERT_EQ(BytesOf(bytes, samples[i]), Picture(i)->bytes) << failing;
                      }
                      EXPECT_EQ(samples.empty(), failing < kWritesOfTheHead + kWritesOfAFragment) << failing;
                  });
}

} // namespace

} // namespace kxtest
