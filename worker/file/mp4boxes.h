/**
 * @file
 * The boxes of an MP4 file (ISO/IEC 14496-12, -14 and -15) as data. Each box is a struct with the fields that vary and
 * writes its content; BoxWriter puts type and size in front, so that no size is computed anywhere else.
 *
 * Times are in units of the timescale that belongs to the box. Boxes that hold times take their 64-bit form when, and
 * only when, a time does not fit into 32 bits.
 */
#pragma once

#include "worker/packet.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <variant>
#include <vector>

namespace kxvcr::mp4 {

using Bytes = std::vector<std::byte>;

/** Appends big-endian fields and whole boxes to a block of memory. */
class BoxWriter {
public:
    explicit BoxWriter(Bytes& bytes) noexcept : m_bytes(bytes) {}

    void U8(std::uint8_t value) { Unsigned(value, 1); }
    void U16(std::uint16_t value) { Unsigned(value, 2); }
    void U32(std::uint32_t value) { Unsigned(value, 4); }
    void U64(std::uint64_t value) { Unsigned(value, 8); }

    /** A time: in 64 bits when @p wide, else in 32. */
    void Time(std::uint64_t value, bool wide) { Unsigned(value, wide ? 8 : 4); }
    void Version(std::uint8_t version, std::uint32_t flags);
    void Text(std::string_view text);
    void Raw(std::span<const std::byte> bytes);
    void Zeros(std::size_t count);

    /** Appends @p box with its head. */
    template <class Box>
    void Put(const Box& box) {
        const std::size_t start = m_bytes.size();
        U32(0);
        Text(Box::kType);
        box.Write(*this);
        SetSize(start);
    }

    /** Appends the boxes that there are. */
    template <class Box>
    void Put(const std::optional<Box>& box) {
        if (box) {
            Put(*box);
        }
    }
    template <class Box>
    void Put(const std::vector<Box>& boxes) {
        for (const Box& box : boxes) {
            Put(box);
        }
    }
    template <class... Boxes>
    void Put(const std::variant<Boxes...>& box) {
        std::visit([this](const auto& chosen) { this->Put(chosen); }, box);
    }

private:
    void Unsigned(std::uint64_t value, std::size_t length);
    void SetSize(std::size_t start);

