// Writes a recording as MP4. What is in the file is remembered for the tables only after its write, so that the tables
// of a file that was cut short are right.
#include "worker/file/mp4writer.h"

#include "worker/file/attempt.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace kxvcr {

namespace {

// The largest fragment, as it is written when packets come faster than the flushes: what a replay has kept. Large
// enough for few writes, small enough for a player that reads sound and pictures side by side.
constexpr std::int64_t kFragmentTicks = std::int64_t{5} * mp4::kTimescale;
constexpr std::size_t kFragmentBytes = std::size_t{1} << 20; // a larger packet has one by itself
constexpr std::size_t kLargestPacket = std::size_t{1} << 30; // a fragment's sizes have 32 bits
constexpr std::int64_t kSoundTolerance = 2;                  // samples by which rounded times may jump

// The free space that becomes the head of an mdat box.
constexpr std::array<std::byte, mp4::kWideBoxHeadSize - mp4::kBoxHeadSize> kSwitchSpace{};

} // namespace

Mp4Writer::Mp4Writer(OutputFile& file, const StreamFormat& format, MediaTime start)
    : m_file(file),
      m_format(format),
      m_start(start),
      m_slotTicks(mp4::kTimescale / std::max(format.picture.framesPerSecond, std::uint32_t{1})) {
    if (format.sound) {
        m_soundLead = std::int64_t{format.sound->delaySamples} + format.sound->samplesPerPacket;
    }
}

std::unique_ptr<Mp4Writer> Mp4Writer::Create(OutputFile& file, const StreamFormat& format, MediaTime start) {
    std::unique_ptr<Mp4Writer> writer(new Mp4Writer(file, format, start));
    return writer->WriteHead() ? std::move(writer) : nullptr;
}

bool Mp4Writer::WriteHead() {
    mp4::Movie movie = mp4::DescribeMovie(m_format);
    mp4::ExpectFragments(movie, m_format);
    if (m_prerollTicks > 0) {
        movie.tracks[0].edits.emplace(mp4::EditList{{{0, m_prerollTicks}}});
    }
    if (m_format.sound) {
        movie.tracks[1].edits.emplace(mp4::EditList{{{0, m_soundLead}}});
    }
    mp4::Bytes bytes;
    mp4::BoxWriter out(bytes);
    out.Put(mp4::FileType{});
    m_switchOffset = bytes.size();
    out.Put(mp4::FreeSpace{kSwitchSpace});
    out.Put(movie);
    if (!m_file.WriteAt(0, bytes)) {
        return false;
    }
    m_end = bytes.size();
    return true;
}

bool Mp4Writer::Add(const SharedPacket& packet) {
    return m_accepting && (Attempt([&] { return Take(packet); }) || CutShort());
}

bool Mp4Writer::Take(const SharedPacket& packet) {
    const std::size_t size = packet->bytes.size();
    if (size > kLargestPacket) {
        return false;
    }
    if (m_hasBegun && m_waitingBytes + size > kFragmentBytes && !WriteFragment(0)) {
        return false;
    }
    m_waitingBytes += size;
    return packet->stream == Stream::Picture ? TakePicture(packet) : TakeSound(packet);
}

bool Mp4Writer::TakePicture(const SharedPacket& packet) {
    if (!m_hasBegun) {
        m_pictures.push_back({packet, 0});
        if (packet->time < m_start) {
            return true;
        }
        // The picture before is still on show at the start, unless this one begins there.
        const std::size_t newest = m_pictures.size() - 1;
        const bool showsBefore = packet->time > m_start && newest > 0;
        return BeginWith(showsBefore ? newest - 1 : newest) && WriteFragment(0);
    }
    std::int64_t tick = PictureTick(packet->time);
    if (!m_pictures.empty()) {
        tick = std::max(tick, m_pictures.back().tick + 1);
        if (tick - m_pictures.front().tick >= kFragmentTicks && !WriteFragment(tick)) {
            return false;
        }
    } else if (m_newest) {
        tick = std::max(tick, m_newest->tick + 1);
    }
    m_pictures.push_back({packet, tick});
    return true;
}

