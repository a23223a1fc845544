// The frame header: one table of offsets, used by the encoder and by the decoder.
#include "frame.h"

namespace ipcmessage {
namespace {

enum Offset : std::size_t {
    kMagicAt = 0,
    kVersionAt = 4,
    kKindAt = 6,
    kSequenceAt = 8,
    kSourceAt = 16,
    kTargetAt = 20,
    kMessageAt = 24,
    kReplyMessageAt = 28,
    kReservedAt = 32,
    kTimeStampAt = 36,
    kPayloadSizeAt = 40,
    kFlagsAt = 44,
};
static_assert(kFlagsAt + sizeof(std::uint32_t) == kFrameHeaderSize);

constexpr std::uint32_t kHasPayloadFlag = 1;

template <class T>
void Put(std::span<std::byte, kFrameHeaderSize> bytes, std::size_t at, T value) noexcept {
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        bytes[at + i] = static_cast<std::byte>(value >> (8 * i));
    }
}

template <class T>
T Get(std::span<const std::byte, kFrameHeaderSize> bytes, std::size_t at) noexcept {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        value |= std::to_integer<std::uint64_t>(bytes[at + i]) << (8 * i);
    }
    return static_cast<T>(value);
}

} // namespace

void EncodeFrameHeader(const FrameHeader& header, std::span<std::byte, kFrameHeaderSize> bytes) noexcept {
    Put(bytes, kMagicAt, kFrameMagic);
    Put(bytes, kVersionAt, kFrameVersion);
    Put(bytes, kKindAt, static_cast<std::uint16_t>(header.kind));
    Put(bytes, kSequenceAt, header.sequence);
    Put(bytes, kSourceAt, header.sourceModuleId);
    Put(bytes, kTargetAt, header.targetModuleId);
    Put(bytes, kMessageAt, header.messageId);
    Put(bytes, kReplyMessageAt, header.replyMessageId);
    Put(bytes, kReservedAt, header.reserved);
    Put(bytes, kTimeStampAt, header.timeStamp);
    Put(bytes, kPayloadSizeAt, header.payloadSize);
    Put(bytes, kFlagsAt, header.hasPayload ? kHasPayloadFlag : std::uint32_t{0});
}

FrameFault CheckFrameHeader(const FrameHeader& header) noexcept {
    const bool isNotice = header.kind == FrameKind::Notice;
    if (!isNotice && header.kind != FrameKind::Request && header.kind != FrameKind::Reply) {
        return FrameFault::Kind;
    }
    if (isNotice != (header.sequence == 0)) {
        return FrameFault::Sequence;
    }
    if (header.payloadSize > (header.hasPayload ? kFrameMaxPayload : 0)) {
        return FrameFault::PayloadSize;
    }
    return FrameFault::None;
}

FrameFault DecodeFrameHeader(std::span<const std::byte, kFrameHeaderSize> bytes, FrameHeader& header) noexcept {
    if (Get<std::uint32_t>(bytes, kMagicAt) != kFrameMagic) {
        return FrameFault::Magic;
    }
    if (Get<std::uint16_t>(bytes, kVersionAt) != kFrameVersion) {
        return FrameFault::Version;
    }
    const auto flags = Get<std::uint32_t>(bytes, kFlagsAt);
    if ((flags & ~kHasPayloadFlag) != 0) {
        return FrameFault::Flags;
    }
    const FrameHeader decoded{
        .kind = static_cast<FrameKind>(Get<std::uint16_t>(bytes, kKindAt)),
        .sequence = Get<std::uint64_t>(bytes, kSequenceAt),
        .sourceModuleId = Get<std::uint32_t>(bytes, kSourceAt),
        .targetModuleId = Get<std::uint32_t>(bytes, kTargetAt),
        .messageId = Get<std::uint32_t>(bytes, kMessageAt),
        .replyMessageId = Get<std::uint32_t>(bytes, kReplyMessageAt),
        .reserved = Get<std::uint32_t>(bytes, kReservedAt),
        .timeStamp = Get<std::uint32_t>(bytes, kTimeStampAt),
        .payloadSize = Get<std::uint32_t>(bytes, kPayloadSizeAt),
        .hasPayload = (flags & kHasPayloadFlag) != 0,
    };
    const FrameFault fault = CheckFrameHeader(decoded);
    if (fault == FrameFault::None) {
        header = decoded;
    }
    return fault;
}

} // namespace ipcmessage
