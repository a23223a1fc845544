// Hands packets from the recorder's thread to the live server's.
#include "worker/live/packetinbox.h"

#include <utility>

namespace kxvcr {

namespace {

constexpr std::size_t kMostBytes = std::size_t{16} << 20;

} // namespace

bool PacketInbox::Put(const SharedPacket& packet) {
    const std::lock_guard lock(m_mutex);
    if (m_bytes + packet->bytes.size() > kMostBytes && !m_content.packets.empty()) {
        m_content.packets.clear();
        m_content.hasGap = true;
        m_bytes = 0;
    }
    m_content.packets.push_back(packet);
    m_bytes += packet->bytes.size();
    return !std::exchange(m_isAnnounced, true);
}

PacketInbox::Content PacketInbox::Take() noexcept {
    const std::lock_guard lock(m_mutex);
    m_bytes = 0;
    m_isAnnounced = false;
    return std::exchange(m_content, {});
}

} // namespace kxvcr
