// Boxes first, then what they say: tables of an ordinary file, or runs of a file of fragments.
#include "mp4reader.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

namespace kxtest {

namespace {

constexpr std::array<std::string_view, 10> kContainers = {"moov", "trak", "edts", "mdia", "minf",
                                                          "stbl", "mvex", "moof", "traf", "dinf"};

std::uint64_t Unsigned(const Mp4Source& source, std::uint64_t offset, std::size_t length) {
    if (offset + length > source.size) {
        throw std::out_of_range("a field lies behind the file");
    }
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < length; ++i) {
        value = value << 8 | std::to_integer<std::uint64_t>(source.at(offset + i));
    }
    return value;
}

std::string Type(const Mp4Source& source, std::uint64_t offset) {
    std::string type;
    for (std::size_t i = 0; i < 4; ++i) {
        type += static_cast<char>(Unsigned(source, offset + i, 1));
    }
    return type;
}

// Reads fields one after the other.
class Fields {
public:
    Fields(const Mp4Source& source, const Mp4Box& box) : m_source(source), m_at(box.content) {}

    std::uint64_t Next(std::size_t length) {
        m_at += length;
        return Unsigned(m_source, m_at - length, length);
    }
    std::uint32_t U32() { return static_cast<std::uint32_t>(Next(4)); }
    void Skip(std::size_t length) { m_at += length; }

