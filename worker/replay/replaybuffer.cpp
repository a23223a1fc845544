// The last seconds of the screen: a queue of pictures whose oldest are dropped when they are too old or too many.
#include "worker/replay/replaybuffer.h"

#include <algorithm>
#include <utility>

namespace kxvcr {

void ReplayBuffer::Add(std::uint64_t slot, std::span<const std::byte> jpeg) {
    if (m_slots == 0) {
        return;
    }
    m_queue.Add(slot, jpeg);
    m_queue.DropBefore(slot + 1 - std::min(slot + 1, m_slots));
    while (m_queue.Bytes() > m_memoryLimit && m_queue.DropOldestPicture()) {
        continue;
    }
}

PictureQueue ReplayBuffer::Take() noexcept {
    return std::exchange(m_queue, PictureQueue());
}

} // namespace kxvcr
