// Fuzz target: a stream of the message channel's frames, as a hostile other end could write it.
// Holds for every input: a header that is accepted keeps the rules, encodes back to the same bytes and never asks for
// more than the limit; one that is refused leaves its output untouched.
#include "suite/ipcmessage/frame.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <span>

namespace ipcmessage {

namespace {

void Require(bool isTrue) {
    if (!isTrue) {
        std::abort();
    }
}

void CheckAccepted(const FrameHeader& header, std::span<const std::byte, kFrameHeaderSize> bytes) {
    Require(CheckFrameHeader(header) == FrameFault::None);
    Require(header.payloadSize <= kFrameMaxPayload);
    Require(header.hasPayload || header.payloadSize == 0);
    std::array<std::byte, kFrameHeaderSize> encoded{};
    EncodeFrameHeader(header, encoded);
    Require(std::ranges::equal(encoded, bytes));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    std::span<const std::byte> stream(reinterpret_cast<const std::byte*>(data), size);
    while (stream.size() >= kFrameHeaderSize) {
        const auto bytes = stream.first<kFrameHeaderSize>();
        const FrameHeader untouched{.messageId = 0xA5A5A5A5};
        FrameHeader header = untouched;
        if (DecodeFrameHeader(bytes, header) != FrameFault::None) {
            Require(header == untouched);
            return 0;
        }
        CheckAccepted(header, bytes);
        stream = stream.subspan(kFrameHeaderSize);
        stream = stream.subspan(std::min<std::size_t>(header.payloadSize, stream.size()));
    }
    return 0;
}

} // namespace ipcmessage
