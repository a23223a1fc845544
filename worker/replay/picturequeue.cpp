// Encoded pictures that wait in memory. Equal pictures are found by their bytes: the encoder makes the same bytes
// from the same pixels, and comparing them costs a small part of what copying them would.
#include "worker/replay/picturequeue.h"

#include <algorithm>
#include <utility>

namespace kxvcr {

void PictureQueue::Add(std::uint64_t slot, std::span<const std::byte> jpeg) {
    const bool same = m_last != nullptr && std::ranges::equal(*m_last, jpeg);
    if (same && !m_runs.empty() && m_runs.back().end == slot) {
        ++m_runs.back().end;
        return;
    }
    auto block = same ? m_last : std::make_shared<const std::vector<std::byte>>(jpeg.begin(), jpeg.end());
    m_runs.push_back({slot, slot + 1, block});
    m_bytes += block->size() + kBytesPerPicture;
    m_last = std::move(block);
}

QueuedPicture PictureQueue::TakeFirst() noexcept {
    Run& run = m_runs.front();
    QueuedPicture picture{run.first++, run.jpeg};
    if (run.first == run.end) {
        DropFirstRun();
    }
    return picture;
}

void PictureQueue::DropBefore(std::uint64_t slot) noexcept {
    while (!m_runs.empty() && m_runs.front().end <= slot) {
        DropFirstRun();
    }
    if (!m_runs.empty()) {
        m_runs.front().first = std::max(m_runs.front().first, slot);
    }
}

bool PictureQueue::DropOldestPicture() noexcept {
    if (m_runs.size() < 2) {
        return false;
    }
    DropFirstRun();
    return true;
}

void PictureQueue::DropFirstRun() noexcept {
    m_bytes -= m_runs.front().jpeg->size() + kBytesPerPicture;
    m_runs.pop_front();
}

} // namespace kxvcr
