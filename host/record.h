/**
 * @file
 * One recording, from the start of the worker to its end.
 */
#pragma once

#include "session.h"

#include <chrono>
#include <string>

struct RecordOptions {
    std::wstring file; ///< as the user wrote it
    SessionOptions session;
    std::chrono::seconds replay{0}; ///< of the screen before the start that the file begins with; 0: none
};

/**
 * Records the screen. With a replay the recording begins when a line comes on standard input, or, when that is closed,
 * as soon as so much of the screen is kept.
 * @return the process's exit code; a failure has been reported
 */
unsigned long Record(const RecordOptions& options);
