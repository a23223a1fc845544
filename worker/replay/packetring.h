/**
 * @file
 * The last seconds of the screen, kept as packets until a recording begins with them.
 */
#pragma once

#include "worker/packet.h"

#include <cstddef>
#include <deque>
#include <vector>

namespace kxvcr {

/** Packets kept take no more memory than this, the newest group of pictures aside. */
inline constexpr std::size_t kReplayMemoryLimit = std::size_t{256} << 20;

/**
 * Keeps the newest packets, bounded in time and in memory. What goes are whole groups of pictures, from a key picture
 * to before the next one, so that what stays can be decoded. Not thread-safe.
 */
class PacketRing {
public:
    /** What a packet takes beside its bytes, as Bytes() counts it. */
    static constexpr std::size_t kBytesPerPacket = 160;

    /** Keeps nothing. @throws std::bad_alloc */
    PacketRing() = default;

    /**
     * @param memoryLimit in bytes; the newest group of pictures is kept even when it is larger
     * @throws std::bad_alloc
     */
    PacketRing(MediaTime length, std::size_t memoryLimit) : m_length(length), m_memoryLimit(memoryLimit) {}

    /** Keeps a packet and drops what is too old or too much. Each stream's times grow. @throws std::bad_alloc */
    void Add(const SharedPacket& packet);

    /** Whether nothing is dropped for now. */
    void Hold(bool hold) noexcept { m_held = hold; }

    /** Where a file begins that is started at @p now: the length before, or the first picture that is kept. */
    MediaTime StartFor(MediaTime now) const noexcept;

    /**
     * Hands out what a file needs that begins at @p start, in the order of time, and keeps nothing more. The first
     * picture is a key picture; those before the start are there to be decoded. @throws std::bad_alloc
     */
    std::vector<SharedPacket> Take(MediaTime start);

    /** Memory held by the packets. */
    std::size_t Bytes() const noexcept { return m_bytes; }

private:
    void DropGroupsBefore(MediaTime start) noexcept;
    bool DropFirstGroup() noexcept;
    void DropSoundBefore(MediaTime start) noexcept;
    void DropFirst(std::deque<SharedPacket>& packets) noexcept;

    MediaTime m_length{};
    std::size_t m_memoryLimit = 0;
    bool m_held = false;
    std::deque<SharedPacket> m_pictures;
    std::deque<SharedPacket> m_sound;
    std::size_t m_bytes = 0;
};

} // namespace kxvcr
