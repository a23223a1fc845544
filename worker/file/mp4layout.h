/**
 * @file
 * Which boxes an MP4 file and its fragments consist of; shared by the recording's file and the live view.
 */
#pragma once

#include "worker/file/mp4boxes.h"
#include "worker/packet.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kxvcr::mp4 {

/** Of the movie and of the track of pictures; the sound's is its sample rate. */
inline constexpr std::uint32_t kTimescale = 90'000;

inline constexpr std::uint32_t kPictureTrackId = 1;
inline constexpr std::uint32_t kSoundTrackId = 2;

/** @p time in units of @p timescale, rounded to the nearest one. */
constexpr std::int64_t Ticks(MediaTime time, std::uint32_t timescale) noexcept {
    constexpr std::int64_t kPerSecond = MediaTime::period::den;
    const std::int64_t seconds = time.count() / kPerSecond;
    const std::int64_t rest = time.count() % kPerSecond * timescale;
    const std::int64_t half = rest < 0 ? -kPerSecond / 2 : kPerSecond / 2;
    return seconds * timescale + (rest + half) / kPerSecond;
}

/** A movie without samples and times: the track of pictures, and behind it the one of sound when there is sound. */
Movie DescribeMovie(const StreamFormat& format);

/** Says in @p movie that fragments follow. */
void ExpectFragments(Movie& movie, const StreamFormat& format);

/** One track's share of a fragment. */
struct FragmentPart {
    std::uint32_t trackId = 0;
    std::int64_t time = 0; ///< of the first sample, in the track's timescale
    TrackRun run;
    std::vector<std::span<const std::byte>> data; ///< the samples' bytes, borrowed
};

/** A movie fragment and its media data box, in one block. */
struct Fragment {
    Bytes bytes;
    std::vector<std::size_t> dataOffsets; ///< where each part's first sample begins in @p bytes

    /** Where the duration of the last part's last sample stands in @p bytes, when that part says durations and flags.
     */
    std::size_t lastDurationOffset = 0;
};

/**
 * @param sequenceNumber grows from fragment to fragment of a file or stream
 * @param block memory to be used for the fragment's bytes; what it holds is dropped
 */
Fragment MakeFragment(std::uint32_t sequenceNumber, std::span<const FragmentPart> parts, Bytes block = {});

} // namespace kxvcr::mp4
