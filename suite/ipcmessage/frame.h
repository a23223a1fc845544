/**
 * @file
 * The bytes of the channel: the header in front of every message, its encoding and its validation.
 *
 * A frame is a header of kFrameHeaderSize bytes, little-endian, and then payloadSize bytes of payload. Nothing here
 * depends on Windows, allocates or throws. docs/ipc-channel.md has the table of offsets.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace ipcmessage {

inline constexpr std::size_t kFrameHeaderSize = 48;
inline constexpr std::uint32_t kFrameMagic = 0x5049584B; ///< the bytes "KXIP"
inline constexpr std::uint16_t kFrameVersion = 1;
inline constexpr std::uint32_t kFrameMaxPayload = 1u << 20; ///< bytes

enum class FrameKind : std::uint16_t {
    Request = 1, ///< expects a reply with the same sequence number
    Notice = 2,  ///< expects nothing; its sequence number is 0
    Reply = 3,   ///< carries the sequence number of its request
};

enum class FrameFault { None, Magic, Version, Kind, Sequence, Flags, PayloadSize };

struct FrameHeader {
    FrameKind kind = FrameKind::Notice;
    std::uint64_t sequence = 0;
    std::uint32_t sourceModuleId = 0;
    std::uint32_t targetModuleId = 0;
    std::uint32_t messageId = 0;
    std::uint32_t replyMessageId = 0;
    std::uint32_t reserved = 0;
    std::uint32_t timeStamp = 0;   ///< milliseconds
    std::uint32_t payloadSize = 0; ///< bytes; 0 unless hasPayload
    bool hasPayload = false;       ///< a present payload may have no bytes

    bool operator==(const FrameHeader&) const = default;
};

/** Writes the header's bytes. The caller answers for its fields; see CheckFrameHeader. */
void EncodeFrameHeader(const FrameHeader& header, std::span<std::byte, kFrameHeaderSize> bytes) noexcept;

/**
 * Reads and checks a header.
 * @return FrameFault::None, or the first rule that the bytes break; @p header stays untouched then
 */
FrameFault DecodeFrameHeader(std::span<const std::byte, kFrameHeaderSize> bytes, FrameHeader& header) noexcept;

/** The rules between the fields: kind, sequence number and payload size. */
FrameFault CheckFrameHeader(const FrameHeader& header) noexcept;

} // namespace ipcmessage
