/**
 * @file
 * The newest picture of the live server, shared by all its viewers.
 */
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <string>

namespace kxvcr {

/** The boundary of the stream's parts. */
inline constexpr char kPartBoundary[] = "kxframe";

/** One encoded picture, wrapped as a part of the stream: made once, sent to every viewer. */
class LivePicture {
public:
    /** @throws std::bad_alloc */
    LivePicture(std::uint64_t number, std::span<const std::byte> jpeg);

    std::uint64_t Number() const noexcept { return m_number; }

    /** The part: its header lines, the picture, and the boundary that tells a viewer that it is complete. */
    std::span<const char> Part() const noexcept { return m_part; }

    std::span<const char> Jpeg() const noexcept { return Part().subspan(m_jpegOffset, m_jpegSize); }

private:
    std::uint64_t m_number;
    std::size_t m_jpegOffset = 0;
    std::size_t m_jpegSize = 0;
    std::string m_part;
};

/** Hands the newest picture from the one who publishes to those who wait. All members may be called from any thread. */
class LivePictures {
public:
    using Clock = std::chrono::steady_clock;
    using Picture = std::shared_ptr<const LivePicture>;

    /** Replaces the newest picture, unless @p jpeg is the same. Never waits for a viewer. @throws std::bad_alloc */
    void Publish(std::span<const std::byte> jpeg);

    /**
     * Waits for a picture whose number is above @p number; numbers start at 1.
     * @return the newest picture; null when there is none in time or the pictures have ended
     */
    Picture WaitNewer(std::uint64_t number, std::chrono::milliseconds patience) const;

    /** Ends the pictures and every wait. */
    void End() noexcept;
    bool Ended() const noexcept;

    /** Pictures published within the last second. */
    std::size_t Rate() const;

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    Picture m_newest;
    std::deque<Clock::time_point> m_times; // of the pictures within the last second
    bool m_ended = false;
};

} // namespace kxvcr
