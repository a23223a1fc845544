// Every exported member of the proxy without memory, with the real suite libraries and a scripted worker: each
// allocation that a call reaches fails, in this library, the channel's and the utility's, once and from there on. The
// answer is then the documented failure or the right one, the fields say what the answer says, no block is left over,
// and the next call works.
#include "screenrecordproxy.h"

#include "support/childprocess.h"
#include "support/hostfolder.h"
#include "support/memoryfault.h"
#include "support/proxyprivate.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <functional>
#include <set>
#include <string>

namespace {

using KxScreenRecord::LiveServerParam;
using KxScreenRecord::RecordMode;
using KxScreenRecord::RunStatus;
using KxScreenRecord::ScreenRecordParam;
using KxScreenRecord::ScreenRecordProxy;
using kxtest::Failing;
using kxtest::MemoryFault;
using kxtest::MemoryUse;

constexpr DWORD kLimitMs = 20000;
constexpr unsigned long kBusy = 170;
constexpr unsigned long kTimedOut = 258;
constexpr unsigned long kBadSignature = 191;

/** What a command of the worker does to the fields. */
struct CommandCase {
    const char* name;
    RunStatus from;
    RunStatus after;
    RecordMode mode;
    bool (*call)(ScreenRecordProxy& proxy);
};
std::ostream& operator<<(std::ostream& out, const CommandCase& command) {
    return out << command.name;
}

class ProxyMemory : public testing::Test {
protected:
    ProxyMemory() : m_proxy(ScreenRecordProxy::CreateProxy()) {
        kxtest::WriteFileBytes(kxtest::OwnFolder() / "scriptedworker.txt", "");
    }
    ~ProxyMemory() override {
        m_proxy->KillProcess();
        ScreenRecordProxy::ReleaseProxy(m_proxy);
    }

    ScreenRecordProxy& Proxy() { return *m_proxy; }

    void SetState(RunStatus status, RecordMode mode) {
        proxyprivate::Status(Proxy()).store(status);
        proxyprivate::Mode(Proxy()).store(mode);
    }
    void ExpectState(RunStatus status, RecordMode mode) {
        EXPECT_EQ(static_cast<int>(proxyprivate::Status(Proxy()).load()), static_cast<int>(status));
        EXPECT_EQ(Proxy().GetCurRecordMode(), static_cast<int>(mode));
    }

    /** Ends the worker, if there is one, and waits until the proxy knows. */
    void EndWorker() {
        Proxy().KillProcess();
        if (void* const monitor = proxyprivate::MonitorThread(Proxy())) {
            EXPECT_EQ(WaitForSingleObject(monitor, kLimitMs), WAIT_OBJECT_0);
        }
        EXPECT_EQ(Proxy().GetCurRecordMode(), 0);
    }

