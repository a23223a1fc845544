/**
 * @file
 * Answers a host's commands: checks order and payload, and calls the recording device.
 */
#pragma once

#include "sdk/vcr/workerprotocol.h"
#include "worker/capture/screenlayout.h"
#include "worker/settings.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace kxvcr {

/** What the commands command. A result other than Accepted leaves the device as it was. */
class RecordingDevice {
public:
    virtual ~RecordingDevice() = default;
    virtual ScreenLayout Layout() const = 0;
    virtual Result Prepare(const RecordSettings& settings) = 0;
    virtual Result StartFile(const std::wstring& path) = 0;
    virtual LiveStart StartLive(const LiveSettings& settings) = 0;
};

/** How far the commands have come. Refused commands leave it as it was. */
enum class Progress {
    Waiting,   ///< for prepare
    Prepared,  ///< for a start
    Recording, ///< only stop is left
    Serving,   ///< the live server runs: only stop is left
};

/** Answers commands one after the other; to be called from one thread. */
class CommandHandler {
public:
    explicit CommandHandler(RecordingDevice& device) noexcept : m_device(device) {}

    /**
     * Carries out one command; a refusal is logged. Never throws.
     * @return the number to reply: a Result, or the positive value that an accepted command's answer carries
     */
    std::int32_t Answer(std::uint32_t messageId, std::span<const std::byte> payload) noexcept;

private:
    struct Command;
    static const Command kCommands[];

    struct Answered {
        Result result = Result::Accepted;
        std::uint16_t value = 0; // what an accepted command's answer carries
    };

    Answered CarryOut(const Command& command, std::span<const std::byte> payload) noexcept;
    Answered Prepare(std::span<const std::byte> payload);
    Answered StartLocalRecord(std::span<const std::byte> payload);
    Answered StartLiveServer(std::span<const std::byte> payload);

    RecordingDevice& m_device;
    Progress m_progress = Progress::Waiting;
};

} // namespace kxvcr
