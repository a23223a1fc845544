// ScreenRecordProxy: verifies, launches, supervises and commands the screen-record worker.
//
// Two fields say where the proxy stands. The run status admits commands; the record mode tells the host what the
// worker does.
//
//   member               run status from -> to              record mode          when
//   RunProcess           any -> Starting                    NoWorker -> WorkerStarted   no worker is known
//                        Starting -> Running                                     the worker is ready
//                        any -> Idle                        NoWorker             no worker was kept, or none can be
//                        watched
//   PrepareTimemachine   Running -> Preparing -> Prepared   Prepared or PreparedTimemachine
//   StartLocalRecord     Prepared -> LocalRecordStarting
//                          -> LocalRecordRunning            LocalRecord
//   StartLiveServer      Prepared -> LiveServerStarting
//                          -> LiveServerRunning             LiveServer
//   Stop                 any -> Stopping                                         a worker is known
//   OnError              any but Stopping -> Error                               an exchange failed
//   KillProcess          any -> Idle                                             a worker is known
//   monitor thread                                          NoWorker             the worker ended
//
// Why no order of these can wedge the proxy: all of them are moves of class RunState, one at a time, and a move belongs
// to a run. RunProcess begins a run, only while the mode is NoWorker. A move for a run that is not the newest does
// nothing. A command's success moves the status only from that command's own progress, so that a stop, a kill or an
// error that came meanwhile stands; and it leaves the mode alone once the worker has ended, so that NoWorker stays
// until the next run. While a worker is kept and watched only its monitor sets NoWorker, as its last act: no two runs
// overlap.
//
// A worker's run ends in one of these ways: it ends by itself (after Stop, or because it died), KillProcess ends it,
// RunProcess ends it because it did not get ready, or the proxy is destroyed and tells it to stop.

#include "screenrecordproxy.h"

#include "common/boundedcopy.h"
#include "common/win/handle.h"
#include "libraries/screenrecordproxy/locks.h"
#include "libraries/screenrecordproxy/logchannel.h"
#include "libraries/screenrecordproxy/monitoredrun.h"
#include "libraries/screenrecordproxy/runstate.h"
#include "libraries/screenrecordproxy/sharedhandle.h"
#include "sdk/ipcmessage/ipcmessage.h"
#include "sdk/vcr/workerprotocol.h"
#include "systemenvironment.h"

#include <shlwapi.h>
#include <strsafe.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <cwchar>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

