/**
 * @file
 * What kxrecord says and returns when something fails: one table from (stage, code) to a sentence.
 */
#pragma once

#include <string>

/** Exit codes of kxrecord itself; every other one is the proxy's, the worker's or the system's code. */
enum ExitCode : unsigned long {
    kExitSuccess = 0,
    kExitBadArguments = 2,
    kExitInternal = 240,       ///< an unexpected failure inside kxrecord
    kExitNoProxy = 241,        ///< the proxy could not be created
    kExitPrepareRefused = 242, ///< the worker refused the picture's parameters
    kExitStartRefused = 243,   ///< the worker refused to write the file
    kExitWorkerGone = 244,     ///< the worker ended by itself, with code 0, while it recorded
    kExitManifest = 245,       ///< the manifest could not be read or written
    kExitNoSuchFile = 246,     ///< a file named for the manifest does not exist or cannot be read
};

/** Where a code comes from: the same number means different things at different stages. */
enum class Stage {
    Host,  ///< kxrecord's own code
    Start, ///< RunProcess: the proxy's or the system's code, or the exit code of a worker that ended at once
    StartWithoutWorker, ///< RunProcess, when no KXVCR.exe lies beside the host
    Recording,          ///< exit code of a worker that ended while it recorded
    Finish,             ///< exit code of a worker that was told to stop, or 258 when it did not end
};

/** One sentence that says what happened and what to do, without a line feed. */
std::wstring Explain(Stage stage, unsigned long code);
