// Runs that meet: threads of an earlier run that come back in a later one, and threads that the proxy must not leave.
#include "unit/proxygate.h"

#include <functional>
#include <optional>

namespace proxytest {

namespace {

using proxyprivate::MonitorThread;
using proxyprivate::ReadyEvent;

/** Holds RunProcess in its last moments: its worker is kept and watched, and the lock is free again. */
class HeldTail {
public:
    explicit HeldTail(ScreenRecordProxy& proxy)
        : m_create([this](LPSECURITY_ATTRIBUTES security, SIZE_T stack, LPTHREAD_START_ROUTINE entry, void* argument,
                          DWORD flags, DWORD* id) {
              m_tailThread = GetCurrentThreadId();
              return hooks::CreateThreadHook::Original(security, stack, entry, argument, flags, id);
          }),
          m_leave([this, lock = &proxyprivate::Lock(proxy)](LPCRITICAL_SECTION section) {
              hooks::LeaveLockHook::Original(section);
              if (section == lock && GetCurrentThreadId() == m_tailThread) {
                  m_gate.Pass();
              }
          }) {}

    void AwaitThread() { m_gate.AwaitThread(); }
    void Open() { m_gate.Open(); }

private:
    Gate m_gate;
    std::atomic<DWORD> m_tailThread = 0;
    hooks::CreateThreadHook m_create;
    hooks::LeaveLockHook m_leave;
};

class ProxyRuns : public ProxyTest {
protected:
    /** RunProcess on a thread of its own; it ends with the object. */
    class RunningElsewhere {
    public:
        explicit RunningElsewhere(ScreenRecordProxy& proxy, DWORD timeoutMs = kLimitMs)
            : m_thread([this, &proxy, timeoutMs] { m_result = proxy.RunProcess(timeoutMs); }) {}
        ~RunningElsewhere() { Result(); }
        RunningElsewhere(const RunningElsewhere&) = delete;
        RunningElsewhere& operator=(const RunningElsewhere&) = delete;

        unsigned long Result() {
            if (m_thread.joinable()) {
                m_thread.join();
            }
            return m_result;
        }

    private:
        unsigned long m_result = 0xFFFFFFFF;
        std::thread m_thread;
    };
};

TEST_F(ProxyRuns, KillInTheLastMomentsOfARun_LeavesModeAndStatusZeroAndTheNextRunWorks) {
    {
        const Launcher launcher;
        HeldTail tail(Proxy());
        RunningElsewhere run(Proxy());
        tail.AwaitThread();
        Proxy().KillProcess();
        AwaitMonitor();
        tail.Open();
        EXPECT_EQ(run.Result(), 0u);
    }
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    ExpectMessages({});
    ExpectRunWorks();
}

TEST_F(ProxyRuns, KillInTheLastMomentsWhileTheMonitorIsLate_KeepsTheModeUntilTheMonitorMoves) {
    const Launcher launcher;
    HeldMonitor monitor;
    {
        HeldTail tail(Proxy());
        RunningElsewhere run(Proxy());
        tail.AwaitThread();
        Proxy().KillProcess();
        monitor.AwaitThread();
        tail.Open();
        EXPECT_EQ(run.Result(), 0u);
    }
    ExpectState(RunStatus::Idle, RecordMode::WorkerStarted);
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), kBusy);
    EXPECT_EQ(launcher.Launches(), 1);
    monitor.Open();
    AwaitMonitor();
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
}

TEST_F(ProxyRuns, StopInTheLastMomentsOfARun_IsNotOverwritten) {
    const Launcher launcher;
    HeldTail tail(Proxy());
    RunningElsewhere run(Proxy());
    tail.AwaitThread();
    Proxy().Stop();
    tail.Open();
    EXPECT_EQ(run.Result(), 0u);
    ExpectState(RunStatus::Stopping, RecordMode::WorkerStarted);
}

