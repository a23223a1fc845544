/**
 * @file
 * What a host can choose: the commands' parameters, checked and with their defaults filled in.
 */
#pragma once

#include "sdk/vcr/workerprotocol.h"
#include "worker/capture/capturearea.h"

#include <array>
#include <cstdint>
#include <optional>

namespace kxvcr {

/** Whose sound is recorded; neither: none is. */
struct SoundSettings {
    bool machine = false;    ///< what the machine plays
    bool microphone = false; ///< what is spoken into it

    /** Whether there is any. */
    explicit operator bool() const noexcept { return machine || microphone; }
};

/** What a prepare command asks for. */
struct RecordSettings {
    CaptureArea area;
    std::uint32_t framesPerSecond = kDefaultFramesPerSecond;
    std::uint32_t quality = kDefaultQuality;
    std::uint32_t bitRate = 0; ///< the most kilobits a second; 0: the encoder's default
    bool vp9Replay = false;    ///< the replay is kept as VP9 instead of H.264
    bool drawCursor = false;
    SoundSettings sound;
    std::uint32_t replaySeconds = 0; ///< of the screen, kept from prepare on until a recording begins with them
};

/** The first part of every path of a live server that is not open to everybody who reaches it. */
using LiveKey = std::array<std::uint8_t, 16>;

/** What a start-live-server command asks for. */
struct LiveSettings {
    std::uint16_t port = 0; ///< 0 lets the system choose
    std::uint32_t maxClients = kDefaultLiveClients;
    bool allInterfaces = false; ///< else loopback only
    std::optional<LiveKey> key; ///< none: everybody who reaches the server is answered
};

/** What starting the live server came to. */
struct LiveStart {
    Result result = Result::Accepted;
    std::uint16_t port = 0; ///< that the server listens on; 0 unless it was accepted
};

} // namespace kxvcr
