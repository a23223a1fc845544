/**
 * @file
 * When an encoder makes a key picture of its own accord.
 */
#pragma once

#include "worker/packet.h"
#include "worker/video/videoencoder.h"

#include <atomic>
#include <chrono>
#include <optional>

namespace kxvcr {

/** While pictures change, there is a key picture in every interval, so that a player can begin or jump there. */
class KeyClock {
public:
    /** May be called from any thread. */
    void SetInterval(MediaTime interval) noexcept { m_interval = interval; }

    bool IsDue(MediaTime time) const noexcept { return !m_last || time - *m_last >= m_interval.load(); }
    void Made(MediaTime time) noexcept { m_last = time; }

private:
    std::atomic<MediaTime> m_interval = kUsualKeyInterval;
    std::optional<MediaTime> m_last;
};

} // namespace kxvcr
