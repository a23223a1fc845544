/**
 * @file
 * What one viewer of the video stream is still to be sent.
 */
#pragma once

#include "worker/live/httpserver.h"
#include "worker/packet.h"

#include <cstddef>
#include <cstdint>
#include <deque>

namespace kxvcr {

/** A packet as viewers get it; made once, for all of them. */
struct Fragment {
    Stream stream = Stream::Picture;
    bool isKey = false;
    MediaTime time{};
    SharedBytes bytes;
};

/**
 * Keeps a viewer's fragments until it takes them. One that is too slow loses all of them, and everything up to the next
 * key picture: what is sent can always be decoded, and is never old. Used by one thread.
 */
class FragmentQueue {
public:
    /** Adds a fragment, unless a key picture must come first. */
    void Add(const Fragment& fragment);

    /** Says that packets are missing between those before and those after. */
    void NoteGap();

    /** The next fragment; null bytes when there is none. */
    Fragment Take();

    /** Whether only a key picture can come next. */
    bool WaitsForKey() const noexcept { return m_waitsForKey; }

    /** How often the viewer has lost what was waiting for it. */
    std::uint64_t LostGroups() const noexcept { return m_lostGroups; }

private:
    bool IsTooMuch() const noexcept;

    std::deque<Fragment> m_fragments;
    std::size_t m_bytes = 0;
    bool m_waitsForKey = true;
    std::uint64_t m_lostGroups = 0;
};

} // namespace kxvcr
