/**
 * @file
 * What a user is told when the worker refuses a command: what was wrong, in the user's own values.
 */
#pragma once

#include "host/displays.h"
#include "host/failure.h"

#include "screenrecordproxy.h"
#include "sdk/vcr/workerprotocol.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kxrecord {

/** Which command was refused. */
enum class Command { Prepare, PrepareReplay, StartFile, StartLive };

/** What was asked of the worker; borrowed. */
struct Request {
    const KxScreenRecord::ScreenRecordParam& picture;
    std::wstring file;      ///< full path; empty for a live view
    std::uint32_t port = 0; ///< of a live view
};

/** How the exchange of a command failed, as the library's log has it. */
struct Exchange {
    std::optional<std::int32_t> result; ///< the worker's refusal
    bool isUnanswered = false;          ///< no answer came in time, or the worker ended
};

/**
 * The failure of a command.
 * @param workerLog full path of the worker's log, which the sentence names where it says more; empty when there is none
 */
Failure ExplainRefusal(Command command, const Exchange& exchange, const Request& request, const Screen& screen,
                       const std::wstring& workerLog);

} // namespace kxrecord
