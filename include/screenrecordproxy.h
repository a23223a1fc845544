/**
 * @file
 * KxScreenRecord::ScreenRecordProxy: starts, commands and supervises the screen-record worker KXVCR.exe.
 *
 * Typical life: CreateProxy, RunProcess, Prepare or PrepareTimemachine, StartLocalRecord or StartLiveServer,
 * Stop, WaitLiveProcessEnd, ReleaseProxy. Failures are return values; no member throws.
 */
#pragma once

#include "kxexport.h"

#include <windows.h>

#include <atomic>
#include <cstdint>

class IPCMessageClient;
struct TagIPCMessageItem;

namespace KxScreenRecord {

/**
 * What to record. The proxy hands the 44 bytes to the worker as they are; the worker gives the fields their
 * meaning and answers bad values with a negative result (docs/worker-protocol.md).
 */
struct ScreenRecordParam {
    std::int32_t left = 0;             ///< left edge of the rectangle, in physical pixels of the virtual screen
    std::int32_t top = 0;              ///< top edge of the rectangle, in physical pixels of the virtual screen
    std::uint32_t width = 0;           ///< in pixels; left, top, width and height 0: the whole screen or monitor
    std::uint32_t height = 0;          ///< in pixels
    std::uint32_t framesPerSecond = 0; ///< 1 to 60; 0 is the worker's default, 30
    std::uint32_t quality = 0;         ///< 1 to 100; 0 is the worker's default, 80
    std::uint32_t drawCursor = 0;      ///< 1 draws the mouse pointer into the picture, 0 leaves it out
    std::uint32_t monitor = 0;         ///< 0 the whole virtual screen, 1 the primary monitor, 2 and up the others
    std::uint32_t bitRate = 0;         ///< the most kilobits a second; 0 is a default that grows with the picture
    std::uint32_t streams = 0;         ///< flags kStream... of sdk/vcr/workerprotocol.h; 0 is pictures without sound
    std::uint32_t window = 0;          ///< low 32 bits of a window's handle; 0 is no window but the screen
};
static_assert(sizeof(ScreenRecordParam) == 44);

/** How to serve the live picture. Passed to the worker as it is, like ScreenRecordParam. */
struct LiveServerParam {
    std::uint32_t port = 0;       ///< TCP port to listen on, up to 65535; 0 lets the system choose
    std::uint32_t maxClients = 0; ///< viewers served at the same time, up to 64; 0 is the worker's default, 8
    std::uint32_t listenOnAllInterfaces = 0; ///< 0 binds to loopback only, 1 to every IPv4 interface
    std::uint8_t key[16] = {};               ///< the server's address has it as 32 hexadecimal digits; all 0: no key
    std::uint32_t reserved[3] = {};          ///< 0
};
static_assert(sizeof(LiveServerParam) == 40);

/** What the worker is doing, as GetCurRecordMode() reports it. */
enum class RecordMode : std::int32_t {
    NoWorker = 0,              ///< no worker runs
    WorkerStarted = 1,         ///< a worker is being started or runs, nothing is prepared
    Prepared = 2,              ///< prepared for ordinary recording
    PreparedTimemachine = 100, ///< prepared with a replay buffer
    LocalRecord = 1000,        ///< recording to a file
    LiveServer = 1001,         ///< the live server runs
};

/** Where the worker is in its life; every command is accepted from one status only. */
enum class RunStatus : std::int32_t {
    Error = -1,
    Idle = 0,
    Starting = 1,
    Running = 2,
    Preparing = 3,
    Prepared = 4,
    LocalRecordStarting = 5,
    LocalRecordRunning = 6,
    LiveServerStarting = 7,
    LiveServerRunning = 8,
    Stopping = 11,
};

/**
 * The process-wide, reference-counted proxy of the screen-record worker.
 *
 * Every member may be called from any thread. A thread that may be inside a member while another releases the
 * instance needs a reference of its own.
 *
 * The end of a worker wins: once it is seen, the record mode is 0 until the next RunProcess, whatever a command that
 * was under way does afterwards, and RunProcess can be called again. A Stop, a KillProcess or an error that comes
 * during a command is not overwritten by that command's success; the command still returns what the worker answered. A
 * call that comes back when a later run has begun changes nothing of that run.
 *
 * The process-control members return 0 for success, 170 (ERROR_BUSY), 191 (ERROR_INVALID_EXE_SIGNATURE: the worker
 * failed verification), 258 (WAIT_TIMEOUT), another error code of the system, or the worker's exit code. Time-outs are
 * in milliseconds; INFINITE (0xFFFFFFFF) waits without limit.
 */
class KXSCREENRECORD_API ScreenRecordProxy {
public:
    /**
     * Takes a reference to the one instance, constructing it first when none exists.
     * @return the instance, or null (after an ERROR in the log) when there is no memory for it. Give it back
     *         with ReleaseProxy. The host process ends with exit code 8 when the instance cannot allocate its
     *         message client.
     */
    static ScreenRecordProxy* CreateProxy();

