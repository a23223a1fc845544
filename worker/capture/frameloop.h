/**
 * @file
 * The capture: looks at the screen at the frame clock's pace and hands on what changed.
 */
#pragma once

#include "worker/capture/pacing.h"
#include "worker/capture/picturequeue.h"
#include "worker/capture/picturesource.h"
#include "worker/ticks.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>

namespace kxvcr {

/** What became of the slots of one recording, and the time that looking at the screen took. */
struct CaptureStatistics {
    std::uint64_t looks = 0;     ///< slots in which the screen was looked at
    std::uint64_t unchanged = 0; ///< of these, slots in which nothing had changed or the screen could not be read
    std::uint64_t missed = 0;    ///< slots that were over before anybody could look
    std::uint64_t spared = 0;    ///< slots left out so that the encoder keeps up
    std::uint64_t quiet = 0;     ///< slots without a look, because the source knew that nothing had changed
    std::int64_t grabTicks = 0;
};

/**
 * Takes pictures for slots. A slot without a picture shows the one before it. A picture's time is that of its
 * presentation where its source tells it, else that of the slot in the middle of the look.
 */
class FrameLoop {
public:
    /** A picture that lasts longer is handed on again: MP4 has no number for one of more than 13 hours. */
    static constexpr MediaTime kLongestStill = std::chrono::hours(1);

    /** @param pictures of the source's size; at least PictureQueue::kMost + 2 */
    FrameLoop(PictureSource& source, PicturePool& pictures, PictureQueue& queue, std::uint32_t framesPerSecond,
              MediaTime longestStill = kLongestStill) noexcept
        : m_source(source),
          m_pictures(pictures),
          m_queue(queue),
          m_framesPerSecond(framesPerSecond),
          m_longestStill(longestStill),
          m_clock(NowTicks(), TicksPerSecond(), framesPerSecond) {}

    /**
     * Runs until @p stop is signalled. Slot 0 is when the object was made.
     * @return the end of the recording: the first slot that was not due yet
     */
    MediaTime Run(HANDLE stop);

    // May be called from any thread while it runs:

    /** Gives the encoder a picture to make a key picture of in the next slot, also when nothing has changed. */
    void RequestKey() noexcept { m_keyWanted = true; }

    /** From now on looks in every @p step th slot only. */
    void TakeEvery(std::uint32_t step) noexcept { m_step = step; }

    /** The present moment on the packets' clock. */
    MediaTime Now() const noexcept { return TimeAt(NowTicks()); }

    /** The moment of a tick of the performance counter on the packets' clock. */
    MediaTime TimeAt(std::int64_t ticks) const noexcept { return m_clock.TimeAt(ticks); }

    /** The slot that is looked at next. */
    std::uint64_t NextSlot() const noexcept { return m_nextSlot; }

    /** The newest picture that was handed on; null when there is none yet. */
    SharedPicture Newest() const noexcept;

    /** Slots in which the screen could not be looked at because the encoder was not done with what it had. */
    std::uint64_t Dropped() const noexcept { return m_dropped; }

    /** To be read when Run() has returned. */
    const CaptureStatistics& Statistics() const noexcept { return m_statistics; }

private:
    Change AwaitChange();
    std::uint64_t Waited(std::uint64_t slot);
    std::uint64_t Look(std::uint64_t slot);
    void NoteLooked(std::uint64_t end, std::int64_t lookedTicks);
    void HandOn(const SharedPicture& picture, MediaTime time, MediaTime captured);
    void NoteReadable(bool readable);

    PictureSource& m_source;
    PicturePool& m_pictures;
    PictureQueue& m_queue;
    std::uint32_t m_framesPerSecond;
    MediaTime m_longestStill;
    FrameClock m_clock;
    std::atomic<std::uint64_t> m_nextSlot = 0;
    std::atomic<std::uint32_t> m_step = 1;
    std::atomic<bool> m_keyWanted = false;
    std::atomic<std::uint64_t> m_dropped = 0;
    bool m_readable = true;
    std::uint64_t m_number = 0;
    MediaTime m_free{};  // no picture's time is before it any more
    MediaTime m_shown{}; // of the picture that was handed on last
    CaptureStatistics m_statistics;

    mutable std::mutex m_mutex; // for m_newest, which only Run() changes
    SharedPicture m_newest;
};

} // namespace kxvcr
