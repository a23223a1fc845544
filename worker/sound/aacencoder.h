/**
 * @file
 * Encodes sound as AAC-LC with vo-aacenc.
 */
#pragma once

#include "worker/sound/soundencoder.h"

#include <vo-aacenc/voAAC.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace kxvcr {

/** Raw AAC frames of 1024 samples. */
class AacEncoder final : public SoundEncoder {
public:
    /**
     * @param bitsPerSecond of both channels together
     * @return null, after an ERROR in the log, when the library refuses
     * @throws std::bad_alloc
     */
    static std::unique_ptr<AacEncoder> Create(std::uint32_t bitsPerSecond);

    ~AacEncoder() override;
    AacEncoder(const AacEncoder&) = delete;
    AacEncoder& operator=(const AacEncoder&) = delete;

    const SoundFormat& Format() const noexcept override { return m_format; }
    SharedPacket Encode(std::span<const float> samples, std::int64_t firstFrame) override;

private:
    AacEncoder();

    bool Begin(std::uint32_t bitsPerSecond) noexcept;

    SoundFormat m_format;
    VO_AUDIO_CODECAPI m_library = {};
    VO_HANDLE m_encoder = nullptr;
    std::vector<std::int16_t> m_input;
    std::vector<std::byte> m_output;
};

} // namespace kxvcr
