/**
 * @file
 * What a recording or a live view tells its user while it runs: sentences for people, or objects for machines.
 */
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

/** A recording as it begins. */
struct RecordStart {
    std::wstring file;              ///< full path
    std::uint32_t framesPerSecond;  ///< as asked for
    std::chrono::seconds replay{0}; ///< the file begins with up to so much of the screen before the start
};

/** A recording as it stands. */
struct RecordState {
    std::chrono::milliseconds elapsed; ///< since the start, without what was replayed
    std::uint64_t framesDue;           ///< elapsed time times the rate: the worker does not tell what it wrote
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
    virtual void Error(unsigned long code, const std::wstring& sentence) = 0;
    /** What does not end the work but should be known, in one sentence. */
    virtual void Warning(const std::wstring& sentence) = 0;

    /** The last @p length of the screen are being kept; Enter begins the recording. */
    virtual void Keeping(std::chrono::seconds length) = 0;
    /** It ended before the recording began. */
    virtual void NotRecorded(unsigned long exitCode) = 0;
    virtual void Recording(const RecordStart& start) = 0;
    /** May be called as often as one likes. */
    virtual void RecordProgress(const RecordState& state) = 0;
    virtual void Recorded(const RecordState& state, unsigned long exitCode) = 0;

    virtual void Serving(const LiveStart& start) = 0;
    /** May be called as often as one likes. */
    virtual void LiveProgress(std::chrono::milliseconds elapsed) = 0;
    virtual void Served(std::chrono::milliseconds elapsed, unsigned long exitCode) = 0;
};

/**
 * For people: on a terminal one line is redrawn in place; a file or a pipe gets a line at the start and one at the end.
 * Errors and warnings go to standard error.
 */
std::unique_ptr<Report> MakeTextReport();

/**
 * For machines: one JSON object a line on standard output, errors and warnings as well. Its "event" is "keeping",
 * "started", "progress" (once a second), "warning", "error" or "finished".
 */
std::unique_ptr<Report> MakeJsonReport();
