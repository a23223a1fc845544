/**
 * @file
 * What an H.264 encoder's byte stream becomes in a file: units behind their length, and one record for the decoder.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kxvcr {

using ByteView = std::span<const std::byte>;

/** The meaning of a unit, from its first byte. */
enum class H264Unit : std::uint8_t {
    Picture = 1,
    KeyPicture = 5,
    SequenceParameters = 7,
    PictureParameters = 8,
};

/** What kind a unit is; @p unit is without its start code and not empty. */
constexpr H264Unit KindOf(ByteView unit) noexcept {
    return static_cast<H264Unit>(static_cast<std::uint8_t>(unit.front()) & 0x1F);
}

/**
 * A unit without its start code of three or four bytes.
 * @return empty when there is no start code, or nothing behind it
 */
ByteView WithoutStartCode(ByteView unit) noexcept;

/** Appends a unit behind its length in four bytes. @throws std::bad_alloc */
void AppendWithLength(ByteView unit, std::vector<std::byte>& bytes);

/**
 * An AVCDecoderConfigurationRecord for units behind lengths of four bytes, 4:2:0 and eight bits.
 * @param sequence, picture one set of each, without start codes; @p sequence has at least four bytes
 * @throws std::bad_alloc
 */
std::vector<std::byte> DecoderConfigurationRecord(ByteView sequence, ByteView picture);

} // namespace kxvcr
