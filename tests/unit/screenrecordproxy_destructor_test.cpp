// The end of the instance: the steps of the destructor in their order, and what it leaves behind.
#include "support/handlecount.h"
#include "unit/proxyeventworkers.h"
#include "unit/proxygate.h"

#include <array>
#include <atomic>
#include <mutex>

namespace proxytest {

namespace {

using fakeipc::CallKind;

constexpr DWORD kTerminatedThread = 258;

// Sees everything that the destructor does, in one ordered list.
class DestructorTrace {
public:
    explicit DestructorTrace(ScreenRecordProxy& proxy)
        : m_lock(&proxyprivate::Lock(proxy)),
          m_worker(proxyprivate::WorkerProcess(proxy).load()),
          m_monitor(proxyprivate::MonitorThread(proxy)),
          m_event(proxyprivate::ReadyEvent(proxy)) {
        fakeipc::SetObserver([this](const fakeipc::Call& call) {
            constexpr const char* kNames[] = {"construct", "register",       "send",
                                              "post",      "unregister all", "delete client"};
            Add(kNames[static_cast<int>(call.kind)]);
        });
    }
    ~DestructorTrace() { fakeipc::SetObserver(nullptr); }
    DestructorTrace(const DestructorTrace&) = delete;
    DestructorTrace& operator=(const DestructorTrace&) = delete;

    std::vector<std::string> Steps() {
        const std::lock_guard guard(m_mutex);
        return m_steps;
    }
    /** Lets waits on the monitor thread time out at once. */
    void MonitorNeverEnds() { m_monitorNeverEnds = true; }

private:
    void Add(const std::string& step) {
        if (GetCurrentThreadId() != m_thread) {
            return;
        }
        const std::lock_guard guard(m_mutex);
        m_steps.push_back(step);
    }
    std::string Name(HANDLE handle) const {
        return handle == nullptr     ? "null"
               : handle == m_worker  ? "worker"
               : handle == m_monitor ? "monitor"
               : handle == m_event   ? "event"
                                     : "other";
    }

