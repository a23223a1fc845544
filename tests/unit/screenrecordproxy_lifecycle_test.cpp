// The one instance: taking and giving back references, construction, destruction and failed allocations.
#include "support/childprocess.h"
#include "support/handlecount.h"
#include "unit/proxyfixture.h"

#include <cstdio>
#include <iostream>
#include <thread>

namespace {

using namespace proxytest;
using fakeipc::CallKind;

constexpr int kWorkerModule = 0x650000;
constexpr DWORD kMonitorLimitMs = 5000;
constexpr DWORD kTerminatedThread = 258;

class Lifecycle : public testing::Test {
protected:
    Lifecycle() {
        fakeipc::Reset();
        fakeutil::Reset();
    }
    void ExpectMessages(const std::vector<proxymessages::Message>& messages) {
        proxymessages::ExpectMessages(m_log.Events(), messages);
    }
    kxtest::LogCapture m_log;
};

TEST_F(Lifecycle, TwoCreates_GiveTheSameInstanceAndTheSecondReleaseEndsIt) {
    ScreenRecordProxy* const first = ScreenRecordProxy::CreateProxy();
    ScreenRecordProxy* const second = ScreenRecordProxy::CreateProxy();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_EQ(fakeipc::Calls(CallKind::Construct).size(), 1u);
    ScreenRecordProxy::ReleaseProxy(first);
    EXPECT_TRUE(fakeipc::Calls(CallKind::Destroy).empty());
    EXPECT_EQ(second->GetCurRecordMode(), 0);
    ScreenRecordProxy::ReleaseProxy(second);
    EXPECT_EQ(fakeipc::Calls(CallKind::Destroy).size(), 1u);
    ExpectMessages({});
}

TEST_F(Lifecycle, CreateAfterTheLastRelease_ConstructsAgain) {
    for (int run = 1; run <= 3; ++run) {
        ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
        ASSERT_NE(proxy, nullptr);
        EXPECT_EQ(fakeipc::Calls(CallKind::Construct).size(), static_cast<std::size_t>(run));
        ScreenRecordProxy::ReleaseProxy(proxy);
    }
}

TEST_F(Lifecycle, NewProxy_IsIdleAndHoldsOnlyItsClient) {
    ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
    EXPECT_EQ(proxy->GetCurRecordMode(), 0);
    EXPECT_EQ(static_cast<int>(proxyprivate::Status(*proxy).load()), 0);
    EXPECT_NE(proxyprivate::Client(*proxy), nullptr);
    EXPECT_EQ(proxyprivate::ReadyEvent(*proxy), nullptr);
    EXPECT_EQ(proxyprivate::WorkerProcess(*proxy).load(), nullptr);
    EXPECT_EQ(proxyprivate::MonitorThread(*proxy), nullptr);
    EXPECT_TRUE(LockIsFree(*proxy));
    ScreenRecordProxy::ReleaseProxy(proxy);
}

TEST_F(Lifecycle, NewProxy_OpensItsChannelAndListensForTheReadyNotice) {
    ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
    const auto calls = fakeipc::Calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].kind, CallKind::Construct);
    EXPECT_EQ(calls[0].moduleId, kWorkerModule);
    EXPECT_FALSE(calls[0].reserved1);
    EXPECT_FALSE(calls[0].reserved2);
    EXPECT_EQ(calls[1].kind, CallKind::Register);
    EXPECT_EQ(calls[1].messageId, kReadyMessage);
    EXPECT_EQ(calls[1].client, proxyprivate::Client(*proxy));
    ScreenRecordProxy::ReleaseProxy(proxy);
}

TEST_F(Lifecycle, GetCurRecordMode_GivesTheModeWithoutTheLock) {
    ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
    const hooks::EnterLockHook enter([](LPCRITICAL_SECTION lock) { hooks::EnterLockHook::Original(lock); });
    for (const RecordMode mode : kAllModes) {
        proxyprivate::Mode(*proxy).store(mode);
        EXPECT_EQ(proxy->GetCurRecordMode(), static_cast<int>(mode));
    }
    EXPECT_EQ(enter.Calls(), 0);
    ScreenRecordProxy::ReleaseProxy(proxy);
}

