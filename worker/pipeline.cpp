// From the screen to packets. The capture ends first, so that the queue is closed behind its last picture.
#include "worker/pipeline.h"

#include "worker/log.h"
#include "worker/ticks.h"

#include <exception>
#include <new>

namespace kxvcr {

Pipeline::Pipeline(const PipelineParts& parts, PacketSink& sink)
    : m_encoder(*parts.encoder),
      m_sound(parts.sound.get()),
      m_framesPerSecond(parts.framesPerSecond),
      m_stop(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_capture(*parts.source, *parts.pictures, m_queue, parts.framesPerSecond),
      m_encoding(m_queue, m_capture, m_encoder, sink) {
    if (!m_stop) {
        throw std::bad_alloc();
    }
    m_encoderThread = std::thread([this] { m_encoding.Run(); });
    try {
        m_captureThread = std::thread([this] { m_end = m_capture.Run(m_stop.Get()); });
        if (m_sound != nullptr) {
            m_sound->Start([this](std::int64_t ticks) { return m_capture.TimeAt(ticks); }, *parts.soundEncoder, sink);
        }
    } catch (const std::exception&) { // the sound, which starts last, is left to another pipeline
        EndPictures(true);
        throw;
    }
}

Pipeline::~Pipeline() {
    Stop(true);
}

void Pipeline::EndPictures(bool dropWaiting) noexcept {
    SetEvent(m_stop.Get());
    if (m_captureThread.joinable()) {
        m_captureThread.join();
    }
    m_queue.Close(dropWaiting);
    if (m_encoderThread.joinable()) {
        m_encoderThread.join();
        LogSummary();
    }
}

MediaTime Pipeline::Stop(bool dropWaiting) noexcept {
    EndPictures(dropWaiting);
    if (m_sound != nullptr) {
        m_sound->Finish(m_end, dropWaiting);
    }
    return m_end;
}

void Pipeline::LogSummary() const {
    const CaptureStatistics& capture = m_capture.Statistics();
    const EncodeStatistics& encoding = m_encoding.Statistics();
    KXVCR_LOG_INFO(L"Capture finished: " << capture.looks << L" looks at the screen (" << capture.unchanged
                                         << L" unchanged), " << capture.missed << L" slots missed, " << capture.spared
                                         << L" spared, " << capture.quiet << L" quiet, " << m_capture.Dropped()
                                         << L" dropped; grab " << MillisecondsEach(capture.grabTicks, capture.looks)
                                         << L" ms each; " << encoding.encoded << L" pictures encoded into "
                                         << encoding.bytes << L" bytes, "
                                         << MillisecondsEach(encoding.encodeTicks, encoding.encoded) << L" ms each, "
                                         << encoding.failed << L" failed");
}

} // namespace kxvcr
