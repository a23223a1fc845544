// The short queue between the capture and the encoder.
#include "worker/capture/picturequeue.h"

#include <algorithm>
#include <utility>

namespace kxvcr {

bool PictureQueue::HasRoom() const noexcept {
    const std::lock_guard lock(m_mutex);
    return m_count < kMost;
}

void PictureQueue::Add(QueuedPicture picture) noexcept {
    {
        const std::lock_guard lock(m_mutex);
        m_waiting[m_count++] = std::move(picture);
    }
    m_changed.notify_one();
}

void PictureQueue::LookedUntil(MediaTime until) noexcept {
    const std::lock_guard lock(m_mutex);
    m_lookedUntil = until;
}

std::optional<QueuedPicture> PictureQueue::Take() {
    std::unique_lock lock(m_mutex);
    m_inEncoder.reset();
    m_changed.wait(lock, [this] { return m_closed || m_count != 0; });
    if (m_count == 0) {
        return std::nullopt;
    }
    QueuedPicture taken = std::move(m_waiting.front());
    std::move(m_waiting.begin() + 1, m_waiting.end(), m_waiting.begin());
    m_waiting[--m_count] = {};
    m_inEncoder = taken.time;
    return taken;
}

MediaTime PictureQueue::Settled() const noexcept {
    const std::lock_guard lock(m_mutex);
    if (m_inEncoder) {
        return *m_inEncoder;
    }
    return m_count == 0 ? m_lookedUntil : m_waiting.front().time;
}

void PictureQueue::Close(bool dropWaiting) noexcept {
    {
        const std::lock_guard lock(m_mutex);
        m_closed = true;
        if (dropWaiting) {
            m_waiting = {};
            m_count = 0;
        }
    }
    m_changed.notify_one();
}

} // namespace kxvcr