TEST_F(Lifecycle, ReleaseOfNull_DoesNothing) {
    ScreenRecordProxy::ReleaseProxy(nullptr);
    ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
    ScreenRecordProxy::ReleaseProxy(nullptr);
    EXPECT_TRUE(fakeipc::Calls(CallKind::Destroy).empty());
    ExpectMessages({});
    ScreenRecordProxy::ReleaseProxy(proxy);
}

TEST_F(Lifecycle, ReleaseOfAForeignPointer_IsLoggedAndTakesNoReference) {
    ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
    ScreenRecordProxy::CreateProxy();
    alignas(ScreenRecordProxy) std::byte foreign[sizeof(ScreenRecordProxy)]{};
    ScreenRecordProxy::ReleaseProxy(reinterpret_cast<ScreenRecordProxy*>(foreign));
    ExpectMessages({Warn("ReleaseProxy", L"Unknow proxy point, Ignore")});
    ScreenRecordProxy::ReleaseProxy(proxy);
    EXPECT_TRUE(fakeipc::Calls(CallKind::Destroy).empty());
    ScreenRecordProxy::ReleaseProxy(proxy);
    EXPECT_EQ(fakeipc::Calls(CallKind::Destroy).size(), 1u);
}

TEST_F(Lifecycle, ReleaseOfAStalePointer_IsLoggedAndChangesNothing) {
    ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
    ScreenRecordProxy::ReleaseProxy(proxy);
    ScreenRecordProxy::ReleaseProxy(proxy);
    ExpectMessages({Warn("ReleaseProxy", L"Unknow proxy point, Ignore")});
    EXPECT_EQ(fakeipc::Calls(CallKind::Destroy).size(), 1u);
    ScreenRecordProxy* const next = ScreenRecordProxy::CreateProxy();
    ASSERT_NE(next, nullptr);
    ScreenRecordProxy::ReleaseProxy(next);
    EXPECT_EQ(fakeipc::Calls(CallKind::Destroy).size(), 2u);
}

TEST_F(Lifecycle, NoMemoryForTheProxy_GivesNullAndTakesNoReference) {
    ScreenRecordProxy::ReleaseProxy(ScreenRecordProxy::CreateProxy());
    fakeipc::Reset();
    {
        const hooks::NothrowNewHook noMemory([](std::size_t, const std::nothrow_t&) -> void* { return nullptr; });
        EXPECT_EQ(ScreenRecordProxy::CreateProxy(), nullptr);
        EXPECT_EQ(ScreenRecordProxy::CreateProxy(), nullptr);
        EXPECT_EQ(noMemory.Calls(), 2);
    }
    ExpectMessages({Error("CreateProxy", L"gsProxy is null."), Error("CreateProxy", L"gsProxy is null.")});
    EXPECT_TRUE(fakeipc::Calls().empty());
    ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
    ASSERT_NE(proxy, nullptr);
    ScreenRecordProxy::ReleaseProxy(proxy);
    EXPECT_EQ(fakeipc::Calls(CallKind::Destroy).size(), 1u);
}

TEST_F(Lifecycle, NoMemoryWhileAnInstanceLives_StillGivesIt) {
    ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
    {
        const hooks::NothrowNewHook noMemory([](std::size_t, const std::nothrow_t&) -> void* { return nullptr; });
        EXPECT_EQ(ScreenRecordProxy::CreateProxy(), proxy);
    }
    ExpectMessages({});
    ScreenRecordProxy::ReleaseProxy(proxy);
    ScreenRecordProxy::ReleaseProxy(proxy);
    EXPECT_EQ(fakeipc::Calls(CallKind::Destroy).size(), 1u);
}

