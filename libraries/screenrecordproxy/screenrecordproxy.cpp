// ScreenRecordProxy: verifies, launches, supervises and commands the screen-record worker.
//
// Two fields say where the proxy stands. The run status admits commands; the record mode tells the host what the
// worker does.
//
//   member               run status from -> to              record mode          when
//   RunProcess           any -> Starting                    NoWorker -> WorkerStarted   no worker is known
//                        Starting -> Running                                     the worker is ready
//                        Starting -> Idle                   NoWorker             any step failed
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
// A worker's run ends in one of these ways: it ends by itself (after Stop, or because it died), KillProcess ends it,
// RunProcess ends it because it did not get ready, or the proxy is destroyed and tells it to stop.

#include "screenrecordproxy.h"

#include "common/boundedcopy.h"
#include "common/win/handle.h"
#include "libraries/screenrecordproxy/logchannel.h"
#include "libraries/screenrecordproxy/sharedhandle.h"
#include "sdk/ipcmessage/ipcmessage.h"
#include "systemenvironment.h"

#include <shlwapi.h>
#include <strsafe.h>

#include <algorithm>
#include <array>
#include <cwchar>
#include <memory>
#include <mutex>
#include <new>
#include <optional>

namespace KxScreenRecord {
namespace {

using kx::KernelHandle;
using logchannel::LogFunction;
using logchannel::LogSite;

constexpr char kSourceFile[] = R"(libraries\screenrecordproxy\screenrecordproxy.cpp)";

constexpr char kWorkerFileName[] = "KXVCR.exe";
constexpr wchar_t kWorkerFileNameWide[] = L"KXVCR.exe";
constexpr wchar_t kWorkerArguments[] = L" -IPCProxy";

constexpr std::uint32_t kProxyModuleId = 0x4E0000;
constexpr std::uint32_t kWorkerModuleId = 0x650000;

constexpr std::uint32_t kWorkerReadyMessage = 0x4E0002;
constexpr std::uint32_t kPrepareMessage = 0x4E0003;
constexpr std::uint32_t kStartLiveServerMessage = 0x4E0004;
constexpr std::uint32_t kStartLocalRecordMessage = 0x4E0005;
constexpr std::uint32_t kStopMessage = 0x4E0006;

constexpr UINT kExitCodeNoMemory = 8;
constexpr UINT kExitCodeNeverReady = 21;
constexpr UINT kExitCodeKilled = 157;
constexpr DWORD kMonitorThreadStartTimeoutMs = 1000;
constexpr DWORD kMonitorThreadEndTimeoutMs = 5000;
constexpr unsigned int kMaxPathCharacters = 260;

std::mutex g_proxyMutex;
ScreenRecordProxy* g_proxy = nullptr;
std::uint32_t g_proxyReferences = 0;

// Whether the newest monitor thread has looked for its worker; both under the instance's lock.
bool g_monitorHasLooked = false;
CONDITION_VARIABLE g_monitorLooked = CONDITION_VARIABLE_INIT;

template <class... Values>
void LogWarn(LogSite site, const Values&... values) noexcept {
    logchannel::Write(log4cplus::WARN_LOG_LEVEL, kSourceFile, site, values...);
}

template <class... Values>
void LogError(LogSite site, const Values&... values) noexcept {
    logchannel::Write(log4cplus::ERROR_LOG_LEVEL, kSourceFile, site, values...);
}

/** Null when there is no memory for the client or for its ready callback. */
template <class Proxy>
IPCMessageClient* NewClient(Proxy* proxy, void (Proxy::*onReady)(TagIPCMessageItem&)) noexcept {
    try {
        std::unique_ptr<IPCMessageClient> client(new (std::nothrow)
                                                     IPCMessageClient(static_cast<int>(kWorkerModuleId), false, false));
        if (client) {
            client->RegisterMessageCallback(kWorkerReadyMessage, proxy, onReady);
        }
        return client.release();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

} // namespace

// ---- The one instance ----------------------------------------------------------------------------------------------

ScreenRecordProxy* ScreenRecordProxy::CreateProxy() {
    static constexpr LogFunction kHere(
        "class KxScreenRecord::ScreenRecordProxy *__cdecl KxScreenRecord::ScreenRecordProxy::CreateProxy(void)");
    const std::lock_guard lock(g_proxyMutex);
    if (g_proxy == nullptr) {
        g_proxy = new (std::nothrow) ScreenRecordProxy();
    }
    if (g_proxy == nullptr) {
        LogError(kHere, "gsProxy is null.");
        return nullptr;
    }
    ++g_proxyReferences;
    return g_proxy;
}

void ScreenRecordProxy::ReleaseProxy(ScreenRecordProxy* proxy) {
    static constexpr LogFunction kHere("void __cdecl KxScreenRecord::ScreenRecordProxy::ReleaseProxy("
                                       "class KxScreenRecord::ScreenRecordProxy *)");
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
}

ScreenRecordProxy::ScreenRecordProxy() {
    static constexpr LogFunction kHere("__cdecl KxScreenRecord::ScreenRecordProxy::ScreenRecordProxy(void)");
    InitializeCriticalSection(&m_lock); // first: the client may call back as soon as it exists
    m_ipcClient = NewClient(this, &ScreenRecordProxy::OnRecordProcessIPCReady);
    if (m_ipcClient == nullptr) {
        LogError(kHere, "Alloc IPC client failed! No memory?");
        ExitProcess(kExitCodeNoMemory);
    }
}

ScreenRecordProxy::~ScreenRecordProxy() {
    static constexpr LogFunction kHere("__cdecl KxScreenRecord::ScreenRecordProxy::~ScreenRecordProxy(void)");
    {
        const CriticalSectionGuard lock(m_lock);
        if (m_workerProcess != nullptr) {
            if (WaitForSingleObject(m_workerProcess, 0) == WAIT_TIMEOUT) {
                Stop();
            }
            KernelHandle(m_workerProcess.exchange(nullptr)).Reset();
        }
        if (const KernelHandle monitor(std::exchange(m_monitorThread, nullptr)); monitor) {
            if (WaitForSingleObject(monitor.Get(), kMonitorThreadEndTimeoutMs) == WAIT_TIMEOUT) {
                LogWarn(kHere, "Wait monitor thread end timeout, kill process");
                TerminateThread(monitor.Get(), WAIT_TIMEOUT);
            }
        }
    }
    if (m_ipcClient != nullptr) {
        m_ipcClient->UnRegisterMessageCallbackAll();
        delete std::exchange(m_ipcClient, nullptr);
    }
    KernelHandle(std::exchange(m_readyEvent, nullptr)).Reset();
    DeleteCriticalSection(&m_lock);
}

bool ScreenRecordProxy::IsSupport() {
    DWORD type = 0;
    return GetBinaryTypeW(kWorkerFileNameWide, &type) && (type == SCS_64BIT_BINARY || type == SCS_32BIT_BINARY);
}

int ScreenRecordProxy::GetCurRecordMode() {
    return static_cast<int>(m_recordMode.load());
}

// ---- Launch --------------------------------------------------------------------------------------------------------

unsigned long ScreenRecordProxy::RunProcess(unsigned long timeoutMs) {
    static constexpr LogFunction kHere(
        "unsigned long __cdecl KxScreenRecord::ScreenRecordProxy::RunProcess(unsigned long)");
    RecordMode mode = RecordMode::NoWorker;
    if (!m_recordMode.compare_exchange_strong(mode, RecordMode::WorkerStarted)) {
        LogWarn(kHere, "Can not run screen record process on mode ", static_cast<int>(mode));
        return ERROR_BUSY;
    }
    m_runStatus = RunStatus::Starting;

    void* process = nullptr;
    unsigned long error = CheckEnv();
    if (error == ERROR_SUCCESS) {
        error = CreateRecordProcess(process);
    }
    if (error == ERROR_SUCCESS) {
        error = WaitProcessRunResult(process, timeoutMs);
    }
    // A worker that ended with exit code 0 before it was ready gives 0, but there is no worker to command.
    if (error != ERROR_SUCCESS || m_workerProcess == nullptr) {
        m_runStatus = RunStatus::Idle;
        m_recordMode = RecordMode::NoWorker;
        return error;
    }
    m_runStatus = RunStatus::Running;
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
    if (!SystemEnvironment::CompareFileIntergrity(kWorkerFileName)) {
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
    wchar_t folder[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, folder, MAX_PATH);
    PathRemoveFileSpecW(folder);
    std::array<wchar_t, MAX_PATH + 32> commandLine = {};
    StringCchPrintfW(commandLine.data(), commandLine.size(), L"\"%ls\\%ls\"%ls", folder, kWorkerFileNameWide,
                     kWorkerArguments);

    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION created = {};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &created)) {
        {
            const CriticalSectionGuard lock(m_lock);
            KernelHandle(std::exchange(m_readyEvent, nullptr)).Reset();
        }
        const DWORD error = GetLastError();
        LogError(kHere, "CreateProcess failed! Err=", error);
        return error;
    }
    KernelHandle(created.hThread).Reset();
    process = created.hProcess;
    return ERROR_SUCCESS;
}

unsigned long ScreenRecordProxy::WaitProcessRunResult(void*& process, unsigned long timeoutMs) {
    static constexpr LogFunction kHere(
        "unsigned long __cdecl KxScreenRecord::ScreenRecordProxy::WaitProcessRunResult(void *&,unsigned long)");
    KernelHandle worker(std::exchange(process, nullptr));
    // Neither handle can be closed meanwhile: the worker's is still this call's own, and while the record mode is
    // WorkerStarted nobody else gets as far as the event.
    const std::array<HANDLE, 2> handles = {m_readyEvent, worker.Get()};
    const DWORD outcome = WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE, timeoutMs);

