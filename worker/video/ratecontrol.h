/**
 * @file
 * How coarsely a picture is quantised: as the quality says, and coarser when the stream comes near its bit rate.
 */
#pragma once

#include "worker/packet.h"
#include "worker/video/videoencoder.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace kxvcr {

/** The quantiser, on the scale of H.264, that stands for a quality of 1 to 100: 44 to 12. */
int QuantiserOf(std::uint32_t quality) noexcept;

/** The cap of a stream's bits a second: what the settings say, or a default for pictures of this size. */
double BitRateOf(const EncoderSettings& settings, std::uint32_t width, std::uint32_t height) noexcept;

/**
 * Counts what was spent against a reserve of some seconds that fills with time. While a good part of it is left, every
 * picture has the same quantiser; from there on the quantiser grows with what is missing.
 */
class RateControl {
public:
    RateControl(int smallestQuantiser, double bitsPerSecond) noexcept
        : m_smallest(smallestQuantiser),
          m_bitsPerSecond(bitsPerSecond) {}

    /** The quantiser for the picture of that time, which is above the one before. */
    int QuantiserAt(MediaTime time) noexcept;

    /** Says how large the picture became. */
    void Spend(std::size_t bytes) noexcept;

private:
    int m_smallest;
    double m_bitsPerSecond;
    double m_spentBits = 0;
    std::optional<MediaTime> m_last;
};

} // namespace kxvcr
