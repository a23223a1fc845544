/**
 * @file
 * Encodes sound as Opus with libopus.
 */
#pragma once

#include "worker/sound/soundencoder.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct OpusEncoder;

namespace kxvcr {

/** Opus packets of 20 ms. */
class OpusSoundEncoder final : public SoundEncoder {
public:
    /**
     * @param bitsPerSecond of both channels together
     * @return null, after an ERROR in the log, when the library refuses
     * @throws std::bad_alloc
     */
    static std::unique_ptr<OpusSoundEncoder> Create(std::uint32_t bitsPerSecond);

    const SoundFormat& Format() const noexcept override { return m_format; }
    SharedPacket Encode(std::span<const float> samples, std::int64_t firstFrame) override;

private:
    struct Deleter {
        void operator()(OpusEncoder* encoder) const noexcept;
    };

    OpusSoundEncoder(std::unique_ptr<OpusEncoder, Deleter> encoder, std::uint32_t delaySamples);

    SoundFormat m_format;
    std::unique_ptr<OpusEncoder, Deleter> m_encoder;
    std::vector<std::byte> m_output;
};

} // namespace kxvcr
