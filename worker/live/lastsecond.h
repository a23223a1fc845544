/**
 * @file
 * What the live server tells about the pictures of the last second.
 */
#pragma once

#include "worker/packet.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>

namespace kxvcr {

/** Counts packets and their bytes within a second. Used by one thread. */
class LastSecond {
public:
    using Clock = std::chrono::steady_clock;

    void Add(const Packet& packet, Clock::time_point now);

    std::size_t Pictures(Clock::time_point now);

    /** Of pictures and sound together. */
    std::uint64_t BitsPerSecond(Clock::time_point now);

private:
    struct Entry {
        Clock::time_point time;
        bool isPicture = false;
        std::size_t bytes = 0;
    };

    void DropOlder(Clock::time_point now);

    std::deque<Entry> m_entries;
};

} // namespace kxvcr