    /**
     * Calls @p attempt with each allocation failing; @p check looks at what it came to, and @p arrange makes things
     * what they were. A buffer that replaces an older one, or that only the first such attempt leaves, is no leak.
     * @param kept blocks that something keeps which lives on, and frees at its end
     */
    void FailEachAllocation(const std::function<void()>& arrange, const std::function<void()>& attempt,
                            const std::function<void()>& check, std::size_t kept = 0) {
        arrange();
        attempt();
        check();
        std::size_t nth = 0;
        for (bool isReached = true; isReached;) {
            isReached = false;
            ++nth;
            for (const Failing failing : {Failing::Once(nth), Failing::From(nth)}) {
                SCOPED_TRACE(testing::PrintToString(failing));
                MemoryUse use;
                for (int times = 0; times < 2 && (times == 0 || use.leftOver > use.olderFreed + kept); ++times) {
                    arrange();
                    use = m_memory.Run(failing, attempt);
                    check();
                }
                EXPECT_LE(use.leftOver, use.olderFreed + kept);
                isReached |= use.failures != 0;
            }
        }
        arrange();
        attempt();
        check();
        std::printf("%zu allocations\n", nth - 1);
    }

private:
    ScreenRecordProxy* m_proxy;
    MemoryFault m_memory{{"ScreenRecordProxy.dll", "IPCMessage.dll", "Util.dll"}};
};

// --- commands

class ProxyMemoryCommand : public ProxyMemory, public testing::WithParamInterface<CommandCase> {};

const CommandCase kCommands[] = {
    {"Prepare", RunStatus::Running, RunStatus::Prepared, RecordMode::Prepared,
     [](ScreenRecordProxy& proxy) { return proxy.Prepare(ScreenRecordParam(), kLimitMs); }},
    {"PrepareTimemachine", RunStatus::Running, RunStatus::Prepared, RecordMode::PreparedTimemachine,
     [](ScreenRecordProxy& proxy) { return proxy.PrepareTimemachine(ScreenRecordParam(), 30, kLimitMs); }},
    {"StartLocalRecord", RunStatus::Prepared, RunStatus::LocalRecordRunning, RecordMode::LocalRecord,
     [](ScreenRecordProxy& proxy) { return proxy.StartLocalRecord(L"C:\\a.mp4", 0, kLimitMs); }},
    {"StartLiveServer", RunStatus::Prepared, RunStatus::LiveServerRunning, RecordMode::LiveServer,
     [](ScreenRecordProxy& proxy) {
         int port = 0;
         return proxy.StartLiveServer(LiveServerParam(), kLimitMs, port) && port == 1;
     }},
};

INSTANTIATE_TEST_SUITE_P(Commands, ProxyMemoryCommand, testing::ValuesIn(kCommands),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(ProxyMemoryCommand, EachAllocationFails_DoneOrAnErrorAndTheNextOneWorks) {
    ASSERT_EQ(Proxy().RunProcess(kLimitMs), 0u);
    const CommandCase& command = GetParam();
    std::set<bool> answers;
    bool isDone = false;
    const auto arrange = [&] { SetState(command.from, RecordMode::WorkerStarted); };
    FailEachAllocation(
        arrange, [&] { isDone = command.call(Proxy()); },
        [&] {
            answers.insert(isDone);
            ExpectState(isDone ? command.after : RunStatus::Error, isDone ? command.mode : RecordMode::WorkerStarted);
            if (!isDone) { // the worker has heard nothing of it, or the answer was lost: it serves the next one
                arrange();
                EXPECT_TRUE(command.call(Proxy()));
            }
        });
    EXPECT_EQ(answers, (std::set<bool>{false, true}));
}

TEST_P(ProxyMemoryCommand, RefusalWithoutMemory_ChangesNothing) {
    const CommandCase& command = GetParam();
    FailEachAllocation([&] { SetState(RunStatus::Error, RecordMode::NoWorker); },
                       [&] { EXPECT_FALSE(command.call(Proxy())); },
                       [&] { ExpectState(RunStatus::Error, RecordMode::NoWorker); });
}

TEST_F(ProxyMemory, Stop_EachAllocationFails_StaysStoppingAndTheWorkerEndsAtLast) {
    constexpr std::size_t kBufferOfTheConnection = 1;
    FailEachAllocation(
        [&] {
            EndWorker();
            ASSERT_EQ(Proxy().RunProcess(kLimitMs), 0u);
        },
        [&] { Proxy().Stop(); },
        [&] {
            EXPECT_EQ(static_cast<int>(proxyprivate::Status(Proxy()).load()), static_cast<int>(RunStatus::Stopping));
            if (Proxy().WaitLiveProcessEnd(0) == kTimedOut) {            // not told, or not yet at its end
                proxyprivate::Status(Proxy()).store(RunStatus::Running); // the mode is the monitor's
                Proxy().Stop();
            }
            EXPECT_EQ(Proxy().WaitLiveProcessEnd(kLimitMs), 0u);
        },
        kBufferOfTheConnection);
}

TEST_F(ProxyMemory, SendVCRMessage_EachAllocationFails_AnErrorOrTheWorkersAnswer) {
    ASSERT_EQ(Proxy().RunProcess(kLimitMs), 0u);
    bool isDone = false;
    FailEachAllocation([&] { SetState(RunStatus::Prepared, RecordMode::Prepared); },
                       [&] {
                           TagIPCMessageItem request;
                           request.messageId = 0x4E0001;
                           isDone = proxyprivate::SendVCRMessage(Proxy(), kLimitMs, request);
                       },
                       [&] { ExpectState(isDone ? RunStatus::Prepared : RunStatus::Error, RecordMode::Prepared); });
}

// --- runs

TEST_F(ProxyMemory, RunProcess_EachAllocationFails_ARunOrNoneAndTheNextOneWorks) {
    unsigned long error = 0;
    FailEachAllocation([&] { EndWorker(); }, [&] { error = Proxy().RunProcess(kLimitMs); },
                       [&] {
                           if (error == 0) {
                               ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
                               return;
                           }
                           EXPECT_TRUE(error == kBadSignature || error == ERROR_NOT_ENOUGH_MEMORY) << error;
                           ExpectState(RunStatus::Idle, RecordMode::NoWorker);
                           EndWorker(); // one that nobody can watch is kept, for the host to kill
                           EXPECT_EQ(proxyprivate::CheckEnv(Proxy()), 0u) << "the next run gets as far as its launch";
                       });
    EXPECT_EQ(error, 0u) << "the last run had memory";
}

TEST_F(ProxyMemory, CheckEnv_EachAllocationFails_VerifiedOrNot) {
    unsigned long error = 0;
    FailEachAllocation([] {}, [&] { error = proxyprivate::CheckEnv(Proxy()); },
                       [&] {
                           EXPECT_TRUE(error == 0 || error == kBadSignature) << error;
                           EXPECT_EQ(proxyprivate::CheckEnv(Proxy()), 0u) << "the next call";
                       });
}

TEST_F(ProxyMemory, SecondRunWithoutMemory_IsBusy) {
    ASSERT_EQ(Proxy().RunProcess(kLimitMs), 0u);
    FailEachAllocation([] {}, [&] { EXPECT_EQ(Proxy().RunProcess(kLimitMs), kBusy); },
                       [&] { ExpectState(RunStatus::Running, RecordMode::WorkerStarted); });
}

TEST_F(ProxyMemory, WorkerThatIsNotReadyWithoutMemory_IsEndedAndTimesOut) {
    kxtest::WriteFileBytes(kxtest::OwnFolder() / "scriptedworker.txt", "never-ready\n");
    void* process = nullptr;
    FailEachAllocation(
        [&] {
            EXPECT_EQ(proxyprivate::CheckEnv(Proxy()), 0u);
            ASSERT_EQ(proxyprivate::CreateRecordProcess(Proxy(), process), 0u);
        },
        [&] { EXPECT_EQ(proxyprivate::WaitProcessRunResult(Proxy(), process, 0), kTimedOut); },
        [&] { EXPECT_EQ(proxyprivate::WorkerProcess(Proxy()).load(), nullptr); });
}

TEST_F(ProxyMemory, WaitLiveProcessEnd_WithoutMemory_TimesOutOrFindsNoWorker) {
    FailEachAllocation([] {}, [&] { EXPECT_EQ(Proxy().WaitLiveProcessEnd(0), 0u); }, [] {});
    ASSERT_EQ(Proxy().RunProcess(kLimitMs), 0u);
    FailEachAllocation([] {}, [&] { EXPECT_EQ(Proxy().WaitLiveProcessEnd(0), kTimedOut); }, [] {});
}

TEST_F(ProxyMemory, KillProcess_WithoutMemory_EndsTheWorker) {
    FailEachAllocation(
        [&] {
            EndWorker();
            ASSERT_EQ(Proxy().RunProcess(kLimitMs), 0u);
        },
        [&] { Proxy().KillProcess(); },
        [&] { EXPECT_EQ(static_cast<int>(proxyprivate::Status(Proxy()).load()), static_cast<int>(RunStatus::Idle)); });
}

// --- what only looks, and what others call

TEST_F(ProxyMemory, MembersThatOnlyLook_AnswerWithoutMemory) {
    FailEachAllocation([] {},
                       [&] {
                           EXPECT_TRUE(ScreenRecordProxy::IsSupport());
                           EXPECT_EQ(Proxy().GetCurRecordMode(), 0);
                       },
                       [] {});
}

TEST_F(ProxyMemory, Callbacks_WithoutMemory_DoWhatTheyDoAndLogIfTheyCan) {
    TagIPCMessageItem notice;
    FailEachAllocation([&] { SetState(RunStatus::Running, RecordMode::NoWorker); },
                       [&] {
                           proxyprivate::OnReady(Proxy(), notice); // there is no event
                           proxyprivate::MonitorProc(Proxy());     // nor a worker
                           proxyprivate::OnError(Proxy());
                       },
                       [&] { ExpectState(RunStatus::Error, RecordMode::NoWorker); });
}

TEST_F(ProxyMemory, ReferencesWithoutMemory_AreCountedAndForeignOnesIgnored) {
    int foreign = 0;
    FailEachAllocation([] {},
                       [&] {
                           EXPECT_EQ(ScreenRecordProxy::CreateProxy(), &Proxy());
                           ScreenRecordProxy::ReleaseProxy(reinterpret_cast<ScreenRecordProxy*>(&foreign));
                           ScreenRecordProxy::ReleaseProxy(&Proxy());
                       },
                       [&] { EXPECT_EQ(Proxy().GetCurRecordMode(), 0); });
}

// --- the first CreateProxy, which may end the process

constexpr wchar_t kNthVariable[] = L"KX_FAILING_ALLOCATION";
constexpr unsigned long kEndedByTheLibrary = 8;

/** Prints what the first CreateProxy of this process came to when an allocation fails, and tries once more. */
void CreateFirstProxy(Failing (*failing)(std::size_t)) {
    wchar_t text[16] = {};
    GetEnvironmentVariableW(kNthVariable, text, static_cast<DWORD>(std::size(text)));
    MemoryFault memory({"ScreenRecordProxy.dll", "IPCMessage.dll"});
    ScreenRecordProxy* proxy = nullptr;
    const MemoryUse use =
        memory.Run(failing(std::wcstoul(text, nullptr, 10)), [&] { proxy = ScreenRecordProxy::CreateProxy(); });
    std::printf("%s, %s", use.failures != 0 ? "failed" : "not reached", proxy != nullptr ? "created" : "null");
    if (proxy == nullptr) {
        proxy = ScreenRecordProxy::CreateProxy();
    }
    const bool isRunning = proxy != nullptr && proxy->RunProcess(kLimitMs) == 0;
    std::printf(", then %s", isRunning ? "works" : "does not work");
    if (proxy != nullptr) {
        proxy->KillProcess();
        ScreenRecordProxy::ReleaseProxy(proxy);
    }
}
const kxtest::ChildScenario kFailsOnce("createproxy-once", [] { CreateFirstProxy(&Failing::Once); });
const kxtest::ChildScenario kFailsFromThereOn("createproxy-from", [] { CreateFirstProxy(&Failing::From); });

class FirstProxyWithoutMemory : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Failing, FirstProxyWithoutMemory, testing::Values("createproxy-once", "createproxy-from"),
                         [](const auto& tested) {
                             return std::string(tested.param).substr(std::strlen("createproxy-"));
                         });

TEST_P(FirstProxyWithoutMemory, EachAllocationFails_NullAndTheNextOneWorksOrTheHostEndsWith8) {
    kxtest::WriteFileBytes(kxtest::OwnFolder() / "scriptedworker.txt", "");
    std::set<std::string> outcomes;
    std::string outcome;
    for (int nth = 1; outcome != "not reached, created, then works"; ++nth) {
        SCOPED_TRACE(nth);
        SetEnvironmentVariableW(kNthVariable, std::to_wstring(nth).c_str());
        const kxtest::ChildResult result = kxtest::RunChild(GetParam());
        outcome = result.exitCode == kEndedByTheLibrary ? "ended with 8" : result.output;
        ASSERT_TRUE(result.exitCode == 0 || result.exitCode == kEndedByTheLibrary) << result.exitCode << outcome;
        outcomes.insert(outcome);
    }
    outcomes.erase("not reached, created, then works");
    EXPECT_TRUE(outcomes.erase("failed, null, then works") == 1) << "the object itself";
    EXPECT_TRUE(outcomes.erase("ended with 8") == 1) << "the channel's client";
    outcomes.erase("failed, created, then works"); // an allocation that has another way
    EXPECT_EQ(outcomes, std::set<std::string>());
}

} // namespace
