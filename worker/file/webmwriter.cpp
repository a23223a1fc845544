// Writes WebM and Matroska with libwebm, all but clusters and their blocks: the library's Segment would keep each
// cluster in memory and give up at the first failed write, and its Cluster refuses a packet that comes a little later
// than one of the other stream with a higher time.
#include "worker/file/webmwriter.h"

#include "worker/file/attempt.h"

#include <common/webmids.h>
#include <mkvmuxer/mkvmuxer.h>
#include <mkvmuxer/mkvmuxerutil.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace kxvcr {

namespace {

using mkvmuxer::WriteEbmlElement;
using mkvmuxer::WriteEbmlMasterElement;

constexpr std::uint64_t kTimecodeScale = 1'000'000; // nanoseconds: time codes are milliseconds
constexpr std::int64_t kLongestCluster = 5'000;     // milliseconds without a key picture
constexpr std::uint64_t kDocTypeVersion = 4;
constexpr std::int32_t kSizeBytes = 8; // width of a size or number that is patched later
constexpr std::int32_t kPictureTrack = 1;
constexpr std::int32_t kSoundTrack = 2;
constexpr std::uint64_t kOpusSeekPreRoll = 80'000'000; // nanoseconds, as WebM demands
constexpr char kMuxingApp[] = "libwebm";
constexpr char kWritingApp[] = "KXVCR";

// Collects the muxer's many small writes, so that each Flush is one write of the file.
class PendingBytes final : public mkvmuxer::IMkvWriter {
public:
    explicit PendingBytes(OutputFile& file) : m_file(file) {}

    mkvmuxer::int32 Write(const void* bytes, mkvmuxer::uint32 length) override {
        if (m_position != m_start + m_pending.size()) {
            if (!Flush()) {
                return -1;
            }
            m_start = m_position;
        }
        const auto* first = static_cast<const std::byte*>(bytes);
        m_pending.insert(m_pending.end(), first, first + length);
        m_position += length;
        return 0;
    }
    mkvmuxer::int64 Position() const override { return static_cast<mkvmuxer::int64>(m_position); }
    mkvmuxer::int32 Position(mkvmuxer::int64 position) override {
        m_position = static_cast<std::uint64_t>(position);
        return 0;
    }
    bool Seekable() const override { return true; }
    void ElementStartNotify(mkvmuxer::uint64, mkvmuxer::int64) override {}

    bool Flush() {
        const bool written = m_file.WriteAt(m_start, m_pending);
        m_start += m_pending.size();
        m_pending.clear();
        return written;
    }

