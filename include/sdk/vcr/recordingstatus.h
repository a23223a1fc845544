/**
 * @file
 * What only the worker knows of its recording, in a place that its host can read at any time: a named section of
 * shared memory that the worker makes when a file is started. A host that keeps it open reads the final figures after
 * the worker has ended.
 */
#pragma once

#include <cstdint>

namespace kxvcr {

/** The section's name, with the process id of the host in decimal. */
inline constexpr wchar_t kRecordingStatusNameFormat[] = L"Local\\KXVCR.RecordingStatus.%lu";

inline constexpr std::uint32_t kRecordingStatusVersion = 1; ///< of the layout below

inline constexpr std::int64_t kRecordingTicksPerSecond = 10'000'000; ///< of its moments and lengths: a tick is 100 ns

/** The section's content. All moments and lengths are ticks of the file's own time. */
struct RecordingStatus {
    std::uint32_t version = kRecordingStatusVersion; ///< a reader that knows another one reads nothing
    std::uint32_t sequence = 0;   ///< odd while the worker writes: read again until it is even and the same
    std::uint64_t pictures = 0;   ///< different pictures in the file
    std::uint64_t repeats = 0;    ///< slots of the frame clock that show the picture before them
    std::uint64_t dropped = 0;    ///< pictures that the encoder had no time for
    std::int64_t liveStart = 0;   ///< where the part begins that was recorded after the start: the length of the replay
    std::int64_t length = 0;      ///< of the file
    std::uint64_t bytes = 0;      ///< in the file
    std::uint32_t isFinished = 0; ///< 1 when the file is complete and closed
    std::uint32_t reserved = 0;   ///< 0
};
static_assert(sizeof(RecordingStatus) == 64);

} // namespace kxvcr
