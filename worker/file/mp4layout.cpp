// Which boxes an MP4 file and its fragments consist of.
#include "worker/file/mp4layout.h"

#include <numeric>
#include <utility>

namespace kxvcr::mp4 {

namespace {

Track DescribePictures(const PictureFormat& format) {
    const auto width = static_cast<std::uint16_t>(format.width);
    const auto height = static_cast<std::uint16_t>(format.height);
    AvcSampleEntry entry{width, height, {format.decoderConfig}, {format.matrix}};
    return {.header = {.id = kPictureTrackId, .width = width, .height = height},
            .media = {.header = {.timescale = kTimescale},
                      .handler = {"vide", "Screen"},
                      .information = {VideoMediaHeader{}, {.descriptions = {std::move(entry)}}}}};
}

Track DescribeSound(const SoundFormat& format) {
    AacSampleEntry entry{static_cast<std::uint16_t>(format.channels), format.samplesPerSecond, {format.decoderConfig}};
    return {.header = {.id = kSoundTrackId, .isSound = true},
            .media = {.header = {.timescale = format.samplesPerSecond},
                      .handler = {"soun", "Sound"},
                      .information = {SoundMediaHeader{}, {.descriptions = {std::move(entry)}}}}};
}

} // namespace

Movie DescribeMovie(const StreamFormat& format) {
    Movie movie{.header = {.timescale = kTimescale, .nextTrackId = kSoundTrackId + 1}, .tracks = {}};
    movie.tracks.push_back(DescribePictures(format.picture));
    if (format.sound) {
        movie.tracks.push_back(DescribeSound(*format.sound));
    }
    return movie;
}

void ExpectFragments(Movie& movie, const StreamFormat& format) {
    movie.extends.emplace();
    movie.extends->defaults.push_back({kPictureTrackId, 0, kOtherSampleFlags});
    if (format.sound) {
        movie.extends->defaults.push_back({kSoundTrackId, format.sound->samplesPerPacket, kKeySampleFlags});
    }
}

Fragment MakeFragment(std::uint32_t sequenceNumber, std::span<const FragmentPart> parts, Bytes block) {
    MovieFragment head{{sequenceNumber}, {}};
    std::vector<std::size_t> sizes;
    for (const FragmentPart& part : parts) {
        head.tracks.push_back({{part.trackId}, {static_cast<std::uint64_t>(part.time)}, part.run});
        sizes.push_back(std::accumulate(part.data.begin(), part.data.end(), std::size_t{0},
                                        [](std::size_t sum, const auto& data) { return sum + data.size(); }));
    }
    const std::size_t dataSize = std::accumulate(sizes.begin(), sizes.end(), std::size_t{0});

    // The places of the data depend on the size of the head, which does not depend on them.
    const std::size_t headSize = Encoded(head).size();
    Fragment fragment;
    fragment.bytes = std::move(block);
    fragment.bytes.clear();
    std::size_t offset = headSize + kBoxHeadSize;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        head.tracks[i].run.dataOffset = static_cast<std::uint32_t>(offset);
        fragment.dataOffsets.push_back(offset);
        offset += sizes[i];
    }
    fragment.lastDurationOffset = headSize - TrackRun::kLastDurationFromEnd;

    fragment.bytes.reserve(offset);
    BoxWriter out(fragment.bytes);
    out.Put(head);
    out.Raw(MediaDataHead(static_cast<std::uint32_t>(kBoxHeadSize + dataSize)));
    for (const FragmentPart& part : parts) {
        for (const std::span<const std::byte> data : part.data) {
            out.Raw(data);
        }
    }
    return fragment;
}

} // namespace kxvcr::mp4