namespace KxScreenRecord {
namespace {

using kx::FileHandle;
using kx::KernelHandle;
using logchannel::LogFunction;
using logchannel::LogSite;

constexpr char kSourceFile[] = R"(libraries\screenrecordproxy\screenrecordproxy.cpp)";

constexpr wchar_t kWorkerArguments[] = L" -IPCProxy";

constexpr UINT kExitCodeNoMemory = 8;
constexpr UINT kExitCodeNeverReady = static_cast<UINT>(kxvcr::ExitCode::NeverReady);
constexpr UINT kExitCodeKilled = static_cast<UINT>(kxvcr::ExitCode::Killed);
constexpr DWORD kMonitorThreadStepTimeoutMs = 1000; // for what takes a thread some instructions: to begin, to end
constexpr DWORD kMonitorThreadEndTimeoutMs = 5000;

std::mutex g_proxyMutex;
ScreenRecordProxy* g_proxy = nullptr;
std::uint32_t g_proxyReferences = 0;

// The one instance's, beside it because the class's layout is fixed; both under the instance's lock.
MonitoredRuns g_runs;
CONDITION_VARIABLE g_monitorLooked = CONDITION_VARIABLE_INIT;

template <class... Values>
void LogWarn(LogSite site, const Values&... values) noexcept {
    logchannel::Write(log4cplus::WARN_LOG_LEVEL, kSourceFile, site, values...);
}

template <class... Values>
void LogError(LogSite site, const Values&... values) noexcept {
    logchannel::Write(log4cplus::ERROR_LOG_LEVEL, kSourceFile, site, values...);
}

/** Null when the client, or its ready callback, cannot be made. */
template <class Proxy>
IPCMessageClient* NewClient(Proxy* proxy, void (Proxy::*onReady)(TagIPCMessageItem&)) noexcept {
    try {
        std::unique_ptr<IPCMessageClient> client(
            new (std::nothrow) IPCMessageClient(static_cast<int>(kxvcr::kWorkerModuleId), false, false));
        if (client) {
            client->RegisterMessageCallback(kxvcr::kMessageReady, proxy, onReady);
        }
        return client.release();
    } catch (...) { // no memory, or no other resource of the system
        return nullptr;
    }
}

} // namespace

// ---- The one instance ----------------------------------------------------------------------------------------------

ScreenRecordProxy* ScreenRecordProxy::CreateProxy() {
    static constexpr LogFunction kHere(
        "class KxScreenRecord::ScreenRecordProxy *__cdecl KxScreenRecord::ScreenRecordProxy::CreateProxy(void)");
    try {
        const std::lock_guard lock(g_proxyMutex);
        if (g_proxy == nullptr) {
            g_proxy = new (std::nothrow) ScreenRecordProxy();
        }
        if (g_proxy != nullptr) {
            ++g_proxyReferences;
            return g_proxy;
        }
    } catch (...) { // the standard mutex asks for memory when it is first locked
    }
    LogError(kHere, "gsProxy is null.");
    return nullptr;
}

void ScreenRecordProxy::ReleaseProxy(ScreenRecordProxy* proxy) {
    static constexpr LogFunction kHere("void __cdecl KxScreenRecord::ScreenRecordProxy::ReleaseProxy("
                                       "class KxScreenRecord::ScreenRecordProxy *)");
    try {
        const std::lock_guard lock(g_proxyMutex);
        if (proxy == nullptr) {
            return;
        }
        if (proxy != g_proxy) {
            LogWarn(kHere, "Unknow proxy point, Ignore");
            return;
        }
        if (--g_proxyReferences == 0) {
            delete g_proxy;
            g_proxy = nullptr;
        }
    } catch (...) { // the mutex: the reference is kept, since nobody may touch it without
    }
}

ScreenRecordProxy::ScreenRecordProxy() {
    static constexpr LogFunction kHere("__cdecl KxScreenRecord::ScreenRecordProxy::ScreenRecordProxy(void)");
    InitializeCriticalSection(&m_lock); // first: the client may call back as soon as it exists
    RunState(m_recordMode, m_runStatus).BeginInstance();
    m_ipcClient = NewClient(this, &ScreenRecordProxy::OnRecordProcessIPCReady);
    if (m_ipcClient == nullptr) {
        LogError(kHere, "Alloc IPC client failed! No memory?");
        ExitProcess(kExitCodeNoMemory);
    }
}

namespace {

/**
 * Waits for a monitor thread's end, under the instance's lock. One that waits for its worker longer than the instance
 * may live is terminated; its handles are given back with its run. Of a thread that is there even then, the run stays:
 * what it closes or frees, nobody else may.
 */
void EndMonitor(KernelHandle monitor) noexcept {
    static constexpr LogFunction kHere("__cdecl KxScreenRecord::ScreenRecordProxy::~ScreenRecordProxy(void)");
    if (!monitor) {
        return;
    }
    MonitoredRun* const run = g_runs.OfThread(GetThreadId(monitor.Get()));
    if (WaitForSingleObject(monitor.Get(), kMonitorThreadEndTimeoutMs) == WAIT_TIMEOUT) {
        LogWarn(kHere, "Wait monitor thread end timeout, kill process");
        if (run == nullptr || run->ClaimEnd()) {
            TerminateThread(monitor.Get(), WAIT_TIMEOUT);
        }
        // The system ends a thread a moment later, and one that is making its last move is about to end.
        if (WaitForSingleObjectEx(monitor.Get(), kMonitorThreadStepTimeoutMs, FALSE) == WAIT_TIMEOUT) {
            g_runs.Abandon(run);
            return;
        }
    }
    g_runs.Remove(run);
}

} // namespace

ScreenRecordProxy::~ScreenRecordProxy() {
    {
        const CriticalSectionGuard lock(m_lock);
        if (m_workerProcess != nullptr) {
            if (WaitForSingleObject(m_workerProcess, 0) == WAIT_TIMEOUT) {
                Stop();
            }
            KernelHandle(m_workerProcess.exchange(nullptr)).Reset();
        }
        EndMonitor(KernelHandle(std::exchange(m_monitorThread, nullptr)));
        while (MonitoredRun* const run = g_runs.Newest()) { // whose monitor has outlived its run
            EndMonitor(std::move(run->monitor));
            g_runs.Remove(run);
        }
        RunState(m_recordMode, m_runStatus).EndInstance();
    }
    if (m_ipcClient != nullptr) {
        try {
            m_ipcClient->UnRegisterMessageCallbackAll();
        } catch (...) { // deleting the client ends its callbacks too
        }
        delete std::exchange(m_ipcClient, nullptr);
    }
    KernelHandle(std::exchange(m_readyEvent, nullptr)).Reset();
    DeleteCriticalSection(&m_lock);
}

bool ScreenRecordProxy::IsSupport() {
    DWORD type = 0;
    return GetBinaryTypeW(kxvcr::kWorkerFileNameWide, &type) && (type == SCS_64BIT_BINARY || type == SCS_32BIT_BINARY);
}

int ScreenRecordProxy::GetCurRecordMode() {
    return static_cast<int>(m_recordMode.load());
}

// ---- Launch --------------------------------------------------------------------------------------------------------

namespace {

/** The worker's path: beside the host's executable. */
struct WorkerPath {
    std::array<wchar_t, MAX_PATH + std::size(kxvcr::kWorkerFileNameWide)> text = {};