    Bytes& m_bytes;
};

/** A box by itself. */
template <class Box>
Bytes Encoded(const Box& box) {
    Bytes bytes;
    BoxWriter(bytes).Put(box);
    return bytes;
}

// The file's outermost boxes besides the movie.

inline constexpr std::size_t kBoxHeadSize = 8;
inline constexpr std::size_t kWideBoxHeadSize = 16;

struct FileType {
    static constexpr std::string_view kType = "ftyp";
    void Write(BoxWriter& out) const;
};

/** Bytes that a reader steps over. */
struct FreeSpace {
    static constexpr std::string_view kType = "free";
    std::span<const std::byte> content;
    void Write(BoxWriter& out) const { out.Raw(content); }
};

/** The head of a media data box whose data follow; @p size is the whole box's. */
Bytes MediaDataHead(std::uint32_t size);
/** The same with a 64-bit size, in kWideBoxHeadSize bytes. */
Bytes WideMediaDataHead(std::uint64_t size);

// A track, from the inside out.

struct AvcConfiguration {
    static constexpr std::string_view kType = "avcC";
    Bytes record;
    void Write(BoxWriter& out) const { out.Raw(record); }
};

struct ColourInformation {
    static constexpr std::string_view kType = "colr";
    ColorMatrix matrix;
    void Write(BoxWriter& out) const;
};

struct AvcSampleEntry {
    static constexpr std::string_view kType = "avc1";
    std::uint16_t width;
    std::uint16_t height;
    AvcConfiguration configuration;
    ColourInformation colour;
    void Write(BoxWriter& out) const;
};

struct ElementaryStreamDescriptor {
    static constexpr std::string_view kType = "esds";
    Bytes audioSpecificConfig;
    void Write(BoxWriter& out) const;
};

struct AacSampleEntry {
    static constexpr std::string_view kType = "mp4a";
    std::uint16_t channels;
    std::uint32_t samplesPerSecond;
    ElementaryStreamDescriptor descriptor;
    void Write(BoxWriter& out) const;
};

using SampleEntry = std::variant<AvcSampleEntry, AacSampleEntry>;

struct SampleDescriptions {
    static constexpr std::string_view kType = "stsd";
    SampleEntry entry;
    void Write(BoxWriter& out) const;
};

/** How long samples last: so many in a row have the same duration. */
struct TimeToSample {
    static constexpr std::string_view kType = "stts";
    struct Run {
        std::uint32_t count;
        std::uint32_t duration;
    };
    std::vector<Run> runs;
    void Write(BoxWriter& out) const;
};

/** Which samples are key pictures, counted from 1. */
struct SyncSamples {
    static constexpr std::string_view kType = "stss";
    std::vector<std::uint32_t> numbers;
    void Write(BoxWriter& out) const;
};

/** How many samples a chunk has, from chunk @p firstChunk (counted from 1) on. */
struct SampleToChunk {
    static constexpr std::string_view kType = "stsc";
    struct Run {
        std::uint32_t firstChunk;
        std::uint32_t samplesPerChunk;
    };
    std::vector<Run> runs;
    void Write(BoxWriter& out) const;
};

struct SampleSizes {
    static constexpr std::string_view kType = "stsz";
    std::vector<std::uint32_t> sizes;
    void Write(BoxWriter& out) const;
};

/** Where the chunks begin in a file of fewer than 4 GiB. */
struct ChunkOffsets {
    static constexpr std::string_view kType = "stco";
    std::span<const std::uint64_t> offsets;
    void Write(BoxWriter& out) const;
};

/** Where the chunks begin in any file. */
struct WideChunkOffsets {
    static constexpr std::string_view kType = "co64";
    std::span<const std::uint64_t> offsets;
    void Write(BoxWriter& out) const;
};

/** Empty tables in a file of fragments. */
struct SampleTable {
    static constexpr std::string_view kType = "stbl";
    SampleDescriptions descriptions;
    TimeToSample times{};
    std::optional<SyncSamples> keys{}; ///< none: every sample is one
    SampleToChunk chunks{};
    SampleSizes sizes{};
    std::vector<std::uint64_t> chunkOffsets{};
    void Write(BoxWriter& out) const;
};

/** The media's data are in this file. */
struct DataInformation {
    static constexpr std::string_view kType = "dinf";
    void Write(BoxWriter& out) const;
};

struct VideoMediaHeader {
    static constexpr std::string_view kType = "vmhd";
    void Write(BoxWriter& out) const;
};

struct SoundMediaHeader {
    static constexpr std::string_view kType = "smhd";
    void Write(BoxWriter& out) const;
};

struct MediaInformation {
    static constexpr std::string_view kType = "minf";
    std::variant<VideoMediaHeader, SoundMediaHeader> header;
    SampleTable samples;
    void Write(BoxWriter& out) const;
};

struct Handler {
    static constexpr std::string_view kType = "hdlr";
    std::string_view mediaType; ///< "vide" or "soun"
    std::string_view name;
    void Write(BoxWriter& out) const;
};

struct MediaHeader {
    static constexpr std::string_view kType = "mdhd";
    std::uint32_t timescale;
    std::uint64_t duration = 0; ///< in the track's timescale
    void Write(BoxWriter& out) const;
};

struct Media {
    static constexpr std::string_view kType = "mdia";
    MediaHeader header;
    Handler handler;
    MediaInformation information;
    void Write(BoxWriter& out) const;
};

struct EditList {
    static constexpr std::string_view kType = "elst";
    static constexpr std::int64_t kNothing = -1; ///< as mediaTime: nothing is shown
    struct Edit {
        std::uint64_t duration; ///< in the movie's timescale; 0 in a file of fragments: all that comes
        std::int64_t mediaTime; ///< where the media is shown from, in the track's timescale
    };
    std::vector<Edit> edits;
    void Write(BoxWriter& out) const;
};

/** Which part of the track's media is shown when. */
struct Edits {
    static constexpr std::string_view kType = "edts";
    EditList list;
    void Write(BoxWriter& out) const { out.Put(list); }
};

struct TrackHeader {
    static constexpr std::string_view kType = "tkhd";
    std::uint32_t id;
    std::uint16_t width = 0; ///< in pixels; 0 for sound
    std::uint16_t height = 0;
    bool isSound = false;
    std::uint64_t duration = 0; ///< in the movie's timescale
    void Write(BoxWriter& out) const;
};

struct Track {
    static constexpr std::string_view kType = "trak";
    TrackHeader header;
    std::optional<Edits> edits{};
    Media media;
    void Write(BoxWriter& out) const;
};

// The movie.

struct MovieHeader {
    static constexpr std::string_view kType = "mvhd";
    std::uint32_t timescale;
    std::uint32_t nextTrackId;
    std::uint64_t duration = 0;
    void Write(BoxWriter& out) const;
};

/** What samples in fragments are like when the fragment does not say. */
struct TrackDefaults {
    static constexpr std::string_view kType = "trex";
    std::uint32_t trackId;
    std::uint32_t duration;
    std::uint32_t flags;
    void Write(BoxWriter& out) const;
};

/** Says that fragments follow. */
struct MovieExtends {
    static constexpr std::string_view kType = "mvex";
    std::vector<TrackDefaults> defaults;
    void Write(BoxWriter& out) const { out.Put(defaults); }
};

struct Movie {
    static constexpr std::string_view kType = "moov";
    MovieHeader header;
    std::vector<Track> tracks;
    std::optional<MovieExtends> extends{};
    void Write(BoxWriter& out) const;
};

// A fragment.

inline constexpr std::uint32_t kKeySampleFlags = 0x02000000;   ///< depends on no other sample
inline constexpr std::uint32_t kOtherSampleFlags = 0x01010000; ///< depends on others, is no sync sample

struct TrackRun {
    static constexpr std::string_view kType = "trun";
    struct Sample {
        std::uint32_t duration;
        std::uint32_t size;
        std::uint32_t flags;
    };
    /** From the end of the box back to the duration of its last sample, when the run has durations and flags. */
    static constexpr std::size_t kLastDurationFromEnd = 12;

