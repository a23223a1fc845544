// A recording of several gigabytes: positions, sizes and the index past two and four gigabytes. The file is kept
// without its pictures' bytes, so that the test needs no disk.
#include "mp4reader.h"
#include "testpackets.h"
#include "worker/file/mp4writer.h"
#include "worker/file/webmwriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <map>

namespace {

constexpr std::uint32_t kPicturesPerSecond = 4;
constexpr std::uint64_t kPictures = 100;
constexpr std::size_t kPictureBytes = 48'000'000;
constexpr std::uint64_t kTwoGigabytes = std::uint64_t{1} << 31;
constexpr std::uint64_t kFourGigabytes = std::uint64_t{1} << 32;

// A file that remembers what is not a picture: the first bytes of every long write, and short writes whole.
class HugeFile final : public kxvcr::OutputFile {
public:
    bool WriteAt(std::uint64_t offset, std::span<const std::byte> source) override {
        const std::size_t kept = source.size() > kLongWrite ? kKeptOfLongWrite : source.size();
        for (std::size_t i = 0; i < kept; ++i) {
            m_bytes[offset + i] = source[i];
        }
        size = std::max(size, offset + source.size());
        return true;
    }
    bool Truncate(std::uint64_t) override { return false; } // nothing here has to be cut
    bool Flush() override { return true; }
    void Discard() noexcept override {}

    std::uint64_t Unsigned(std::uint64_t offset, std::size_t length) const {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < length; ++i) {
            value = value << 8 | std::to_integer<std::uint64_t>(m_bytes.at(offset + i));
        }
        return value;
    }

    kxtest::Mp4Source Source() const {
        return {size, [this](std::uint64_t offset) { return m_bytes.at(offset); }};
    }

    std::uint64_t size = 0;

private:
    static constexpr std::size_t kLongWrite = 100'000;
    static constexpr std::size_t kKeptOfLongWrite = 200;

    std::map<std::uint64_t, std::byte> m_bytes;
};

struct Element {
    std::uint64_t id;
    std::uint64_t start;   // of the id
    std::uint64_t content; // behind the size
    std::uint64_t end;
};

Element ReadElement(const HugeFile& file, std::uint64_t offset) {
    const auto length = [&](std::uint64_t at) {
        return static_cast<std::size_t>(std::countl_zero(static_cast<std::uint8_t>(file.Unsigned(at, 1)))) + 1;
    };
    const std::size_t idLength = length(offset);
    const std::uint64_t sizeOffset = offset + idLength;
    const std::size_t sizeLength = length(sizeOffset);
    const std::uint64_t size = file.Unsigned(sizeOffset, sizeLength) & ~(std::uint64_t{1} << (7 * sizeLength));
    const std::uint64_t content = sizeOffset + sizeLength;
    return {file.Unsigned(offset, idLength), offset, content, content + size};
}

std::vector<Element> Children(const HugeFile& file, const Element& parent) {
    std::vector<Element> children;
    for (std::uint64_t at = parent.content; at < parent.end; at = children.back().end) {
        children.push_back(ReadElement(file, at));
    }
    return children;
}

std::vector<Element> Find(const HugeFile& file, const Element& parent, std::uint64_t id) {
    std::vector<Element> found;
    std::ranges::copy_if(Children(file, parent), std::back_inserter(found),
                         [id](const Element& child) { return child.id == id; });
    return found;
}

constexpr std::uint64_t kSegment = 0x18538067;
constexpr std::uint64_t kCluster = 0x1F43B675;
constexpr std::uint64_t kSimpleBlock = 0xA3;
constexpr std::uint64_t kTimecode = 0xE7;
constexpr std::uint64_t kCues = 0x1C53BB6B;
constexpr std::uint64_t kCuePoint = 0xBB;
constexpr std::uint64_t kCueTrackPositions = 0xB7;
constexpr std::uint64_t kCueClusterPosition = 0xF1;
constexpr std::uint64_t kSeekHead = 0x114D9B74;
constexpr std::uint64_t kSeek = 0x4DBB;
constexpr std::uint64_t kSeekPosition = 0x53AC;

