/**
 * @file
 * Reads the payloads of commands: checks every field and gives it its meaning.
 *
 * The bytes come from another process. Nothing outside the payload is read, whatever it says.
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

/**
 * Reads the payload of a prepare command: a ScreenRecordParam, optionally followed by the time-machine value.
 * @param settings written when the command is accepted, else untouched. Of a window it has the handle as it was given;
 *        whether there is such a window, and how large, is not looked up.
 */
Result ReadPrepare(std::span<const std::byte> payload, const ScreenLayout& layout, RecordSettings& settings);

/**
 * Reads the payload of a start-local-record command: UTF-16 characters and a terminating zero.
 * @param path written when the command is accepted, else untouched
 * @throws std::bad_alloc
 */
Result ReadLocalRecord(std::span<const std::byte> payload, std::wstring& path);

/**
 * Reads the payload of a start-live-server command.
 * @param settings written when the command is accepted, else untouched
 */
Result ReadLiveServer(std::span<const std::byte> payload, LiveSettings& settings);

} // namespace kxvcr