    WorkerPath() noexcept {
        std::array<wchar_t, MAX_PATH> folder = {};
        GetModuleFileNameW(nullptr, folder.data(), static_cast<DWORD>(folder.size()));
        PathRemoveFileSpecW(folder.data());
        StringCchPrintfW(text.data(), text.size(), L"%ls\\%ls", folder.data(), kxvcr::kWorkerFileNameWide);
    }
};

/**
 * Whether the host's folder is the same one by its narrow name, by which the worker is verified, and by its wide name,
 * by which it is launched. The code page replaces a character that it does not have by one that looks alike, and a
 * path that the narrow buffer does not hold is cut.
 */
bool HostFolderHasOneName() noexcept {
    std::array<char, MAX_PATH> narrow = {};
    const DWORD narrowLength = GetModuleFileNameA(nullptr, narrow.data(), static_cast<DWORD>(narrow.size()));
    std::array<wchar_t, MAX_PATH> wide = {};
    const DWORD wideLength = GetModuleFileNameW(nullptr, wide.data(), static_cast<DWORD>(wide.size()));
    if (narrowLength >= narrow.size() || wideLength >= wide.size()) {
        return false;
    }
    PathRemoveFileSpecA(narrow.data());
    PathRemoveFileSpecW(wide.data());
    std::array<wchar_t, MAX_PATH> widened = {};
    return MultiByteToWideChar(CP_ACP, 0, narrow.data(), -1, widened.data(), static_cast<int>(widened.size())) != 0 &&
           std::wcscmp(widened.data(), wide.data()) == 0;
}

/** Keeps everybody from writing, renaming and deleting the worker's file; empty when it cannot be kept so. */
FileHandle HoldWorkerFile() noexcept {
    return FileHandle(CreateFileW(WorkerPath().text.data(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
}

} // namespace

unsigned long ScreenRecordProxy::RunProcess(unsigned long timeoutMs) {
    static constexpr LogFunction kHere(
        "unsigned long __cdecl KxScreenRecord::ScreenRecordProxy::RunProcess(unsigned long)");
    RecordMode mode{};
    const std::optional<RunNumber> run = RunState(m_recordMode, m_runStatus).BeginRun(mode);
    if (!run) {
        LogWarn(kHere, "Can not run screen record process on mode ", static_cast<int>(mode));
        return ERROR_BUSY;
    }

    // What is verified is what is launched: the file stays as it is until CreateProcessW has returned.
    FileHandle workerFile = HoldWorkerFile();
    void* process = nullptr;
    unsigned long error = CheckEnv();
    if (error == ERROR_SUCCESS && !workerFile) { // somebody had it open for writing when this began
        LogError(kHere, "Screen record exe file verification error");
        error = ERROR_INVALID_EXE_SIGNATURE;
    }
    if (error == ERROR_SUCCESS) {
        RunState(m_recordMode, m_runStatus).FormerWorkerIsGone(*run);
        error = CreateRecordProcess(process);
    }
    workerFile.Reset();
    if (error == ERROR_SUCCESS) {
        error = WaitProcessRunResult(process, timeoutMs);
    }
    // A worker that ended with exit code 0 before it was ready gives 0, but there is no worker to command.
    if (error != ERROR_SUCCESS || process == nullptr) {
        RunState(m_recordMode, m_runStatus).RunFailed(*run);
        return error;
    }
    RunState(m_recordMode, m_runStatus).RunSucceeded(*run);
    return ERROR_SUCCESS;
}

unsigned long ScreenRecordProxy::CheckEnv() {
    static constexpr LogFunction kHere("unsigned long __cdecl KxScreenRecord::ScreenRecordProxy::CheckEnv(void)");
    {
        const CriticalSectionGuard lock(m_lock);
        if (m_workerProcess != nullptr) {
            if (WaitForSingleObject(m_workerProcess, 0) == WAIT_TIMEOUT) {
                LogWarn(kHere, "Screen record process is running, can not start new process");
                return ERROR_BUSY;
            }
            KernelHandle(m_workerProcess.exchange(nullptr)).Reset();
        }
    }
    const FileHandle workerFile = HoldWorkerFile();
    // Asked first: it tells on the debug channel what is wrong with file or manifest.
    const bool isAsShipped = SystemEnvironment::CompareFileIntergrity(kxvcr::kWorkerFileName);
    if (!isAsShipped || !workerFile || !HostFolderHasOneName()) {
        LogError(kHere, "Screen record exe file verification error");
        return ERROR_INVALID_EXE_SIGNATURE;
    }
    const CriticalSectionGuard lock(m_lock);
    if (m_readyEvent != nullptr) {
        ResetEvent(m_readyEvent);
        return ERROR_SUCCESS;
    }
    m_readyEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (m_readyEvent == nullptr) {
        const DWORD error = GetLastError();
        LogError(kHere, "Create event for ipc notify failed, err=", error);
        return error;
    }
    return ERROR_SUCCESS;
}

unsigned long ScreenRecordProxy::CreateRecordProcess(void*& process) {
    static constexpr LogFunction kHere(
        "unsigned long __cdecl KxScreenRecord::ScreenRecordProxy::CreateRecordProcess(void *&)");
    const WorkerPath path;
    std::array<wchar_t, MAX_PATH + 32> commandLine = {};
    StringCchPrintfW(commandLine.data(), commandLine.size(), L"\"%ls\"%ls", path.text.data(), kWorkerArguments);

    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION created = {};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &created)) {
        const DWORD error = GetLastError(); // before the lock, which is the system's to wait for
        {
            const CriticalSectionGuard lock(m_lock);
            KernelHandle(std::exchange(m_readyEvent, nullptr)).Reset();
        }
        LogError(kHere, "CreateProcess failed! Err=", error);
        return error;
    }
    KernelHandle(created.hThread).Reset();
    process = created.hProcess;
    return ERROR_SUCCESS;
}

namespace {

/**
 * Lets go of the monitor thread of an earlier run, under the instance's lock. Its last move let this run begin, so all
 * that is left of it is to end; one that has not ended even so is kept with its run, for the destructor.
 */
void LetGoOfFormerMonitor(KernelHandle monitor) noexcept {
    if (!monitor) {
        return;
    }
    MonitoredRun* const run = g_runs.OfThread(GetThreadId(monitor.Get()));
    if (run != nullptr && WaitForSingleObject(monitor.Get(), kMonitorThreadStepTimeoutMs) != WAIT_OBJECT_0) {
        run->monitor = std::move(monitor);
        return;
    }
    g_runs.Remove(run);
}

} // namespace

unsigned long ScreenRecordProxy::WaitProcessRunResult(void*& process, unsigned long timeoutMs) {
    static constexpr LogFunction kHere(
        "unsigned long __cdecl KxScreenRecord::ScreenRecordProxy::WaitProcessRunResult(void *&,unsigned long)");
    KernelHandle worker(std::exchange(process, nullptr));
    // Neither handle can be closed meanwhile: the worker's is still this call's own, and no other run, which alone
    // could close the event, begins before this one's monitor has seen its worker end.
    const std::array<HANDLE, 2> handles = {m_readyEvent, worker.Get()};
    const DWORD outcome = WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE, timeoutMs);

