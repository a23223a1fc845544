// The encoder's thread. A failed picture leaves no gap in the stream, because the one before it lasts longer; what must
// not be lost is the screen's newest state, so it is asked for again until it is encoded.
#include "worker/encodeloop.h"

#include "worker/log.h"
#include "worker/ticks.h"

#include <chrono>
#include <new>
#include <optional>

namespace kxvcr {

namespace {

constexpr MediaTime kRestAfterFailures = std::chrono::seconds(1);

} // namespace

void EncodeLoop::Run() noexcept {
    while (const std::optional<QueuedPicture> picture = m_queue.Take()) {
        if (picture->time < m_tryAgainAt) {
            m_capture.RequestKey();
            continue;
        }
        Encode(*picture);
    }
}

void EncodeLoop::Encode(const QueuedPicture& queued) noexcept {
    std::int64_t ticks = 0;
    bool given = false;
    try {
        const SharedPacket packet = MakePacket(queued, ticks);
        if (packet != nullptr) {
            m_sink.Add(packet);
            given = true;
        }
    } catch (const std::bad_alloc&) {
        KXVCR_LOG_ERROR(L"A picture is lost: no memory");
    }
    if (!given) {
        NoteFailure(queued.time);
        return;
    }
    m_failuresInARow = 0;
    m_mustBeKey = false;
    NoteEffort(TimeOf(ticks));
}

SharedPacket EncodeLoop::MakePacket(const QueuedPicture& queued, std::int64_t& ticks) {
    const Picture& picture = *queued.picture;
    const PictureBuffer& buffer = picture.buffer;
    PictureView view{buffer.Pixels(), buffer.Width(), buffer.Height(), buffer.Stride(), queued.captured, {}};
    // What changed is said of one picture after the other: where the encoder was spared one, all may have.
    if (picture.number == m_lastNumber || picture.number == m_lastNumber + 1) {
        view.changed = picture.changed;
    }
    m_lastNumber = picture.number;
    SharedPacket packet;
    {
        const ScopedTicks watch(ticks);
        packet = m_encoder.Encode(view, queued.time, queued.isKey || m_mustBeKey);
    }
    m_statistics.encodeTicks += ticks;
    if (packet != nullptr) {
        ++m_statistics.encoded;
        m_statistics.bytes += packet->bytes.size();
    }
    return packet;
}

void EncodeLoop::NoteFailure(MediaTime time) noexcept {
    ++m_statistics.failed;
    ++m_failuresInARow;
    m_mustBeKey = true;
    m_tryAgainAt = m_failuresInARow == 1 ? time : time + kRestAfterFailures;
    m_capture.RequestKey();
}

void EncodeLoop::NoteEffort(MediaTime took) noexcept {
    if (!m_ladder.Note(m_capture.Now(), took, m_capture.Dropped())) {
        return;
    }
    const EffortRung& rung = m_ladder.Rung();
    m_encoder.SetEffort(rung.effort);
    m_capture.TakeEvery(rung.step);
    if (m_ladder.WentDown()) {
        KXVCR_LOG_WARN(rung.whenReached);
    } else {
        KXVCR_LOG_INFO(L"The encoder keeps up with the screen again and is asked for more");
    }
}

} // namespace kxvcr
