/**
 * @file
 * What went wrong, as a user is told: one table from the stage and its code to an exit code and a sentence.
 */
#pragma once

#include "host/exitcode.h"

#include <cstdint>
#include <string>

namespace kxrecord {

/** A failure with everything that a report needs. */
struct Failure {
    Exit exit = Exit::Internal;
    std::int64_t code = 0; ///< of the proxy, the worker (a negative result as well) or the system; 0 when there is none
    std::wstring sentence; ///< what happened and what to do, without a line feed
};

/** Where a code comes from: the same number means different things at different stages. */
enum class Stage {
    Start,              ///< RunProcess: the proxy's or the system's code, or that of a worker that ended at once
    StartWithoutWorker, ///< RunProcess, when no KXVCR.exe lies beside the host
    Recording,          ///< exit code of a worker that ended while it recorded
    Serving,            ///< exit code of a worker that ended while it served the live view
    Finish,             ///< exit code of a worker that was told to stop, or 258 when it did not end
};

/**
 * The failure of a stage.
 * @param workerLog full path of the worker's log, which the sentence names; empty when there is none
 */
Failure Explain(Stage stage, unsigned long code, const std::wstring& workerLog);

/** ": see PATH", or nothing when there is no log to see. */
std::wstring LogHint(const std::wstring& log);

/** A failure of kxrecord's own, with no code but its exit code. */
Failure HostFailure(Exit exit, std::wstring sentence);

} // namespace kxrecord