    if (outcome == WAIT_OBJECT_0) {
        const RunNumber number = RunState(m_recordMode, m_runStatus).Newest();
        const CriticalSectionGuard lock(m_lock);
        process = worker.Release();
        m_workerProcess = process;
        LetGoOfFormerMonitor(KernelHandle(std::exchange(m_monitorThread, nullptr)));
        MonitoredRun* const run = g_runs.Add(number, process);
        if (run == nullptr) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        } else {
            m_monitorThread = CreateThread(nullptr, 0, ScrRecProcessMonitorThreadProcWarpper, this, 0, nullptr);
        }
        if (m_monitorThread == nullptr) {
            const DWORD error = GetLastError();
            g_runs.Remove(run);
            LogError(kHere, "Create monitor thread failed! err=", error);
            return error;
        }
        run->monitorId = GetThreadId(m_monitorThread);
        // A proxy that is released at once must not wait, with the lock, for a thread that waits for the lock to look.
        // The run is asked for anew each time: it may be over when this thread has the lock again.
        const auto isAwaited = [number] {
            const MonitoredRun* const awaited =
                g_runs.Find([number](const MonitoredRun& candidate) { return candidate.number == number; });
            return awaited != nullptr && !awaited->monitorHasLooked;
        };
        while (isAwaited() && SleepConditionVariableCS(&g_monitorLooked, &m_lock, kMonitorThreadStepTimeoutMs)) {
        }
        return ERROR_SUCCESS;
    }
    if (outcome == WAIT_OBJECT_0 + 1) {
        DWORD result = 0;
        if (!GetExitCodeProcess(worker.Get(), &result)) {
            result = GetLastError();
        }
        LogWarn(kHere, "KXVCR process died, exitcode=", result);
        return result;
    }
    TerminateProcess(worker.Get(), kExitCodeNeverReady);
    return outcome == WAIT_TIMEOUT ? outcome : 1;
}