TEST_F(ProxyRuns, TailOfARunThatIsOver_LeavesTheNextRunAlone) {
    const Launcher launcher;
    HeldTail tail(Proxy());
    RunningElsewhere first(Proxy());
    tail.AwaitThread();
    Proxy().KillProcess();
    AwaitMonitor();
    RunningElsewhere second(Proxy());
    EXPECT_EQ(second.Result(), 0u);
    EXPECT_TRUE(Proxy().Prepare(ScreenRecordParam(), kTimeoutMs));
    tail.Open();
    EXPECT_EQ(first.Result(), 0u);
    ExpectState(RunStatus::Prepared, RecordMode::Prepared);
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), kBusy);
    EXPECT_EQ(launcher.Launches(), 2);
}

TEST_F(ProxyRuns, TailOfARunThatIsOver_LeavesTheNextRunsReadyNoticeAlone) {
    std::optional<Launcher> launcher(std::in_place, true);
    HeldTail tail(Proxy());
    RunningElsewhere first(Proxy());
    tail.AwaitThread();
    Proxy().KillProcess();
    AwaitMonitor();
    launcher.emplace(false);
    Gate wait;
    const hooks::WaitManyHook hook([&](DWORD count, const HANDLE* handles, BOOL all, DWORD timeoutMs) {
        wait.Pass();
        return hooks::WaitManyHook::Original(count, handles, all, timeoutMs);
    });
    RunningElsewhere second(Proxy());
    wait.AwaitThread();
    tail.Open();
    EXPECT_EQ(first.Result(), 0u);
    ExpectState(RunStatus::Starting, RecordMode::WorkerStarted);
    EXPECT_TRUE(fakeipc::Deliver(kxvcr::kMessageReady));
    wait.Open();
    EXPECT_EQ(second.Result(), 0u);
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
}

TEST_F(ProxyRuns, StopWhosePostFailsInALaterRun_ChangesNothing) {
    const OwnedHandle worker = RunWorker();
    fakeipc::SetPostResult(false);
    OwnedHandle laterWorker;
    bool isFirst = true;
    fakeipc::SetObserver([&](const fakeipc::Call& call) {
        if (call.kind == fakeipc::CallKind::Post && std::exchange(isFirst, false)) {
            Elsewhere([&] {
                Proxy().KillProcess();
                AwaitMonitor();
                laterWorker = RunWorker();
            });
        }
    });
    Proxy().Stop();
    fakeipc::SetObserver(nullptr);
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
}

/** Holds the next RunProcess before it lets go of the former, ended worker. */
class HeldBeforeTheFormerWorker {
public:
    explicit HeldBeforeTheFormerWorker(ScreenRecordProxy& proxy)
        : m_enter([this, lock = &proxyprivate::Lock(proxy)](LPCRITICAL_SECTION section) {
              if (section == lock) {
                  m_gate.Pass();
              }
              hooks::EnterLockHook::Original(section);
          }) {}

    void AwaitThread() { m_gate.AwaitThread(); }
    void Open() { m_gate.Open(); }

private:
    Gate m_gate;
    hooks::EnterLockHook m_enter;
};

class FormerWorker : public ProxyRuns, public testing::WithParamInterface<void (ScreenRecordProxy::*)()> {};
INSTANTIATE_TEST_SUITE_P(Calls, FormerWorker,
                         testing::Values(&ScreenRecordProxy::Stop, &ScreenRecordProxy::KillProcess),
                         [](const auto& tested) { return tested.index == 0 ? "Stop" : "KillProcess"; });

