// Stop: when it reaches the worker, and what it leaves behind.
#include "unit/proxycommandfixture.h"

namespace proxytest {

namespace {

using fakeipc::CallKind;
using proxyprivate::Client;
using proxyprivate::Status;

TEST_F(ProxyCommands, Stop_WithoutWorker_DoesNothing) {
    for (const RunStatus status : kAllStatuses) {
        SetState(status, RecordMode::WorkerStarted);
        Proxy().Stop();
        ExpectState(status, RecordMode::WorkerStarted);
    }
    EXPECT_TRUE(fakeipc::Calls().empty());
    ExpectMessages({});
}

TEST_F(ProxyCommands, Stop_EveryOtherStatus_PostsOnceAndKeepsTheMode) {
    PlantWorker();
    for (const RunStatus status : kAllStatuses) {
        if (status == RunStatus::Stopping) {
            continue;
        }
        for (const RecordMode mode : kAllModes) {
            fakeipc::Reset();
            SetState(status, mode);
            Proxy().Stop();
            ExpectState(RunStatus::Stopping, mode);
            EXPECT_EQ(fakeipc::Calls().size(), 1u);
            EXPECT_EQ(fakeipc::Calls(CallKind::Post).size(), 1u);
        }
    }
    ExpectMessages({});
}

TEST_F(ProxyCommands, Stop_PostsANoticeWithoutPayload) {
    PlantWorker();
    SetState(RunStatus::LocalRecordRunning, RecordMode::LocalRecord);
    Proxy().Stop();
    const fakeipc::Call post = fakeipc::Calls(CallKind::Post).at(0);
    EXPECT_EQ(post.item.sourceModuleId, kxvcr::kHostModuleId);
    EXPECT_EQ(post.item.targetModuleId, kxvcr::kWorkerModuleId);
    EXPECT_EQ(post.item.messageId, kxvcr::kMessageStop);
    EXPECT_EQ(post.item.replyMessageId, 0xFFFFFFFFu);
    EXPECT_EQ(post.item.reserved, 0xFFFFFFFFu);
    EXPECT_EQ(post.item.timeStamp, kTick);
    EXPECT_EQ(post.item.payloadSize, 0u);
    EXPECT_EQ(post.item.payload, nullptr);
    EXPECT_FALSE(post.item.hasPayload);
}

TEST_F(ProxyCommands, Stop_Twice_SendsOnce) {
    PlantWorker();
    SetState(RunStatus::LocalRecordRunning, RecordMode::LocalRecord);
    Proxy().Stop();
    Proxy().Stop();
    EXPECT_EQ(fakeipc::Calls().size(), 1u);
    ExpectState(RunStatus::Stopping, RecordMode::LocalRecord);
    ExpectMessages({});
}

TEST_F(ProxyCommands, Stop_FailedPost_IsLoggedAndKeepsStopping) {
    PlantWorker();
    fakeipc::SetPostResult(false);
    SetState(RunStatus::LiveServerRunning, RecordMode::LiveServer);
    Proxy().Stop();
    ExpectState(RunStatus::Stopping, RecordMode::LiveServer);
    ExpectMessages({Error("Stop", L"Post IPC msg(Stop) failed!")});
}

TEST_F(ProxyCommands, Stop_FailedPost_IsAnErrorOnceNoLongerStopping) {
    PlantWorker();
    fakeipc::SetPostResult(false);
    fakeipc::SetObserver([this](const fakeipc::Call&) { Status(Proxy()).store(RunStatus::Running); });
    SetState(RunStatus::LocalRecordRunning, RecordMode::LocalRecord);
    Proxy().Stop();
    ExpectState(RunStatus::Error, RecordMode::LocalRecord);
}

TEST_F(ProxyCommands, Stop_WithoutClient_IsLoggedAfterTheStatusChanged) {
    PlantWorker();
    IPCMessageClient* const client = Client(Proxy());
    Client(Proxy()) = nullptr;
    SetState(RunStatus::Prepared, RecordMode::Prepared);
    Proxy().Stop();
    ExpectState(RunStatus::Stopping, RecordMode::Prepared);
    ExpectMessages({Error("Stop", L"objIPCClient is null.")});
    Client(Proxy()) = client;
}

TEST_F(ProxyCommands, Stop_ReadsTheWorkerWithoutTheLock) {
    PlantWorker();
    SetState(RunStatus::Prepared, RecordMode::Prepared);
    const hooks::EnterLockHook enter([](LPCRITICAL_SECTION lock) { hooks::EnterLockHook::Original(lock); });
    Proxy().Stop();
    EXPECT_EQ(enter.Calls(), 0);
    EXPECT_EQ(fakeipc::Calls(CallKind::Post).size(), 1u);
}

} // namespace

} // namespace proxytest
