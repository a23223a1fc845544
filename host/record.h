/**
 * @file
 * One recording, from the start of the worker to its end.
 */
#pragma once

#include "host/session.h"

#include <chrono>
#include <string>
#include <string_view>

namespace kxrecord {

struct RecordOptions {
    std::wstring file;      ///< as the user wrote it
    bool overwrite = false; ///< replace a file that is not a recording
    SessionOptions session;
    std::chrono::seconds replay{0}; ///< of the screen before the start that the file begins with; 0: none
};

/** Whether the name ends in .mp4, .webm or .mkv, in whatever case: its format. */
bool NamesAFormat(std::wstring_view file);

/** Whether the name ends in .webm, in whatever case. */
bool NamesWebM(std::wstring_view file);

/**
 * Records the screen. With a replay the recording begins when a line comes on standard input, or, when that is closed,
 * as soon as so much of the screen is kept.
 * @return how the process ends; a failure has been reported
 */
Exit Record(const RecordOptions& options);

} // namespace kxrecord
