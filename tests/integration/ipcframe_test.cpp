// The bytes of the message channel's frame header.
#include "ipctestbed.h"

#include <gtest/gtest.h>

#include <array>

namespace ipcmessage {

namespace {

constexpr FrameHeader kEveryField{
    .kind = FrameKind::Reply,
    .sequence = 0x1112131415161718,
    .sourceModuleId = 0x21222324,
    .targetModuleId = 0x31323334,
    .messageId = 0x41424344,
    .replyMessageId = 0x51525354,
    .reserved = 0x61626364,
    .timeStamp = 0x71727374,
    .payloadSize = kFrameMaxPayload,
    .hasPayload = true,
};

using HeaderBytes = std::array<std::byte, kFrameHeaderSize>;

HeaderBytes Encoded(const FrameHeader& header) {
    HeaderBytes bytes{};
    EncodeFrameHeader(header, bytes);
    return bytes;
}

} // namespace

TEST(FrameHeader, Encoded_HasEachFieldAtItsOffset) {
    EXPECT_EQ(kxtest::HexOf(kEveryField), "4b584950"
                                          "0100"
                                          "0300"
                                          "1817161514131211"
                                          "24232221"
                                          "34333231"
                                          "44434241"
                                          "54535251"
                                          "64636261"
                                          "74737271"
                                          "00001000"
                                          "01000000");
}

TEST(FrameHeader, EncodedAndDecoded_IsTheSame) {
    FrameHeader decoded;
    ASSERT_EQ(DecodeFrameHeader(Encoded(kEveryField), decoded), FrameFault::None);
    EXPECT_TRUE(decoded == kEveryField);
}

TEST(FrameHeader, BrokenRule_NamedAndOutputUntouched) {
    const struct {
        std::size_t at;
        unsigned char value;
        FrameFault fault;
    } cases[] = {
        {0, 0, FrameFault::Magic},        {3, 0, FrameFault::Magic},        {4, 2, FrameFault::Version},
        {5, 1, FrameFault::Version},      {6, 0, FrameFault::Kind},         {6, 4, FrameFault::Kind},
        {7, 1, FrameFault::Kind},         {6, 2, FrameFault::Sequence},     {44, 3, FrameFault::Flags},
        {47, 1, FrameFault::Flags},       {44, 0, FrameFault::PayloadSize}, {40, 1, FrameFault::PayloadSize},
        {43, 1, FrameFault::PayloadSize},
    };
    for (const auto& [at, value, fault] : cases) {
        HeaderBytes bytes = Encoded(kEveryField);
        bytes[at] = static_cast<std::byte>(value);
        FrameHeader untouched;
        EXPECT_EQ(DecodeFrameHeader(bytes, untouched), fault) << at;
        EXPECT_TRUE(untouched == FrameHeader{}) << at;
    }
}

TEST(FrameHeader, RequestWithoutSequenceNumber_Refused) {
    FrameHeader decoded;
    EXPECT_EQ(DecodeFrameHeader(Encoded({.kind = FrameKind::Request}), decoded), FrameFault::Sequence);
}

} // namespace ipcmessage
