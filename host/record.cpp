// One recording, from the start of the worker to its end.
#include "host/record.h"

#include "host/folders.h"
#include "host/linesignal.h"
#include "host/recordingfile.h"
#include "host/stopsignal.h"
#include "host/text.h"

#include "sdk/vcr/workerprotocol.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <ratio>

namespace kxrecord {

using KxScreenRecord::RecordMode;
using std::chrono::milliseconds;

namespace {

constexpr std::wstring_view kWebM = L".webm";
constexpr std::wstring_view kEndings[] = {L".mp4", kWebM, L".mkv"};
constexpr DWORD kLookIntervalMs = 200;

enum class Outcome {
    Begin,
    Interrupted,
    WorkerGone,
};

std::uint32_t RateOf(const RecordOptions& options) {
    const std::uint32_t asked = options.session.picture.framesPerSecond;
    return asked != 0 ? asked : kxvcr::kDefaultFramesPerSecond;
}

bool EndsIn(std::wstring_view file, std::wstring_view ending) {
    if (file.size() < ending.size()) {
        return false;
    }
    const std::wstring_view end = file.substr(file.size() - ending.size());
    return CompareStringOrdinal(end.data(), static_cast<int>(end.size()), ending.data(),
                                static_cast<int>(ending.size()), TRUE) == CSTR_EQUAL;
}

milliseconds FromMediaTime(std::int64_t time) {
    using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, kxvcr::kRecordingTicksPerSecond>>;
    return std::chrono::duration_cast<milliseconds>(Ticks(time));
}

// Whoever interrupts while the worker starts has nothing recorded, and keeps the file that would be replaced.
Outcome LookForInterrupt(const StopSignal& stop) {
    return stop.WaitFor(0) ? Outcome::Interrupted : Outcome::Begin;
}

// Waits for the user's Enter. Without an input to wait for, the buffer is filled once.
Outcome WaitForLine(const WorkerSession& session, const StopSignal& stop, std::chrono::seconds replay) {
    const LineSignal input;
    const Stopwatch stopwatch;
    const HANDLE signals[] = {stop.Handle(), input.Line()};
    while (session.Is(RecordMode::PreparedTimemachine)) {
        const DWORD signal = WaitForMultipleObjects(2, signals, FALSE, kLookIntervalMs);
        if (signal == WAIT_OBJECT_0) {
            return Outcome::Interrupted;
        }
        if (signal == WAIT_OBJECT_0 + 1 || (input.IsClosed() && stopwatch.Elapsed() >= replay)) {
            return Outcome::Begin;
        }
    }
    return Outcome::WorkerGone;
}

/** Tells of a recording that runs, and warns once when its disk gets full. */
class Watch {
public:
    Watch(const RecordOptions& options, const std::wstring& path, Report& report)
        : m_file(path),
          m_framesPerSecond(RateOf(options)),
          m_report(report) {}

    /** What the file begins with; none when the worker does not tell. */
    std::optional<milliseconds> Replay() const {
        const std::optional<kxvcr::RecordingStatus> status = m_status.Read();
        return status ? std::optional(FromMediaTime(status->liveStart)) : std::nullopt;
    }

    milliseconds Elapsed() const { return m_stopwatch.Elapsed(); }
    RecordState State() const { return StateAfter(Elapsed()); }

    RecordState StateAfter(milliseconds elapsed) const {
        const auto framesDue = static_cast<std::uint64_t>(elapsed.count()) * m_framesPerSecond / 1000;
        return {elapsed, framesDue, m_status.Read(), m_file.Bytes(), m_file.DiskFreeBytes()};
    }

    void Look() {
        const RecordState state = State();
        m_report.RecordProgress(state);
        const bool isLow =
            state.diskFreeBytes && IsDiskLow(*state.diskFreeBytes, state.fileBytes.value_or(0), state.elapsed);
        if (isLow && !m_hasWarned) {
            m_report.Warning(L"only " + SizeText(*state.diskFreeBytes) +
                             L" are left on the disk; make room, or the recording ends when it is full");
            m_hasWarned = true;
        }
    }

private:
    Stopwatch m_stopwatch;
    StatusView m_status;
    RecordingFile m_file;
    std::uint32_t m_framesPerSecond;
    Report& m_report;
    bool m_hasWarned = false;
};

void WaitWhileRecording(const WorkerSession& session, const StopSignal& stop, const RecordOptions& options,
                        Watch& watch) {
    while (session.Is(RecordMode::LocalRecord)) {
        watch.Look();
        const DWORD waitMs = NextWaitMs(options.session, watch.Elapsed());
        if (waitMs == 0 || stop.WaitFor(waitMs)) {
            return;
        }
    }
}

std::optional<Failure> CheckPath(const std::wstring& path, bool overwrite) {
    if (path.size() > kxvcr::kMaxPathCharacters) {
        return Failure{Exit::PathTooLong, ERROR_FILENAME_EXCED_RANGE,
                       L"the file's full path is longer than " + std::to_wstring(kxvcr::kMaxPathCharacters) +
                           L" characters; give a shorter name or folder"};
    }
    const Existing existing = WhatExists(path);
    if (existing == Existing::Folder) {
        return HostFailure(Exit::NotARecording, path + L" is a folder; give another name");
    }
    if (!overwrite && existing == Existing::Other) {
        return HostFailure(Exit::NotARecording, path + L" exists and is not a recording; give another name, or "
                                                       L"--overwrite to replace it");
    }
    return std::nullopt;
}

} // namespace

bool NamesAFormat(std::wstring_view file) {
    return std::any_of(std::begin(kEndings), std::end(kEndings),
                       [file](std::wstring_view ending) { return EndsIn(file, ending); });
}

bool NamesWebM(std::wstring_view file) {
    return EndsIn(file, kWebM);
}

Exit Record(const RecordOptions& options) {
    const std::unique_ptr<Report> report = MakeReport(options.session);
    const std::wstring path = FullPath(options.file);
    if (const std::optional<Failure> failure = CheckPath(path, options.overwrite)) {
        report->Error(*failure);
        return failure->exit;
    }

    const StopSignal stop;
    WorkerSession session(*report, options.session, stop);
    if (const Exit exit = session.Begin(options.replay); exit != Exit::Success) {
        return exit;
    }
    const bool keeps = options.replay.count() != 0;
    if (keeps) {
        report->Keeping(options.replay);
    }
    const Outcome outcome = keeps ? WaitForLine(session, stop, options.replay) : LookForInterrupt(stop);
    if (outcome != Outcome::Begin) {
        const Exit exit = session.End(Stage::Recording, keeps ? RecordMode::PreparedTimemachine : RecordMode::Prepared);
        report->NotRecorded(exit);
        return exit;
    }
    const unsigned int timeoutMs = options.session.timeoutMs;
    if (!session.Proxy().StartLocalRecord(path.c_str(), static_cast<unsigned int>(path.size()), timeoutMs)) {
        return session.Refused(Command::StartFile, path, 0);
    }

    Watch watch(options, path, *report);
    report->Recording({path, RateOf(options), options.replay.count() == 0 ? milliseconds(0) : watch.Replay()});
    WaitWhileRecording(session, stop, options, watch);
    const milliseconds elapsed = watch.Elapsed();
    const Exit exit = session.End(Stage::Recording, RecordMode::LocalRecord);
    report->Recorded(watch.StateAfter(elapsed), exit); // as the file is now that it is complete
    return exit;
}

} // namespace kxrecord
