/**
 * @file
 * How much the encoder is asked to do when it cannot keep up with the screen, and when it is asked for more again.
 */
#pragma once

#include "worker/packet.h"
#include "worker/video/videoencoder.h"

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace kxvcr {

/** One rung of the ladder. */
struct EffortRung {
    Effort effort;
    std::uint32_t step;         ///< every how many slots a picture is taken
    double dearerBy;            ///< what a second of the rung above costs, in seconds of this one
    const wchar_t* whenReached; ///< a sentence for the log when this rung was taken because the one above was too dear
};

/** Decides about the rung from what the pictures' encoding took. To be used by one thread. */
class EffortLadder {
public:
    static constexpr MediaTime kSpan = std::chrono::seconds(1);          ///< the load is judged once in so much time
    static constexpr MediaTime kPatience = std::chrono::seconds(5);      ///< calm before the rung above is tried
    static constexpr MediaTime kMostPatience = std::chrono::seconds(80); ///< it doubles up to here with each failed try
    static constexpr double kBusyShare = 0.85; ///< above this share of its time, the encoder is what loses pictures
    static constexpr double kCalmShare = 0.7;  ///< the share that the rung above may be expected to take

    /**
     * Notes an encoded picture.
     * @param now the present moment, on the clock of the pictures
     * @param took the time of its encoding
     * @param dropped pictures that were lost until now because the encoder had no time
     * @return whether the rung is another one now
     */
    bool Note(MediaTime now, MediaTime took, std::uint64_t dropped) noexcept;

    const EffortRung& Rung() const noexcept;

    /** Whether the last change was to a cheaper rung. */
    bool WentDown() const noexcept { return m_wentDown; }

private:
    void GoDown(MediaTime now) noexcept;
    void GoUp(MediaTime now) noexcept;
    void BeginSpan(MediaTime now, std::uint64_t dropped) noexcept;

    std::size_t m_rung = 0;
    bool m_wentDown = false;
    MediaTime m_spanStart{};
    MediaTime m_busy{}; // within the span
    std::uint64_t m_droppedAtStart = 0;
    MediaTime m_calmSince{};
    MediaTime m_patience = kPatience;
    MediaTime m_wentUpAt = MediaTime::min();
};

} // namespace kxvcr
