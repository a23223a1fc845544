// Where the packets go. The lock is never held while a target takes a packet, except for those of the replay: the
// target must have room for them.
#include "worker/packethub.h"

#include <new>
#include <utility>

namespace kxvcr {

bool PacketHub::KeepReplay(MediaTime length, std::size_t memoryLimit) noexcept {
    try {
        auto replay = std::make_unique<PacketRing>(length, memoryLimit);
        const std::lock_guard lock(m_mutex);
        m_replay = std::move(replay);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

void PacketHub::DropReplay() noexcept {
    std::unique_ptr<PacketRing> dropped; // freed outside the lock
    const std::lock_guard lock(m_mutex);
    dropped = std::move(m_replay);
}

MediaTime PacketHub::HoldReplay(MediaTime now) noexcept {
    const std::lock_guard lock(m_mutex);
    if (m_replay == nullptr) {
        return now;
    }
    m_replay->Hold(true);
    return m_replay->StartFor(now);
}

void PacketHub::ReleaseReplay() noexcept {
    const std::lock_guard lock(m_mutex);
    if (m_replay != nullptr) {
        m_replay->Hold(false);
    }
}

bool PacketHub::SwitchTo(const std::shared_ptr<PacketSink>& target, MediaTime start) {
    const std::lock_guard lock(m_mutex);
    if (m_ended) {
        return false;
    }
    if (m_replay != nullptr) {
        PacketRing kept = *m_replay; // which stays when there is no memory for all of it in the target
        target->AddAll(kept.Take(start));
        m_replay.reset();
    }
    m_target = target;
    return true;
}

bool PacketHub::SwitchToWithoutReplay(const std::shared_ptr<PacketSink>& target) noexcept {
    std::unique_ptr<PacketRing> dropped; // freed outside the lock
    const std::lock_guard lock(m_mutex);
    if (m_ended) {
        return false;
    }
    dropped = std::move(m_replay);
    m_target = target;
    return true;
}

void PacketHub::Detach() noexcept {
    const std::lock_guard lock(m_mutex);
    m_target.reset();
}

bool PacketHub::Add(const SharedPacket& packet) {
    std::shared_ptr<PacketSink> target;
    {
        const std::lock_guard lock(m_mutex);
        if (m_target == nullptr && m_replay != nullptr) {
            m_replay->Add(packet);
        }
        target = m_target;
    }
    return target == nullptr || target->Add(packet);
}

void PacketHub::Finish(MediaTime end) {
    std::shared_ptr<PacketSink> target;
    {
        const std::lock_guard lock(m_mutex);
        m_ended = true;
        target = std::exchange(m_target, nullptr);
    }
    if (target != nullptr) {
        target->Finish(end);
    }
}

} // namespace kxvcr
