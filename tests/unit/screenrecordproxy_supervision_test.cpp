// A worker's life after its launch: the ready notice, the monitor thread, waiting for the end, and killing.
#include "unit/proxyfixture.h"

#include <atomic>
#include <functional>
#include <thread>

namespace proxytest {

namespace {

using proxyprivate::MonitorThread;
using proxyprivate::ReadyEvent;
using proxyprivate::WorkerProcess;

constexpr UINT kKilledExitCode = static_cast<UINT>(kxvcr::ExitCode::Killed);
constexpr unsigned long kStillActive = 259;

using ProxySupervision = ProxyTest;

TEST_F(ProxySupervision, ReadyNoticeWithoutEvent_IsLogged) {
    EXPECT_TRUE(fakeipc::Deliver(kxvcr::kMessageReady));
    ExpectMessages({Error("OnRecordProcessIPCReady", L"Event is null? Can not be here")});
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
}

TEST_F(ProxySupervision, ReadyNotice_SignalsTheEventAndReadsNothing) {
    EXPECT_EQ(proxyprivate::CheckEnv(Proxy()), 0u);
    TagIPCMessageItem item;
    item.payload = reinterpret_cast<void*>(1);
    item.payloadSize = 100;
    item.hasPayload = true;
    proxyprivate::OnReady(Proxy(), item);
    EXPECT_EQ(WaitForSingleObject(ReadyEvent(Proxy()), 0), WAIT_OBJECT_0);
    EXPECT_EQ(item.payload, reinterpret_cast<void*>(1));
    ExpectMessages({});
}

TEST_F(ProxySupervision, OnError_SetsTheErrorStatusUnlessStopping) {
    for (const RunStatus status : kAllStatuses) {
        SetState(status, RecordMode::Prepared);
        proxyprivate::OnError(Proxy());
        ExpectState(status == RunStatus::Stopping ? RunStatus::Stopping : RunStatus::Error, RecordMode::Prepared);
    }
    ExpectMessages({});
}

TEST_F(ProxySupervision, EndedWorker_ClearsTheModeOnly) {
    for (const RunStatus status : {RunStatus::Running, RunStatus::LocalRecordRunning, RunStatus::Stopping}) {
        m_plan.Live(9);
        const OwnedHandle worker = RunWorker();
        SetState(status, RecordMode::LocalRecord);
        void* const held = WorkerProcess(Proxy()).load();
        m_plan.EndWorkers();
        AwaitMonitor();
        ExpectState(status, RecordMode::NoWorker);
        EXPECT_EQ(WorkerProcess(Proxy()).load(), held);
        EXPECT_EQ(Proxy().WaitLiveProcessEnd(kLimitMs), 9u);
        EXPECT_EQ(ExitCodeOf(worker.get()), 9u);
    }
    ExpectMessages({});
}

TEST_F(ProxySupervision, MonitorThread_EndsWithZero) {
    const OwnedHandle worker = RunWorker();
    const OwnedHandle monitor = Duplicate(MonitorThread(Proxy()));
    m_plan.EndWorkers();
    ASSERT_EQ(WaitForSingleObject(monitor.get(), kLimitMs), WAIT_OBJECT_0);
    DWORD exitCode = 1;
    EXPECT_NE(GetExitCodeThread(monitor.get(), &exitCode), FALSE);
    EXPECT_EQ(exitCode, 0u);
}

TEST_F(ProxySupervision, MonitorEntry_CallsTheProcedureAndReturnsZero) {
    EXPECT_EQ(kxtest::kPrivate<proxyprivate::MonitorEntryTag>(&Proxy()), 0u);
    ExpectMessages({Warn("ScrRecProcessMonitorThreadProc", L"processHandle is null.")});
}

TEST_F(ProxySupervision, MonitorWithoutWorker_IsLoggedAndKeepsTheMode) {
    SetState(RunStatus::Running, RecordMode::Prepared);
    proxyprivate::MonitorProc(Proxy());
    ExpectState(RunStatus::Running, RecordMode::Prepared);
    ExpectMessages({Warn("ScrRecProcessMonitorThreadProc", L"processHandle is null.")});
    EXPECT_TRUE(LockIsFree(Proxy()));
}

TEST_F(ProxySupervision, Monitor_WaitsWithoutLimitAndWithoutTheLock) {
    m_plan.Live(0);
    const OwnedHandle entered = NewEvent();
    bool free = false;
    const hooks::WaitHook wait([&](HANDLE handle, DWORD timeoutMs) {
        if (timeoutMs == INFINITE) {
            free = LockIsFree(Proxy());
            SetEvent(entered.get());
        }
        return hooks::WaitHook::Original(handle, timeoutMs);
    });
    const OwnedHandle worker = RunWorker();
    ASSERT_EQ(WaitForSingleObject(entered.get(), kLimitMs), WAIT_OBJECT_0);
    EXPECT_TRUE(free);
    m_plan.EndWorkers();
    AwaitMonitor();
}

TEST_F(ProxySupervision, KillWithoutWorker_DoesNothing) {
    const hooks::TerminateProcessHook terminate([](auto&&...) { return TRUE; });
    for (const RunStatus status : kAllStatuses) {
        SetState(status, RecordMode::Prepared);
        Proxy().KillProcess();
        ExpectState(status, RecordMode::Prepared);
    }
    EXPECT_EQ(terminate.Calls(), 0);
    ExpectMessages({});
}

TEST_F(ProxySupervision, Kill_EndsTheWorkerWith157UnderTheLock) {
    const OwnedHandle worker = RunWorker();
    void* const held = WorkerProcess(Proxy()).load();
    std::vector<std::pair<HANDLE, UINT>> terminated;
    bool closed = false;
    {
        const hooks::TerminateProcessHook terminate([&](HANDLE process, UINT exitCode) {
            terminated.emplace_back(process, exitCode);
            EXPECT_FALSE(LockIsFree(Proxy()));
            return hooks::TerminateProcessHook::Original(process, exitCode);
        });
        const hooks::CloseHandleHook close([&](HANDLE handle) {
            closed = closed || handle == held;
            return hooks::CloseHandleHook::Original(handle);
        });
        Proxy().KillProcess();
    }
    EXPECT_EQ(terminated, (std::vector<std::pair<HANDLE, UINT>>{{held, kKilledExitCode}}));
    EXPECT_TRUE(closed);
    EXPECT_EQ(WorkerProcess(Proxy()).load(), nullptr);
    AwaitMonitor();
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    EXPECT_EQ(ExitCodeOf(worker.get()), kKilledExitCode);
    EXPECT_TRUE(LockIsFree(Proxy()));
    ExpectMessages({});
}

TEST_F(ProxySupervision, KillTwice_KillsOnce) {
    const OwnedHandle worker = RunWorker();
    const hooks::TerminateProcessHook terminate(
        [](HANDLE process, UINT exitCode) { return hooks::TerminateProcessHook::Original(process, exitCode); });
    Proxy().KillProcess();
    Proxy().KillProcess();
    EXPECT_EQ(terminate.Calls(), 1);
}

TEST_F(ProxySupervision, FailedKill_StillLetsTheHandleGo) {
    const OwnedHandle worker = RunWorker();
    {
        const hooks::TerminateProcessHook terminate([](auto&&...) { return FALSE; });
        Proxy().KillProcess();
    }
    EXPECT_EQ(WorkerProcess(Proxy()).load(), nullptr);
    EXPECT_EQ(static_cast<int>(proxyprivate::Status(Proxy()).load()), 0);
    EXPECT_EQ(WaitForSingleObject(worker.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST_F(ProxySupervision, AfterKill_TheNextRunWorks) {
    for (int run = 0; run < 3; ++run) {
        const OwnedHandle worker = RunWorker();
        Proxy().KillProcess();
        AwaitMonitor();
        EXPECT_EQ(ExitCodeOf(worker.get()), kKilledExitCode);
    }
    ExpectMessages({});
}

/** A thread that begins late, as on a busy machine. */
struct LateThread {
    LPTHREAD_START_ROUTINE entry;
    void* argument;

    static DWORD WINAPI Start(void* self) {
        const std::unique_ptr<LateThread> late(static_cast<LateThread*>(self));
        constexpr DWORD kLateMs = 200;
        Sleep(kLateMs);
        return late->entry(late->argument);
    }
};

TEST_F(ProxySupervision, MonitorThatBeginsLate_StillSeesTheWorkerThatIsKilledAtOnce) {
    const hooks::CreateThreadHook create([](LPSECURITY_ATTRIBUTES security, SIZE_T stack, LPTHREAD_START_ROUTINE entry,
                                            void* argument, DWORD flags, DWORD* id) {
        return hooks::CreateThreadHook::Original(security, stack, LateThread::Start, new LateThread{entry, argument},
                                                 flags, id);
    });
    const OwnedHandle worker = RunWorker();
    Proxy().KillProcess();
    AwaitMonitor();
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    ExpectMessages({});
}

/** Lets the proxy create its monitor threads suspended, so that a test decides when the newest one begins. */
class SuspendedMonitor {
public:
    /** Begins the thread; it is the test's to wait for. */
    HANDLE Resume() {
        ResumeThread(m_thread.get());
        return m_thread.get();
    }

    std::function<void()> onCreated = [] {};

private:
    OwnedHandle m_thread;
    hooks::CreateThreadHook m_create{[this](LPSECURITY_ATTRIBUTES security, SIZE_T stack, LPTHREAD_START_ROUTINE entry,
                                            void* argument, DWORD flags, DWORD* id) {
        HANDLE const thread =
            hooks::CreateThreadHook::Original(security, stack, entry, argument, flags | CREATE_SUSPENDED, id);
        m_thread = Duplicate(thread);
        onCreated();
        return thread;
    }};
};

TEST_F(ProxySupervision, MonitorThatDoesNotBegin_HoldsTheRunUpForASecondOnly) {
    constexpr ULONGLONG kStartLimitMs = 1000;
    SuspendedMonitor monitor;
    const ULONGLONG before = GetTickCount64();
    const OwnedHandle worker = RunWorker();
    const ULONGLONG passed = GetTickCount64() - before;
    EXPECT_GE(passed, kStartLimitMs - 100);
    EXPECT_LT(passed, kLimitMs / 2);
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
    m_plan.EndWorkers();
    EXPECT_EQ(WaitForSingleObject(monitor.Resume(), kLimitMs), WAIT_OBJECT_0);
    ExpectState(RunStatus::Running, RecordMode::NoWorker);
    ExpectMessages({});
}

TEST_F(ProxySupervision, MonitorThatHasLooked_WakesTheRun) {
    std::atomic<BOOL> isWoken = FALSE;
    const hooks::SleepConditionHook sleep([&](PCONDITION_VARIABLE condition, PCRITICAL_SECTION lock, DWORD) {
        isWoken = hooks::SleepConditionHook::Original(condition, lock, kLimitMs);
        return isWoken.load();
    });
    const OwnedHandle worker = RunWorker();
    EXPECT_NE(isWoken, FALSE);
}

TEST_F(ProxySupervision, MonitorWithoutANumber_WatchesItsWorkerAndTheNextRunWorks) {
    {
        const hooks::GetThreadIdHook noNumber([](HANDLE) -> DWORD { return 0; });
        const OwnedHandle worker = RunWorker(); // goes on without having seen the monitor after a second
        m_plan.EndWorkers();
        AwaitMonitor();
        EXPECT_EQ(noNumber.Calls(), 1);
    }
    ExpectState(RunStatus::Running, RecordMode::NoWorker);
    ExpectMessages({});
    ExpectRunWorks();
}

TEST_F(ProxySupervision, WorkerThatIsKilledBeforeTheMonitorBegins_LeavesModeAndStatusZero) {
    SuspendedMonitor monitor;
    std::thread killer;
    monitor.onCreated = [&] {
        killer = std::thread([&] {
            Proxy().KillProcess(); // waits for the lock, which the run gives up only while it waits for the monitor
            monitor.Resume();
        });
    };
    const OwnedHandle worker = RunWorker();
    killer.join();
    AwaitMonitor();
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    EXPECT_EQ(ExitCodeOf(worker.get()), kKilledExitCode);
    ExpectMessages({Warn("ScrRecProcessMonitorThreadProc", L"processHandle is null.")});
}

TEST_F(ProxySupervision, WorkerThatIsKilledLongBeforeTheMonitorBegins_LeavesModeAndStatusZero) {
    {
        SuspendedMonitor monitor;
        const OwnedHandle worker = RunWorker(); // goes on without the monitor after a second
        Proxy().KillProcess();
        EXPECT_EQ(WaitForSingleObject(monitor.Resume(), kLimitMs), WAIT_OBJECT_0);
    }
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    ExpectMessages({Warn("ScrRecProcessMonitorThreadProc", L"processHandle is null.")});
    ExpectRunWorks();
}

TEST_F(ProxySupervision, WaitWithoutWorker_IsLoggedAndGivesZero) {
    EXPECT_EQ(Proxy().WaitLiveProcessEnd(kLimitMs), 0u);
    ExpectMessages({Warn("WaitLiveProcessEnd", L"processHandle is null.")});
    EXPECT_TRUE(LockIsFree(Proxy()));
}

TEST_F(ProxySupervision, Handles_AreReadUnderTheLock) {
    std::atomic<int> entered = 0;
    const hooks::EnterLockHook enter([&](LPCRITICAL_SECTION lock) {
        entered += lock == &proxyprivate::Lock(Proxy()) ? 1 : 0;
        hooks::EnterLockHook::Original(lock);
    });
    Proxy().WaitLiveProcessEnd(0);
    EXPECT_EQ(entered.load(), 1);
    proxyprivate::MonitorProc(Proxy());
    EXPECT_EQ(entered.load(), 2);
    Proxy().KillProcess();
    EXPECT_EQ(entered.load(), 3);
    EXPECT_TRUE(fakeipc::Deliver(kxvcr::kMessageReady));
    EXPECT_EQ(entered.load(), 4);
}

TEST_F(ProxySupervision, WaitOnALivingWorker_TimesOutAndNamesTheTime) {
    const OwnedHandle worker = RunWorker();
    for (const DWORD timeoutMs : {0ul, kTooShortMs}) {
        m_log.Clear();
        EXPECT_EQ(Proxy().WaitLiveProcessEnd(timeoutMs), kTimedOut);
        ExpectMessages({Warn("WaitLiveProcessEnd", L"Wait screen record process end timeout(",
                             std::to_wstring(timeoutMs) + L"ms)")});
    }
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
}

TEST_F(ProxySupervision, WaitOnAnEndedWorker_GivesItsExitCodeAndKeepsTheHandle) {
    m_plan.Live(42);
    const OwnedHandle worker = RunWorker();
    void* const held = WorkerProcess(Proxy()).load();
    m_plan.EndWorkers();
    EXPECT_EQ(Proxy().WaitLiveProcessEnd(kLimitMs), 42u);
    EXPECT_EQ(Proxy().WaitLiveProcessEnd(0), 42u);
    EXPECT_EQ(WorkerProcess(Proxy()).load(), held);
    EXPECT_EQ(GetProcessId(held), GetProcessId(worker.get()));
    ExpectMessages({});
}

TEST_F(ProxySupervision, ExitCodeThatCannotBeRead_IsLoggedAndGivesTheSystemsCode) {
    const OwnedHandle worker = RunWorker();
    m_plan.EndWorkers();
    {
        const hooks::GetExitCodeHook query([](auto&&...) {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        });
        EXPECT_EQ(Proxy().WaitLiveProcessEnd(kLimitMs), static_cast<unsigned long>(ERROR_ACCESS_DENIED));
    }
    ExpectMessages({Warn("WaitLiveProcessEnd", L"Get record process exit code failed! err=", L"5")});
    EXPECT_EQ(Proxy().WaitLiveProcessEnd(kLimitMs), 0u);
}

TEST_F(ProxySupervision, WorkerWhoseHandleCannotBeDuplicated_IsWatchedByTheHandleItself) {
    m_plan.Live(42);
    {
        const hooks::DuplicateHandleHook duplicate([](auto&&...) { return FALSE; });
        const OwnedHandle worker = RunWorker();
        m_plan.EndWorkers();
        EXPECT_EQ(Proxy().WaitLiveProcessEnd(kLimitMs), 42u);
        AwaitMonitor();
        EXPECT_EQ(duplicate.Calls(), 2) << "the monitor's and the waiter's";
    }
    ExpectState(RunStatus::Running, RecordMode::NoWorker);
    ExpectMessages({});
    ExpectRunWorks();
}

TEST_F(ProxySupervision, FailedWait_GivesTheExitCodeAsItStands) {
    const OwnedHandle worker = RunWorker();
    const hooks::WaitHook wait([](HANDLE handle, DWORD timeoutMs) {
        return timeoutMs == kTooShortMs ? WAIT_FAILED : hooks::WaitHook::Original(handle, timeoutMs);
    });
    EXPECT_EQ(Proxy().WaitLiveProcessEnd(kTooShortMs), kStillActive);
    ExpectMessages({});
}

TEST_F(ProxySupervision, WaitOutsideTheLock_LetsAnotherThreadKill) {
    const OwnedHandle worker = RunWorker();
    const OwnedHandle waiting = NewEvent();
    const hooks::WaitHook wait([&](HANDLE handle, DWORD timeoutMs) {
        if (timeoutMs == kLimitMs) {
            SetEvent(waiting.get());
        }
        return hooks::WaitHook::Original(handle, timeoutMs);
    });
    unsigned long result = 0;
    std::thread waiter([&] { result = Proxy().WaitLiveProcessEnd(kLimitMs); });
    EXPECT_EQ(WaitForSingleObject(waiting.get(), kLimitMs), WAIT_OBJECT_0);
    EXPECT_TRUE(LockIsFree(Proxy()));
    Proxy().KillProcess();
    waiter.join();
    EXPECT_EQ(result, kKilledExitCode);
    ExpectMessages({});
}

} // namespace

} // namespace proxytest
