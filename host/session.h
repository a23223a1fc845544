/**
 * @file
 * One worker from its start to its end, for a recording or a live view.
 */
#pragma once

#include "host/librarylog.h"
#include "host/report.h"
#include "host/sounddevices.h"
#include "host/stopsignal.h"
#include "screenrecordproxy.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kxrecord {

/** What a recording and a live view have in common. */
struct SessionOptions {
    KxScreenRecord::ScreenRecordParam picture;       ///< what is shown and heard
    std::wstring window;                             ///< title or handle, see ChooseWindow(); empty: none
    SoundDevices soundDevices;                       ///< whose sound is recorded
    std::optional<std::chrono::milliseconds> length; ///< none: until Ctrl-C
    unsigned int timeoutMs = 10000;                  ///< limit of each step of the start, and of the end
    bool json = false;                               ///< objects for machines instead of sentences
    Verbosity verbosity = Verbosity::Normal;
};

/** The report that the options ask for. */
std::unique_ptr<Report> MakeReport(const SessionOptions& options);

/**
 * Every failure is reported before its exit code is returned. A worker that still runs is told to stop by the
 * destructor.
 */
class WorkerSession {
public:
    WorkerSession(Report& report, const SessionOptions& options, const StopSignal& stop);

    /**
     * Chooses the window, if one was asked for, starts the worker and prepares it.
     * @param replay how much of the screen is kept from now on; 0 keeps none
     * @return Success, or how the process ends
     */
    Exit Begin(std::chrono::seconds replay);

    KxScreenRecord::ScreenRecordProxy& Proxy() { return *m_proxy; }

    /** Whether the worker is still doing that. */
    bool Is(KxScreenRecord::RecordMode mode) const;

    /**
     * Ends a worker that refused a command; the refusal, not the worker's end, is what is reported.
     * @param file full path of the recording, where it is what was refused
     * @param port of the live view, where it is what was refused
     */
    Exit Refused(Command command, const std::wstring& file, std::uint32_t port);

    /**
     * Tells a worker to end and waits, or, when it has ended by itself, says so; one that does not end in time is
     * killed.
     * @param whileWorking what it was doing, for the sentence about one that ended by itself
     * @return Success, or how the process ends
     */
    Exit End(Stage whileWorking, KxScreenRecord::RecordMode working);

private:
    struct Releaser {
        void operator()(KxScreenRecord::ScreenRecordProxy* proxy) const;
    };

    Exit ChooseWindow();
    Exit Fail(const Failure& failure);
    Exit Fail(Stage stage, unsigned long code);
    unsigned long StopWorker();

    Report& m_report;
    const SessionOptions& m_options;
    KxScreenRecord::ScreenRecordParam m_picture;
    const StopSignal& m_stop;
    LibraryLog m_log;
    std::unique_ptr<KxScreenRecord::ScreenRecordProxy, Releaser> m_proxy;
};

/** The clock of a recording or a live view. */
class Stopwatch {
public:
    std::chrono::milliseconds Elapsed() const {
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - m_start);
    }

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

/** How long to wait until the next look at the worker: 0 when the length, if one was asked for, is over. */
DWORD NextWaitMs(const SessionOptions& options, std::chrono::milliseconds elapsed);

} // namespace kxrecord
