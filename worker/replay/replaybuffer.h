/**
 * @file
 * The last seconds of the screen, kept as encoded pictures until a recording begins with them.
 */
#pragma once

#include "worker/replay/picturequeue.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace kxvcr {

/** Pictures kept take no more memory than this. */
inline constexpr std::size_t kReplayMemoryLimit = std::size_t{256} << 20;

/** Keeps the newest pictures, bounded in slots and in memory; the oldest go first. Not thread-safe. */
class ReplayBuffer {
public:
    /** Keeps nothing. */
    ReplayBuffer() noexcept = default;

    /** @param memoryLimit in bytes, as PictureQueue counts them; one picture is kept even when it is larger */
    ReplayBuffer(std::uint64_t slots, std::size_t memoryLimit) noexcept : m_slots(slots), m_memoryLimit(memoryLimit) {}

    /** Keeps the picture of a slot. Slots grow from call to call. @throws std::bad_alloc */
    void Add(std::uint64_t slot, std::span<const std::byte> jpeg);

    /** Hands out everything that is kept. */
    PictureQueue Take() noexcept;

    /** Memory held by the pictures. */
    std::size_t Bytes() const noexcept { return m_queue.Bytes(); }

private:
    std::uint64_t m_slots = 0;
    std::size_t m_memoryLimit = 0;
    PictureQueue m_queue;
};

} // namespace kxvcr