    std::vector<Sample> samples;
    bool hasDurations = true;     ///< else every sample has the track's default
    bool hasFlags = true;         ///< else every sample has the track's default
    std::uint32_t dataOffset = 0; ///< from the fragment's first byte to the first sample's
    void Write(BoxWriter& out) const;
};

struct TrackFragmentHeader {
    static constexpr std::string_view kType = "tfhd";
    std::uint32_t trackId;
    void Write(BoxWriter& out) const;
};

struct TrackFragmentTime {
    static constexpr std::string_view kType = "tfdt";
    std::uint64_t time; ///< of the run's first sample, in the track's timescale
    void Write(BoxWriter& out) const;
};

struct TrackFragment {
    static constexpr std::string_view kType = "traf";
    TrackFragmentHeader header;
    TrackFragmentTime time;
    TrackRun run;
    void Write(BoxWriter& out) const;
};

struct FragmentHeader {
    static constexpr std::string_view kType = "mfhd";
    std::uint32_t sequenceNumber;
    void Write(BoxWriter& out) const;
};

struct MovieFragment {
    static constexpr std::string_view kType = "moof";
    FragmentHeader header;
    std::vector<TrackFragment> tracks;
    void Write(BoxWriter& out) const;
};

} // namespace kxvcr::mp4
