/**
 * @file
 * One device's sound, laid on the recording's time.
 */
#pragma once

#include "worker/packet.h"
#include "worker/sound/mixdown.h"
#include "worker/sound/resampler.h"
#include "worker/sound/soundsource.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace kxvcr {

/**
 * Keeps a device's sound where the recording's clock says that it was heard.
 *
 * - The device's clock and the recording's run apart. How far the sound is off is measured with every piece, and the
 *   sound is made longer or shorter by a few millionths, so that nobody hears it.
 * - What is missing becomes silence of its length; what comes for a time that was mixed already is dropped. A moment
 *   that is a little late says only that the system was slow: sound is moved at once when the device tells of a break
 *   or the difference is large, and otherwise when it stays.
 * - The moment that sound was moved to may be such a late one, too: within a second it is moved to the earliest.
 */
class SoundLine {
public:
    /** What comes from now on is of this format. @throws std::bad_alloc */
    void Begin(const DeviceFormat& format);

    /** Adds a piece whose first frame was heard at @p time. @throws std::bad_alloc */
    void Add(const SoundPiece& piece, MediaTime time);

    /** The frame of the recording up to which the sound is known. */
    std::int64_t End() const noexcept { return m_end; }

    /**
     * Adds the sound from frame @p first on to @p target, two samples a frame; what is not known is silence. The
     * frames before the end of @p target are forgotten: each call begins where the one before ended.
     */
    void MixInto(std::span<float> target, std::int64_t first);

    /** How much longer the sound is made, in millionths. */
    std::int32_t Stretch() const noexcept { return m_stretch; }

private:
    void Place(double frame);
    void BeginWindow() noexcept;
    void Follow(double error) noexcept;
    void TakeResampled();

    std::optional<Mixdown> m_mixdown;
    std::optional<Resampler> m_resampler;
    std::uint32_t m_rate = 0; // of the device

    std::vector<float> m_kept;   // two samples for each frame from m_end - m_kept.size() / 2 on
    std::int64_t m_end = 0;      // behind what is kept
    std::int64_t m_toDrop = 0;   // frames that come out of the resampler too late
    bool m_mustBePlaced = true;  // where the next piece belongs is told by its time alone
    double m_error = 0;          // frames by which the sound comes too early, smoothed
    double m_leastError = 0;     // in the present window
    double m_framesInWindow = 0; // at kSoundRate
    double m_framesToSettle = 0; // for which an earlier moment is taken at once
    std::int32_t m_stretch = 0;  // in millionths
    std::vector<float> m_stereo; // a piece in two channels
    std::vector<float> m_resampled;
};

} // namespace kxvcr