    const DWORD m_thread = GetCurrentThreadId();
    const LPCRITICAL_SECTION m_lock;
    const HANDLE m_worker;
    const HANDLE m_monitor;
    const HANDLE m_event;
    bool m_monitorNeverEnds = false;
    std::mutex m_mutex;
    std::vector<std::string> m_steps;
    hooks::EnterLockHook m_enter{[this](LPCRITICAL_SECTION lock) {
        if (lock == m_lock) {
            Add("enter");
        }
        hooks::EnterLockHook::Original(lock);
    }};
    hooks::LeaveLockHook m_leave{[this](LPCRITICAL_SECTION lock) {
        if (lock == m_lock) {
            Add("leave");
        }
        hooks::LeaveLockHook::Original(lock);
    }};
    hooks::DeleteLockHook m_delete{[this](LPCRITICAL_SECTION lock) {
        Add("delete lock");
        hooks::DeleteLockHook::Original(lock);
    }};
    hooks::WaitHook m_wait{[this](HANDLE handle, DWORD timeoutMs) {
        Add("wait " + Name(handle) + " " + std::to_string(timeoutMs));
        return m_monitorNeverEnds && handle == m_monitor ? WAIT_TIMEOUT : hooks::WaitHook::Original(handle, timeoutMs);
    }};
    hooks::CloseHandleHook m_close{[this](HANDLE handle) {
        Add("close " + Name(handle));
        return hooks::CloseHandleHook::Original(handle);
    }};
    hooks::TerminateThreadHook m_terminate{[this](HANDLE thread, DWORD exitCode) {
        Add("terminate " + Name(thread) + " " + std::to_string(exitCode));
        return hooks::TerminateThreadHook::Original(thread, exitCode);
    }};
};

using Destructor = ProxyTest;
using Steps = std::vector<std::string>;

TEST_F(Destructor, WithoutWorker_ReleasesTheClientAndTheLock) {
    DestructorTrace trace(Proxy());
    Release();
    EXPECT_EQ(trace.Steps(), (Steps{"enter", "leave", "unregister all", "delete client", "delete lock"}));
    ExpectMessages({});
}

TEST_F(Destructor, RunningWorker_IsToldToStopBeforeItsHandleIsClosed) {
    const OwnedHandle worker = RunWorker();
    DestructorTrace trace(Proxy());
    fakeipc::SetObserver(nullptr);
    std::vector<std::uint32_t> posted;
    fakeipc::SetObserver([&](const fakeipc::Call& call) {
        if (call.kind == CallKind::Post) {
            posted.push_back(call.item.messageId);
            m_plan.EndWorkers();
        }
    });
    Release();
    EXPECT_EQ(posted, std::vector<std::uint32_t>{kxvcr::kMessageStop});
    EXPECT_EQ(trace.Steps(), (Steps{"enter", "wait worker 0", "close worker", "wait monitor 5000", "close monitor",
                                    "leave", "close event", "delete lock"}));
    EXPECT_EQ(ExitCodeOf(worker.get()), 0u);
    ExpectMessages({});
}

TEST_F(Destructor, EndedWorker_IsNotToldToStop) {
    const OwnedHandle worker = RunWorker();
    m_plan.EndWorkers();
    AwaitMonitor();
    EXPECT_EQ(ExitCodeOf(worker.get()), 0u);
    DestructorTrace trace(Proxy());
    Release();
    EXPECT_EQ(trace.Steps(), (Steps{"enter", "wait worker 0", "close worker", "wait monitor 5000", "close monitor",
                                    "leave", "unregister all", "delete client", "close event", "delete lock"}));
    ExpectMessages({});
}

TEST_F(Destructor, AlreadyStoppingWorker_IsNotToldAgain) {
    const OwnedHandle worker = RunWorker();
    Proxy().Stop();
    EXPECT_EQ(fakeipc::Calls(CallKind::Post).size(), 1u);
    const hooks::WaitHook wait([this](HANDLE handle, DWORD timeoutMs) {
        if (timeoutMs == kMonitorLimitMs) {
            m_plan.EndWorkers();
        }
        return hooks::WaitHook::Original(handle, timeoutMs);
    });
    Release();
    EXPECT_EQ(fakeipc::Calls(CallKind::Post).size(), 1u);
    ExpectMessages({});
}

TEST_F(Destructor, FailedWaitOnTheWorker_SendsNoStop) {
    const OwnedHandle worker = RunWorker();
    const hooks::WaitHook wait([this](HANDLE handle, DWORD timeoutMs) {
        if (timeoutMs == 0) {
            m_plan.EndWorkers();
            return WAIT_FAILED;
        }
        return hooks::WaitHook::Original(handle, timeoutMs);
    });
    Release();
    EXPECT_TRUE(fakeipc::Calls(CallKind::Post).empty());
}

TEST_F(Destructor, MonitorThatDoesNotEnd_IsTerminatedWith258) {
    // It must have begun: a thread that is terminated while the system starts it keeps the loader's lock.
    const OwnedHandle begun = NewEvent();
    const OwnedHandle never = NewEvent();
    const std::array<HANDLE, 2> events = {begun.get(), never.get()};
    HANDLE const thread = CreateThread(
        nullptr, 0,
        [](void* argument) -> DWORD {
            const auto& given = *static_cast<const std::array<HANDLE, 2>*>(argument);
            return SignalObjectAndWait(given[0], given[1], kLimitMs, FALSE);
        },
        const_cast<std::array<HANDLE, 2>*>(&events), 0, nullptr);
    ASSERT_EQ(WaitForSingleObject(begun.get(), kLimitMs), WAIT_OBJECT_0);
    const OwnedHandle observed = Duplicate(thread);
    proxyprivate::MonitorThread(Proxy()) = thread;
    DestructorTrace trace(Proxy());
    trace.MonitorNeverEnds();
    Release();
    EXPECT_EQ(trace.Steps(), (Steps{"enter", "wait monitor 5000", "terminate monitor 258", "close monitor", "leave",
                                    "unregister all", "delete client", "delete lock"}));
    ASSERT_EQ(WaitForSingleObject(observed.get(), kLimitMs), WAIT_OBJECT_0);
    DWORD exitCode = 0;
    EXPECT_NE(GetExitCodeThread(observed.get(), &exitCode), FALSE);
    EXPECT_EQ(exitCode, kTerminatedThread);
    ExpectMessages({Warn("~ScreenRecordProxy", L"Wait monitor thread end timeout, kill process")});
}

TEST_F(Destructor, WorkerThatIgnoresStop_CostsFiveSeconds) {
    const OwnedHandle worker = RunWorker();
    const ULONGLONG before = GetTickCount64();
    Release();
    const ULONGLONG passed = GetTickCount64() - before;
    EXPECT_GE(passed, kMonitorLimitMs - 100);
    EXPECT_LT(passed, 2 * kMonitorLimitMs);
    EXPECT_EQ(fakeipc::Calls(CallKind::Post).size(), 1u);
    ExpectMessages({Warn("~ScreenRecordProxy", L"Wait monitor thread end timeout, kill process")});
    EXPECT_EQ(WaitForSingleObject(worker.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    m_plan.EndWorkers();
    EXPECT_EQ(ExitCodeOf(worker.get()), 0u);
}

class MonitorThatOutlivesTheProxy : public testing::Test {
protected:
    MonitorThatOutlivesTheProxy() {
        fakeipc::Reset();
        fakeutil::Reset();
        m_proxy = ScreenRecordProxy::CreateProxy();
        EXPECT_EQ(m_proxy->RunProcess(kLimitMs), 0u);
        m_monitor = Duplicate(proxyprivate::MonitorThread(*m_proxy));
    }

    void Release() {
        ScreenRecordProxy::ReleaseProxy(m_proxy);
        m_proxy = nullptr;
    }

    /** A proxy of its own, with a worker and its end. */
    void ExpectNextProxyWorks() {
        ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
        EXPECT_EQ(proxy->GetCurRecordMode(), 0);
        EXPECT_EQ(proxy->RunProcess(kLimitMs), 0u);
        const OwnedHandle monitor = Duplicate(proxyprivate::MonitorThread(*proxy));
        m_workers.EndAll();
        EXPECT_EQ(WaitForSingleObject(monitor.get(), kLimitMs), WAIT_OBJECT_0);
        EXPECT_EQ(proxy->GetCurRecordMode(), 0);
        ScreenRecordProxy::ReleaseProxy(proxy);
    }

    const kxtest::LogCapture m_log;
    EventWorkers m_workers;
    ScreenRecordProxy* m_proxy = nullptr;
    OwnedHandle m_monitor;
};

// The destructor has given up waiting when the monitor is between its claim of the end and its last move.
TEST_F(MonitorThatOutlivesTheProxy, InItsLastMove_ClosesItsHandleOnceAndMovesNothing) {
    const DWORD monitorId = GetThreadId(m_monitor.get());
    Gate lastMove;
    std::atomic<HANDLE> monitorsHandle = nullptr;
    std::atomic<int> closed = 0;
    {
        const ImpatientRelease impatience;
        const hooks::CloseHandleHook close([&](HANDLE handle) {
            if (GetCurrentThreadId() == monitorId) {
                monitorsHandle = handle;
                lastMove.Pass();
            }
            closed += handle == monitorsHandle ? 1 : 0;
            return hooks::CloseHandleHook::Original(handle);
        });
        m_workers.EndAll();
        lastMove.AwaitThread();
        Release();
        EXPECT_EQ(closed, 0) << "the handle is the monitor's to close";
        lastMove.Open();
        EXPECT_EQ(WaitForSingleObject(m_monitor.get(), kLimitMs), WAIT_OBJECT_0);
        EXPECT_EQ(closed, 1);
    }
    ExpectNextProxyWorks();
}

TEST_F(MonitorThatOutlivesTheProxy, InItsLastMove_LeavesTheMemoryOfTheProxyAlone) {
    using DeleteHook = kxtest::ImportHook<"libstdc++-6.dll", "_ZdlPvy", void(void*, std::size_t)>;
    const DWORD monitorId = GetThreadId(m_monitor.get());
    ScreenRecordProxy* const former = m_proxy;
    bool isKept = false;
    Gate lastMove;
    {
        const ImpatientRelease impatience;
        const hooks::CloseHandleHook close([&](HANDLE handle) {
            if (GetCurrentThreadId() == monitorId) {
                lastMove.Pass();
            }
            return hooks::CloseHandleHook::Original(handle);
        });
        const DeleteHook keep([&](void* block, std::size_t size) {
            isKept = isKept || block == former;
            if (block != former) {
                DeleteHook::Original(block, size);
            }
        });
        m_workers.EndAll();
        lastMove.AwaitThread();
        Release();
        lastMove.Open();
        EXPECT_EQ(WaitForSingleObject(m_monitor.get(), kLimitMs), WAIT_OBJECT_0);
    }
    ASSERT_TRUE(isKept);
    EXPECT_EQ(static_cast<int>(proxyprivate::Mode(*former).load()), static_cast<int>(RecordMode::WorkerStarted));
    ::operator delete(static_cast<void*>(former), sizeof(ScreenRecordProxy));
}

TEST_F(MonitorThatOutlivesTheProxy, BecauseItCannotBeTerminated_StandsStillAndTheNextProxyWorks) {
    {
        const ImpatientRelease impatience;
        const hooks::TerminateThreadHook refused([](auto&&...) { return FALSE; });
        Release();
        EXPECT_EQ(refused.Calls(), 1);
    }
    m_workers.EndAll();
    ExpectNextProxyWorks();
    EXPECT_EQ(WaitForSingleObject(m_monitor.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_NE(TerminateThread(m_monitor.get(), kTerminatedThread), FALSE);
    EXPECT_EQ(WaitForSingleObject(m_monitor.get(), kLimitMs), WAIT_OBJECT_0);
}

TEST(MonitorThatWaitsTooLong, LeavesNeitherHandleNorThread) {
    constexpr std::size_t kRuns = 20;
    fakeipc::Reset();
    fakeutil::Reset();
    const kxtest::LogCapture log;
    EventWorkers workers;
    const ImpatientRelease impatience;
    const auto live = [] {
        ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
        EXPECT_EQ(proxy->RunProcess(kLimitMs), 0u);
        const OwnedHandle monitor = Duplicate(proxyprivate::MonitorThread(*proxy));
        ScreenRecordProxy::ReleaseProxy(proxy);
        DWORD exitCode = 0;
        EXPECT_NE(GetExitCodeThread(monitor.get(), &exitCode), FALSE);
        EXPECT_EQ(exitCode, kTerminatedThread);
    };
    live();
    workers.EndAll();
    const std::size_t before = kxtest::OpenHandleCount();
    for (std::size_t run = 0; run < kRuns; ++run) {
        live();
        workers.EndAll();
    }
    EXPECT_FALSE(kxtest::HandlesLeakedSince(before, kRuns));
}

} // namespace

} // namespace proxytest
