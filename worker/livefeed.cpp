// What the live server asks of the recorder. A picture is encoded as JPEG once, however many viewers ask for it.
#include "worker/livefeed.h"

#include "worker/log.h"

#include <cstddef>
#include <exception>
#include <memory>
#include <span>
#include <utility>

namespace kxvcr {

LiveFeed::LiveFeed(const StreamFormat& format, std::uint32_t quality) : m_format(format), m_quality(quality) {}

MediaTime LiveFeed::Now() const noexcept {
    const Pipeline* const pipeline = m_pipeline;
    return pipeline == nullptr ? MediaTime(0) : pipeline->Now();
}

void LiveFeed::RequestKey() noexcept {
    if (Pipeline* const pipeline = m_pipeline; pipeline != nullptr) {
        pipeline->RequestKey();
    }
}

SharedPacket LiveFeed::NewestJpeg() noexcept {
    Pipeline* const pipeline = m_pipeline;
    if (pipeline == nullptr) {
        return nullptr;
    }
    try {
        const std::lock_guard lock(m_mutex);
        return EncodeNewest(*pipeline);
    } catch (const std::exception& failure) {
        KXVCR_LOG_ERROR(L"No picture for a viewer: " << failure.what());
        return nullptr;
    }
}

SharedPacket LiveFeed::EncodeNewest(Pipeline& pipeline) {
    const SharedPicture picture = pipeline.Newest();
    if (!picture) {
        return nullptr;
    }
    if (m_newest != nullptr && m_number == picture->number) {
        return m_newest;
    }
    // The packets' size may be another one: a video has even sides, and a limit to them.
    const PictureBuffer& buffer = picture->buffer;
    if (!m_encoder) {
        m_encoder.emplace(buffer.Width(), buffer.Height(), m_quality);
    }
    const std::span<const std::byte> jpeg = m_encoder->Encode(buffer.Pixels());
    if (jpeg.empty()) {
        KXVCR_LOG_ERROR(L"Cannot encode a picture: " << m_encoder->LastError());
        return nullptr;
    }
    auto packet = std::make_shared<Packet>();
    packet->isKey = true;
    packet->time = packet->captured = pipeline.Now();
    packet->bytes.assign(jpeg.begin(), jpeg.end());
    m_newest = std::move(packet);
    m_number = picture->number;
    return m_newest;
}

} // namespace kxvcr
