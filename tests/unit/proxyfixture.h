/** @file What the proxy's unit tests share: a fresh proxy on the scriptable libraries, and control of the worker. */
#pragma once

#include "fakes/fakeipc.h"
#include "fakes/fakeutil.h"
#include "sdk/vcr/workerprotocol.h"
#include "support/logcapture.h"
#include "support/proxyprivate.h"
#include "unit/proxyhooks.h"
#include "unit/proxymessages.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace proxytest {

using KxScreenRecord::LiveServerParam;
using KxScreenRecord::RecordMode;
using KxScreenRecord::RunStatus;
using KxScreenRecord::ScreenRecordParam;
using KxScreenRecord::ScreenRecordProxy;
using proxymessages::Error;
using proxymessages::Warn;

inline constexpr unsigned long kBusy = 170;
inline constexpr unsigned long kTimedOut = 258;
inline constexpr unsigned long kBadSignature = 191;
inline constexpr DWORD kLimitMs = 20000;         ///< for what must happen at once
inline constexpr DWORD kTooShortMs = 50;         ///< for time-outs that are expected
inline constexpr unsigned int kTimeoutMs = 4321; ///< handed through to the message client, never waited for

inline constexpr RunStatus kAllStatuses[] = {RunStatus::Error,
                                             RunStatus::Idle,
                                             RunStatus::Starting,
                                             RunStatus::Running,
                                             RunStatus::Preparing,
                                             RunStatus::Prepared,
                                             RunStatus::LocalRecordStarting,
                                             RunStatus::LocalRecordRunning,
                                             RunStatus::LiveServerStarting,
                                             RunStatus::LiveServerRunning,
                                             RunStatus::Stopping};
inline constexpr RecordMode kAllModes[] = {RecordMode::NoWorker,    RecordMode::WorkerStarted,
                                           RecordMode::Prepared,    RecordMode::PreparedTimemachine,
                                           RecordMode::LocalRecord, RecordMode::LiveServer};

/** A kernel handle that is closed with its owner. */
struct HandleCloser {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using OwnedHandle = std::unique_ptr<std::remove_pointer_t<HANDLE>, HandleCloser>;

OwnedHandle Duplicate(HANDLE handle);
OwnedHandle NewEvent();

/** Tells the next workers what to do; they learn it from the environment. */
class WorkerPlan {
public:
    WorkerPlan();
    ~WorkerPlan();
    WorkerPlan(const WorkerPlan&) = delete;
    WorkerPlan& operator=(const WorkerPlan&) = delete;

    void EndAtOnce(unsigned long exitCode);
    /** The worker lives until EndWorkers. */
    void Live(unsigned long exitCode);
    void EndWorkers();

private:
    OwnedHandle m_event;
    std::wstring m_eventName;
};

/** Exit code of a process that must be ending. */
unsigned long ExitCodeOf(HANDLE process);

/** Whether another thread could take the proxy's lock now. */
bool LockIsFree(ScreenRecordProxy& proxy);

/** Starts workers for a proxy: sees each one and, when asked, delivers its ready notice. */
class Launcher {
public:
    explicit Launcher(bool ready = true);

    int Launches() const { return m_hook.Calls(); }
    /** A handle of its own of the newest worker. */
    HANDLE Worker() const { return m_worker.get(); }
    HANDLE WorkerAsTheProxySeesIt() const { return m_rawProcess; }
    HANDLE ThreadAsTheProxySeesIt() const { return m_rawThread; }

private:
    bool m_ready;
    OwnedHandle m_worker;
    HANDLE m_rawProcess = nullptr;
    HANDLE m_rawThread = nullptr;
    hooks::CreateProcessHook m_hook;
};

class ProxyTest : public testing::Test {
protected:
    ProxyTest();
    ~ProxyTest() override;

    ScreenRecordProxy& Proxy() { return *m_proxy; }
    /** Runs a living worker that gets ready at once; the test fails when that fails. */
    OwnedHandle RunWorker();
    /** A run, its end and the monitor's end: the proxy works. */
    void ExpectRunWorks();
    /** Waits for the newest monitor thread's end. */
    void AwaitMonitor();
    /** Sets both state fields. */
    void SetState(RunStatus status, RecordMode mode);
    void ExpectState(RunStatus status, RecordMode mode);
    /** Neither a worker nor a monitor thread. */
    void ExpectNothingHeld();
    void ExpectMessages(const std::vector<proxymessages::Message>& messages);
    /** Gives the proxy back; the fixture does not do it again. */
    void Release();

    kxtest::LogCapture m_log;
    WorkerPlan m_plan;

private:
    ScreenRecordProxy* m_proxy;
};

} // namespace proxytest