// Writes pictures, of which one in each second is a key picture. The writer has done with a picture after each flush.
void WritePictures(kxvcr::MediaWriter& writer) {
    const auto picture = std::make_shared<kxvcr::Packet>();
    picture->bytes.resize(kPictureBytes);
    for (std::uint64_t number = 0; number < kPictures; ++number) {
        picture->isKey = number % kPicturesPerSecond == 0;
        picture->time = kxvcr::SlotTime(number, kPicturesPerSecond);
        ASSERT_TRUE(writer.Add(picture));
        ASSERT_TRUE(writer.Flush(kxvcr::SlotTime(number + 1, kPicturesPerSecond)));
    }
}

TEST(HugeFile, WebmsPositionsSizesAndIndex_AreRightPastFourGigabytes) {
    HugeFile disk;
    const auto writer = kxvcr::CreateWebmWriter(disk, kxvcr::DocType::WebM, kxtest::Vp9(), {});

    WritePictures(*writer);
    writer->Finish(kxvcr::SlotTime(kPictures, kPicturesPerSecond));

    ASSERT_GT(disk.size, kFourGigabytes);
    EXPECT_EQ(writer->Size(), disk.size);
    const Element segment = ReadElement(disk, ReadElement(disk, 0).end);
    ASSERT_EQ(segment.id, kSegment);
    EXPECT_EQ(segment.end, disk.size);

    const std::vector<Element> clusters = Find(disk, segment, kCluster);
    ASSERT_EQ(clusters.size(), kPictures / kPicturesPerSecond);
    EXPECT_TRUE(std::ranges::any_of(clusters, [](const Element& cluster) {
        return cluster.start > kTwoGigabytes && cluster.start < kFourGigabytes;
    }));
    EXPECT_GT(clusters.back().start, kFourGigabytes);
    std::size_t frames = 0;
    for (std::size_t i = 0; i < clusters.size(); ++i) {
        const Element time = Find(disk, clusters[i], kTimecode).at(0);
        EXPECT_EQ(disk.Unsigned(time.content, time.end - time.content), i * 1000);
        for (const Element& block : Find(disk, clusters[i], kSimpleBlock)) {
            EXPECT_EQ(block.end - block.content, kPictureBytes + 4);
            ++frames;
        }
    }
    EXPECT_EQ(frames, kPictures);

    const Element cues = Find(disk, segment, kCues).at(0);
    const std::vector<Element> points = Find(disk, cues, kCuePoint);
    ASSERT_EQ(points.size(), clusters.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Element position = Find(disk, Find(disk, points[i], kCueTrackPositions).at(0), kCueClusterPosition).at(0);
        EXPECT_EQ(disk.Unsigned(position.content, position.end - position.content),
                  clusters[i].start - segment.content);
    }

    const Element lastSeek = Find(disk, Find(disk, segment, kSeekHead).at(0), kSeek).back();
    const Element cuesPosition = Find(disk, lastSeek, kSeekPosition).at(0);
    EXPECT_EQ(disk.Unsigned(cuesPosition.content, cuesPosition.end - cuesPosition.content),
              cues.start - segment.content);
}

TEST(HugeFile, Mp4sTables_AreRightPastFourGigabytes) {
    HugeFile disk;
    const auto writer = kxvcr::Mp4Writer::Create(disk, kxtest::H264(), {});

    WritePictures(*writer);
    const kxtest::Mp4File growing = ReadMp4(disk.Source());
    writer->Finish(kxvcr::SlotTime(kPictures, kPicturesPerSecond));
    const kxtest::Mp4File finished = ReadMp4(disk.Source());

    ASSERT_GT(disk.size, kFourGigabytes);
    EXPECT_TRUE(growing.isFragmented);
    EXPECT_EQ(finished.topLevel, "ftyp mdat moov");
    const auto& before = growing.tracks.at(0).samples;
    const auto& after = finished.tracks.at(0).samples;
    ASSERT_EQ(before.size(), kPictures);
    ASSERT_EQ(after.size(), kPictures);
    for (std::size_t i = 0; i < after.size(); ++i) {
        EXPECT_EQ(after[i].offset, before[i].offset) << i;
        EXPECT_EQ(after[i].size, kPictureBytes) << i;
        EXPECT_EQ(after[i].time, static_cast<std::int64_t>(i) * 22'500) << i;
    }
    EXPECT_GT(after.back().offset, kFourGigabytes);
}

} // namespace
