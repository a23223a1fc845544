/**
 * @file
 * The sound's thread: devices become packets.
 */
#pragma once

#include "common/win/handle.h"
#include "worker/packet.h"
#include "worker/sound/soundencoder.h"
#include "worker/sound/soundmixer.h"
#include "worker/sound/soundsource.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace kxvcr {

/** Listens to devices from the beginning on, and makes packets of what it hears from Start() to Finish(). */
class SoundCapture {
public:
    /**
     * Begins to open the devices.
     * @throws std::bad_alloc, std::system_error when the system refuses the thread
     */
    explicit SoundCapture(std::vector<std::unique_ptr<SoundSource>> sources);

    /** Ends at once. */
    ~SoundCapture();
    SoundCapture(const SoundCapture&) = delete;
    SoundCapture& operator=(const SoundCapture&) = delete;

    /** Waits until the devices have been opened. @return whether they all could be; the log says which could not */
    bool IsOpen() const noexcept;

    /**
     * Makes packets from the moment 0 of @p clock on. To be called once.
     * @param encoder borrowed, as @p sink; both are used until the end
     */
    void Start(SoundClock clock, SoundEncoder& encoder, PacketSink& sink);

    /**
     * Makes the packets up to @p end, which takes half a second at most, and ends. To be called once.
     * @param dropWaiting whether nothing more is made
     */
    void Finish(MediaTime end, bool dropWaiting) noexcept;

private:
    struct Output {
        SoundEncoder* encoder;
        PacketSink* sink;
        std::vector<float> block; // of one packet
    };

    void Run() noexcept;
    bool OpenDevices() noexcept;
    void Step() noexcept;
    void Make(std::int64_t until);
    void MakeLast() noexcept;

    SoundMixer m_mixer;
    kx::KernelHandle m_stop;
    kx::KernelHandle m_openingEnded;
    std::atomic<bool> m_isOpen = false;
    std::mutex m_mutex; // for the next two
    std::optional<Output> m_output;
    std::optional<MediaTime> m_end; // none: ends at once
    std::thread m_thread;
};

} // namespace kxvcr
