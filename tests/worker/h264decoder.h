/**
 * @file
 * Decodes H.264 packets with the decoder of the encoder's own library.
 */
#pragma once

#include "tests/worker/picture.h"
#include "worker/packet.h"
#include "worker/video/h264library.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

class ISVCDecoder;

namespace kxvcr::test {

class H264Decoder {
public:
    /** @param decoderConfig an AVCDecoderConfigurationRecord */
    explicit H264Decoder(const std::vector<std::byte>& decoderConfig);

    /** The picture of one packet; nothing when it cannot be decoded without a fault. */
    std::optional<Samples> Decode(const Packet& packet);

private:
    struct Deleter {
        void (*destroy)(ISVCDecoder*);
        void operator()(ISVCDecoder* decoder) const { destroy(decoder); }
    };

    std::vector<std::byte> m_parameterSets; ///< with start codes
    kx::Module m_library;
    std::unique_ptr<ISVCDecoder, Deleter> m_decoder;
};

/** The parameter sets of an AVCDecoderConfigurationRecord, each with a start code. */
std::vector<std::byte> ParameterSets(const std::vector<std::byte>& decoderConfig);

/** The units of a packet, each without its length. Empty when a length does not fit. */
std::vector<std::vector<std::byte>> Units(const Packet& packet);

} // namespace kxvcr::test
