/**
 * @file
 * Changes a sound's sample rate, by a ratio that can be corrected while it runs.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kxvcr {

/** From a device's rate to kSoundRate, in stereo: a windowed sinc, read off a table at any place between two samples.
 */
class Resampler {
public:
    /** @throws std::bad_alloc */
    explicit Resampler(std::uint32_t samplesPerSecond);

    /** Makes the sound longer by so many millionths, from here on and without a break. */
    void Stretch(std::int32_t partsPerMillion) noexcept;

    /** Begins anew: the next frame that is given is the first that comes out, and nothing is heard before it. */
    void Restart();

    /** Frames, at kSoundRate, that were given and have not come out yet. */
    double Waiting() const noexcept;

    /**
     * Appends to @p target what can be known of the result. @param samples two for each frame
     * @throws std::bad_alloc
     */
    void Append(std::span<const float> samples, std::vector<float>& target);

private:
    void AppendFrame(std::vector<float>& target) const;

    double m_ratio;             // frames of the device for each that comes out, as the device says
    double m_step;              // the same, corrected
    std::size_t m_half;         // frames of the device before and behind a place that are heard there
    std::vector<float> m_table; // 2 * m_half coefficients for each of the places between two frames
    std::vector<float> m_given; // two samples for each frame that is still needed
    double m_place = 0;         // of the next frame that comes out, in frames of m_given
};

} // namespace kxvcr
