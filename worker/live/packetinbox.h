/**
 * @file
 * Hands packets from the recorder's thread to the live server's.
 */
#pragma once

#include "worker/packet.h"

#include <cstddef>
#include <mutex>
#include <vector>

namespace kxvcr {

/** Bounded: when the server's thread does not come to it in time, everything that waits is lost. */
class PacketInbox {
public:
    /** What has come since the packets were taken before. */
    struct Content {
        std::vector<SharedPacket> packets;
        bool hasGap = false; ///< packets were lost before these
    };

    /** @return whether it was empty, so that somebody must be told to take the content. @throws std::bad_alloc */
    bool Put(const SharedPacket& packet);

    Content Take() noexcept;

private:
    std::mutex m_mutex;
    Content m_content;
    std::size_t m_bytes = 0;
    bool m_isAnnounced = false;
};

} // namespace kxvcr
