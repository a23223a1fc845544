// The wait for a launched worker to get ready, and every way in which it ends.
#include "support/handlecount.h"
#include "unit/proxyfixture.h"

#include <thread>

namespace proxytest {

namespace {

using proxyprivate::MonitorThread;
using proxyprivate::ReadyEvent;
using proxyprivate::WorkerProcess;

constexpr DWORD kNoResources = 1450;
constexpr UINT kNeverReadyExitCode = static_cast<UINT>(kxvcr::ExitCode::NeverReady);

using ProxyReady = ProxyTest;

TEST_F(ProxyReady, WaitForReady_IsOverTheEventThenTheWorker) {
    const Launcher launcher;
    struct {
        DWORD count = 0;
        HANDLE handles[2]{};
        BOOL all = TRUE;
        DWORD timeoutMs = 0;
    } given;
    const hooks::WaitManyHook wait([&](DWORD count, const HANDLE* handles, BOOL all, DWORD timeoutMs) {
        given.count = count;
        std::copy_n(handles, std::min<DWORD>(count, 2), given.handles);
        given.all = all;
        given.timeoutMs = timeoutMs;
        EXPECT_TRUE(LockIsFree(Proxy()));
        return hooks::WaitManyHook::Original(count, handles, all, timeoutMs);
    });
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), 0u);
    EXPECT_EQ(given.count, 2u);
    EXPECT_EQ(given.handles[0], ReadyEvent(Proxy()));
    EXPECT_EQ(given.handles[1], launcher.WorkerAsTheProxySeesIt());
    EXPECT_EQ(given.all, FALSE);
    EXPECT_EQ(given.timeoutMs, kLimitMs);
}

TEST_F(ProxyReady, ReadyAndEndedWorker_CountsAsReady) {
    m_plan.EndAtOnce(5);
    const Launcher launcher;
    const hooks::WaitManyHook wait([&](DWORD count, const HANDLE* handles, BOOL all, DWORD timeoutMs) {
        EXPECT_EQ(WaitForSingleObject(launcher.Worker(), kLimitMs), WAIT_OBJECT_0);
        return hooks::WaitManyHook::Original(count, handles, all, timeoutMs);
    });
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), 0u);
    AwaitMonitor();
    EXPECT_EQ(Proxy().GetCurRecordMode(), 0);
    EXPECT_EQ(Proxy().WaitLiveProcessEnd(kLimitMs), 5u);
}

TEST_F(ProxyReady, NoticeDuringTheWait_EndsIt) {
    const Launcher launcher(false);
    std::thread notice;
    const hooks::WaitManyHook wait([&](DWORD count, const HANDLE* handles, BOOL all, DWORD timeoutMs) {
        notice = std::thread([] { EXPECT_TRUE(fakeipc::Deliver(kxvcr::kMessageReady)); });
        return hooks::WaitManyHook::Original(count, handles, all, timeoutMs);
    });
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), 0u);
    notice.join();
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
}

TEST_F(ProxyReady, MonitorThread_IsCreatedWithDefaultsForThisProxy) {
    const Launcher launcher;
    const hooks::CreateThreadHook create([this](LPSECURITY_ATTRIBUTES security, SIZE_T stack,
                                                LPTHREAD_START_ROUTINE entry, LPVOID argument, DWORD flags,
                                                LPDWORD id) {
        EXPECT_EQ(security, nullptr);
        EXPECT_EQ(stack, 0u);
        EXPECT_NE(entry, nullptr);
        EXPECT_EQ(argument, &Proxy());
        EXPECT_EQ(flags, 0u);
        EXPECT_FALSE(LockIsFree(Proxy()));
        return hooks::CreateThreadHook::Original(security, stack, entry, argument, flags, id);
    });
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), 0u);
    EXPECT_EQ(create.Calls(), 1);
}

TEST_F(ProxyReady, FormerMonitorHandle_IsClosed) {
    ExpectRunWorks();
    void* const former = MonitorThread(Proxy());
    bool closed = false;
    const hooks::CloseHandleHook close([&](HANDLE handle) {
        closed = closed || handle == former;
        return hooks::CloseHandleHook::Original(handle);
    });
    m_plan.Live(0);
    const OwnedHandle worker = RunWorker();
    EXPECT_TRUE(closed);
}

TEST_F(ProxyReady, NoMonitorThread_GivesTheSystemsCode) {
    ExpectRunWorks();
    m_plan.Live(0);
    {
        const Launcher launcher;
        const hooks::CreateThreadHook create([](auto&&...) -> HANDLE {
            SetLastError(kNoResources);
            return nullptr;
        });
        EXPECT_EQ(Proxy().RunProcess(kLimitMs), kNoResources);
    }
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    ExpectMessages({Error("WaitProcessRunResult", L"Create monitor thread failed! err=", L"1450")});
    EXPECT_EQ(MonitorThread(Proxy()), nullptr);
    Proxy().KillProcess();
    ExpectRunWorks();
}

TEST_F(ProxyReady, WorkerThatEndsAtOnce_GivesItsExitCode) {
    for (const unsigned long exitCode : {1ul, 7ul, 258ul, 0xFFFFFFFFul}) {
        m_log.Clear();
        m_plan.EndAtOnce(exitCode);
        {
            const Launcher launcher(false);
            EXPECT_EQ(Proxy().RunProcess(kLimitMs), exitCode);
        }
        ExpectState(RunStatus::Idle, RecordMode::NoWorker);
        ExpectMessages({Warn("WaitProcessRunResult", L"KXVCR process died, exitcode=", std::to_wstring(exitCode))});
        ExpectNothingHeld();
    }
    ExpectRunWorks();
}

