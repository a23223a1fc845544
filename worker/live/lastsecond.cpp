// What the live server tells about the pictures of the last second.
#include "worker/live/lastsecond.h"

#include <algorithm>

namespace kxvcr {

void LastSecond::Add(const Packet& packet, Clock::time_point now) {
    DropOlder(now);
    m_entries.push_back({now, packet.stream == Stream::Picture, packet.bytes.size()});
}

std::size_t LastSecond::Pictures(Clock::time_point now) {
    DropOlder(now);
    return static_cast<std::size_t>(std::ranges::count(m_entries, true, &Entry::isPicture));
}

std::uint64_t LastSecond::BitsPerSecond(Clock::time_point now) {
    DropOlder(now);
    std::uint64_t bytes = 0;
    for (const Entry& entry : m_entries) {
        bytes += entry.bytes;
    }
    return bytes * 8;
}

void LastSecond::DropOlder(Clock::time_point now) {
    while (!m_entries.empty() && m_entries.front().time < now - std::chrono::seconds(1)) {
        m_entries.pop_front();
    }
}

} // namespace kxvcr