    /**
     * Gives a reference back; the last one destroys the instance, which stops a running worker first.
     * @param proxy the pointer from CreateProxy. Null does nothing; any other pointer is logged and ignored.
     */
    static void ReleaseProxy(ScreenRecordProxy* proxy);

    /**
     * Whether "KXVCR.exe" is a runnable 64-bit or 32-bit Windows program. The bare name is resolved by the
     * system's rules for a relative path, not against the host executable's folder that RunProcess uses.
     */
    static bool IsSupport();

    /** @return the record mode as it stands: a value of RecordMode. */
    int GetCurRecordMode();

    /**
     * Verifies and starts the worker beside the host executable and waits for its ready notice. From before the
     * worker's file is verified until it is started nobody can write, rename or delete it. A file that somebody has
     * open for writing fails the verification, and so does a host folder whose path the ANSI code page cannot name
     * exactly or that is longer than 259 characters.
     * @param timeoutMs how long to wait for the notice, in milliseconds
     * @return 0; 170 when a worker is known already; 191 when the worker fails verification; 258 when it did not
     *         get ready in time (it is then ended with exit code 21); the worker's exit code when it ended first;
     *         or the system's error code. A worker that ends with exit code 0 before it is ready gives 0 too, although
     *         there is no worker then: the record mode, 0 instead of 1, tells the difference.
     *
     * After a failure RunProcess may be called again. Nothing runs then, but for one case: when the system refuses the
     * monitor thread, the worker runs on until KillProcess.
     */
    unsigned long RunProcess(unsigned long timeoutMs);

    /**
     * Waits for the worker to end.
     * @return the worker's exit code, 258 on time-out, 0 when no worker is known, or the error code of the
     *         failed query of the exit code
     */
    unsigned long WaitLiveProcessEnd(unsigned long timeoutMs);

    /** Ends the worker with exit code 157, if one is known. */
    void KillProcess();

    /** The same as PrepareTimemachine with a time-machine value of 0. */
    bool Prepare(const ScreenRecordParam& param, unsigned int timeoutMs);

    /**
     * Prepares a recording; accepted once, after RunProcess.
     * @param timeMachine seconds of screen to keep before the recording starts; 0 keeps none
     * @param timeoutMs how long to wait for the worker's answer, in milliseconds
     * @return whether the worker accepted. A refusal because of the wrong status changes nothing; a failed
     *         exchange leaves the proxy in the error status until the worker is run again.
     */
    bool PrepareTimemachine(const ScreenRecordParam& param, unsigned int timeMachine, unsigned int timeoutMs);

    /**
     * Starts recording to a file; accepted after a successful prepare.
     * @param path the file to write, as the worker resolves it; borrowed for the call
     * @param pathLength characters of @p path without its terminating zero, at most 260; 0 takes the string's length
     * @param timeoutMs how long to wait for the worker's answer, in milliseconds
     * @return whether the worker records; on failure as for PrepareTimemachine
     */
    bool StartLocalRecord(const wchar_t* path, unsigned int pathLength, unsigned int timeoutMs);

    /**
     * Starts the live server; accepted after a successful prepare.
     * @param result receives the worker's positive answer (the port it listens on); 0 when the worker answers 0
     *        or less; untouched on every other failure
     * @return whether the server runs; on failure as for PrepareTimemachine
     */
    bool StartLiveServer(const LiveServerParam& param, unsigned int timeoutMs, int& result);

    /**
     * Tells the worker to finish and end, when one is known and has not been told yet. Does not wait for its end:
     * WaitLiveProcessEnd does. A worker that does not read its channel holds the call up for two seconds at most.
     */
    void Stop();

    ScreenRecordProxy(const ScreenRecordProxy&) = delete;
    ScreenRecordProxy& operator=(const ScreenRecordProxy&) = delete;

private:
    ScreenRecordProxy();
    ~ScreenRecordProxy();

    unsigned long CheckEnv();
    unsigned long CreateRecordProcess(void*& process);
    unsigned long WaitProcessRunResult(void*& process, unsigned long timeoutMs);
    void ScrRecProcessMonitorThreadProc();
    static unsigned long __stdcall ScrRecProcessMonitorThreadProcWarpper(void* self);
    void OnRecordProcessIPCReady(TagIPCMessageItem& item);
    void OnError();
    bool SendVCRMessage(unsigned int timeoutMs, TagIPCMessageItem& request);

    std::atomic<RecordMode> m_recordMode = RecordMode::NoWorker;
    std::atomic<RunStatus> m_runStatus = RunStatus::Idle;
    CRITICAL_SECTION m_lock = {}; // guards the three handles below
    IPCMessageClient* m_ipcClient = nullptr;
    void* m_readyEvent = nullptr;
    std::atomic<void*> m_workerProcess = nullptr; // Stop reads it without the lock
    void* m_monitorThread = nullptr;
};

} // namespace KxScreenRecord