// Packets follow each other without a gap, although their times are rounded; a real gap is kept.
bool Mp4Writer::TakeSound(const SharedPacket& packet) {
    if (!m_format.sound) {
        return false;
    }
    const std::uint32_t rate = m_format.sound->samplesPerSecond;
    const std::int64_t length = m_format.sound->samplesPerPacket;
    std::int64_t tick = mp4::Ticks(packet->time - m_start, rate) + m_soundLead;
    if (tick < 0) {
        return true; // too long before the start to be of use
    }
    if (!m_sound.empty() || !m_soundIndex.IsEmpty()) {
        const std::int64_t next = m_lastSoundTick + length;
        tick = tick - next > kSoundTolerance ? tick : next;
    }
    m_lastSoundTick = tick;
    m_sound.push_back({packet, tick});
    const bool full = (tick - m_sound.front().tick) * mp4::kTimescale >= kFragmentTicks * rate;
    return !m_hasBegun || !full || WriteFragment(0);
}

std::int64_t Mp4Writer::PictureTick(MediaTime time) const noexcept {
    return m_prerollTicks + mp4::Ticks(time - m_start, mp4::kTimescale);
}

bool Mp4Writer::BeginWith(std::size_t firstShown) {
    m_hasBegun = true;
    m_prerollTicks = static_cast<std::int64_t>(firstShown);
    for (std::size_t i = 0; i < m_pictures.size(); ++i) {
        m_pictures[i].tick = i <= firstShown ? static_cast<std::int64_t>(i) : PictureTick(m_pictures[i].packet->time);
    }
    return m_prerollTicks == 0 || WriteHead();
}

bool Mp4Writer::Flush(MediaTime until) {
    return m_accepting && (Attempt([&] { return FlushUntil(until); }) || CutShort());
}

bool Mp4Writer::FlushUntil(MediaTime until) {
    if (!m_hasBegun && (m_pictures.empty() || until <= m_start)) {
        return true;
    }
    if (!m_hasBegun && !BeginWith(m_pictures.size() - 1)) {
        return false;
    }
    return WriteFragment(PictureTick(until));
}

mp4::FragmentPart Mp4Writer::PicturePart(std::int64_t untilTick) const {
    mp4::FragmentPart part{.trackId = mp4::kPictureTrackId, .time = m_pictures.front().tick, .run = {}, .data = {}};
    for (std::size_t i = 0; i < m_pictures.size(); ++i) {
        const auto& [packet, tick] = m_pictures[i];
        const std::int64_t known = i + 1 < m_pictures.size() ? m_pictures[i + 1].tick : untilTick;
        const std::int64_t duration = known > tick ? known - tick : m_slotTicks;
        part.run.samples.push_back({static_cast<std::uint32_t>(std::min<std::int64_t>(duration, UINT32_MAX)),
                                    static_cast<std::uint32_t>(packet->bytes.size()),
                                    packet->isKey ? mp4::kKeySampleFlags : mp4::kOtherSampleFlags});
        part.data.emplace_back(packet->bytes);
    }
    return part;
}

mp4::FragmentPart Mp4Writer::SoundPart() const {
    const std::uint32_t length = m_format.sound->samplesPerPacket;
    mp4::FragmentPart part{.trackId = mp4::kSoundTrackId, .time = m_sound.front().tick, .run = {}, .data = {}};
    part.run.hasFlags = false;
    part.run.hasDurations = false;
    for (std::size_t i = 0; i < m_sound.size(); ++i) {
        const auto& [packet, tick] = m_sound[i];
        const bool isLast = i + 1 == m_sound.size();
        const std::uint32_t duration = isLast ? length : static_cast<std::uint32_t>(m_sound[i + 1].tick - tick);
        part.run.hasDurations = part.run.hasDurations || duration != length;
        part.run.samples.push_back({duration, static_cast<std::uint32_t>(packet->bytes.size()), mp4::kKeySampleFlags});
        part.data.emplace_back(packet->bytes);
    }
    return part;
}

