/**
 * @file
 * MP4 in pieces, for viewers that append one piece after the other (Media Source Extensions).
 */
#pragma once

#include "worker/packet.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kxvcr {

/**
 * What a viewer must be given before the first fragment.
 * @throws std::bad_alloc
 */
std::vector<std::byte> FragmentedMp4Head(const StreamFormat& format);

/** What a fragment needs besides its packet. */
struct FragmentTiming {
    std::uint32_t sequenceNumber = 1; ///< counts a viewer's fragments
    MediaTime start{};                ///< the moment that is the viewer's time 0; not above the packet's time
    MediaTime duration{};             ///< how long a picture is shown; sound knows by itself
};

/**
 * The fragment for one packet. A picture's duration reaches from tick to tick of the timescale, so that the next
 * fragment begins exactly where this one ends when its packet's time is this one's plus the duration.
 * @throws std::bad_alloc
 */
std::vector<std::byte> FragmentOfPacket(const StreamFormat& format, const Packet& packet, const FragmentTiming& timing);

} // namespace kxvcr
