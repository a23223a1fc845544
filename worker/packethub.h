/**
 * @file
 * Where the packets go: into the replay, and from a start on into a file or to the live server.
 */
#pragma once

#include "worker/packet.h"
#include "worker/replay/packetring.h"

#include <cstddef>
#include <memory>
#include <mutex>

namespace kxvcr {

/**
 * Gives every packet to the replay until the one switch to a target, and to the target from then on. All members may be
 * called from any thread; each stream's packets come from one.
 */
class PacketHub final : public PacketSink {
public:
    /** Keeps packets for so long until the switch; none unless told. @return false when there is no memory for it */
    bool KeepReplay(MediaTime length, std::size_t memoryLimit) noexcept;

    /** Keeps nothing any more, and drops what was kept. */
    void DropReplay() noexcept;

    /**
     * Keeps everything that is kept at the moment until the switch, or until ReleaseReplay().
     * @param now the end of the slots that were captured
     * @return the start of a file that takes the replay over
     */
    MediaTime HoldReplay(MediaTime now) noexcept;
    void ReleaseReplay() noexcept;

    /**
     * Gives what was kept, from @p start on and with what is needed to decode it, and then every packet to @p target;
     * none is lost or given twice. @return false when the recording has ended. @throws std::bad_alloc, and then
     * everything is still kept
     */
    bool SwitchTo(const std::shared_ptr<PacketSink>& target, MediaTime start);

    /** Drops what was kept and gives every packet from now on to @p target. @return false when the recording has ended
     */
    bool SwitchToWithoutReplay(const std::shared_ptr<PacketSink>& target) noexcept;

    /** Takes the target away before anything was given, because the recording could not be started. */
    void Detach() noexcept;

    bool Add(const SharedPacket& packet) override;

    /** Finishes the target, if any. To be called when all streams have ended. */
    void Finish(MediaTime end) override;

private:
    std::mutex m_mutex;
    std::unique_ptr<PacketRing> m_replay; // null when nothing is to be kept
    std::shared_ptr<PacketSink> m_target;
    bool m_ended = false;
};

} // namespace kxvcr
