/**
 * @file
 * The interface of what makes packets out of sound.
 */
#pragma once

#include "worker/packet.h"

#include <cstdint>
#include <span>

namespace kxvcr {

/** Of all sound between its device and its encoder: interleaved floating-point samples, full scale from -1 to 1. */
inline constexpr std::uint32_t kSoundRate = 48'000;
inline constexpr std::uint32_t kSoundChannels = 2; ///< left, right

/** The moment of a frame of a recording, counted from its time 0, rounded to the nearest 100 ns. */
constexpr MediaTime FrameTime(std::int64_t frame) noexcept {
    const std::int64_t seconds = frame / kSoundRate;
    const std::int64_t rest = frame % kSoundRate * MediaTime::period::den;
    const std::int64_t half = rest < 0 ? -std::int64_t{kSoundRate} / 2 : std::int64_t{kSoundRate} / 2;
    return MediaTime(seconds * MediaTime::period::den + (rest + half) / kSoundRate);
}

/** The frame at a moment, rounded to the nearest one. */
constexpr std::int64_t FrameAt(MediaTime time) noexcept {
    const std::int64_t seconds = time.count() / MediaTime::period::den;
    const std::int64_t rest = time.count() % MediaTime::period::den * kSoundRate;
    const std::int64_t half = rest < 0 ? -MediaTime::period::den / 2 : MediaTime::period::den / 2;
    return seconds * kSoundRate + (rest + half) / MediaTime::period::den;
}

/** Encodes one stream of sound. To be used by one thread at a time; every call that fails logs why. */
class SoundEncoder {
public:
    virtual ~SoundEncoder() = default;

    /** The format of all packets; known from the start and never changed. */
    virtual const SoundFormat& Format() const noexcept = 0;

    /**
     * Encodes the next samplesPerPacket frames.
     * @param samples two for each frame; what is above full scale is cut
     * @param firstFrame the recording's frame that the samples begin with; the packet's time lies the decoder's delay
     *        before it
     * @return null when they could not be encoded
     */
    virtual SharedPacket Encode(std::span<const float> samples, std::int64_t firstFrame) = 0;
};

} // namespace kxvcr