TEST_F(ProxyReady, WorkerThatEndsAtOnceWithZero_LeavesModeAndStatusZero) {
    m_plan.EndAtOnce(0);
    {
        const Launcher launcher(false);
        EXPECT_EQ(Proxy().RunProcess(kLimitMs), 0u);
    }
    ExpectMessages({Warn("WaitProcessRunResult", L"KXVCR process died, exitcode=", L"0")});
    ExpectNothingHeld();
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
}

TEST_F(ProxyReady, ExitCodeThatCannotBeRead_GivesTheSystemsCode) {
    m_plan.EndAtOnce(7);
    {
        const Launcher launcher(false);
        const hooks::GetExitCodeHook query([](auto&&...) {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        });
        EXPECT_EQ(Proxy().RunProcess(kLimitMs), static_cast<unsigned long>(ERROR_ACCESS_DENIED));
    }
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    ExpectMessages({Warn("WaitProcessRunResult", L"KXVCR process died, exitcode=", L"5")});
    ExpectNothingHeld();
    ExpectRunWorks();
}

TEST_F(ProxyReady, WorkerThatIsNeverReady_IsEndedWith21) {
    {
        const Launcher launcher(false);
        std::vector<std::pair<HANDLE, UINT>> terminated;
        const hooks::TerminateProcessHook terminate([&](HANDLE process, UINT exitCode) {
            terminated.emplace_back(process, exitCode);
            return hooks::TerminateProcessHook::Original(process, exitCode);
        });
        EXPECT_EQ(Proxy().RunProcess(kTooShortMs), kTimedOut);
        ASSERT_EQ(terminated.size(), 1u);
        EXPECT_EQ(terminated[0].first, launcher.WorkerAsTheProxySeesIt());
        EXPECT_EQ(terminated[0].second, kNeverReadyExitCode);
        EXPECT_EQ(ExitCodeOf(launcher.Worker()), kNeverReadyExitCode);
    }
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    ExpectMessages({});
    ExpectNothingHeld();
    ExpectRunWorks();
}

TEST_F(ProxyReady, TimeOutOfZero_IsOverAtOnce) {
    const Launcher launcher(false);
    EXPECT_EQ(Proxy().RunProcess(0), kTimedOut);
    EXPECT_EQ(ExitCodeOf(launcher.Worker()), kNeverReadyExitCode);
}

TEST_F(ProxyReady, NoticeOfAFormerWorker_DoesNotCount) {
    ExpectRunWorks();
    EXPECT_TRUE(fakeipc::Deliver(kxvcr::kMessageReady));
    m_plan.Live(0);
    const Launcher launcher(false);
    EXPECT_EQ(Proxy().RunProcess(kTooShortMs), kTimedOut);
}

TEST_F(ProxyReady, FailedWait_EndsTheWorkerAndGivesOne) {
    for (const DWORD result : {WAIT_FAILED, static_cast<DWORD>(WAIT_ABANDONED_0)}) {
        const Launcher launcher(false);
        const hooks::WaitManyHook wait([result](auto&&...) {
            SetLastError(kNoResources);
            return result;
        });
        EXPECT_EQ(Proxy().RunProcess(kLimitMs), 1u);
        EXPECT_EQ(ExitCodeOf(launcher.Worker()), kNeverReadyExitCode);
        ExpectState(RunStatus::Idle, RecordMode::NoWorker);
        ExpectNothingHeld();
    }
    ExpectMessages({});
    ExpectRunWorks();
}

TEST_F(ProxyReady, TwentyRunsOfEachKind_LeakNoHandle) {
    const auto runEachKind = [this] {
        ExpectRunWorks();
        {
            m_plan.EndAtOnce(3);
            const Launcher launcher(false);
            EXPECT_EQ(Proxy().RunProcess(kLimitMs), 3u);
        }
        {
            m_plan.Live(0);
            const Launcher launcher(false);
            EXPECT_EQ(Proxy().RunProcess(0), kTimedOut);
            EXPECT_EQ(ExitCodeOf(launcher.Worker()), kNeverReadyExitCode);
        }
        {
            const hooks::CreateProcessHook create([](auto&&...) { return FALSE; });
            Proxy().RunProcess(kLimitMs);
        }
        ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    };
    runEachKind();
    const std::size_t before = kxtest::OpenHandleCount();
    constexpr std::size_t kRuns = 20;
    for (std::size_t run = 0; run < kRuns; ++run) {
        runEachKind();
    }
    EXPECT_FALSE(kxtest::HandlesLeakedSince(before, kRuns));
}

TEST_F(ProxyReady, TwoThreadsAtOnce_StartOneWorker) {
    const Launcher launcher;
    std::atomic<int> started{0};
    std::atomic<int> busy{0};
    const auto run = [&] {
        const unsigned long code = Proxy().RunProcess(kLimitMs);
        started += code == 0 ? 1 : 0;
        busy += code == kBusy ? 1 : 0;
    };
    std::thread other(run);
    run();
    other.join();
    EXPECT_EQ(started.load(), 1);
    EXPECT_EQ(busy.load(), 1);
    EXPECT_EQ(launcher.Launches(), 1);
}

} // namespace

} // namespace proxytest