void ScreenRecordProxy::OnRecordProcessIPCReady(TagIPCMessageItem&) {
    static constexpr LogFunction kHere(
        "void __cdecl KxScreenRecord::ScreenRecordProxy::OnRecordProcessIPCReady(struct TagIPCMessageItem &)");
    const RunNumber run = RunState(m_recordMode, m_runStatus).Newest();
    const CriticalSectionGuard lock(m_lock);
    if (m_readyEvent == nullptr) {
        LogError(kHere, "Event is null? Can not be here");
        return;
    }
    if (run == RunState(m_recordMode, m_runStatus).Newest()) { // else the notice is a former worker's
        SetEvent(m_readyEvent);
    }
}

// ---- Supervision ---------------------------------------------------------------------------------------------------

unsigned long __stdcall ScreenRecordProxy::ScrRecProcessMonitorThreadProcWarpper(void* self) {
    static_cast<ScreenRecordProxy*>(self)->ScrRecProcessMonitorThreadProc();
    return 0;
}

void ScreenRecordProxy::ScrRecProcessMonitorThreadProc() {
    static constexpr LogFunction kHere(
        "void __cdecl KxScreenRecord::ScreenRecordProxy::ScrRecProcessMonitorThreadProc(void)");
    MonitoredRun* run = nullptr;
    std::optional<MonitoredRun> callersRun; // of a thread that RunProcess did not make
    {
        const CriticalSectionGuard lock(m_lock);
        run = g_runs.OfThread(GetCurrentThreadId());
        if (run != nullptr) {
            run->monitorHasLooked = true; // RunProcess goes on when the lock is free again
            WakeAllConditionVariable(&g_monitorLooked);
        }
        if (m_workerProcess == nullptr) {
            LogWarn(kHere, "processHandle is null.");
        } else if (run == nullptr) {
            const RunNumber number = RunState(m_recordMode, m_runStatus).Newest();
            run = &callersRun.emplace(number, m_workerProcess);
        }
    }
    if (run == nullptr) {
        return;
    }
    // Of a worker that was killed before the thread looked, the run still has a handle: its end is to be told too.
    WaitForSingleObject(run->worker.Get(), INFINITE);
    if (!run->ClaimEnd()) {
        Sleep(INFINITE); // the destructor is terminating this thread
    }
    run->worker = SharedHandle();
    RunState(m_recordMode, m_runStatus).WorkerEnded(run->number);
}

