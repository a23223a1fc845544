// StartLiveServer: what reaches the worker, and what the caller gets of its answer.
#include "unit/proxycommandfixture.h"

#include <algorithm>

namespace proxytest {

namespace {

TEST_F(ProxyCommands, StartLiveServer_SendsThe40Bytes) {
    const auto param = Patterned<LiveServerParam>(4);
    int result = kUntouched;
    fakeipc::QueueAnswer(fakeipc::Result(8080));
    SetState(RunStatus::Prepared, RecordMode::Prepared);
    EXPECT_TRUE(Proxy().StartLiveServer(param, kTimeoutMs, result));
    ExpectRequest(OnlySend(), kxvcr::kMessageStartLiveServer, BytesOf(param));
    EXPECT_EQ(OnlySend().payload.size(), 40u);
    EXPECT_EQ(result, 8080);
    ExpectState(RunStatus::LiveServerRunning, RecordMode::LiveServer);
}

TEST_F(ProxyCommands, StartLiveServer_ResultOfZeroOrLess_FailsAndGivesZero) {
    for (const std::int32_t answer : {0, -1, static_cast<std::int32_t>(0x80000000)}) {
        int result = kUntouched;
        fakeipc::QueueAnswer(fakeipc::Result(answer));
        SetState(RunStatus::Prepared, RecordMode::Prepared);
        EXPECT_FALSE(Proxy().StartLiveServer(LiveServerParam(), kTimeoutMs, result));
        EXPECT_EQ(result, 0);
        ExpectState(RunStatus::Error, RecordMode::Prepared);
    }
    ExpectMessages({});
}

TEST_F(ProxyCommands, StartLiveServer_GreatestResult_IsGiven) {
    int result = kUntouched;
    fakeipc::QueueAnswer(fakeipc::Result(0x7FFFFFFF));
    SetState(RunStatus::Prepared, RecordMode::Prepared);
    EXPECT_TRUE(Proxy().StartLiveServer(LiveServerParam(), kTimeoutMs, result));
    EXPECT_EQ(result, 0x7FFFFFFF);
}

TEST_F(ProxyCommands, StartLiveServer_FailuresWithoutAnswer_LeaveTheResult) {
    int result = kUntouched;
    SetState(RunStatus::Idle, RecordMode::NoWorker);
    EXPECT_FALSE(Proxy().StartLiveServer(LiveServerParam(), kTimeoutMs, result));
    for (const fakeipc::Answer& answer : {fakeipc::SendFails(), fakeipc::NoPayload(), fakeipc::Payload("abc")}) {
        fakeipc::QueueAnswer(answer);
        SetState(RunStatus::Prepared, RecordMode::Prepared);
        EXPECT_FALSE(Proxy().StartLiveServer(LiveServerParam(), kTimeoutMs, result));
    }
    EXPECT_EQ(result, kUntouched);
}

TEST_F(ProxyCommands, StartLiveServer_ReplyOfOtherSize_NamesTheSizeAndFreesTheBlock) {
    for (const std::size_t size : {0u, 1u, 3u, 5u, 8u, 4096u}) {
        m_log.Clear();
        fakeipc::Reset();
        int result = kUntouched;
        std::vector<void*> freed;
        const hooks::FreeHook free([&](void* block) {
            freed.push_back(block);
            hooks::FreeHook::Original(block);
        });
        fakeipc::QueueAnswer(fakeipc::Payload(std::string(size, '\1')));
        SetState(RunStatus::Prepared, RecordMode::Prepared);
        EXPECT_FALSE(Proxy().StartLiveServer(LiveServerParam(), kTimeoutMs, result));
        ExpectState(RunStatus::Error, RecordMode::Prepared);
        ExpectMessages(
            {Error("StartLiveServer", L"StartLive IPC return value size(", std::to_wstring(size) + L") error")});
        EXPECT_EQ(std::count(freed.begin(), freed.end(), fakeipc::ReplyBlocks().at(0)), 1);
    }
}

TEST_F(ProxyCommands, StartLiveServer_GoodReply_FreesTheBlock) {
    std::vector<void*> freed;
    const hooks::FreeHook free([&](void* block) {
        freed.push_back(block);
        hooks::FreeHook::Original(block);
    });
    int result = kUntouched;
    SetState(RunStatus::Prepared, RecordMode::Prepared);
    EXPECT_TRUE(Proxy().StartLiveServer(LiveServerParam(), kTimeoutMs, result));
    EXPECT_EQ(std::count(freed.begin(), freed.end(), fakeipc::ReplyBlocks().at(0)), 1);
}

} // namespace

} // namespace proxytest
