// MP4 in pieces: the head of a fragmented file, and fragments of one packet.
#include "worker/file/mp4fragment.h"

#include "worker/file/mp4layout.h"

#include <algorithm>

namespace kxvcr {

std::vector<std::byte> FragmentedMp4Head(const StreamFormat& format) {
    mp4::Movie movie = mp4::DescribeMovie(format);
    mp4::ExpectFragments(movie, format);
    mp4::Bytes bytes;
    mp4::BoxWriter out(bytes);
    out.Put(mp4::FileType{});
    out.Put(movie);
    return bytes;
}

std::vector<std::byte> FragmentOfPacket(const StreamFormat& format, const Packet& packet,
                                        const FragmentTiming& timing) {
    const bool isSound = packet.stream == Stream::Sound && format.sound;
    const std::uint32_t timescale = isSound ? format.sound->samplesPerSecond : mp4::kTimescale;
    const std::int64_t time = mp4::Ticks(packet.time - timing.start, timescale);
    const std::int64_t end = isSound ? time + format.sound->samplesPerPacket
                                     : mp4::Ticks(packet.time + timing.duration - timing.start, timescale);

    mp4::FragmentPart part;
    part.trackId = isSound ? mp4::kSoundTrackId : mp4::kPictureTrackId;
    part.time = time;
    part.run.samples.push_back({static_cast<std::uint32_t>(std::max<std::int64_t>(end - time, 1)),
                                static_cast<std::uint32_t>(packet.bytes.size()),
                                isSound || packet.isKey ? mp4::kKeySampleFlags : mp4::kOtherSampleFlags});
    part.data.emplace_back(packet.bytes);
    return mp4::MakeFragment(timing.sequenceNumber, {&part, 1}).bytes;
}

} // namespace kxvcr