    // Forgets what is pending and cuts the file.
    void CutAt(std::uint64_t size) {
        m_pending.clear();
        m_start = m_position = size;
        m_file.Truncate(size);
    }

private:
    OutputFile& m_file;
    std::vector<std::byte> m_pending;
    std::uint64_t m_start = 0;    // offset of the first pending byte
    std::uint64_t m_position = 0; // offset of the next write
};

constexpr std::int64_t Milliseconds(MediaTime time) noexcept {
    constexpr MediaTime kHalf = MediaTime(std::chrono::milliseconds(1)) / 2;
    return std::chrono::floor<std::chrono::milliseconds>(time + kHalf).count();
}

constexpr std::uint64_t SamplesToNanoseconds(const SoundFormat& format, std::uint64_t samples) noexcept {
    return samples * 1'000'000'000 / std::max(format.samplesPerSecond, std::uint32_t{1});
}

// Null, which the library refuses, when there is none.
const char* CodecId(Codec codec) noexcept {
    switch (codec) {
    case Codec::Jpeg: // no file has it
        break;
    case Codec::H264:
        return "V_MPEG4/ISO/AVC";
    case Codec::Vp9:
        return "V_VP9";
    case Codec::AacLc:
        return "A_AAC";
    case Codec::Opus:
        return "A_OPUS";
    }
    return nullptr;
}

// WebM keeps a VP9 stream's properties as numbered bytes: profile, level, bit depth, chroma subsampling.
std::vector<std::byte> Vp9Features(std::span<const std::byte> record) {
    if (record.size() < 3) {
        return {};
    }
    constexpr std::byte kOneByte{1};
    const std::byte depth = record[2] >> 4;
    const std::byte chroma = record[2] >> 1 & std::byte{7};
    return {std::byte{1}, kOneByte, record[0], std::byte{2}, kOneByte, record[1],
            std::byte{3}, kOneByte, depth,     std::byte{4}, kOneByte, chroma};
}

bool SetPrivate(mkvmuxer::Track& track, std::span<const std::byte> bytes) {
    return bytes.empty() || track.SetCodecPrivate(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

bool SetColour(mkvmuxer::VideoTrack& track, ColorMatrix matrix) {
    mkvmuxer::Colour colour;
    const ColorCodes codes = CodesOf(matrix);
    colour.set_matrix_coefficients(codes.matrix);
    colour.set_transfer_characteristics(codes.transfer);
    colour.set_primaries(codes.primaries);
    colour.set_range(mkvmuxer::Colour::kBroadcastRange);
    return track.SetColour(colour);
}

class WebmWriter final : public MediaWriter {
public:
    WebmWriter(OutputFile& file, DocType type, const StreamFormat& format, MediaTime start)
        : m_out(file),
          m_type(type),
          m_format(format),
          m_start(start) {}

    bool WriteHead();
    bool Add(const SharedPacket& packet) override;
    bool Flush(MediaTime until) override;
    void Finish(MediaTime end) override;
    std::uint64_t Size() const noexcept override { return m_end; }

private:
    std::uint64_t Offset() const { return static_cast<std::uint64_t>(m_out.Position()); }
    bool AddPictureTrack();
    bool AddSoundTrack();
    template <class Track>
    bool AddTrack(std::unique_ptr<Track> track, std::int32_t number);
    bool WriteInfo();
    bool Take(const Packet& packet);
    std::int64_t TimecodeOf(const Packet& packet) const noexcept;
    bool BeginCluster(std::int64_t timecode);
    void AddCue();
    bool WriteBlock(const Packet& packet, std::int64_t timecode);
    template <class Write>
    bool PatchAt(std::uint64_t offset, Write write);
    bool PatchSize(std::uint64_t contentOffset, std::uint64_t size);
    bool PatchDuration(std::int64_t milliseconds);
    bool EndCluster();
    bool WriteIndex();
    bool CutShort();
    void EndFile();

    PendingBytes m_out;
    DocType m_type;
    StreamFormat m_format;
    MediaTime m_start;
    mkvmuxer::SeekHead m_seekHead;
    mkvmuxer::Tracks m_tracks;
    mkvmuxer::Cues m_cues;
    std::uint64_t m_segmentStart = 0;    // offset of the segment's first element
    std::uint64_t m_durationOffset = 0;  // of the number of milliseconds
    std::int64_t m_duration = 0;         // as the file says
    std::uint64_t m_clusterStart = 0;    // offset of the cluster's first element; 0: none is open
    std::uint64_t m_clusterPosition = 0; // of the cluster itself, from the segment's first element on
    std::int64_t m_clusterTimecode = 0;
    std::int64_t m_newestTimecode = 0;
    std::uint64_t m_end = 0; // bytes up to the last whole packet
    bool m_hasPicture = false;
    bool m_accepting = true;
};

template <class Track>
bool WebmWriter::AddTrack(std::unique_ptr<Track> track, std::int32_t number) {
    track->set_language("und");
    if (!m_tracks.AddTrack(track.get(), number)) {
        return false;
    }
    static_cast<void>(track.release()); // the list deletes it
    return true;
}

bool WebmWriter::AddPictureTrack() {
    const PictureFormat& format = m_format.picture;
    unsigned int seed = kPictureTrack;
    auto track = std::make_unique<mkvmuxer::VideoTrack>(&seed);
    track->set_type(mkvmuxer::Tracks::kVideo);
    track->set_codec_id(CodecId(format.codec));
    track->set_width(format.width);
    track->set_height(format.height);
    const bool isVp9 = format.codec == Codec::Vp9;
    return SetPrivate(*track, isVp9 ? Vp9Features(format.decoderConfig) : format.decoderConfig) &&
           SetColour(*track, format.matrix) && AddTrack(std::move(track), kPictureTrack);
}

bool WebmWriter::AddSoundTrack() {
    const SoundFormat& format = *m_format.sound;
    unsigned int seed = kSoundTrack;
    auto track = std::make_unique<mkvmuxer::AudioTrack>(&seed);
    track->set_type(mkvmuxer::Tracks::kAudio);
    track->set_codec_id(CodecId(format.codec));
    track->set_sample_rate(format.samplesPerSecond);
    track->set_channels(format.channels);
    track->set_codec_delay(SamplesToNanoseconds(format, format.delaySamples));
    if (format.codec == Codec::Opus) {
        track->set_seek_pre_roll(kOpusSeekPreRoll);
    }
    return SetPrivate(*track, format.decoderConfig) && AddTrack(std::move(track), kSoundTrack);
}

// The library would keep the length in 32 bits of floating point, which are not exact for long recordings.
bool WebmWriter::WriteInfo() {
    using namespace libwebm;
    constexpr std::uint64_t kDurationSize = 2 + 1 + kSizeBytes; // id, size, number
    const std::uint64_t size = mkvmuxer::EbmlElementSize(kMkvTimecodeScale, std::uint64_t{kTimecodeScale}) +
                               kDurationSize + mkvmuxer::EbmlElementSize(kMkvMuxingApp, kMuxingApp) +
                               mkvmuxer::EbmlElementSize(kMkvWritingApp, kWritingApp);
    if (!WriteEbmlMasterElement(&m_out, kMkvInfo, size) ||
        !WriteEbmlElement(&m_out, kMkvTimecodeScale, std::uint64_t{kTimecodeScale}) ||
        mkvmuxer::WriteID(&m_out, kMkvDuration) != 0 || mkvmuxer::WriteUInt(&m_out, kSizeBytes) != 0) {
        return false;
    }
    m_durationOffset = Offset();
    return mkvmuxer::SerializeInt(&m_out, 0, kSizeBytes) == 0 && WriteEbmlElement(&m_out, kMkvMuxingApp, kMuxingApp) &&
           WriteEbmlElement(&m_out, kMkvWritingApp, kWritingApp);
}

bool WebmWriter::WriteHead() {
    using namespace libwebm;
    if (!AddPictureTrack() || (m_format.sound && !AddSoundTrack())) {
        return false;
    }
    if (!mkvmuxer::WriteEbmlHeader(&m_out, kDocTypeVersion, m_type == DocType::WebM ? "webm" : "matroska") ||
        mkvmuxer::WriteID(&m_out, kMkvSegment) != 0 ||
        mkvmuxer::SerializeInt(&m_out, mkvmuxer::kEbmlUnknownValue, kSizeBytes) != 0) {
        return false;
    }
    m_segmentStart = Offset();
    if (!m_seekHead.Write(&m_out) || !m_seekHead.AddSeekEntry(kMkvInfo, Offset() - m_segmentStart) || !WriteInfo() ||
        !m_seekHead.AddSeekEntry(kMkvTracks, Offset() - m_segmentStart) || !m_tracks.Write(&m_out) || !m_out.Flush()) {
        return false;
    }
    m_end = Offset();
    return true;
}

bool WebmWriter::Add(const SharedPacket& packet) {
    return m_accepting && (Attempt([&] { return Take(*packet); }) || CutShort());
}

std::int64_t WebmWriter::TimecodeOf(const Packet& packet) const noexcept {
    const MediaTime time = packet.time - m_start;
    if (packet.stream == Stream::Picture) {
        return Milliseconds(std::max(time, MediaTime{}));
    }
    // A player subtracts the decoder's delay from the times of sound.
    const std::uint64_t delay = SamplesToNanoseconds(*m_format.sound, m_format.sound->delaySamples);
    return Milliseconds(time + std::chrono::duration_cast<MediaTime>(std::chrono::nanoseconds(delay)));
}

bool WebmWriter::Take(const Packet& packet) {
    const bool isPicture = packet.stream == Stream::Picture;
    if (!isPicture && !m_format.sound) {
        return false;
    }
    const std::int64_t timecode = TimecodeOf(packet);
    if (timecode < 0) {
        return true; // sound that ends before the file begins
    }
    const bool isKeyPicture = isPicture && packet.isKey;
    const bool beginsCluster = m_clusterStart == 0 || isKeyPicture || timecode - m_clusterTimecode >= kLongestCluster;
    if (beginsCluster && !(EndCluster() && BeginCluster(timecode))) {
        return false;
    }
    if (!WriteBlock(packet, timecode) || !m_out.Flush()) {
        return false;
    }
    m_end = Offset();
    m_hasPicture = m_hasPicture || isPicture;
    m_newestTimecode = std::max(m_newestTimecode, timecode);
    if (isKeyPicture) {
        AddCue();
    }
    return true;
}

bool WebmWriter::BeginCluster(std::int64_t timecode) {
    m_clusterPosition = Offset() - m_segmentStart;
    if (mkvmuxer::WriteID(&m_out, libwebm::kMkvCluster) != 0 ||
        mkvmuxer::SerializeInt(&m_out, mkvmuxer::kEbmlUnknownValue, kSizeBytes) != 0) {
        return false;
    }
    m_clusterStart = Offset();
    m_clusterTimecode = timecode;
    return WriteEbmlElement(&m_out, libwebm::kMkvTimecode, static_cast<std::uint64_t>(timecode));
}

// A cue that does not fit into memory is left out: players find the place without it.
void WebmWriter::AddCue() {
    auto cue = std::make_unique<mkvmuxer::CuePoint>();
    cue->set_time(static_cast<std::uint64_t>(m_clusterTimecode));
    cue->set_track(kPictureTrack);
    cue->set_cluster_pos(m_clusterPosition);
    cue->set_block_number(1);
    if (m_cues.AddCue(cue.get())) {
        static_cast<void>(cue.release()); // the list deletes it
    }
}

bool WebmWriter::WriteBlock(const Packet& packet, std::int64_t timecode) {
    constexpr std::int64_t kEveryOne = 0x80; // decodes by itself
    constexpr std::uint64_t kHeadSize = 4;
    const bool isPicture = packet.stream == Stream::Picture;
    const std::uint64_t size = kHeadSize + packet.bytes.size();
    return mkvmuxer::WriteID(&m_out, libwebm::kMkvSimpleBlock) == 0 && mkvmuxer::WriteUInt(&m_out, size) == 0 &&
           mkvmuxer::WriteUInt(&m_out, isPicture ? kPictureTrack : kSoundTrack) == 0 &&
           mkvmuxer::SerializeInt(&m_out, timecode - m_clusterTimecode, 2) == 0 &&
           mkvmuxer::SerializeInt(&m_out, packet.isKey || !isPicture ? kEveryOne : 0, 1) == 0 &&
           m_out.Write(packet.bytes.data(), static_cast<mkvmuxer::uint32>(packet.bytes.size())) == 0;
}

// @p write answers as the library's functions do: 0 is success.
template <class Write>
bool WebmWriter::PatchAt(std::uint64_t offset, Write write) {
    const mkvmuxer::int64 position = m_out.Position();
    m_out.Position(static_cast<mkvmuxer::int64>(offset));
    const bool patched = write() == 0 && m_out.Flush();
    m_out.Position(position);
    return patched;
}

// The size of an element lies before its content.
bool WebmWriter::PatchSize(std::uint64_t contentOffset, std::uint64_t size) {
    return PatchAt(contentOffset - kSizeBytes, [&] { return mkvmuxer::WriteUIntSize(&m_out, size, kSizeBytes); });
}

bool WebmWriter::PatchDuration(std::int64_t milliseconds) {
    if (milliseconds == m_duration) {
        return true;
    }
    m_duration = milliseconds;
    const auto number = std::bit_cast<std::int64_t>(static_cast<double>(milliseconds));
    return PatchAt(m_durationOffset, [&] { return mkvmuxer::SerializeInt(&m_out, number, kSizeBytes); });
}

bool WebmWriter::EndCluster() {
    if (m_clusterStart == 0) {
        return true;
    }
    const bool patched = PatchSize(m_clusterStart, m_end - m_clusterStart);
    m_clusterStart = 0;
    return patched;
}

bool WebmWriter::Flush(MediaTime until) {
    if (!m_accepting) {
        return false;
    }
    if (!m_hasPicture || until <= m_start) {
        return true;
    }
    const std::int64_t length = std::max(Milliseconds(until - m_start), m_newestTimecode);
    return Attempt([&] { return PatchDuration(length); }) || CutShort();
}

bool WebmWriter::WriteIndex() {
    const std::uint64_t offset = Offset() - m_segmentStart;
    if (!m_cues.Write(&m_out) || !m_out.Flush()) {
        m_out.CutAt(m_end);
        return false;
    }
    m_end = Offset();
    return m_seekHead.AddSeekEntry(libwebm::kMkvCues, offset);
}

void WebmWriter::Finish(MediaTime end) {
    if (!m_accepting) {
        return;
    }
    if (m_hasPicture) {
        Attempt([&] { return PatchDuration(Milliseconds(std::max(end - m_start, MediaTime{}))); });
    }
    EndFile();
}

bool WebmWriter::CutShort() {
    m_out.CutAt(m_end);
    Attempt([&] { return PatchDuration(std::max(m_duration, m_newestTimecode)); });
    EndFile();
    return false;
}

// A step that fails leaves its place as it was, which a player accepts; the other steps are still worth doing.
void WebmWriter::EndFile() {
    m_accepting = false;
    // A cluster whose first packet was cut off with it has nothing to patch.
    if (m_clusterStart < m_end) {
        Attempt([&] { return EndCluster(); });
    }
    Attempt([&] { return m_cues.cue_entries_size() == 0 || WriteIndex(); });
    Attempt([&] { return m_seekHead.Finalize(&m_out) && m_out.Flush(); });
    Attempt([&] { return PatchSize(m_segmentStart, m_end - m_segmentStart); });
}

} // namespace

std::unique_ptr<MediaWriter> CreateWebmWriter(OutputFile& file, DocType type, const StreamFormat& format,
                                              MediaTime start) {
    auto writer = std::make_unique<WebmWriter>(file, type, format, start);
    return writer->WriteHead() ? std::move(writer) : nullptr;
}

} // namespace kxvcr
