// A flat walk over the elements: containers are entered, everything else is looked at and stepped over, so that a
// missing end or an unknown size does not matter.
#include "matroskareader.h"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>

namespace kxtest {

namespace {

enum Id : std::uint64_t {
    kEbml = 0x1A45DFA3,
    kDocType = 0x4282,
    kSegment = 0x18538067,
    kInfo = 0x1549A966,
    kDuration = 0x4489,
    kTracks = 0x1654AE6B,
    kTrackEntry = 0xAE,
    kDefaultDuration = 0x23E383,
    kCodec = 0x86,
    kCodecPrivate = 0x63A2,
    kCodecDelay = 0x56AA,
    kSeekPreRoll = 0x56BB,
    kAudio = 0xE1,
    kChannels = 0x9F,
    kColour = 0x55B0,
    kMatrixCoefficients = 0x55B1,
    kRange = 0x55B9,
    kVideo = 0xE0,
    kWidth = 0xB0,
    kHeight = 0xBA,
    kCluster = 0x1F43B675,
    kTimecode = 0xE7,
    kSimpleBlock = 0xA3,
    kCues = 0x1C53BB6B,
    kCuePoint = 0xBB,
    kCueTrackPositions = 0xB7,
    kCueTime = 0xB3,
    kCueClusterPosition = 0xF1,
};
constexpr std::array<std::uint64_t, 12> kContainers = {kEbml,       kSegment, kInfo,     kTracks,
                                                       kTrackEntry, kVideo,   kAudio,    kColour,
                                                       kCluster,    kCues,    kCuePoint, kCueTrackPositions};
constexpr std::uint64_t kUnknownSize = (std::uint64_t{1} << 56) - 1;
constexpr std::size_t kBlockHead = 4; // track number, two bytes of time, flags

class Walk {
public:
    explicit Walk(const std::vector<std::byte>& bytes) : m_bytes(bytes) {}

    MatroskaFile Run() {
        while (m_position < m_bytes.size()) {
            const std::size_t start = m_position;
            const std::optional<std::uint64_t> id = Number(false);
            const std::optional<std::uint64_t> size = Number(true);
            if (!id || !size || !Element(*id, *size, start)) {
                m_file.hasTornEnd = true;
                break;
            }
        }
        CloseCluster(m_bytes.size());
        return std::move(m_file);
    }

private:
    std::uint64_t Unsigned(std::size_t at, std::size_t length) const {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < length; ++i) {
            value = value << 8 | std::to_integer<std::uint64_t>(m_bytes[at + i]);
        }
        return value;
    }

    // The format's variable-length number; a size loses its length marker, an id keeps it.
    std::optional<std::uint64_t> Number(bool dropMarker) {
        if (m_position >= m_bytes.size()) {
            return std::nullopt;
        }
        const auto first = std::to_integer<std::uint8_t>(m_bytes[m_position]);
        const auto length = static_cast<std::size_t>(std::countl_zero(first)) + 1;
        if (length > 8 || m_position + length > m_bytes.size()) {
            return std::nullopt;
        }
        std::uint64_t value = Unsigned(m_position, length);
        if (dropMarker) {
            value &= ~(std::uint64_t{1} << (7 * length));
        }
        m_position += length;
        return value;
    }

    std::string Text(std::size_t size) const {
        std::string text;
        for (std::size_t i = 0; i < size; ++i) {
            text += static_cast<char>(m_bytes[m_position + i]);
        }
        return text;
    }

    void CloseCluster(std::size_t end) {
        if (m_clusterEnd && *m_clusterEnd != end) {
            ++m_file.wrongClusterSizes;
        }
        m_clusterEnd.reset();
    }

    void Enter(std::uint64_t id, std::uint64_t size, std::size_t start) {
        if (id == kSegment) {
            m_segmentStart = m_position;
            m_file.segmentSizeKnown = size != kUnknownSize;
            m_file.segmentEndsWithFile = m_position + size == m_bytes.size();
        }
        if (id == kCluster || id == kCues) {
            CloseCluster(start);
        }
        if (id != kCluster) {
            return;
        }
        m_file.clusterPositions.push_back(start - m_segmentStart);
        if (size == kUnknownSize) {
            ++m_file.openClusters;
        } else {
            m_clusterEnd = m_position + size;
        }
    }

    void Take(std::uint64_t id, std::size_t size) {
        switch (id) {
        case kDocType:
            m_file.docType = Text(size);
            break;
        case kCodec:
            (m_file.codec.empty() ? m_file.codec : m_file.soundCodec) = Text(size);
            break;
        case kCodecPrivate: {
            const auto* first = m_bytes.data() + m_position;
            m_file.codecPrivates.emplace_back(first, first + size);
            break;
        }
        case kCodecDelay:
            m_file.codecDelayNs = Unsigned(m_position, size);
            break;
        case kSeekPreRoll:
            m_file.seekPreRollNs = Unsigned(m_position, size);
            break;
        case kChannels:
            m_file.channels = Unsigned(m_position, size);
            break;
        case kMatrixCoefficients:
            m_file.matrixCoefficients = Unsigned(m_position, size);
            break;
        case kRange:
            m_file.range = Unsigned(m_position, size);
            break;
        case kCueTime:
            m_file.cueTimes.push_back(Unsigned(m_position, size));
            break;
        case kWidth:
            m_file.width = Unsigned(m_position, size);
            break;
        case kHeight:
            m_file.height = Unsigned(m_position, size);
            break;
        case kDefaultDuration:
            m_file.defaultDurationNs = Unsigned(m_position, size);
            break;
        case kTimecode:
            m_clusterMilliseconds = static_cast<std::int64_t>(Unsigned(m_position, size));
            break;
        case kCueClusterPosition:
            m_file.cuePositions.push_back(Unsigned(m_position, size));
            break;
        case kDuration:
            m_file.durationMs = size == 4 ? std::bit_cast<float>(static_cast<std::uint32_t>(Unsigned(m_position, 4)))
                                          : std::bit_cast<double>(Unsigned(m_position, 8));
            break;
        case kSimpleBlock: {
            const auto* first = m_bytes.data() + m_position;
            const auto relative = static_cast<std::int16_t>(static_cast<std::uint16_t>(Unsigned(m_position + 1, 2)));
            m_file.frames.push_back({Unsigned(m_position, 1) & 0x7F,
                                     m_clusterMilliseconds + relative,
                                     (Unsigned(m_position + 3, 1) & 0x80) != 0,
                                     {first + kBlockHead, first + size}});
            break;
        }
        default:
            break;
        }
    }

    bool Element(std::uint64_t id, std::uint64_t size, std::size_t start) {
        if (std::find(kContainers.begin(), kContainers.end(), id) != kContainers.end()) {
            Enter(id, size, start);
            return true;
        }
        if (size > m_bytes.size() - m_position) {
            return false;
        }
        Take(id, static_cast<std::size_t>(size));
        m_position += static_cast<std::size_t>(size);
        return true;
    }

    const std::vector<std::byte>& m_bytes;
    MatroskaFile m_file;
    std::size_t m_position = 0;
    std::size_t m_segmentStart = 0;
    std::optional<std::size_t> m_clusterEnd;
    std::int64_t m_clusterMilliseconds = 0;
};

} // namespace

MatroskaFile ReadMatroska(const std::vector<std::byte>& file) {
    return Walk(file).Run();
}

} // namespace kxtest