TEST_P(FormerWorker, CallThatMeetsItWhenTheNextRunHasBegun_DoesNotTouchThatRun) {
    ExpectRunWorks();
    m_plan.Live(0);
    const Launcher launcher;
    HeldBeforeTheFormerWorker held(Proxy());
    RunningElsewhere run(Proxy());
    held.AwaitThread();
    (Proxy().*GetParam())();
    held.Open();
    EXPECT_EQ(run.Result(), 0u);
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
    EXPECT_EQ(WaitForSingleObject(launcher.Worker(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST_F(ProxyRuns, NoticeOfAFormerWorkerThatComesLate_DoesNotMakeTheNextOneReady) {
    const Launcher launcher(false);
    EXPECT_EQ(Proxy().RunProcess(0), kTimedOut);
    HeldBeforeTheFormerWorker held(Proxy());
    std::thread notice([] { EXPECT_TRUE(fakeipc::Deliver(kxvcr::kMessageReady)); });
    held.AwaitThread();
    Gate wait;
    const hooks::WaitManyHook hook([&](DWORD count, const HANDLE* handles, BOOL all, DWORD timeoutMs) {
        wait.Pass();
        return hooks::WaitManyHook::Original(count, handles, all, timeoutMs);
    });
    RunningElsewhere next(Proxy(), kTooShortMs);
    wait.AwaitThread();
    held.Open();
    notice.join();
    wait.Open();
    EXPECT_EQ(next.Result(), kTimedOut);
}

TEST_F(ProxyRuns, Release_WaitsForAMonitorThatIsAboutToMove) {
    const OwnedHandle releaseWaits = NewEvent();
    Gate moves;
    const hooks::WaitHook wait([&](HANDLE handle, DWORD timeoutMs) {
        if (timeoutMs == kMonitorLimitMs) {
            SetEvent(releaseWaits.get());
        }
        const DWORD result = hooks::WaitHook::Original(handle, timeoutMs);
        if (timeoutMs == INFINITE) {
            moves.Pass();
        }
        return result;
    });
    const OwnedHandle worker = RunWorker();
    const OwnedHandle monitor = Duplicate(MonitorThread(Proxy()));
    m_plan.EndWorkers();
    moves.AwaitThread();
    std::thread release([this] { Release(); });
    EXPECT_EQ(WaitForSingleObject(releaseWaits.get(), kLimitMs), WAIT_OBJECT_0);
    moves.Open();
    release.join();
    EXPECT_EQ(WaitForSingleObject(monitor.get(), 0), WAIT_OBJECT_0);
    ExpectMessages({});
}

/** Two runs whose workers live at the same time, because the wait on the first worker fails. */
class OverlappingRuns : public ProxyRuns {
protected:
    OverlappingRuns() {
        m_firstWorker = RunWorker();
        m_firstMonitor = Duplicate(MonitorThread(Proxy()));
        SetState(RunStatus::Idle, RecordMode::NoWorker);
        const hooks::WaitHook wait([](HANDLE handle, DWORD timeoutMs) {
            return timeoutMs == 0 ? WAIT_FAILED : hooks::WaitHook::Original(handle, timeoutMs);
        });
        m_secondPlan.emplace();
        m_secondWorker = RunWorker();
    }

    OwnedHandle m_firstWorker;
    OwnedHandle m_firstMonitor;
    std::optional<WorkerPlan> m_secondPlan;
    OwnedHandle m_secondWorker;
};

TEST_F(OverlappingRuns, EndOfTheEarlierWorker_DoesNotChangeTheLaterRun) {
    m_plan.EndWorkers();
    EXPECT_EQ(WaitForSingleObject(m_firstMonitor.get(), kLimitMs), WAIT_OBJECT_0);
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
    m_secondPlan->EndWorkers();
    AwaitMonitor();
    ExpectState(RunStatus::Running, RecordMode::NoWorker);
}

TEST_F(OverlappingRuns, Release_LeavesNoMonitorOfEitherRun) {
    const OwnedHandle secondMonitor = Duplicate(MonitorThread(Proxy()));
    fakeipc::SetObserver([this](const fakeipc::Call& call) {
        if (call.kind == fakeipc::CallKind::Post) {
            m_plan.EndWorkers();
            m_secondPlan->EndWorkers();
        }
    });
    Release();
    fakeipc::SetObserver(nullptr);
    EXPECT_EQ(WaitForSingleObject(m_firstMonitor.get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(secondMonitor.get(), 0), WAIT_OBJECT_0);
    ExpectMessages({});
}

TEST_F(OverlappingRuns, ReleaseWhileBothWorkersLive_EndsTheMonitorOfEither) {
    const OwnedHandle secondMonitor = Duplicate(MonitorThread(Proxy()));
    const ImpatientRelease impatience;
    Release();
    EXPECT_EQ(WaitForSingleObject(m_firstMonitor.get(), kLimitMs), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(secondMonitor.get(), kLimitMs), WAIT_OBJECT_0);
    const auto warning = Warn("~ScreenRecordProxy", L"Wait monitor thread end timeout, kill process");
    ExpectMessages({warning, warning});
}

} // namespace

} // namespace proxytest