unsigned long ScreenRecordProxy::WaitLiveProcessEnd(unsigned long timeoutMs) {
    static constexpr LogFunction kHere(
        "unsigned long __cdecl KxScreenRecord::ScreenRecordProxy::WaitLiveProcessEnd(unsigned long)");
    SharedHandle worker;
    {
        const CriticalSectionGuard lock(m_lock);
        if (m_workerProcess == nullptr) {
            LogWarn(kHere, "processHandle is null.");
            return 0;
        }
        worker = SharedHandle(m_workerProcess);
    }
    if (WaitForSingleObject(worker.Get(), timeoutMs) == WAIT_TIMEOUT) {
        LogWarn(kHere, "Wait screen record process end timeout(", timeoutMs, "ms)");
        return WAIT_TIMEOUT;
    }
    DWORD exitCode = 0;
    if (!GetExitCodeProcess(worker.Get(), &exitCode)) {
        const DWORD error = GetLastError();
        LogWarn(kHere, "Get record process exit code failed! err=", error);
        return error;
    }
    return exitCode;
}

void ScreenRecordProxy::KillProcess() {
    const CriticalSectionGuard lock(m_lock);
    if (const KernelHandle worker(m_workerProcess.exchange(nullptr)); worker) {
        TerminateProcess(worker.Get(), kExitCodeKilled);
        RunState(m_recordMode, m_runStatus).WorkerKilled();
    }
}

void ScreenRecordProxy::OnError() {
    RunState state(m_recordMode, m_runStatus);
    state.ExchangeFailed(state.Newest());
}

// ---- Commands ------------------------------------------------------------------------------------------------------

namespace {

/** A message from the proxy to the worker that borrows @p payload. */
TagIPCMessageItem MakeMessage(std::uint32_t id, void* payload, std::size_t payloadSize) noexcept {
    TagIPCMessageItem message;
    message.sourceModuleId = kxvcr::kHostModuleId;
    message.targetModuleId = kxvcr::kWorkerModuleId;
    message.messageId = id;
    message.timeStamp = GetTickCount();
    message.payloadSize = static_cast<std::uint32_t>(payloadSize);
    message.payload = payload;
    message.hasPayload = payload != nullptr;
    return message;
}

TagIPCMessageItem MakeRequest(std::uint32_t id, void* payload, std::size_t payloadSize) noexcept {
    TagIPCMessageItem request = MakeMessage(id, payload, payloadSize);
    request.replyMessageId = id;
    return request;
}

constexpr std::uint32_t kResultSize = sizeof(std::int32_t);

/** A reply's result; nothing when it has none. A payload of another size is logged: @p sizeText and the size. */
std::optional<std::int32_t> ResultOf(const TagIPCMessageItem& reply, LogSite site, const char* sizeText) noexcept {
    if (!reply.hasPayload || reply.payload == nullptr) {
        return std::nullopt;
    }
    if (reply.payloadSize != kResultSize) {
        LogError(site, sizeText, reply.payloadSize, ") error");
        return std::nullopt;
    }
    std::int32_t result = 0;
    std::memcpy(&result, reply.payload, kResultSize);
    return result;
}

/** Whether a reply came; a message library that throws has failed to get one. */
bool Send(IPCMessageClient& client, const TagIPCMessageItem& request, IPCReplyItem& reply,
          unsigned int timeoutMs) noexcept {
    try {
        return client.SendIPCMessage(request, reply, timeoutMs);
    } catch (...) {
        return false;
    }
}

/** The same for a notice, which has no reply. */
bool Post(IPCMessageClient& client, const TagIPCMessageItem& notice) noexcept {
    try {
        return client.PostIPCMessage(notice);
    } catch (...) {
        return false;
    }
}

/** One command under way. It belongs to the run in which it began, however late its answer comes. */
class Command {
public:
    Command(std::atomic<RecordMode>& mode, std::atomic<RunStatus>& status) noexcept : m_mode(mode), m_status(status) {}

