/**
 * @file
 * When an encoder makes a key picture of its own accord.
 */
#pragma once

#include "worker/packet.h"

#include <chrono>
#include <optional>

namespace kxvcr {

/** While pictures change, there is a key picture every two seconds, so that a viewer can join or jump. */
class KeyClock {
public:
    static constexpr MediaTime kInterval = std::chrono::seconds(2);

    bool IsDue(MediaTime time) const noexcept { return !m_last || time - *m_last >= kInterval; }
    void Made(MediaTime time) noexcept { m_last = time; }

private:
    std::optional<MediaTime> m_last;
};

} // namespace kxvcr
