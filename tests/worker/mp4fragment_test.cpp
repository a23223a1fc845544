// MP4 in pieces for viewers: a head and fragments that follow each other without a gap.
#include "worker/file/mp4fragment.h"

#include "mp4reader.h"
#include "testpackets.h"

#include <gtest/gtest.h>

namespace kxtest {

namespace {

using kxvcr::FragmentedMp4Head;
using kxvcr::FragmentOfPacket;

void Append(std::vector<std::byte>& stream, const std::vector<std::byte>& piece) {
    stream.insert(stream.end(), piece.begin(), piece.end());
}

TEST(Mp4Fragment, Head_HasATrackForEachStream) {
    const Mp4File pictures = ReadMp4(FragmentedMp4Head(H264()));
    const Mp4File both = ReadMp4(FragmentedMp4Head(H264(Aac())));

    EXPECT_EQ(pictures.topLevel, "ftyp moov");
    EXPECT_TRUE(pictures.isFragmented);
    EXPECT_EQ(pictures.tracks.size(), 1u);
    ASSERT_EQ(both.tracks.size(), 2u);
    EXPECT_EQ(both.tracks[0].width, 640u);
    EXPECT_EQ(both.tracks[1].mediaType, "soun");
}

TEST(Mp4Fragment, PicturesOfAViewer_FollowEachOtherFromItsTimeZero) {
    constexpr std::uint64_t kFirst = 60;
    std::vector<std::byte> stream = FragmentedMp4Head(H264());
    for (std::uint64_t i = 0; i < 7; ++i) {
        const auto time = kxvcr::SlotTime(kFirst + i, kRate);
        Append(stream, FragmentOfPacket(H264(), *Picture(kFirst + i),
                                        {static_cast<std::uint32_t>(i + 1), kxvcr::SlotTime(kFirst, kRate),
                                         kxvcr::SlotTime(kFirst + i + 1, kRate) - time}));
    }

    const Mp4File file = ReadMp4(stream);

    EXPECT_FALSE(file.hasTornEnd);
    EXPECT_EQ(file.sequenceNumbers, (std::vector<std::uint32_t>{1, 2, 3, 4, 5, 6, 7}));
    const std::vector<Mp4Sample>& samples = file.tracks[0].samples;
    ASSERT_EQ(samples.size(), 7u);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        EXPECT_EQ(samples[i].time, static_cast<std::int64_t>(i) * 3000);
        EXPECT_EQ(samples[i].duration, 3000);
        EXPECT_EQ(samples[i].isKey, i == 0);
        EXPECT_EQ(BytesOf(stream, samples[i]), Picture(kFirst + i)->bytes);
    }
}

TEST(Mp4Fragment, Sound_LastsItsPacketsLength) {
    std::vector<std::byte> stream = FragmentedMp4Head(H264(Aac()));
    Append(stream, FragmentOfPacket(H264(Aac()), *Sound(Aac(), 5), {1, {}, {}}));

    const Mp4Track sound = ReadMp4(stream).tracks[1];

    ASSERT_EQ(sound.samples.size(), 1u);
    EXPECT_EQ(sound.samples[0].time, 4 * 1024);
    EXPECT_EQ(sound.samples[0].duration, 1024);
    EXPECT_TRUE(sound.samples[0].isKey);
}

} // namespace

} // namespace kxtest