    if (outcome == WAIT_OBJECT_0) {
        const CriticalSectionGuard lock(m_lock);
        process = worker.Release();
        m_workerProcess = process;
        KernelHandle(std::exchange(m_monitorThread, nullptr)).Reset();
        g_monitorHasLooked = false;
        m_monitorThread = CreateThread(nullptr, 0, ScrRecProcessMonitorThreadProcWarpper, this, 0, nullptr);
        if (m_monitorThread == nullptr) {
            const DWORD error = GetLastError();
            LogError(kHere, "Create monitor thread failed! err=", error);
            return error;
        }
        // A worker that is killed, or a proxy that is released, at once must not be gone before the thread looks:
        // the record mode would stay as it is, or the destructor would wait for a thread that waits for its lock.
        while (!g_monitorHasLooked &&
               SleepConditionVariableCS(&g_monitorLooked, &m_lock, kMonitorThreadStartTimeoutMs)) {
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
    const CriticalSectionGuard lock(m_lock);
    if (m_readyEvent == nullptr) {
        LogError(kHere, "Event is null? Can not be here");
        return;
    }
    SetEvent(m_readyEvent);
}

// ---- Supervision ---------------------------------------------------------------------------------------------------

unsigned long __stdcall ScreenRecordProxy::ScrRecProcessMonitorThreadProcWarpper(void* self) {
    static_cast<ScreenRecordProxy*>(self)->ScrRecProcessMonitorThreadProc();
    return 0;
}

void ScreenRecordProxy::ScrRecProcessMonitorThreadProc() {
    static constexpr LogFunction kHere(
        "void __cdecl KxScreenRecord::ScreenRecordProxy::ScrRecProcessMonitorThreadProc(void)");
    SharedHandle worker;
    {
        const CriticalSectionGuard lock(m_lock);
        g_monitorHasLooked = true; // RunProcess goes on when the lock is free again
        WakeAllConditionVariable(&g_monitorLooked);
        if (m_workerProcess == nullptr) {
            LogWarn(kHere, "processHandle is null.");
            return;
        }
        worker = SharedHandle(m_workerProcess);
    }
    WaitForSingleObject(worker.Get(), INFINITE);
    m_recordMode = RecordMode::NoWorker;
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
        m_runStatus = RunStatus::Idle;
    }
}

void ScreenRecordProxy::OnError() {
    RunStatus status = m_runStatus;
    while (status != RunStatus::Stopping && !m_runStatus.compare_exchange_weak(status, RunStatus::Error)) {
    }
}

// ---- Commands ------------------------------------------------------------------------------------------------------

namespace {

/** A message from the proxy to the worker that borrows @p payload. */
TagIPCMessageItem MakeMessage(std::uint32_t id, void* payload, std::size_t payloadSize) noexcept {
    TagIPCMessageItem message;
    message.sourceModuleId = kProxyModuleId;
    message.targetModuleId = kWorkerModuleId;
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

} // namespace

bool ScreenRecordProxy::SendVCRMessage(unsigned int timeoutMs, TagIPCMessageItem& request) {
    static constexpr LogFunction kHere("bool __cdecl KxScreenRecord::ScreenRecordProxy::SendVCRMessage("
                                       "unsigned int,struct TagIPCMessageItem &)");
    if (m_ipcClient == nullptr) {
        return false;
    }
    IPCReplyItem reply;
    if (!m_ipcClient->SendIPCMessage(request, reply, timeoutMs)) {
        LogError(kHere, "Send IPC msg failed!");
        OnError();
        return false;
    }
    const std::optional<std::int32_t> result = ResultOf(reply, kHere, "IPC return value size(");
    if (!result) {
        OnError();
        return false;
    }
    if (*result < 0) {
        LogError(kHere, "IPC failed!err=", *result);
        OnError();
        return false;
    }
    return true;
}

bool ScreenRecordProxy::Prepare(const ScreenRecordParam& param, unsigned int timeoutMs) {
    return PrepareTimemachine(param, 0, timeoutMs);
}

bool ScreenRecordProxy::PrepareTimemachine(const ScreenRecordParam& param, unsigned int timeMachine,
                                           unsigned int timeoutMs) {
    static constexpr LogFunction kHere("bool __cdecl KxScreenRecord::ScreenRecordProxy::PrepareTimemachine("
                                       "const struct KxScreenRecord::ScreenRecordParam &,unsigned int,unsigned int)");
    RunStatus status = RunStatus::Running;
    if (!m_runStatus.compare_exchange_strong(status, RunStatus::Preparing)) {
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
    TagIPCMessageItem request = MakeRequest(kPrepareMessage, payload.data(), payloadSize);
    if (!SendVCRMessage(timeoutMs, request)) {
        LogError(kHere, "Send IPC Message failed");
        return false;
    }
    m_recordMode = timeMachine == 0 ? RecordMode::Prepared : RecordMode::PreparedTimemachine;
    m_runStatus = RunStatus::Prepared;
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
    if (length > kMaxPathCharacters) {
        LogError(kHere, "Invalid path length ", length);
        return false;
    }
    RunStatus status = RunStatus::Prepared;
    if (!m_runStatus.compare_exchange_strong(status, RunStatus::LocalRecordStarting)) {
        LogError(kHere, "Can not start local record on mode ", static_cast<int>(status));
        return false;
    }
    // The caller's length may run past the end of its string: the rest of the payload is then zeros.
    std::array<wchar_t, kMaxPathCharacters + 1> payload = {};
    std::copy_n(path, wcsnlen(path, length), payload.data());
    TagIPCMessageItem request = MakeRequest(kStartLocalRecordMessage, payload.data(), (length + 1) * sizeof(wchar_t));
    if (!SendVCRMessage(timeoutMs, request)) {
        LogError(kHere, "Send Ipc Message failed");
        return false;
    }
    m_runStatus = RunStatus::LocalRecordRunning;
    m_recordMode = RecordMode::LocalRecord;
    return true;
}

bool ScreenRecordProxy::StartLiveServer(const LiveServerParam& param, unsigned int timeoutMs, int& result) {
    static constexpr LogFunction kHere("bool __cdecl KxScreenRecord::ScreenRecordProxy::StartLiveServer("
                                       "const struct KxScreenRecord::LiveServerParam &,unsigned int,int &)");
    RunStatus status = RunStatus::Prepared;
    if (!m_runStatus.compare_exchange_strong(status, RunStatus::LiveServerStarting)) {
        LogError(kHere, "Can not start live server on mode ", static_cast<int>(status));
        return false;
    }
    if (m_ipcClient == nullptr) {
        return false;
    }
    LiveServerParam payload = param;
    const TagIPCMessageItem request = MakeRequest(kStartLiveServerMessage, &payload, sizeof(payload));
    IPCReplyItem reply;
    if (!m_ipcClient->SendIPCMessage(request, reply, timeoutMs)) {
        LogError(kHere, "Send IPC msg(StartLiveServer) failed!");
        OnError();
        return false;
    }
    const std::optional<std::int32_t> port = ResultOf(reply, kHere, "StartLive IPC return value size(");
    if (!port) {
        OnError();
        return false;
    }
    if (*port <= 0) { // stricter than the other commands: 0 is no port
        OnError();
        result = 0;
        return false;
    }
    result = *port;
    m_runStatus = RunStatus::LiveServerRunning;
    m_recordMode = RecordMode::LiveServer;
    return true;
}

void ScreenRecordProxy::Stop() {
    static constexpr LogFunction kHere("void __cdecl KxScreenRecord::ScreenRecordProxy::Stop(void)");
    if (m_workerProcess == nullptr) {
        return;
    }
    if (m_runStatus.exchange(RunStatus::Stopping) == RunStatus::Stopping) {
        return;
    }
    if (m_ipcClient == nullptr) {
        LogError(kHere, "objIPCClient is null.");
        return;
    }
    if (!m_ipcClient->PostIPCMessage(MakeMessage(kStopMessage, nullptr, 0))) {
        LogError(kHere, "Post IPC msg(Stop) failed!");
        OnError();
    }
}

} // namespace KxScreenRecord
