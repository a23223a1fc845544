// What stands in each box, in the order of the header.
#include "worker/file/mp4boxes.h"

#include <algorithm>
#include <limits>

namespace kxvcr::mp4 {

namespace {

// The file says neither when it was made nor in which language: the file system knows the one, nobody the other.
constexpr std::uint64_t kUnknownTime = 0;
constexpr std::uint16_t kLanguageUndetermined = 0x55C4; // "und" in five bits a letter

constexpr std::uint32_t kFixedPointOne = 0x00010000;
constexpr std::uint16_t kFullVolume = 0x0100;

constexpr bool IsWide(std::uint64_t time) noexcept {
    return time > std::numeric_limits<std::uint32_t>::max();
}

std::uint32_t Count(std::size_t entries) noexcept {
    return static_cast<std::uint32_t>(entries);
}

void WriteUnityMatrix(BoxWriter& out) {
    constexpr std::array<std::uint32_t, 9> kUnity = {kFixedPointOne, 0, 0, 0, kFixedPointOne, 0, 0, 0, 0x40000000};
    for (const std::uint32_t value : kUnity) {
        out.U32(value);
    }
}

} // namespace

void BoxWriter::Unsigned(std::uint64_t value, std::size_t length) {
    for (std::size_t i = length; i > 0; --i) {
        m_bytes.push_back(static_cast<std::byte>(value >> (8 * (i - 1))));
    }
}

void BoxWriter::Version(std::uint8_t version, std::uint32_t flags) {
    U8(version);
    Unsigned(flags, 3);
}

void BoxWriter::Text(std::string_view text) {
    Raw(std::as_bytes(std::span(text)));
}

void BoxWriter::Raw(std::span<const std::byte> bytes) {
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
}

void BoxWriter::Zeros(std::size_t count) {
    m_bytes.resize(m_bytes.size() + count);
}

void BoxWriter::SetSize(std::size_t start) {
    const std::size_t size = m_bytes.size() - start;
    for (std::size_t i = 0; i < 4; ++i) {
        m_bytes[start + i] = static_cast<std::byte>(size >> (8 * (3 - i)));
    }
}

void FileType::Write(BoxWriter& out) const {
    out.Text("isom");
    out.U32(0x200);
    // iso6: the places of samples in a fragment count from the fragment, and each says its time.
    out.Text("isomiso6avc1mp41");
}

Bytes MediaDataHead(std::uint32_t size) {
    Bytes bytes;
    BoxWriter out(bytes);
    out.U32(size);
    out.Text("mdat");
    return bytes;
}

Bytes WideMediaDataHead(std::uint64_t size) {
    Bytes bytes;
    BoxWriter out(bytes);
    out.U32(1);
    out.Text("mdat");
    out.U64(size);
    return bytes;
}

void ColourInformation::Write(BoxWriter& out) const {
    const ColorCodes codes = CodesOf(matrix);
    out.Text("nclx");
    out.U16(codes.primaries);
    out.U16(codes.transfer);
    out.U16(codes.matrix);
    out.U8(0); // limited range
}

void AvcSampleEntry::Write(BoxWriter& out) const {
    constexpr std::uint32_t kDotsPerInch72 = 72 * kFixedPointOne;
    constexpr std::size_t kCompressorNameSize = 32;
    out.Zeros(6);
    out.U16(1); // the data are in this file
    out.Zeros(16);
    out.U16(width);
    out.U16(height);
    out.U32(kDotsPerInch72);
    out.U32(kDotsPerInch72);
    out.U32(0);
    out.U16(1); // picture a sample
    out.Zeros(kCompressorNameSize);
    out.U16(24); // bits a pixel
    out.U16(0xFFFF);
    out.Put(configuration);
    out.Put(colour);
}

namespace {

enum DescriptorTag : std::uint8_t { kStreamTag = 3, kDecoderConfigTag = 4, kDecoderInfoTag = 5, kSyncLayerTag = 6 };
constexpr std::size_t kDescriptorHeadSize = 5;

// A descriptor's length stands in seven bits a byte; four bytes hold every length.
void WriteDescriptorHead(BoxWriter& out, DescriptorTag tag, std::size_t length) {
    out.U8(tag);
    for (const unsigned shift : {21u, 14u, 7u}) {
        out.U8(static_cast<std::uint8_t>(0x80 | ((length >> shift) & 0x7F)));
    }
    out.U8(static_cast<std::uint8_t>(length & 0x7F));
}

} // namespace

void ElementaryStreamDescriptor::Write(BoxWriter& out) const {
    constexpr std::uint8_t kMpeg4Audio = 0x40;
    constexpr std::uint8_t kAudioStream = 0x15;
    constexpr std::size_t kConfigFieldsSize = 13;
    constexpr std::size_t kStreamFieldsSize = 3;
    const std::size_t infoSize = kDescriptorHeadSize + audioSpecificConfig.size();
    const std::size_t configSize = kDescriptorHeadSize + kConfigFieldsSize + infoSize;
    const std::size_t syncLayerSize = kDescriptorHeadSize + 1;

    out.Version(0, 0);
    WriteDescriptorHead(out, kStreamTag, kStreamFieldsSize + configSize + syncLayerSize);
    out.U16(0); // the stream's id is the track's
    out.U8(0);
    WriteDescriptorHead(out, kDecoderConfigTag, kConfigFieldsSize + infoSize);
    out.U8(kMpeg4Audio);
    out.U8(kAudioStream);
    out.Zeros(11); // sizes and rates: not known
    WriteDescriptorHead(out, kDecoderInfoTag, audioSpecificConfig.size());
    out.Raw(audioSpecificConfig);
    WriteDescriptorHead(out, kSyncLayerTag, 1);
    out.U8(2); // as MP4 files have it
}

void AacSampleEntry::Write(BoxWriter& out) const {
    out.Zeros(6);
    out.U16(1); // the data are in this file
    out.Zeros(8);
    out.U16(channels);
    out.U16(16); // bits a sample
    out.Zeros(4);
    out.U32(samplesPerSecond << 16);
    out.Put(descriptor);
}

void SampleDescriptions::Write(BoxWriter& out) const {
    out.Version(0, 0);
    out.U32(1);
    out.Put(entry);
}

void TimeToSample::Write(BoxWriter& out) const {
    out.Version(0, 0);
    out.U32(Count(runs.size()));
    for (const Run& run : runs) {
        out.U32(run.count);
        out.U32(run.duration);
    }
}

void SyncSamples::Write(BoxWriter& out) const {
    out.Version(0, 0);
    out.U32(Count(numbers.size()));
    for (const std::uint32_t number : numbers) {
        out.U32(number);
    }
}

void SampleToChunk::Write(BoxWriter& out) const {
    out.Version(0, 0);
    out.U32(Count(runs.size()));
    for (const Run& run : runs) {
        out.U32(run.firstChunk);
        out.U32(run.samplesPerChunk);
        out.U32(1); // the one sample description
    }
}

void SampleSizes::Write(BoxWriter& out) const {
    out.Version(0, 0);
    out.U32(0); // sizes differ
    out.U32(Count(sizes.size()));
    for (const std::uint32_t size : sizes) {
        out.U32(size);
    }
}

void ChunkOffsets::Write(BoxWriter& out) const {
    out.Version(0, 0);
    out.U32(Count(offsets.size()));
    for (const std::uint64_t offset : offsets) {
        out.U32(static_cast<std::uint32_t>(offset));
    }
}

void WideChunkOffsets::Write(BoxWriter& out) const {
    out.Version(0, 0);
    out.U32(Count(offsets.size()));
    for (const std::uint64_t offset : offsets) {
        out.U64(offset);
    }
}

void SampleTable::Write(BoxWriter& out) const {
    out.Put(descriptions);
    out.Put(times);
    out.Put(keys);
    out.Put(chunks);
    out.Put(sizes);
    if (!chunkOffsets.empty() && IsWide(chunkOffsets.back())) {
        out.Put(WideChunkOffsets{chunkOffsets});
    } else {
        out.Put(ChunkOffsets{chunkOffsets});
    }
}

namespace {

struct DataLocation {
    static constexpr std::string_view kType = "url ";
    void Write(BoxWriter& out) const {
        constexpr std::uint32_t kInThisFile = 1;
        out.Version(0, kInThisFile);
    }
};

struct DataReferences {
    static constexpr std::string_view kType = "dref";
    void Write(BoxWriter& out) const {
        out.Version(0, 0);
        out.U32(1);
        out.Put(DataLocation{});
    }
};

} // namespace

void DataInformation::Write(BoxWriter& out) const {
    out.Put(DataReferences{});
}

void VideoMediaHeader::Write(BoxWriter& out) const {
    out.Version(0, 1);
    out.Zeros(8); // copied as it is, no colour
}

void SoundMediaHeader::Write(BoxWriter& out) const {
    out.Version(0, 0);
    out.Zeros(4); // in the middle between left and right
}

void MediaInformation::Write(BoxWriter& out) const {
    out.Put(header);
    out.Put(DataInformation{});
    out.Put(samples);
}

void Handler::Write(BoxWriter& out) const {
    out.Version(0, 0);
    out.U32(0);
    out.Text(mediaType);
    out.Zeros(12);
    out.Text(name);
    out.U8(0);
}

void MediaHeader::Write(BoxWriter& out) const {
    const bool wide = IsWide(duration);
    out.Version(wide ? 1 : 0, 0);
    out.Time(kUnknownTime, wide);
    out.Time(kUnknownTime, wide);
    out.U32(timescale);
    out.Time(duration, wide);
    out.U16(kLanguageUndetermined);
    out.U16(0);
}

void Media::Write(BoxWriter& out) const {
    out.Put(header);
    out.Put(handler);
    out.Put(information);
}

void EditList::Write(BoxWriter& out) const {
    constexpr std::int64_t kLargestNarrow = std::numeric_limits<std::int32_t>::max();
    const bool wide = std::ranges::any_of(
        edits, [](const Edit& edit) { return IsWide(edit.duration) || edit.mediaTime > kLargestNarrow; });
    out.Version(wide ? 1 : 0, 0);
    out.U32(Count(edits.size()));
    for (const Edit& edit : edits) {
        out.Time(edit.duration, wide);
        out.Time(static_cast<std::uint64_t>(edit.mediaTime), wide);
        out.U32(kFixedPointOne); // at the ordinary rate
    }
}

void TrackHeader::Write(BoxWriter& out) const {
    constexpr std::uint32_t kEnabledAndInMovie = 3;
    const bool wide = IsWide(duration);
    out.Version(wide ? 1 : 0, kEnabledAndInMovie);
    out.Time(kUnknownTime, wide);
    out.Time(kUnknownTime, wide);
    out.U32(id);
    out.U32(0);
    out.Time(duration, wide);
    out.Zeros(8);
    out.U16(0); // layer
    out.U16(0); // alternatives
    out.U16(isSound ? kFullVolume : std::uint16_t{0});
    out.U16(0);
    WriteUnityMatrix(out);
    out.U32(width * kFixedPointOne);
    out.U32(height * kFixedPointOne);
}

void Track::Write(BoxWriter& out) const {
    out.Put(header);
    out.Put(edits);
    out.Put(media);
}

void MovieHeader::Write(BoxWriter& out) const {
    const bool wide = IsWide(duration);
    out.Version(wide ? 1 : 0, 0);
    out.Time(kUnknownTime, wide);
    out.Time(kUnknownTime, wide);
    out.U32(timescale);
    out.Time(duration, wide);
    out.U32(kFixedPointOne); // at the ordinary rate
    out.U16(kFullVolume);
    out.Zeros(10);
    WriteUnityMatrix(out);
    out.Zeros(24);
    out.U32(nextTrackId);
}

void TrackDefaults::Write(BoxWriter& out) const {
    out.Version(0, 0);
    out.U32(trackId);
    out.U32(1); // the one sample description
    out.U32(duration);
    out.U32(0); // size
    out.U32(flags);
}

void Movie::Write(BoxWriter& out) const {
    out.Put(header);
    out.Put(tracks);
    out.Put(extends);
}

void TrackRun::Write(BoxWriter& out) const {
    constexpr std::uint32_t kDataOffsetPresent = 0x001;
    constexpr std::uint32_t kDurationPresent = 0x100;
    constexpr std::uint32_t kSizePresent = 0x200;
    constexpr std::uint32_t kFlagsPresent = 0x400;
    out.Version(0, kDataOffsetPresent | kSizePresent | (hasDurations ? kDurationPresent : 0) |
                       (hasFlags ? kFlagsPresent : 0));
    out.U32(Count(samples.size()));
    out.U32(dataOffset);
    for (const Sample& sample : samples) {
        if (hasDurations) {
            out.U32(sample.duration);
        }
        out.U32(sample.size);
        if (hasFlags) {
            out.U32(sample.flags);
        }
    }
}

void TrackFragmentHeader::Write(BoxWriter& out) const {
    constexpr std::uint32_t kOffsetsCountFromFragment = 0x020000;
    out.Version(0, kOffsetsCountFromFragment);
    out.U32(trackId);
}

// Always in 64 bits: a reader of fragments has to know both forms, and a fragment's size does not depend on its time.
void TrackFragmentTime::Write(BoxWriter& out) const {
    out.Version(1, 0);
    out.U64(time);
}

void TrackFragment::Write(BoxWriter& out) const {
    out.Put(header);
    out.Put(time);
    out.Put(run);
}

void FragmentHeader::Write(BoxWriter& out) const {
    out.Version(0, 0);
    out.U32(sequenceNumber);
}

void MovieFragment::Write(BoxWriter& out) const {
    out.Put(header);
    out.Put(tracks);
}

} // namespace kxvcr::mp4
