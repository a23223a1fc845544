// Nothing throws out of the library: not what the standard mutex throws, and not what the message library throws.
#include "support/childprocess.h"
#include "unit/proxycommands.h"

#include <cerrno>
#include <iostream>
#include <new>
#include <system_error>

namespace proxytest {

namespace {

using fakeipc::CallKind;

/** The first lock of a standard mutex asks for memory. */
using MutexLockHook = kxtest::ImportHook<"libwinpthread-1.dll", "pthread_mutex_lock", int(void*)>;

int NoMemory(void*) {
    return ENOMEM;
}

TEST(MutexWithoutMemory, CreateProxy_GivesNullAfterItsMessageAndWorksLater) {
    const kxtest::LogCapture log;
    {
        const MutexLockHook lock(NoMemory);
        EXPECT_EQ(ScreenRecordProxy::CreateProxy(), nullptr);
    }
    proxymessages::ExpectMessages(log.Events(), {Error("CreateProxy", L"gsProxy is null.")});
    ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
    ASSERT_NE(proxy, nullptr);
    ScreenRecordProxy::ReleaseProxy(proxy);
}

TEST(MutexWithoutMemory, ReleaseProxy_KeepsTheReferenceAndWorksLater) {
    fakeipc::Reset();
    const kxtest::LogCapture log;
    ScreenRecordProxy* const proxy = ScreenRecordProxy::CreateProxy();
    {
        const MutexLockHook lock(NoMemory);
        ScreenRecordProxy::ReleaseProxy(proxy);
    }
    EXPECT_TRUE(fakeipc::Calls(CallKind::Destroy).empty());
    ScreenRecordProxy::ReleaseProxy(proxy);
    EXPECT_EQ(fakeipc::Calls(CallKind::Destroy).size(), 1u);
    proxymessages::ExpectMessages(log.Events(), {});
}

/** Makes the calls of one kind throw something that is no lack of memory. */
void ThrowFrom(CallKind kind) {
    fakeipc::SetObserver([kind](const fakeipc::Call& call) {
        if (call.kind == kind) {
            throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
        }
    });
}

class ThrowingExchange : public ProxyTest, public testing::WithParamInterface<Command> {};
INSTANTIATE_TEST_SUITE_P(Commands, ThrowingExchange, testing::ValuesIn(AllCommands()), NameOf);

TEST_P(ThrowingExchange, CountsAsAFailedOne) {
    ThrowFrom(CallKind::Send);
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_FALSE(GetParam().call(Proxy()));
    fakeipc::SetObserver(nullptr);
    ExpectState(RunStatus::Error, RecordMode::WorkerStarted);
    ExpectMessages(GetParam().failedSend);
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_TRUE(GetParam().call(Proxy()));
}

using ThrowingLibrary = ProxyTest;

TEST_F(ThrowingLibrary, Stop_LogsAFailedPostAndKeepsStopping) {
    const OwnedHandle worker = RunWorker();
    ThrowFrom(CallKind::Post);
    Proxy().Stop();
    fakeipc::SetObserver(nullptr);
    ExpectState(RunStatus::Stopping, RecordMode::WorkerStarted);
    ExpectMessages({Error("Stop", L"Post IPC msg(Stop) failed!")});
}

TEST_F(ThrowingLibrary, Release_StillDeletesTheClient) {
    ThrowFrom(CallKind::UnRegisterAll);
    Release();
    fakeipc::SetObserver(nullptr);
    EXPECT_EQ(fakeipc::Calls(CallKind::Destroy).size(), 1u);
    ExpectMessages({});
}

const kxtest::ChildScenario kClientThrows("client-throws", [] {
    ThrowFrom(CallKind::Construct);
    ScreenRecordProxy::CreateProxy();
    std::cout << "still alive" << std::endl;
});

TEST(ThrowingClient, EndsTheHostWith8LikeOneWithoutMemory) {
    const kxtest::ChildResult result = kxtest::RunChild("client-throws");
    EXPECT_EQ(result.exitCode, 8u);
    EXPECT_EQ(result.output, "");
}

} // namespace

} // namespace proxytest