    /** @return the status that was found; another than @p from refuses the command and changes nothing */
    RunStatus Begin(RunStatus from, RunStatus inProgress) noexcept {
        RunStatus found = m_status;
        if (found != from) { // a refusal moves nothing, so that it needs no lock
            return found;
        }
        if (const std::optional<RunNumber> run = RunState(m_mode, m_status).BeginCommand(found, inProgress)) {
            m_run = *run;
            m_inProgress = inProgress;
        }
        return found;
    }

    /** Goes on with what the caller has begun, in the newest run. */
    void Continue() noexcept { m_run = RunState(m_mode, m_status).Newest(); }

    void Succeed(RunStatus done, RecordMode mode) noexcept {
        RunState(m_mode, m_status).CommandSucceeded(m_run, m_inProgress, done, mode);
    }

    void Fail() noexcept { RunState(m_mode, m_status).ExchangeFailed(m_run); }

    /** What SendVCRMessage does, for this command. */
    bool Exchange(IPCMessageClient* client, unsigned int timeoutMs, const TagIPCMessageItem& request) noexcept {
        static constexpr LogFunction kHere("bool __cdecl KxScreenRecord::ScreenRecordProxy::SendVCRMessage("
                                           "unsigned int,struct TagIPCMessageItem &)");
        if (client == nullptr) {
            return false;
        }
        IPCReplyItem reply;
        if (!Send(*client, request, reply, timeoutMs)) {
            LogError(kHere, "Send IPC msg failed!");
            Fail();
            return false;
        }
        const std::optional<std::int32_t> result = ResultOf(reply, kHere, "IPC return value size(");
        if (!result) {
            Fail();
            return false;
        }
        if (*result < 0) {
            LogError(kHere, "IPC failed!err=", *result);
            Fail();
            return false;
        }
        return true;
    }

private:
    std::atomic<RecordMode>& m_mode;
    std::atomic<RunStatus>& m_status;
    RunNumber m_run = 0;
    RunStatus m_inProgress{};
};

} // namespace

bool ScreenRecordProxy::SendVCRMessage(unsigned int timeoutMs, TagIPCMessageItem& request) {
    Command command(m_recordMode, m_runStatus);
    command.Continue();
    return command.Exchange(m_ipcClient, timeoutMs, request);
}

bool ScreenRecordProxy::Prepare(const ScreenRecordParam& param, unsigned int timeoutMs) {
    return PrepareTimemachine(param, 0, timeoutMs);
}

bool ScreenRecordProxy::PrepareTimemachine(const ScreenRecordParam& param, unsigned int timeMachine,
                                           unsigned int timeoutMs) {
    static constexpr LogFunction kHere("bool __cdecl KxScreenRecord::ScreenRecordProxy::PrepareTimemachine("
                                       "const struct KxScreenRecord::ScreenRecordParam &,unsigned int,unsigned int)");
    Command command(m_recordMode, m_runStatus);
    const RunStatus status = command.Begin(RunStatus::Running, RunStatus::Preparing);
    if (status != RunStatus::Running) {
        LogError(kHere, "Can not call prepare on status ", static_cast<int>(status));
        return false;
    }
    std::array<std::uint8_t, sizeof(param) + sizeof(timeMachine)> payload = {};
    std::size_t payloadSize = sizeof(param);
    if (const int error = kx::CopyBytes(payload.data(), payload.size(), &param, sizeof(param))) {
        LogError(kHere, "memcpy_s returnCode =", error);
        return false;
    }
    if (timeMachine != 0) {
        if (const int error = kx::CopyBytes(payload.data() + payloadSize, payload.size() - payloadSize, &timeMachine,
                                            sizeof(timeMachine))) {
            LogError(kHere, "memcpy_s returnCode =", error);
            return false;
        }
        payloadSize += sizeof(timeMachine);
    }
    const TagIPCMessageItem request = MakeRequest(kxvcr::kMessagePrepare, payload.data(), payloadSize);
    if (!command.Exchange(m_ipcClient, timeoutMs, request)) {
        LogError(kHere, "Send IPC Message failed");
        return false;
    }
    command.Succeed(RunStatus::Prepared, timeMachine == 0 ? RecordMode::Prepared : RecordMode::PreparedTimemachine);
    return true;
}