// Pictures come last, so that the newest one's duration stands at the fragment head's end.
bool Mp4Writer::WriteFragment(std::int64_t untilTick) {
    if (m_newest && !ExtendNewest(m_pictures.empty() ? untilTick : m_pictures.front().tick)) {
        return false;
    }
    std::vector<mp4::FragmentPart> parts;
    if (!m_sound.empty()) {
        parts.push_back(SoundPart());
    }
    if (!m_pictures.empty()) {
        parts.push_back(PicturePart(untilTick));
    }
    if (parts.empty()) {
        return true;
    }
    mp4::Fragment fragment = mp4::MakeFragment(++m_sequenceNumber, parts, std::move(m_block));
    const bool written = WriteThenReveal(fragment.bytes);
    const std::size_t size = fragment.bytes.size();
    m_block = std::move(fragment.bytes);
    if (!written) {
        return false;
    }
    const std::uint64_t offset = m_end;
    m_end += size;
    m_indexIsWhole = false;
    if (!m_pictures.empty()) {
        const std::int64_t tick = m_pictures.back().tick;
        m_newest = {offset + fragment.lastDurationOffset, tick, tick + parts.back().run.samples.back().duration};
        Remember(m_pictureIndex, m_pictures, offset + fragment.dataOffsets.back());
    }
    if (!m_sound.empty()) {
        Remember(m_soundIndex, m_sound, offset + fragment.dataOffsets.front());
    }
    m_indexIsWhole = true;
    m_pictures.clear();
    m_sound.clear();
    m_waitingBytes = 0;
    return true;
}

// Some players refuse a whole file because of one torn moof box at its end. So it is free space to them until it is
// there, and its type is written last.
bool Mp4Writer::WriteThenReveal(mp4::Bytes& fragment) {
    constexpr std::size_t kTypeOffset = 4;
    const auto type = std::span(fragment).subspan(kTypeOffset, mp4::MovieFragment::kType.size());
    std::ranges::copy(std::as_bytes(std::span(mp4::FreeSpace::kType)), type.begin());
    return m_file.WriteAt(m_end, fragment) &&
           m_file.WriteAt(m_end + kTypeOffset, std::as_bytes(std::span(mp4::MovieFragment::kType)));
}

bool Mp4Writer::ExtendNewest(std::int64_t end) {
    if (end <= m_newest->tick || end == m_newest->end) {
        return true;
    }
    const std::int64_t duration = std::min<std::int64_t>(end - m_newest->tick, UINT32_MAX);
    mp4::Bytes bytes;
    mp4::BoxWriter(bytes).U32(static_cast<std::uint32_t>(duration));
    if (!m_file.WriteAt(m_newest->durationOffset, bytes)) {
        return false;
    }
    m_newest->end = m_newest->tick + duration;
    return true;
}

void Mp4Writer::Remember(mp4::SampleIndex& index, const std::vector<Sample>& samples, std::uint64_t offset) {
    index.BeginChunk(offset);
    for (const auto& [packet, tick] : samples) {
        index.Add(tick, packet->bytes.size(), packet->isKey);
    }
}

void Mp4Writer::Finish(MediaTime end) {
    if (!m_accepting) {
        return;
    }
    const bool whole = Attempt([&] {
        const bool begun = m_hasBegun || m_pictures.empty() || BeginWith(m_pictures.size() - 1);
        return begun && (!m_hasBegun || WriteFragment(PictureTick(end)));
    });
    if (whole) {
        EndFile();
    } else {
        CutShort();
    }
}

bool Mp4Writer::CutShort() {
    m_file.Truncate(m_end);
    EndFile();
    return false;
}

