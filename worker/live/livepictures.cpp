// The newest picture of the live server. A viewer that is late finds only the newest one, so it loses pictures and
// keeps nobody waiting.
#include "worker/live/livepictures.h"

#include <algorithm>

namespace kxvcr {

namespace {

constexpr std::chrono::seconds kRateSpan(1);

void DropOlder(std::deque<LivePictures::Clock::time_point>& times, LivePictures::Clock::time_point oldest) {
    while (!times.empty() && times.front() < oldest) {
        times.pop_front();
    }
}

bool SameBytes(std::span<const char> a, std::span<const std::byte> b) {
    return std::ranges::equal(std::as_bytes(a), b);
}

} // namespace

LivePicture::LivePicture(std::uint64_t number, std::span<const std::byte> jpeg)
    : m_number(number),
      m_jpegSize(jpeg.size()) {
    const std::string head = "Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(jpeg.size()) + "\r\n\r\n";
    const std::string tail = std::string("\r\n--") + kPartBoundary + "\r\n";
    m_jpegOffset = head.size();
    m_part.reserve(head.size() + jpeg.size() + tail.size());
    m_part += head;
    m_part.append(reinterpret_cast<const char*>(jpeg.data()), jpeg.size());
    m_part += tail;
}

void LivePictures::Publish(std::span<const std::byte> jpeg) {
    // Only this thread changes the newest picture, so it can be compared and the next one made outside the lock.
    Picture newest;
    {
        const std::lock_guard lock(m_mutex);
        newest = m_newest;
    }
    if (newest != nullptr && SameBytes(newest->Jpeg(), jpeg)) {
        return;
    }
    auto next = std::make_shared<const LivePicture>(newest == nullptr ? 1 : newest->Number() + 1, jpeg);
    {
        const std::lock_guard lock(m_mutex);
        const Clock::time_point now = Clock::now();
        DropOlder(m_times, now - kRateSpan);
        m_times.push_back(now);
        m_newest = std::move(next);
    }
    m_changed.notify_all();
}

LivePictures::Picture LivePictures::WaitNewer(std::uint64_t number, std::chrono::milliseconds patience) const {
    std::unique_lock lock(m_mutex);
    const auto isNewer = [this, number] { return m_newest != nullptr && m_newest->Number() > number; };
    m_changed.wait_for(lock, patience, [this, isNewer] { return m_ended || isNewer(); });
    return !m_ended && isNewer() ? m_newest : nullptr;
}

void LivePictures::End() noexcept {
    {
        const std::lock_guard lock(m_mutex);
        m_ended = true;
    }
    m_changed.notify_all();
}

bool LivePictures::Ended() const noexcept {
    const std::lock_guard lock(m_mutex);
    return m_ended;
}

std::size_t LivePictures::Rate() const {
    const std::lock_guard lock(m_mutex);
    const Clock::time_point oldest = Clock::now() - kRateSpan;
    return static_cast<std::size_t>(
        std::ranges::count_if(m_times, [oldest](Clock::time_point time) { return time >= oldest; }));
}

} // namespace kxvcr
