/**
 * @file
 * The encoder's thread: pictures from the queue become packets.
 */
#pragma once

#include "worker/capture/frameloop.h"
#include "worker/capture/picturequeue.h"
#include "worker/effortladder.h"
#include "worker/packet.h"
#include "worker/video/videoencoder.h"

#include <cstdint>

namespace kxvcr {

/** What the encoder did. */
struct EncodeStatistics {
    std::uint64_t encoded = 0;
    std::uint64_t failed = 0; ///< pictures that became no packet
    std::int64_t encodeTicks = 0;
    std::uint64_t bytes = 0;
};

/**
 * Encodes what the capture hands on. A picture that cannot be encoded is asked for again, at once for the first time
 * and then once a second. Tells the capture to slow down when the encoder cannot keep up.
 */
class EncodeLoop {
public:
    EncodeLoop(PictureQueue& queue, FrameLoop& capture, VideoEncoder& encoder, PacketSink& sink) noexcept
        : m_queue(queue),
          m_capture(capture),
          m_encoder(encoder),
          m_sink(sink) {}

    /** Runs until the queue is closed and empty. */
    void Run() noexcept;

    /** To be read when Run() has returned. */
    const EncodeStatistics& Statistics() const noexcept { return m_statistics; }

private:
    void Encode(const QueuedPicture& queued) noexcept;
    SharedPacket MakePacket(const QueuedPicture& queued, std::int64_t& ticks);
    void NoteFailure(MediaTime time) noexcept;
    void NoteEffort(MediaTime took) noexcept;

    PictureQueue& m_queue;
    FrameLoop& m_capture;
    VideoEncoder& m_encoder;
    PacketSink& m_sink;
    EffortLadder m_ladder;
    std::uint64_t m_failuresInARow = 0;
    bool m_mustBeKey = true; // the first picture, and the one behind a picture that was lost
    MediaTime m_tryAgainAt{};
    std::uint64_t m_lastNumber = 0; // of the picture that the encoder was given last
    EncodeStatistics m_statistics;
};

} // namespace kxvcr