TEST_F(Lifecycle, ManyThreads_NeverSeeTwoInstances) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 200;
    std::atomic<int> alive{0};
    std::atomic<int> mostAlive{0};
    fakeipc::SetObserver([&](const fakeipc::Call& call) {
        if (call.kind == CallKind::Construct) {
            const int now = ++alive;
            mostAlive = std::max(mostAlive.load(), now);
        } else if (call.kind == CallKind::Destroy) {
            --alive;
        }
    });
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < kRounds; ++round) {
                ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
                EXPECT_EQ(proxy->GetCurRecordMode(), 0);
                ScreenRecordProxy::ReleaseProxy(proxy);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(alive.load(), 0);
    EXPECT_EQ(mostAlive.load(), 1);
    EXPECT_EQ(fakeipc::Calls(CallKind::Construct).size(), fakeipc::Calls(CallKind::Destroy).size());
    ExpectMessages({});
}

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
    EXPECT_EQ(posted, std::vector<std::uint32_t>{0x4E0006});
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

TEST_F(Lifecycle, TwentyLives_LeakNoHandle) {
    constexpr std::size_t kRuns = 20;
    const auto live = [] {
        WorkerPlan plan;
        ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
        {
            const Launcher launcher;
            EXPECT_EQ(proxy->RunProcess(kLimitMs), 0u);
        }
        plan.EndWorkers();
        EXPECT_EQ(proxy->WaitLiveProcessEnd(kLimitMs), 0u);
        ScreenRecordProxy::ReleaseProxy(proxy);
    };
    live();
    const std::size_t before = kxtest::OpenHandleCount();
    for (std::size_t run = 0; run < kRuns; ++run) {
        live();
    }
    EXPECT_FALSE(kxtest::HandlesLeakedSince(before, kRuns));
}

// The host process ends when the proxy cannot have its client. The scenario prints what was logged by then.
void CreateWithoutClient() {
    static kxtest::LogCapture s_log;
    static const hooks::ExitProcessHook s_exit([](UINT exitCode) {
        for (const kxtest::LogEvent& event : s_log.Events()) {
            std::cout << event << std::endl;
        }
        std::cout << "ExitProcess(" << exitCode << ")" << std::endl;
        ExitProcess(exitCode);
    });
    ScreenRecordProxy::CreateProxy();
    std::cout << "still alive" << std::endl;
}

const kxtest::ChildScenario kNoMemoryForClient("no-memory-for-client", [] {
    static const hooks::NothrowNewHook s_new([](std::size_t size, const std::nothrow_t& nothrow) -> void* {
        return size == sizeof(IPCMessageClient) ? nullptr : hooks::NothrowNewHook::Original(size, nothrow);
    });
    CreateWithoutClient();
});

const kxtest::ChildScenario kClientConstructorThrows("client-constructor-throws", [] {
    fakeipc::SetConstructorThrows(true);
    CreateWithoutClient();
});

class ChildOutput : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(NoClient, ChildOutput, testing::Values("no-memory-for-client", "client-constructor-throws"));

TEST_P(ChildOutput, NoClient_EndsTheHostWith8AfterAnError) {
    const kxtest::ChildResult result = kxtest::RunChild(GetParam());
    EXPECT_EQ(result.exitCode, 8u);
    const std::string start = "40000 Alloc IPC client failed! No memory?(KxScreenRecord::ScreenRecordProxy::"
                              "ScreenRecordProxy) [libraries\\screenrecordproxy\\screenrecordproxy.cpp:";
    const std::string end = " __cdecl KxScreenRecord::ScreenRecordProxy::ScreenRecordProxy(void)]";
    EXPECT_EQ(result.output.compare(0, start.size(), start), 0) << result.output;
    EXPECT_NE(result.output.find(end), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("ExitProcess(8)"), std::string::npos) << result.output;
    EXPECT_EQ(result.output.find("still alive"), std::string::npos) << result.output;
}

} // namespace
