/**
 * @file
 * Encoded pictures that wait in memory, in the order of their slots.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

namespace kxvcr {

/** One slot's picture; slots that show the same picture share its block. */
struct QueuedPicture {
    std::uint64_t slot = 0;
    std::shared_ptr<const std::vector<std::byte>> jpeg;
};

/**
 * A queue of pictures. A picture equal to the one before costs a comparison and no memory. To be used by one thread
 * at a time.
 */
class PictureQueue {
public:
    /** Memory that a picture of its own takes beside its bytes, as Bytes() counts it. */
    static constexpr std::size_t kBytesPerPicture = 128;

    /**
     * Adds the picture of a slot. Slots grow from call to call; some may be left out.
     * @param jpeg is copied
     * @throws std::bad_alloc, with the queue as it was
     */
    void Add(std::uint64_t slot, std::span<const std::byte> jpeg);

    bool Empty() const noexcept { return m_runs.empty(); }

    /** The oldest slot; the queue must not be empty. */
    std::uint64_t FirstSlot() const noexcept { return m_runs.front().first; }

    /** Takes the oldest slot out; the queue must not be empty. */
    QueuedPicture TakeFirst() noexcept;

    /** Drops all slots before @p slot. */
    void DropBefore(std::uint64_t slot) noexcept;

    /** Drops the oldest picture with all slots in a row that show it, unless it is the only one. Says whether. */
    bool DropOldestPicture() noexcept;

    /** Memory held by the pictures. */
    std::size_t Bytes() const noexcept { return m_bytes; }

private:
    // Slots in a row that show one picture.
    struct Run {
        std::uint64_t first;
        std::uint64_t end;
        std::shared_ptr<const std::vector<std::byte>> jpeg;
    };

    void DropFirstRun() noexcept;

    std::deque<Run> m_runs;
    std::shared_ptr<const std::vector<std::byte>> m_last; // what Add() compares with, even when it was taken out
    std::size_t m_bytes = 0;
};

} // namespace kxvcr
