// Rewrites the units of an H.264 byte stream for files.
#include "worker/video/h264stream.h"

#include <algorithm>
#include <array>

namespace kxvcr {

namespace {

constexpr std::uint8_t kProfileHigh = 100;

void Append(std::vector<std::byte>& bytes, std::uint8_t value) {
    bytes.push_back(static_cast<std::byte>(value));
}

void AppendWithShortLength(ByteView unit, std::vector<std::byte>& bytes) {
    Append(bytes, static_cast<std::uint8_t>(unit.size() >> 8));
    Append(bytes, static_cast<std::uint8_t>(unit.size()));
    bytes.insert(bytes.end(), unit.begin(), unit.end());
}

} // namespace

ByteView WithoutStartCode(ByteView unit) noexcept {
    constexpr std::size_t kLongestZeros = 3;
    std::size_t zeros = 0;
    while (zeros < std::min(unit.size(), kLongestZeros) && unit[zeros] == std::byte{0}) {
        ++zeros;
    }
    if (zeros < 2 || zeros == unit.size() || unit[zeros] != std::byte{1}) {
        return {};
    }
    return unit.subspan(zeros + 1);
}

void AppendWithLength(ByteView unit, std::vector<std::byte>& bytes) {
    const auto length = static_cast<std::uint32_t>(unit.size());
    for (int shift = 24; shift >= 0; shift -= 8) {
        Append(bytes, static_cast<std::uint8_t>(length >> shift));
    }
    bytes.insert(bytes.end(), unit.begin(), unit.end());
}

std::vector<std::byte> DecoderConfigurationRecord(ByteView sequence, ByteView picture) {
    std::vector<std::byte> record = {
        std::byte{1},        // version
        sequence[1],         // profile
        sequence[2],         // the profile's constraints
        sequence[3],         // level
        std::byte{0xFC | 3}, // lengths of four bytes
        std::byte{0xE0 | 1}, // one set of sequence parameters
    };
    AppendWithShortLength(sequence, record);
    Append(record, 1); // one set of picture parameters
    AppendWithShortLength(picture, record);
    if (static_cast<std::uint8_t>(sequence[1]) >= kProfileHigh) {
        Append(record, 0xFC | 1); // 4:2:0
        Append(record, 0xF8 | 0); // eight bits of brightness
        Append(record, 0xF8 | 0); // eight bits of colour
        Append(record, 0);        // no extensions of the sequence parameters
    }
    return record;
}

} // namespace kxvcr