bool ScreenRecordProxy::StartLocalRecord(const wchar_t* path, unsigned int pathLength, unsigned int timeoutMs) {
    static constexpr LogFunction kHere("bool __cdecl KxScreenRecord::ScreenRecordProxy::StartLocalRecord("
                                       "const wchar_t *,unsigned int,unsigned int)");
    if (path == nullptr || *path == L'\0') {
        LogError(kHere, "Invalid path");
        return false;
    }
    const std::size_t length = pathLength != 0 ? pathLength : std::wcslen(path);
    if (length > kxvcr::kMaxPathCharacters) {
        LogError(kHere, "Invalid path length ", length);
        return false;
    }
    Command command(m_recordMode, m_runStatus);
    const RunStatus status = command.Begin(RunStatus::Prepared, RunStatus::LocalRecordStarting);
    if (status != RunStatus::Prepared) {
        LogError(kHere, "Can not start local record on mode ", static_cast<int>(status));
        return false;
    }
    // The caller's length may run past the end of its string: the rest of the payload is then zeros.
    std::array<wchar_t, kxvcr::kMaxPathCharacters + 1> payload = {};
    std::copy_n(path, wcsnlen(path, length), payload.data());
    const TagIPCMessageItem request =
        MakeRequest(kxvcr::kMessageStartLocalRecord, payload.data(), (length + 1) * sizeof(wchar_t));
    if (!command.Exchange(m_ipcClient, timeoutMs, request)) {
        LogError(kHere, "Send Ipc Message failed");
        return false;
    }
    command.Succeed(RunStatus::LocalRecordRunning, RecordMode::LocalRecord);
    return true;
}

bool ScreenRecordProxy::StartLiveServer(const LiveServerParam& param, unsigned int timeoutMs, int& result) {
    static constexpr LogFunction kHere("bool __cdecl KxScreenRecord::ScreenRecordProxy::StartLiveServer("
                                       "const struct KxScreenRecord::LiveServerParam &,unsigned int,int &)");
    Command command(m_recordMode, m_runStatus);
    const RunStatus status = command.Begin(RunStatus::Prepared, RunStatus::LiveServerStarting);
    if (status != RunStatus::Prepared) {
        LogError(kHere, "Can not start live server on mode ", static_cast<int>(status));
        return false;
    }
    if (m_ipcClient == nullptr) {
        return false;
    }
    LiveServerParam payload = param;
    const TagIPCMessageItem request = MakeRequest(kxvcr::kMessageStartLiveServer, &payload, sizeof(payload));
    IPCReplyItem reply;
    if (!Send(*m_ipcClient, request, reply, timeoutMs)) {
        LogError(kHere, "Send IPC msg(StartLiveServer) failed!");
        command.Fail();
        return false;
    }
    const std::optional<std::int32_t> port = ResultOf(reply, kHere, "StartLive IPC return value size(");
    if (!port) {
        command.Fail();
        return false;
    }
    if (*port <= 0) { // stricter than the other commands: 0 is no port
        command.Fail();
        result = 0;
        return false;
    }
    result = *port;
    command.Succeed(RunStatus::LiveServerRunning, RecordMode::LiveServer);
    return true;
}

void ScreenRecordProxy::Stop() {
    static constexpr LogFunction kHere("void __cdecl KxScreenRecord::ScreenRecordProxy::Stop(void)");
    const std::optional<RunNumber> run = RunState(m_recordMode, m_runStatus).BeginStop(m_workerProcess);
    if (!run) {
        return;
    }
    if (m_ipcClient == nullptr) {
        LogError(kHere, "objIPCClient is null.");
        return;
    }
    if (!Post(*m_ipcClient, MakeMessage(kxvcr::kMessageStop, nullptr, 0))) {
        LogError(kHere, "Post IPC msg(Stop) failed!");
        RunState(m_recordMode, m_runStatus).ExchangeFailed(*run);
    }
}

} // namespace KxScreenRecord
