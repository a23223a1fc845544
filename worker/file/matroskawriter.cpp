// Writes a recording as Matroska with the element classes of libwebm's muxer. Its Segment class is not used: it
// would start a cluster with every JPEG picture, keep each cluster in memory and give up at the first failed write.
#include "worker/file/matroskawriter.h"

#include <common/webmids.h>
#include <mkvmuxer/mkvmuxer.h>
#include <mkvmuxer/mkvmuxerutil.h>

#include <optional>
#include <vector>

namespace kxvcr {

namespace {

constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr std::uint64_t kTimecodeScale = 1'000'000; // nanoseconds: time codes are milliseconds
constexpr std::uint64_t kClusterMilliseconds = 1000;
constexpr std::int32_t kTrackNumber = 1;
constexpr std::uint64_t kDocTypeVersion = 4;
constexpr std::int32_t kSizeBytes = 8; // width of a size that is patched later

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

} // namespace

class MatroskaWriter::Impl {
public:
    Impl(OutputFile& file, const VideoFormat& format) : m_out(file), m_format(format) {}

    bool WriteHead();
    bool AddFrame(std::uint64_t slot, std::span<const std::byte> jpeg);
    void Finish(std::uint64_t endSlot);
    std::uint64_t Size() const noexcept { return m_end; }

private:
    std::uint64_t Milliseconds(std::uint64_t slot) const noexcept { return slot * 1000 / m_format.framesPerSecond; }
    std::uint64_t Offset() const { return static_cast<std::uint64_t>(m_out.Position()); }
    bool AddTrack();
    bool BeginCluster(std::uint64_t slot);
    void AddCue();
    bool PatchSize(std::uint64_t sizeOffset, std::uint64_t size);
    bool PatchDuration(std::uint64_t endSlot);
    bool EndCluster(std::uint64_t endSlot);
    bool WriteIndex();

