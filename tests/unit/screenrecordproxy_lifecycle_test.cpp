// The one instance: taking and giving back references, construction and failed allocations.
#include "support/childprocess.h"
#include "support/handlecount.h"
#include "unit/proxyfixture.h"

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <thread>

namespace proxytest {

namespace {

using fakeipc::CallKind;

constexpr int kWorkerModule = static_cast<int>(kxvcr::kWorkerModuleId);

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
    EXPECT_EQ(calls[1].messageId, kxvcr::kMessageReady);
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

TEST_F(Lifecycle, MutexThatDoesNotLock_GivesNullAndKeepsTheReference) {
    ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
    {
        const hooks::LockMutexHook noLock([](auto&&...) { return ENOMEM; });
        EXPECT_EQ(ScreenRecordProxy::CreateProxy(), nullptr);
        ScreenRecordProxy::ReleaseProxy(proxy);
        EXPECT_EQ(noLock.Calls(), 2);
    }
    ExpectMessages({Error("CreateProxy", L"gsProxy is null.")});
    EXPECT_TRUE(fakeipc::Calls(CallKind::Destroy).empty());
    EXPECT_EQ(ScreenRecordProxy::CreateProxy(), proxy);
    ScreenRecordProxy::ReleaseProxy(proxy);
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

/** Calls CreateProxy in another thread while the first client of some kind of call is being served. */
class CreateDuring {
public:
    explicit CreateDuring(CallKind kind) {
        fakeipc::SetObserver([this, kind](const fakeipc::Call& call) {
            if (call.kind == kind && !m_isBegun.exchange(true)) {
                m_thread = std::thread([this] {
                    m_proxy = ScreenRecordProxy::CreateProxy();
                    SetEvent(m_returned.get());
                });
                m_waits = WaitForSingleObject(m_returned.get(), kHeldUpMs) == WAIT_TIMEOUT;
            }
        });
    }
    ~CreateDuring() { fakeipc::SetObserver(nullptr); }
    CreateDuring(const CreateDuring&) = delete;
    CreateDuring& operator=(const CreateDuring&) = delete;

    /** What the other thread got. */
    ScreenRecordProxy* Proxy() {
        m_thread.join();
        return m_proxy;
    }
    /** Whether it had to wait for the call to end. */
    bool Waits() const { return m_waits; }

private:
    static constexpr DWORD kHeldUpMs = 200;

    const OwnedHandle m_returned = NewEvent();
    std::atomic<bool> m_isBegun = false;
    std::thread m_thread;
    ScreenRecordProxy* m_proxy = nullptr;
    bool m_waits = false;
};

TEST_F(Lifecycle, CreateDuringConstruction_WaitsAndGivesTheSameInstance) {
    CreateDuring second(CallKind::Construct);
    ScreenRecordProxy* const first = ScreenRecordProxy::CreateProxy();
    EXPECT_EQ(second.Proxy(), first);
    EXPECT_TRUE(second.Waits());
    EXPECT_EQ(fakeipc::Calls(CallKind::Construct).size(), 1u);
    ScreenRecordProxy::ReleaseProxy(first);
    EXPECT_TRUE(fakeipc::Calls(CallKind::Destroy).empty());
    ScreenRecordProxy::ReleaseProxy(first);
    EXPECT_EQ(fakeipc::Calls(CallKind::Destroy).size(), 1u);
}

TEST_F(Lifecycle, CreateDuringDestruction_WaitsAndConstructsAnew) {
    ScreenRecordProxy* const first = ScreenRecordProxy::CreateProxy();
    CreateDuring second(CallKind::Destroy);
    ScreenRecordProxy::ReleaseProxy(first);
    ScreenRecordProxy* const next = second.Proxy();
    EXPECT_NE(next, nullptr);
    EXPECT_TRUE(second.Waits());
    EXPECT_EQ(fakeipc::Calls(CallKind::Construct).size(), 2u);
    ScreenRecordProxy::ReleaseProxy(next);
    EXPECT_EQ(fakeipc::Calls(CallKind::Destroy).size(), 2u);
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

} // namespace proxytest