    // A full box's version and flags; times are wide in version 1.
    std::uint32_t Version() {
        const std::uint32_t both = U32();
        m_wide = both >> 24 == 1;
        return both & 0xFFFFFF;
    }
    std::uint64_t Time() { return Next(m_wide ? 8 : 4); }
    bool IsWide() const { return m_wide; }

private:
    const Mp4Source& m_source;
    std::uint64_t m_at;
    bool m_wide = false;
};

std::vector<Mp4Box> BoxesBetween(const Mp4Source& source, std::uint64_t begin, std::uint64_t end) {
    std::vector<Mp4Box> boxes;
    while (begin + 8 <= end) {
        Mp4Box box;
        box.start = begin;
        box.content = begin + 8;
        box.type = Type(source, begin + 4);
        std::uint64_t size = Unsigned(source, begin, 4);
        if (size == 1) {
            if (begin + 16 > end) {
                break;
            }
            size = Unsigned(source, begin + 8, 8);
            box.content = begin + 16;
        }
        box.end = begin + size;
        if (box.end > end || box.end < box.content) {
            break;
        }
        if (std::find(kContainers.begin(), kContainers.end(), box.type) != kContainers.end()) {
            box.children = BoxesBetween(source, box.content, box.end);
        }
        begin = box.end;
        boxes.push_back(std::move(box));
    }
    return boxes;
}

std::string TypesOf(const std::vector<Mp4Box>& boxes) {
    std::string types;
    for (const Mp4Box& box : boxes) {
        types += (types.empty() ? "" : " ") + box.type;
    }
    return types;
}

std::vector<Mp4Edit> ReadEdits(const Mp4Source& source, const Mp4Box& track) {
    std::vector<Mp4Edit> edits;
    if (!track.Has("edts")) {
        return edits;
    }
    Fields fields(source, track.Child("edts").Child("elst"));
    fields.Version();
    edits.resize(fields.U32());
    for (Mp4Edit& edit : edits) {
        edit.duration = fields.Time();
        const std::uint64_t time = fields.Time();
        edit.mediaTime = fields.IsWide() ? static_cast<std::int64_t>(time)
                                         : static_cast<std::int32_t>(static_cast<std::uint32_t>(time));
        fields.Skip(4);
    }
    return edits;
}

void ReadDurations(const Mp4Source& source, const Mp4Box& table, Mp4Track& track) {
    Fields fields(source, table.Child("stts"));
    fields.Version();
    std::int64_t time = 0;
    std::size_t sample = 0;
    for (std::uint32_t run = fields.U32(); run > 0; --run) {
        const std::uint32_t count = fields.U32();
        const std::uint32_t duration = fields.U32();
        for (std::uint32_t i = 0; i < count; ++i) {
            track.samples.at(sample++) = {time, duration, false, 0, 0};
            time += duration;
        }
    }
    if (sample != track.samples.size()) {
        throw std::runtime_error("stts and stsz have different numbers of samples");
    }
}

void ReadKeys(const Mp4Source& source, const Mp4Box& table, Mp4Track& track) {
    if (!table.Has("stss")) {
        for (Mp4Sample& sample : track.samples) {
            sample.isKey = true;
        }
        return;
    }
    Fields fields(source, table.Child("stss"));
    fields.Version();
    for (std::uint32_t left = fields.U32(); left > 0; --left) {
        track.samples.at(fields.U32() - 1).isKey = true;
    }
}

std::vector<std::uint64_t> ReadChunkOffsets(const Mp4Source& source, const Mp4Box& table) {
    const bool wide = table.Has("co64");
    Fields fields(source, table.Child(wide ? "co64" : "stco"));
    fields.Version();
    std::vector<std::uint64_t> offsets(fields.U32());
    for (std::uint64_t& offset : offsets) {
        offset = fields.Next(wide ? 8 : 4);
    }
    return offsets;
}

// Where the samples are: chunk by chunk, one behind the other.
void ReadPlaces(const Mp4Source& source, const Mp4Box& table, Mp4Track& track) {
    const std::vector<std::uint64_t> offsets = ReadChunkOffsets(source, table);
    track.chunks = offsets.size();
    Fields sizes(source, table.Child("stsz"));
    sizes.Version();
    sizes.Skip(8);
    Fields runs(source, table.Child("stsc"));
    runs.Version();
    std::uint32_t runsLeft = runs.U32();
    std::uint32_t nextFirst = runsLeft > 0 ? runs.U32() : UINT32_MAX;
    std::uint32_t samplesInChunk = 0;
    std::size_t sample = 0;
    for (std::size_t chunk = 0; chunk < offsets.size(); ++chunk) {
        if (chunk + 1 == nextFirst) {
            samplesInChunk = runs.U32();
            runs.Skip(4);
            nextFirst = --runsLeft > 0 ? runs.U32() : UINT32_MAX;
        }
        std::uint64_t offset = offsets[chunk];
        for (std::uint32_t i = 0; i < samplesInChunk; ++i) {
            Mp4Sample& target = track.samples.at(sample++);
            target.offset = offset;
            target.size = sizes.U32();
            offset += target.size;
        }
    }
    if (sample != track.samples.size()) {
        throw std::runtime_error("the chunks have another number of samples than stsz");
    }
}

Mp4Track ReadTrack(const Mp4Source& source, const Mp4Box& box) {
    Mp4Track track;
    Fields header(source, box.Child("tkhd"));
    header.Version();
    header.Time();
    header.Time();
    header.Skip(8);
    track.duration = header.Time();
    header.Skip(52);
    track.width = header.U32() >> 16;
    track.height = header.U32() >> 16;

    const Mp4Box& media = box.Child("mdia");
    Fields mediaHeader(source, media.Child("mdhd"));
    mediaHeader.Version();
    mediaHeader.Time();
    mediaHeader.Time();
    track.timescale = mediaHeader.U32();
    track.mediaDuration = mediaHeader.Time();
    track.mediaType = Type(source, media.Child("hdlr").content + 8);
    track.edits = ReadEdits(source, box);

    const Mp4Box& table = media.Child("minf").Child("stbl");
    Fields sizes(source, table.Child("stsz"));
    sizes.Version();
    sizes.Skip(4);
    track.samples.resize(sizes.U32());
    ReadDurations(source, table, track);
    ReadKeys(source, table, track);
    ReadPlaces(source, table, track);
    return track;
}

struct Defaults {
    std::uint32_t duration = 0;
    std::uint32_t flags = 0;
};

void ReadRun(const Mp4Source& source, const Mp4Box& fragment, const Mp4Box& part, const Defaults& defaults,
             Mp4Track& track) {
    constexpr std::uint32_t kNotSync = 0x10000;
    Fields time(source, part.Child("tfdt"));
    time.Version();
    auto now = static_cast<std::int64_t>(time.Time());
    Fields run(source, part.Child("trun"));
    const std::uint32_t flags = run.Version();
    const std::uint32_t count = run.U32();
    std::uint64_t offset = fragment.start + run.U32();
    for (std::uint32_t i = 0; i < count; ++i) {
        Mp4Sample sample;
        sample.time = now;
        sample.duration = (flags & 0x100) != 0 ? run.U32() : defaults.duration;
        sample.size = run.U32();
        sample.isKey = (((flags & 0x400) != 0 ? run.U32() : defaults.flags) & kNotSync) == 0;
        sample.offset = offset;
        now += sample.duration;
        offset += sample.size;
        track.samples.push_back(sample);
    }
}

void ReadFragment(const Mp4Source& source, const Mp4Box& fragment, const std::vector<Defaults>& defaults,
                  Mp4File& file) {
    Fields header(source, fragment.Child("mfhd"));
    header.Version();
    file.sequenceNumbers.push_back(header.U32());
    for (const Mp4Box& part : fragment.children) {
        if (part.type == "traf") {
            Fields partHeader(source, part.Child("tfhd"));
            partHeader.Version();
            const std::uint32_t id = partHeader.U32();
            ReadRun(source, fragment, part, defaults.at(id - 1), file.tracks.at(id - 1));
        }
    }
}

std::vector<Defaults> ReadDefaults(const Mp4Source& source, const Mp4Box& movie) {
    std::vector<Defaults> defaults;
    for (const Mp4Box& box : movie.Child("mvex").children) {
        Fields fields(source, box);
        fields.Skip(12);
        defaults.emplace_back();
        defaults.back().duration = fields.U32();
        fields.Skip(4);
        defaults.back().flags = fields.U32();
    }
    return defaults;
}

} // namespace

