// The commands: which statuses accept them, what reaches the worker, and what a failed exchange leaves behind.
#include "unit/proxycommandfixture.h"
#include "unit/proxycommands.h"

#include <log4cplus/loggingmacros.h>

#include <vector>

namespace proxytest {

namespace {

using fakeipc::CallKind;
using proxyprivate::Client;
using proxyprivate::Status;
using proxyprivate::WorkerProcess;

class EveryCommand : public ProxyCommands, public testing::WithParamInterface<Command> {};
INSTANTIATE_TEST_SUITE_P(Commands, EveryCommand, testing::ValuesIn(AllCommands()), NameOf);

TEST_P(EveryCommand, OtherStatus_IsRefusedAndChangesNothing) {
    for (const RunStatus status : kAllStatuses) {
        if (status == GetParam().from) {
            continue;
        }
        for (const RecordMode mode : kAllModes) {
            m_log.Clear();
            SetState(status, mode);
            EXPECT_FALSE(GetParam().call(Proxy()));
            ExpectState(status, mode);
            ExpectMessages({Error(GetParam().function, GetParam().refusal, std::to_wstring(static_cast<int>(status)))});
        }
    }
    EXPECT_TRUE(fakeipc::Calls().empty());
}

TEST_P(EveryCommand, ExpectedStatus_GoesThroughProgressToSuccess) {
    RunStatus during{};
    fakeipc::SetObserver([&](const fakeipc::Call&) { during = Status(Proxy()).load(); });
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_TRUE(GetParam().call(Proxy()));
    // The fixture calls on when this frame is gone.
    fakeipc::SetObserver(nullptr);
    EXPECT_EQ(static_cast<int>(during), static_cast<int>(GetParam().during));
    ExpectState(GetParam().after, GetParam().mode);
    ExpectMessages({});
}

TEST_P(EveryCommand, FailedSend_LeavesTheErrorStatusAndTheMode) {
    fakeipc::QueueAnswer(fakeipc::SendFails());
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(RunStatus::Error, RecordMode::WorkerStarted);
    ExpectMessages(GetParam().failedSend);
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_TRUE(GetParam().call(Proxy()));
}

TEST_P(EveryCommand, FailedSend_IsLoggedWhileTheCommandIsInProgress) {
    using StreamHook = kxtest::ImportHook<"liblog4cplus.dll", "_ZN9log4cplus6detail18get_macro_body_ossB5cxx11Ev",
                                          log4cplus::tostringstream&()>;
    std::vector<RunStatus> atMessages;
    fakeipc::QueueAnswer(fakeipc::SendFails());
    SetState(GetParam().from, RecordMode::WorkerStarted);
    {
        const StreamHook stream([&]() -> log4cplus::tostringstream& {
            atMessages.push_back(Status(Proxy()));
            return StreamHook::Original();
        });
        EXPECT_FALSE(GetParam().call(Proxy()));
    }
    ASSERT_FALSE(atMessages.empty());
    EXPECT_EQ(static_cast<int>(atMessages.front()), static_cast<int>(GetParam().during));
}

TEST_P(EveryCommand, ReplyWithoutPayload_LeavesTheErrorStatus) {
    fakeipc::QueueAnswer(fakeipc::NoPayload());
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(RunStatus::Error, RecordMode::WorkerStarted);
    ExpectMessages(GetParam().failedAnswer);
}

TEST_P(EveryCommand, ReplyWithoutBlock_IsNoAnswer) {
    fakeipc::Answer answer;
    answer.withoutBlock = true;
    fakeipc::QueueAnswer(answer);
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(RunStatus::Error, RecordMode::WorkerStarted);
}

TEST_P(EveryCommand, FailureWhileStopping_KeepsTheStoppingStatus) {
    fakeipc::Answer answer = fakeipc::SendFails();
    answer.before = [this] { Status(Proxy()).store(RunStatus::Stopping); };
    fakeipc::QueueAnswer(answer);
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(RunStatus::Stopping, RecordMode::WorkerStarted);
}

TEST_P(EveryCommand, NegativeResult_LeavesTheErrorStatus) {
    fakeipc::QueueAnswer(fakeipc::Result(-7));
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(RunStatus::Error, RecordMode::WorkerStarted);
}

TEST_P(EveryCommand, WithoutClient_StaysInProgress) {
    IPCMessageClient* const client = Client(Proxy());
    Client(Proxy()) = nullptr;
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(GetParam().during, RecordMode::WorkerStarted);
    ExpectMessages(GetParam().failedAnswer);
    EXPECT_TRUE(fakeipc::Calls().empty());
    Client(Proxy()) = client;
}

TEST_F(ProxyCommands, Prepare_SendsThe44Bytes) {
    const auto param = Patterned<ScreenRecordParam>(1);
    SetState(RunStatus::Running, RecordMode::WorkerStarted);
    EXPECT_TRUE(Proxy().Prepare(param, kTimeoutMs));
    ExpectRequest(OnlySend(), kxvcr::kMessagePrepare, BytesOf(param));
    EXPECT_EQ(OnlySend().payload.size(), 44u);
}

TEST_F(ProxyCommands, PrepareTimemachine_ZeroSendsThe44Bytes) {
    const auto param = Patterned<ScreenRecordParam>(2);
    SetState(RunStatus::Running, RecordMode::WorkerStarted);
    EXPECT_TRUE(Proxy().PrepareTimemachine(param, 0, kTimeoutMs));
    ExpectRequest(OnlySend(), kxvcr::kMessagePrepare, BytesOf(param));
}

TEST_F(ProxyCommands, PrepareTimemachine_ValueFollowsTheRecord) {
    for (const unsigned int value : {1u, 0x01020304u, 0xFFFFFFFFu}) {
        fakeipc::Reset();
        const auto param = Patterned<ScreenRecordParam>(3);
        SetState(RunStatus::Running, RecordMode::WorkerStarted);
        EXPECT_TRUE(Proxy().PrepareTimemachine(param, value, kTimeoutMs));
        ExpectRequest(OnlySend(), kxvcr::kMessagePrepare, BytesOf(param) + BytesOf(value));
        EXPECT_EQ(OnlySend().payload.size(), 48u);
        ExpectState(RunStatus::Prepared, RecordMode::PreparedTimemachine);
    }
}

TEST_F(ProxyCommands, Prepare_ZeroResultIsSuccess) {
    fakeipc::QueueAnswer(fakeipc::Result(0));
    SetState(RunStatus::Running, RecordMode::WorkerStarted);
    EXPECT_TRUE(Proxy().Prepare(ScreenRecordParam(), kTimeoutMs));
    ExpectState(RunStatus::Prepared, RecordMode::Prepared);
}

TEST_F(ProxyCommands, WholeRecording_WalksTheStates) {
    PlantWorker();
    SetState(RunStatus::Running, RecordMode::WorkerStarted);
    EXPECT_TRUE(Proxy().Prepare(ScreenRecordParam(), kTimeoutMs));
    EXPECT_FALSE(Proxy().Prepare(ScreenRecordParam(), kTimeoutMs));
    EXPECT_TRUE(Proxy().StartLocalRecord(L"a", 0, kTimeoutMs));
    EXPECT_FALSE(Proxy().StartLocalRecord(L"a", 0, kTimeoutMs));
    Proxy().Stop();
    EXPECT_FALSE(Proxy().StartLocalRecord(L"a", 0, kTimeoutMs));
    ExpectState(RunStatus::Stopping, RecordMode::LocalRecord);
    ExpectMessages({Error("PrepareTimemachine", L"Can not call prepare on status ", L"4"),
                    Error("StartLocalRecord", L"Can not start local record on mode ", L"6"),
                    Error("StartLocalRecord", L"Can not start local record on mode ", L"11")});
}

} // namespace

} // namespace proxytest
