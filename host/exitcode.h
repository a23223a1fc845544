/**
 * @file
 * The exit codes of kxrecord: one table. All lie below 126, so that every shell hands them on as they are.
 */
#pragma once

namespace kxrecord {

/** How kxrecord ends. The code of the proxy, the worker or the system stands in the sentence and in the JSON report. */
enum class Exit : int {
    Success = 0,
    BadArguments = 2,
    Internal = 3,
    NoProxy = 4,
    Busy = 10,
    Verification = 11,
    PathTooLong = 12,
    PrepareRefused = 13,
    FileRefused = 14,
    WorkerGone = 15,
    Manifest = 16,
    NoSuchFile = 17,
    LiveRefused = 18,
    ReplayRefused = 19,
    NotARecording = 20,
    FileCutShort = 21,
    NotStarted = 22,
    WorkerFailed = 23,
    NoWindow = 24,
    WindowClosed = 25,
    TimedOut = 124,
};

/** One row of the table of exit codes. */
struct ExitMeaning {
    Exit code;
    const char* meaning;
};

inline constexpr ExitMeaning kExits[] = {
    {Exit::Success, "success"},
    {Exit::BadArguments, "bad arguments"},
    {Exit::Internal, "an unexpected failure inside kxrecord"},
    {Exit::NoProxy, "the recorder could not be set up"},
    {Exit::Busy, "a recording runs already in this process"},
    {Exit::Verification, "the worker is missing or failed verification"},
    {Exit::PathTooLong, "the file's path is too long"},
    {Exit::PrepareRefused, "the worker refused what to record"},
    {Exit::FileRefused, "the worker could not create the file"},
    {Exit::WorkerGone, "the worker ended by itself while it worked"},
    {Exit::Manifest, "the manifest cannot be read or written"},
    {Exit::NoSuchFile, "a file for the manifest is missing or unreadable"},
    {Exit::LiveRefused, "the worker refused to serve the live view"},
    {Exit::ReplayRefused, "the worker refused to keep a replay"},
    {Exit::NotARecording, "the file exists and is not a recording"},
    {Exit::FileCutShort, "the file was closed early: it could not be written any further"},
    {Exit::NotStarted, "the worker could not be started"},
    {Exit::WorkerFailed, "the worker reported a failure at its end"},
    {Exit::NoWindow, "no window, or more than one, goes with --window"},
    {Exit::WindowClosed, "the recorded window was closed; the recording is finished"},
    {Exit::TimedOut, "the worker did not start, answer or finish in time"},
};

} // namespace kxrecord