const Mp4Box& Mp4Box::Child(const std::string& childType, std::size_t index) const {
    for (const Mp4Box& child : children) {
        if (child.type == childType && index-- == 0) {
            return child;
        }
    }
    throw std::runtime_error(type + " has no " + childType);
}

bool Mp4Box::Has(const std::string& childType) const {
    return std::ranges::any_of(children, [&](const Mp4Box& child) { return child.type == childType; });
}

std::string Mp4Box::ChildTypes() const {
    return TypesOf(children);
}

std::vector<Mp4Box> ReadBoxes(const Mp4Source& source) {
    return BoxesBetween(source, 0, source.size);
}

Mp4File ReadMp4(const Mp4Source& source) {
    const std::vector<Mp4Box> boxes = ReadBoxes(source);
    Mp4File file;
    file.topLevel = TypesOf(boxes);
    file.hasTornEnd = boxes.empty() || boxes.back().end != source.size;
    const auto movie = std::ranges::find(boxes, "moov", &Mp4Box::type);
    if (movie == boxes.end()) {
        return file;
    }
    Fields header(source, movie->Child("mvhd"));
    header.Version();
    header.Time();
    header.Time();
    file.timescale = header.U32();
    file.duration = header.Time();
    for (const Mp4Box& child : movie->children) {
        if (child.type == "trak") {
            file.tracks.push_back(ReadTrack(source, child));
        }
    }
    file.isFragmented = movie->Has("mvex");
    if (!file.isFragmented) {
        return file;
    }
    const std::vector<Defaults> defaults = ReadDefaults(source, *movie);
    for (std::size_t i = 0; i + 1 < boxes.size(); ++i) {
        if (boxes[i].type == "moof" && boxes[i + 1].type == "mdat") {
            ReadFragment(source, boxes[i], defaults, file);
        }
    }
    return file;
}

Mp4File ReadMp4(const std::vector<std::byte>& file) {
    return ReadMp4({file.size(), [&file](std::uint64_t offset) { return file.at(static_cast<std::size_t>(offset)); }});
}

std::vector<std::byte> BytesOf(const std::vector<std::byte>& file, const Mp4Sample& sample) {
    const auto begin = file.begin() + static_cast<std::ptrdiff_t>(sample.offset);
    return {begin, begin + static_cast<std::ptrdiff_t>(sample.size)};
}

} // namespace kxtest