void Mp4Writer::EndFile() {
    m_accepting = false;
    m_pictures.clear();
    m_sound.clear();
    if (m_newest && !Attempt([&] { return WriteTables(); })) {
        m_file.Truncate(m_end);
    }
}

// Behind the write of the tables nothing is undone: whether the later writes are done wholly, partly or not at all, the
// file plays. The size of the mdat box first lies in the free box's content, where nobody reads it. The switch then
// changes the head "16, free" into "1, mdat"; a part of that is the head of a box of the same size that players skip.
bool Mp4Writer::WriteTables() {
    if (!m_indexIsWhole) {
        return false;
    }
    const mp4::Bytes movie = mp4::Encoded(MovieWithTables());
    const mp4::Bytes hidden = mp4::Encoded(mp4::FreeSpace{movie});
    if (!m_file.WriteAt(m_end, hidden)) {
        return false;
    }
    const std::uint64_t movieOffset = m_end + mp4::kBoxHeadSize;
    m_end += hidden.size();
    const mp4::Bytes head = mp4::WideMediaDataHead(movieOffset - m_switchOffset);
    const std::span typeAndMark = std::span(head).first(mp4::kBoxHeadSize);
    const std::span size = std::span(head).subspan(mp4::kBoxHeadSize);
    if (m_file.WriteAt(m_switchOffset + mp4::kBoxHeadSize, size) && m_file.Flush()) {
        m_file.WriteAt(m_switchOffset, typeAndMark);
    }
    return true;
}

mp4::Movie Mp4Writer::MovieWithTables() {
    mp4::Movie movie = mp4::DescribeMovie(m_format);
    const std::int64_t shown = m_newest->end - m_prerollTicks;
    movie.header.duration = static_cast<std::uint64_t>(shown);

    mp4::Track& pictures = movie.tracks.front();
    pictures.header.duration = movie.header.duration;
    pictures.media.header.duration = static_cast<std::uint64_t>(m_newest->end);
    if (m_prerollTicks > 0) {
        pictures.edits.emplace(mp4::EditList{{{movie.header.duration, m_prerollTicks}}});
    }
    m_pictureIndex.MoveInto(pictures.media.information.samples, m_newest->end);

    if (m_format.sound && !FillSound(movie.tracks.back(), shown)) {
        movie.tracks.pop_back();
    }
    return movie;
}

// The track's media begins with its first sample, which lies before the file's time 0 or, when the sound came late,
// behind it.
bool Mp4Writer::FillSound(mp4::Track& track, std::int64_t movieDuration) {
    if (m_soundIndex.IsEmpty()) {
        return false;
    }
    const auto toMovie = [rate = std::int64_t{m_format.sound->samplesPerSecond}](std::int64_t samples) {
        return samples / rate * mp4::kTimescale + samples % rate * mp4::kTimescale / rate;
    };
    const std::int64_t first = m_soundIndex.FirstTime();
    const std::int64_t end = m_soundIndex.LastTime() + m_format.sound->samplesPerPacket;
    const std::int64_t silence = toMovie(std::max<std::int64_t>(first - m_soundLead, 0));
    const std::int64_t heard = std::min(toMovie(end - m_soundLead), movieDuration) - silence;
    if (heard <= 0) {
        return false;
    }
    mp4::EditList edits;
    if (silence > 0) {
        edits.edits.push_back({static_cast<std::uint64_t>(silence), mp4::EditList::kNothing});
    }
    edits.edits.push_back({static_cast<std::uint64_t>(heard), std::max<std::int64_t>(m_soundLead - first, 0)});
    track.edits.emplace(std::move(edits));
    track.header.duration = static_cast<std::uint64_t>(silence + heard);
    track.media.header.duration = static_cast<std::uint64_t>(end - first);
    m_soundIndex.MoveInto(track.media.information.samples, end);
    return true;
}

} // namespace kxvcr
