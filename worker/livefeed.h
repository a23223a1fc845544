/**
 * @file
 * What the live server asks of the recorder, answered from a pipeline.
 */
#pragma once

#include "worker/live/livesource.h"
#include "worker/packet.h"
#include "worker/pipeline.h"
#include "worker/video/jpegencoder.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>

namespace kxvcr {

/** Answers with nothing until it is given a pipeline. */
class LiveFeed final : public LiveSource {
public:
    /**
     * @param format of the packets that the server is given
     * @param quality of the JPEG pictures, 1 to 100
     */
    LiveFeed(const StreamFormat& format, std::uint32_t quality);

    /** @param pipeline must live as long as the server asks */
    void Use(Pipeline& pipeline) noexcept { m_pipeline = &pipeline; }

    StreamFormat Format() const override { return m_format; }
    MediaTime Now() const noexcept override;
    void RequestKey() noexcept override;
    SharedPacket NewestJpeg() noexcept override;

private:
    SharedPacket EncodeNewest(Pipeline& pipeline);

    StreamFormat m_format;
    std::atomic<Pipeline*> m_pipeline = nullptr;
    std::uint32_t m_quality;
    std::mutex m_mutex;                   // for the rest
    std::optional<JpegEncoder> m_encoder; // made for the first picture that is asked for
    std::uint64_t m_number = 0;           // of the picture in m_newest
    SharedPacket m_newest;
};

} // namespace kxvcr