    PendingBytes m_out;
    VideoFormat m_format;
    mkvmuxer::SeekHead m_seekHead;
    mkvmuxer::SegmentInfo m_info;
    mkvmuxer::Tracks m_tracks;
    mkvmuxer::Cues m_cues;
    std::optional<mkvmuxer::Cluster> m_cluster;
    std::uint64_t m_segmentStart = 0; // offset of the segment's first element
    std::uint64_t m_clusterStart = 0; // offset of the cluster's first element
    std::uint64_t m_clusterMilliseconds = 0;
    std::uint64_t m_end = 0;     // bytes up to the last whole frame
    std::uint64_t m_endSlot = 0; // the slot behind the last frame
    bool m_accepting = true;
};

bool MatroskaWriter::Impl::AddTrack() {
    unsigned int seed = 1;
    auto track = std::make_unique<mkvmuxer::VideoTrack>(&seed);
    track->set_type(mkvmuxer::Tracks::kVideo);
    track->set_codec_id("V_MJPEG");
    track->set_width(m_format.width);
    track->set_height(m_format.height);
    track->set_default_duration(kNanosecondsPerSecond / m_format.framesPerSecond);
    if (!m_tracks.AddTrack(track.get(), kTrackNumber)) {
        return false;
    }
    static_cast<void>(track.release()); // the list deletes it
    return true;
}

bool MatroskaWriter::Impl::WriteHead() {
    using namespace libwebm;
    if (!AddTrack() || !m_info.Init()) {
        return false;
    }
    m_info.set_timecode_scale(kTimecodeScale);
    m_info.set_writing_app("KXVCR");
    m_info.set_duration(1.0); // makes room for the duration, which is patched once a second
    if (!mkvmuxer::WriteEbmlHeader(&m_out, kDocTypeVersion, "matroska") ||
        mkvmuxer::WriteID(&m_out, kMkvSegment) != 0 ||
        mkvmuxer::SerializeInt(&m_out, mkvmuxer::kEbmlUnknownValue, kSizeBytes) != 0) {
        return false;
    }
    m_segmentStart = Offset();
    if (!m_seekHead.Write(&m_out) || !m_seekHead.AddSeekEntry(kMkvInfo, Offset() - m_segmentStart) ||
        !m_info.Write(&m_out) || !m_seekHead.AddSeekEntry(kMkvTracks, Offset() - m_segmentStart) ||
        !m_tracks.Write(&m_out) || !m_out.Flush()) {
        return false;
    }
    m_end = Offset();
    return true;
}

// A player takes an unknown size as "up to the next cluster", so a cluster is sound from its first byte.
bool MatroskaWriter::Impl::BeginCluster(std::uint64_t slot) {
    m_clusterMilliseconds = Milliseconds(slot);
    m_cluster.emplace(m_clusterMilliseconds, static_cast<std::int64_t>(Offset() - m_segmentStart), kTimecodeScale);
    m_clusterStart = Offset() + static_cast<std::uint64_t>(mkvmuxer::GetUIntSize(libwebm::kMkvCluster)) + kSizeBytes;
    return m_cluster->Init(&m_out);
}

void MatroskaWriter::Impl::AddCue() {
    auto cue = std::make_unique<mkvmuxer::CuePoint>();
    cue->set_time(m_clusterMilliseconds);
    cue->set_track(kTrackNumber);
    cue->set_cluster_pos(static_cast<std::uint64_t>(m_cluster->position_for_cues()));
    cue->set_block_number(1);
    if (m_cues.AddCue(cue.get())) {
        static_cast<void>(cue.release()); // the list deletes it
    }
}

bool MatroskaWriter::Impl::PatchSize(std::uint64_t sizeOffset, std::uint64_t size) {
    const mkvmuxer::int64 position = m_out.Position();
    m_out.Position(static_cast<mkvmuxer::int64>(sizeOffset));
    const bool patched = mkvmuxer::WriteUIntSize(&m_out, size, kSizeBytes) == 0 && m_out.Flush();
    m_out.Position(position);
    return patched;
}

bool MatroskaWriter::Impl::PatchDuration(std::uint64_t endSlot) {
    m_info.set_duration(static_cast<double>(Milliseconds(endSlot)));
    return m_info.Finalize(&m_out) && m_out.Flush();
}

// The duration is kept up with the clusters, so that a file without its end shows its length.
bool MatroskaWriter::Impl::EndCluster(std::uint64_t endSlot) {
    const bool patched = PatchSize(m_clusterStart - kSizeBytes, m_end - m_clusterStart) && PatchDuration(endSlot);
    m_cluster.reset();
    return patched;
}

bool MatroskaWriter::Impl::AddFrame(std::uint64_t slot, std::span<const std::byte> jpeg) {
    if (!m_accepting) {
        return false;
    }
    mkvmuxer::Frame frame;
    if (!frame.Init(reinterpret_cast<const std::uint8_t*>(jpeg.data()), jpeg.size())) {
        return false;
    }
    frame.set_track_number(kTrackNumber);
    frame.set_timestamp(Milliseconds(slot) * kTimecodeScale);
    frame.set_is_key(true);

    const bool fits = m_cluster && Milliseconds(slot) - m_clusterMilliseconds < kClusterMilliseconds;
    const bool ready = fits || ((!m_cluster || EndCluster(slot)) && BeginCluster(slot));
    if (!ready || !m_cluster->AddFrame(&frame) || !m_out.Flush()) {
        m_out.CutAt(m_end);
        Finish(m_endSlot);
        return false;
    }
    if (!fits) {
        AddCue();
    }
    m_end = Offset();
    m_endSlot = slot + 1;
    return true;
}

bool MatroskaWriter::Impl::WriteIndex() {
    const std::uint64_t offset = Offset() - m_segmentStart;
    if (!m_cues.Write(&m_out) || !m_out.Flush()) {
        m_out.CutAt(m_end);
        return false;
    }
    m_end = Offset();
    return m_seekHead.AddSeekEntry(libwebm::kMkvCues, offset);
}

// A step that fails leaves its place as it was, which a player accepts; the other steps are still worth doing.
void MatroskaWriter::Impl::Finish(std::uint64_t endSlot) {
    if (!m_accepting) {
        return;
    }
    m_accepting = false;
    // A cluster whose first frame was cut off with it has nothing to patch.
    if (m_cluster && m_end > m_clusterStart) {
        EndCluster(endSlot);
    }
    if (m_endSlot != 0) {
        WriteIndex();
    }
    m_seekHead.Finalize(&m_out);
    m_out.Flush();
    PatchDuration(endSlot);
    PatchSize(m_segmentStart - kSizeBytes, m_end - m_segmentStart);
}

std::unique_ptr<MatroskaWriter> MatroskaWriter::Create(OutputFile& file, const VideoFormat& format) {
    auto impl = std::make_unique<Impl>(file, format);
    if (!impl->WriteHead()) {
        return nullptr;
    }
    return std::unique_ptr<MatroskaWriter>(new MatroskaWriter(std::move(impl)));
}

MatroskaWriter::MatroskaWriter(std::unique_ptr<Impl> impl) noexcept : m_impl(std::move(impl)) {}

MatroskaWriter::~MatroskaWriter() = default;

bool MatroskaWriter::AddFrame(std::uint64_t slot, std::span<const std::byte> jpeg) {
    return m_impl->AddFrame(slot, jpeg);
}

void MatroskaWriter::Finish(std::uint64_t endSlot) {
    m_impl->Finish(endSlot);
}

std::uint64_t MatroskaWriter::Size() const noexcept {
    return m_impl->Size();
}

} // namespace kxvcr
