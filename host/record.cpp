#include "record.h"

#include "folders.h"
#include "linesignal.h"
#include "recordingfile.h"
#include "stopsignal.h"
#include "text.h"

using KxScreenRecord::RecordMode;
using std::chrono::milliseconds;

namespace {

constexpr std::size_t kLongestPath = 260; ///< characters that StartLocalRecord accepts
constexpr std::uint32_t kDefaultFramesPerSecond = 30;
constexpr DWORD kLookIntervalMs = 200;

enum class Outcome {
    Begin,
    Interrupted,
    WorkerGone,
};

std::uint32_t RateOf(const RecordOptions& options) {
    const std::uint32_t asked = options.session.picture.framesPerSecond;
    return asked != 0 ? asked : kDefaultFramesPerSecond;
}

RecordState StateOf(const RecordingFile& file, milliseconds elapsed, std::uint32_t framesPerSecond) {
    const auto framesDue = static_cast<std::uint64_t>(elapsed.count()) * framesPerSecond / 1000;
    return {elapsed, framesDue, file.Bytes(), file.DiskFreeBytes()};
}

// Waits for the user's Enter. Without an input to wait for, the buffer is filled once.
Outcome WaitForLine(const Session& session, const StopSignal& stop, std::chrono::seconds replay) {
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

    milliseconds Elapsed() const { return m_stopwatch.Elapsed(); }
    RecordState State() const { return StateOf(m_file, Elapsed(), m_framesPerSecond); }

    void Look() {
        const RecordState state = State();
        m_report.RecordProgress(state);
        const bool isLow =
            state.diskFreeBytes && IsDiskLow(*state.diskFreeBytes, state.fileBytes.value_or(0), state.elapsed);
        if (isLow && !m_hasWarned) {
            m_report.Warning(L"only " + SizeText(*state.diskFreeBytes) +
                             L" are left on the disk; make room, or the recording ends when it is full.");
            m_hasWarned = true;
        }
    }

private:
    Stopwatch m_stopwatch;
    RecordingFile m_file;
    std::uint32_t m_framesPerSecond;
    Report& m_report;
    bool m_hasWarned = false;
};

void WaitWhileRecording(const Session& session, const StopSignal& stop, const RecordOptions& options, Watch& watch) {
    while (session.Is(RecordMode::LocalRecord)) {
        watch.Look();
        const DWORD waitMs = NextWaitMs(options.session, watch.Elapsed());
        if (waitMs == 0 || stop.WaitFor(waitMs)) {
            return;
        }
    }
}

} // namespace

unsigned long Record(const RecordOptions& options) {
    const std::unique_ptr<Report> report = options.session.json ? MakeJsonReport() : MakeTextReport();
    const std::wstring path = FullPath(options.file);
    if (path.size() > kLongestPath) {
        report->Error(ERROR_FILENAME_EXCED_RANGE, Explain(Stage::Host, ERROR_FILENAME_EXCED_RANGE));
        return ERROR_FILENAME_EXCED_RANGE;
    }

    const StopSignal stop;
    Session session(*report, options.session, stop);
    if (const unsigned long code = session.Begin(options.replay); code != kExitSuccess) {
        return code;
    }
    if (options.replay.count() != 0) {
        report->Keeping(options.replay);
        const Outcome outcome = WaitForLine(session, stop, options.replay);
        if (outcome != Outcome::Begin) {
            const unsigned long code = session.End(Stage::Recording, RecordMode::PreparedTimemachine);
            report->NotRecorded(code);
            return code;
        }
    }
    const unsigned int timeoutMs = options.session.timeoutMs;
    if (!session.Proxy().StartLocalRecord(path.c_str(), static_cast<unsigned int>(path.size()), timeoutMs)) {
        return session.Refused(kExitStartRefused);
    }

    report->Recording({path, RateOf(options), options.replay});
    Watch watch(options, path, *report);
    WaitWhileRecording(session, stop, options, watch);
    RecordState state = watch.State();
    const unsigned long code = session.End(Stage::Recording, RecordMode::LocalRecord);
    state.fileBytes = RecordingFile(path).Bytes(); // the end adds the index
    report->Recorded(state, code);
    return code;
}
