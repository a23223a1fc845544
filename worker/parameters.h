/**
 * @file
 * Reads the payloads of commands: checks every field and gives it its meaning.
 *
 * The bytes come from another process. Nothing outside the payload is read, whatever it says.
 */
#pragma once

#include "sdk/vcr/workerprotocol.h"
#include "worker/capture/screenlayout.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace kxvcr {

/** What part of the screen the pictures show. */
struct CaptureArea {
    ScreenRect area;            ///< the pixels at the time of the command; their size is the size of every picture
    HMONITOR monitor = nullptr; ///< set when the area is a whole monitor, whose changes are followed
    bool wholeScreen = false;   ///< the area is the virtual screen, whose changes are followed
};

/** A checked prepare command with its defaults filled in. */
struct RecordSettings {
    CaptureArea area;
    std::uint32_t framesPerSecond = kDefaultFramesPerSecond;
    std::uint32_t quality = kDefaultQuality;
    std::uint32_t bitRate = 0; ///< the most kilobits a second; 0: the encoder's default
    bool vp9Replay = false;    ///< the replay is kept as VP9 instead of H.264
    bool drawCursor = false;
    std::uint32_t replaySeconds = 0; ///< of the screen, kept from prepare on until a recording begins with them
};

/**
 * Reads the payload of a prepare command: a ScreenRecordParam, optionally followed by the time-machine value.
 * @param settings written when the command is accepted, else untouched
 */
Result ReadPrepare(std::span<const std::byte> payload, const ScreenLayout& layout, RecordSettings& settings);

/**
 * Reads the payload of a start-local-record command: UTF-16 characters and a terminating zero.
 * @param path written when the command is accepted, else untouched
 * @throws std::bad_alloc
 */
Result ReadLocalRecord(std::span<const std::byte> payload, std::wstring& path);

/** A checked start-live-server command with its defaults filled in. */
struct LiveSettings {
    std::uint16_t port = 0; ///< 0 lets the system choose
    std::uint32_t maxClients = kDefaultLiveClients;
    bool allInterfaces = false; ///< else loopback only
};

/**
 * Reads the payload of a start-live-server command.
 * @param settings written when the command is accepted, else untouched
 */
Result ReadLiveServer(std::span<const std::byte> payload, LiveSettings& settings);

} // namespace kxvcr
