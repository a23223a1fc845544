/**
 * @file
 * What a recording or a live view tells its user while it runs: sentences for people, or objects for machines.
 */
#pragma once

#include "host/failure.h"
#include "host/recordingstatus.h"
#include "host/windowlist.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kxrecord {

/** A recording as it begins. */
struct RecordStart {
    std::wstring file;             ///< full path
    std::uint32_t framesPerSecond; ///< as asked for
    /** So much of the screen before the start is what the file begins with; none when the worker does not tell. */
    std::optional<std::chrono::milliseconds> replay;
};

/** A recording as it stands. */
struct RecordState {
    std::chrono::milliseconds elapsed;            ///< since the start, without what was replayed
    std::uint64_t framesDue;                      ///< elapsed time times the rate
    std::optional<kxvcr::RecordingStatus> worker; ///< what the worker tells; none when it does not
    std::optional<std::uint64_t> fileBytes;
    std::optional<std::uint64_t> diskFreeBytes;
};

/** A live view as it begins. */
struct LiveStart {
    int port;
    std::wstring url;        ///< for this machine
    std::wstring networkUrl; ///< for other machines; empty when they are not served
};

/** The calls come in the order in which things happen: each kind of start once, then states, then the end once. */
class Report {
public:
    virtual ~Report() = default;

    /** What failed, in one sentence that says what to do. */
    virtual void Error(const Failure& failure) = 0;
    /** What does not end the work but should be known, in one sentence. */
    virtual void Warning(const std::wstring& sentence) = 0;

    /** The window that will be shown. */
    virtual void Window(const WindowInfo& window) = 0;
    /** The last @p length of the screen are being kept; Enter begins the recording. */
    virtual void Keeping(std::chrono::seconds length) = 0;
    /** It ended before the recording began. */
    virtual void NotRecorded(Exit exit) = 0;
    virtual void Recording(const RecordStart& start) = 0;
    /** May be called as often as one likes. */
    virtual void RecordProgress(const RecordState& state) = 0;
    virtual void Recorded(const RecordState& state, Exit exit) = 0;

    virtual void Serving(const LiveStart& start) = 0;
    /** May be called as often as one likes. */
    virtual void LiveProgress(std::chrono::milliseconds elapsed) = 0;
    virtual void Served(std::chrono::milliseconds elapsed, Exit exit) = 0;
};

/** How much a user wants to read. */
enum class Verbosity {
    Quiet, ///< errors and warnings alone
    Normal,
    Verbose, ///< the library's log messages as well
};

/** "00:01:02.3": hours, minutes, seconds and tenths. */
std::wstring ClockText(std::chrono::milliseconds time);

/**
 * The line that is redrawn while a recording runs.
 * @param width cells of the terminal; the fields that do not fit into fewer are left out
 */
std::wstring ProgressText(const RecordState& state, std::size_t width);

/**
 * For people: on a terminal one line is redrawn in place; a file or a pipe gets a line at the start and one at the end.
 * Errors and warnings go to standard error.
 */
std::unique_ptr<Report> MakeTextReport(Verbosity verbosity);

/**
 * For machines: one JSON object a line on standard output, errors and warnings as well; docs/kxrecord.md has every
 * event and key.
 */
std::unique_ptr<Report> MakeJsonReport();

} // namespace kxrecord
