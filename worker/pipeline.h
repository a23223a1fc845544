/**
 * @file
 * From the screen to packets: a thread that captures, a short queue, and a thread that encodes. Beside them, where
 * sound is recorded, the sound's thread.
 */
#pragma once

#include "common/win/handle.h"
#include "worker/capture/frameloop.h"
#include "worker/capture/picturepool.h"
#include "worker/capture/picturequeue.h"
#include "worker/capture/picturesource.h"
#include "worker/encodeloop.h"
#include "worker/packet.h"
#include "worker/sound/soundcapture.h"
#include "worker/sound/soundencoder.h"
#include "worker/video/videoencoder.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>

namespace kxvcr {

/** What a pipeline is made of. */
struct PipelineParts {
    std::unique_ptr<PictureSource> source;
    std::unique_ptr<PicturePool> pictures; ///< at least kPicturesOfPipeline
    std::unique_ptr<VideoEncoder> encoder;
    std::unique_ptr<SoundEncoder> soundEncoder; ///< null without sound
    std::unique_ptr<SoundCapture> sound;        ///< null without sound; makes packets for one pipeline only
    std::uint32_t framesPerSecond = 0;
};

/** The queue's, the one that is encoded, the one that is drawn into; a snapshot that is encoded may take one as well.
 */
inline constexpr std::size_t kPicturesOfPipeline = PictureQueue::kMost + 2;

/** A running capture and its encoder. Members may be called from any thread, unless they say otherwise. */
class Pipeline {
public:
    /**
     * Captures from now on; slot 0 is now.
     * @param parts borrowed, as the sink that takes the packets; both must outlive the pipeline
     * @throws std::bad_alloc, std::system_error when the system refuses a thread; the parts can be used again then
     */
    Pipeline(const PipelineParts& parts, PacketSink& sink);

    /** Stops. */
    ~Pipeline();
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    /** The format of all packets of pictures. */
    const PictureFormat& Format() const noexcept { return m_encoder.Format(); }

    /** The present moment on the packets' clock. */
    MediaTime Now() const noexcept { return m_capture.Now(); }

    /** The start of the slot that is captured next. */
    MediaTime NextSlotTime() const noexcept { return SlotTime(m_capture.NextSlot(), m_framesPerSecond); }

    /** No packet of a picture before this moment comes any more. */
    MediaTime Settled() const noexcept { return m_queue.Settled(); }

    /** Asks for a key picture in the next slot, also when nothing has changed. */
    void RequestKey() noexcept { m_capture.RequestKey(); }

    /** The newest picture; null when there is none yet. */
    SharedPicture Newest() const noexcept { return m_capture.Newest(); }

    /** Pictures that the encoder had no time for. */
    std::uint64_t Dropped() const noexcept { return m_capture.Dropped(); }

    /**
     * Ends all threads; to be called once.
     * @param dropWaiting whether what was captured but not encoded is left out
     * @return the end of the recording
     */
    MediaTime Stop(bool dropWaiting) noexcept;

private:
    void EndPictures(bool dropWaiting) noexcept;
    void LogSummary() const;

    VideoEncoder& m_encoder;
    SoundCapture* m_sound; // null without sound
    std::uint32_t m_framesPerSecond;
    kx::KernelHandle m_stop;
    PictureQueue m_queue;
    FrameLoop m_capture;
    EncodeLoop m_encoding;
    MediaTime m_end{};
    std::thread m_encoderThread;
    std::thread m_captureThread;
};

} // namespace kxvcr
