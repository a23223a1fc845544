/**
 * @file
 * One recording, from the start of the worker to its end.
 */
#pragma once

#include "screenrecordproxy.h"

#include <chrono>
#include <optional>
#include <string>

struct RecordOptions {
    std::wstring file;                               ///< as the user wrote it
    KxScreenRecord::ScreenRecordParam picture;       ///< what to record
    std::optional<std::chrono::milliseconds> length; ///< none: until Ctrl-C
    unsigned int timeoutMs = 10000;                  ///< limit of each step of the start, and of the end
};

/**
 * Records the screen and reports progress on standard output.
 * @return the process's exit code; a failure has been reported on standard error
 */
unsigned long Record(const RecordOptions& options);
