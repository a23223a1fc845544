// The last seconds of the screen. Pictures and sound are kept apart, because pictures go in groups and sound piece by
// piece.
#include "worker/replay/packetring.h"

#include <algorithm>
#include <chrono>
#include <iterator>

namespace kxvcr {

namespace {

constexpr MediaTime kLongestSoundPacket = std::chrono::milliseconds(100);

bool IsEarlier(const SharedPacket& a, const SharedPacket& b) noexcept {
    return a->time < b->time;
}

// The key picture behind the first group; the end when there is none.
auto SecondKey(const std::deque<SharedPacket>& pictures) noexcept {
    return std::find_if(pictures.begin() + (pictures.empty() ? 0 : 1), pictures.end(),
                        [](const SharedPacket& picture) { return picture->isKey; });
}

} // namespace

void PacketRing::Add(const SharedPacket& packet) {
    if (m_length == MediaTime(0)) {
        return;
    }
    (packet->stream == Stream::Sound ? m_sound : m_pictures).push_back(packet);
    m_bytes += packet->bytes.size() + kBytesPerPacket;
    if (m_held) {
        return;
    }
    DropGroupsBefore(packet->time - m_length);
    while (m_bytes > m_memoryLimit && DropFirstGroup()) {
        continue;
    }
    DropSoundBefore(StartFor(packet->time));
}

MediaTime PacketRing::StartFor(MediaTime now) const noexcept {
    return m_pictures.empty() ? now : std::max(m_pictures.front()->time, now - m_length);
}

std::vector<SharedPacket> PacketRing::Take(MediaTime start) {
    DropGroupsBefore(start);
    DropSoundBefore(start);
    std::vector<SharedPacket> taken;
    taken.reserve(m_pictures.size() + m_sound.size());
    std::merge(m_pictures.begin(), m_pictures.end(), m_sound.begin(), m_sound.end(), std::back_inserter(taken),
               IsEarlier);
    *this = PacketRing();
    return taken;
}

// The group that is on show at @p start stays: its key picture is where decoding begins.
void PacketRing::DropGroupsBefore(MediaTime start) noexcept {
    for (auto next = SecondKey(m_pictures); next != m_pictures.end() && (*next)->time <= start;
         next = SecondKey(m_pictures)) {
        DropFirstGroup();
    }
}

bool PacketRing::DropFirstGroup() noexcept {
    const auto next = SecondKey(m_pictures);
    if (next == m_pictures.end()) {
        return false;
    }
    for (auto left = std::distance(m_pictures.cbegin(), next); left > 0; --left) {
        DropFirst(m_pictures);
    }
    return true;
}

void PacketRing::DropSoundBefore(MediaTime start) noexcept {
    while (!m_sound.empty() && m_sound.front()->time + kLongestSoundPacket <= start) {
        DropFirst(m_sound);
    }
}

void PacketRing::DropFirst(std::deque<SharedPacket>& packets) noexcept {
    m_bytes -= packets.front()->bytes.size() + kBytesPerPacket;
    packets.pop_front();
}

} // namespace kxvcr
