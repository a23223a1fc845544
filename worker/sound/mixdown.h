/**
 * @file
 * A device's sound as two channels.
 */
#pragma once

#include "worker/sound/soundsource.h"

#include <array>
#include <cstddef>
#include <vector>

namespace kxvcr {

/**
 * Makes left and right out of a device's channels: those of the front as they are, the middle and those of the back
 * and the sides 3 dB lower, the low-frequency channel not at all. One channel alone is heard on both sides.
 */
class Mixdown {
public:
    /** @throws std::bad_alloc */
    explicit Mixdown(const DeviceFormat& format);

    /** Appends two samples for each frame of @p piece to @p target. @throws std::bad_alloc */
    void Append(const SoundPiece& piece, std::vector<float>& target) const;

private:
    using Gains = std::array<float, 2>; // of a channel: in the left and in the right

    DeviceFormat m_format;
    std::size_t m_sampleSize;
    std::vector<Gains> m_gains;
};

} // namespace kxvcr
