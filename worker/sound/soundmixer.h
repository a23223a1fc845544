/**
 * @file
 * Several devices become one sound.
 */
#pragma once

#include "worker/packet.h"
#include "worker/sound/soundline.h"
#include "worker/sound/soundsource.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace kxvcr {

/** The recording's clock: the moment of a tick of the performance counter. */
using SoundClock = std::function<MediaTime(std::int64_t ticks)>;

/**
 * Listens to devices and mixes them. A device that is lost is silent until it can be opened again, which is tried once
 * a second; the log says when it goes and when it comes. To be used by one thread.
 */
class SoundMixer {
public:
    explicit SoundMixer(std::vector<std::unique_ptr<SoundSource>> sources);

    /** Opens all devices. @return false, after an ERROR in the log, when there is one that cannot be opened */
    bool Open();

    /** From now on sound is kept, from frame 0 on, which is the moment 0 of @p clock. */
    void Start(SoundClock clock);

    /** Takes what the devices have. @param now in ticks of the performance counter @throws std::bad_alloc */
    void Listen(std::int64_t now);

    /** The frame up to which the sound can be mixed: nothing of it is still expected. After Start() only. */
    std::int64_t Ready(std::int64_t now) const;

    /** Makes the next frames. @param target two samples a frame */
    void Mix(std::span<float> target);

    /** The first frame that was not made yet. */
    std::int64_t Position() const noexcept { return m_position; }

    /** Writes into the log how the devices' clocks ran. */
    void LogSummary() const;

    /** Lets the devices go, in the thread that opened them. Nothing else may be called afterwards. */
    void Close() noexcept { m_devices.clear(); }

private:
    struct Device {
        std::unique_ptr<SoundSource> source;
        SoundLine line;
        bool isOpen = false;
        std::optional<std::int64_t> heardAt; // ticks: when it gave something last
        std::int64_t triedAt = 0;            // ticks: when it was opened last
        std::uint64_t losses = 0;
    };

    void Listen(Device& device, std::int64_t now);
    void Take(Device& device, const SoundPiece& piece, std::int64_t now);
    void TryAgain(Device& device, std::int64_t now);

    std::vector<Device> m_devices;
    SoundClock m_clock;
    std::int64_t m_position = 0;
};

} // namespace kxvcr
