// SendVCRMessage: one request and its reply, and every way in which the exchange can fail.
#include "unit/proxyfixture.h"

#include <algorithm>

namespace proxytest {

namespace {

using fakeipc::CallKind;
using proxyprivate::Client;
using proxyprivate::SendVCRMessage;

constexpr RunStatus kBefore = RunStatus::Preparing;

class ProxyExchange : public ProxyTest {
protected:
    ProxyExchange() {
        fakeipc::Reset();
        m_request.messageId = kxvcr::kMessagePrepare;
        SetState(kBefore, RecordMode::WorkerStarted);
    }

    bool Send(const fakeipc::Answer& answer) {
        fakeipc::QueueAnswer(answer);
        return SendVCRMessage(Proxy(), kTimeoutMs, m_request);
    }
    /** Whether every reply's block was freed once; the system may give the same address again after that. */
    bool EveryBlockIsFreedOnce() const {
        const std::vector<void*> blocks = fakeipc::ReplyBlocks();
        return !blocks.empty() && std::all_of(blocks.begin(), blocks.end(), [&](void* block) {
            return std::count(m_freed.begin(), m_freed.end(), block) == std::count(blocks.begin(), blocks.end(), block);
        });
    }

    TagIPCMessageItem m_request;
    std::vector<void*> m_freed;
    hooks::FreeHook m_free{[this](void* block) {
        m_freed.push_back(block);
        hooks::FreeHook::Original(block);
    }};
};

TEST_F(ProxyExchange, ResultOfZeroOrMore_IsSuccess) {
    for (const std::int32_t result : {0, 1, 0x7FFFFFFF}) {
        EXPECT_TRUE(Send(fakeipc::Result(result)));
    }
    ExpectState(kBefore, RecordMode::WorkerStarted);
    ExpectMessages({});
    EXPECT_EQ(fakeipc::ReplyBlocks().size(), 3u);
    EXPECT_TRUE(EveryBlockIsFreedOnce());
}

TEST_F(ProxyExchange, Request_IsPassedWithTheTimeout) {
    char payload[] = "abc";
    m_request.payload = payload;
    m_request.payloadSize = 3;
    m_request.hasPayload = true;
    for (const unsigned int timeoutMs : {0u, 7u, 0xFFFFFFFFu}) {
        fakeipc::Reset();
        EXPECT_TRUE(SendVCRMessage(Proxy(), timeoutMs, m_request));
        const auto sends = fakeipc::Calls(CallKind::Send);
        ASSERT_EQ(sends.size(), 1u);
        EXPECT_EQ(sends[0].timeoutMs, timeoutMs);
        EXPECT_EQ(sends[0].item.payload, payload);
        EXPECT_EQ(sends[0].payload, "abc");
        EXPECT_EQ(sends[0].replyItem.payload, nullptr);
        EXPECT_FALSE(sends[0].replyItem.hasPayload);
    }
    EXPECT_EQ(std::count(m_freed.begin(), m_freed.end(), payload), 0);
}

TEST_F(ProxyExchange, NegativeResult_IsNamedAndFreed) {
    for (const std::int32_t result : {-1, -2147024891, static_cast<std::int32_t>(0x80000000)}) {
        m_log.Clear();
        m_freed.clear();
        fakeipc::Reset();
        SetState(kBefore, RecordMode::WorkerStarted);
        EXPECT_FALSE(Send(fakeipc::Result(result)));
        ExpectState(RunStatus::Error, RecordMode::WorkerStarted);
        ExpectMessages({Error("SendVCRMessage", L"IPC failed!err=", std::to_wstring(result))});
        EXPECT_TRUE(EveryBlockIsFreedOnce());
    }
}

TEST_F(ProxyExchange, FailedSend_IsLogged) {
    EXPECT_FALSE(Send(fakeipc::SendFails()));
    ExpectState(RunStatus::Error, RecordMode::WorkerStarted);
    ExpectMessages({Error("SendVCRMessage", L"Send IPC msg failed!")});
}

TEST_F(ProxyExchange, ReplyWithoutPayload_IsSilent) {
    EXPECT_FALSE(Send(fakeipc::NoPayload()));
    ExpectState(RunStatus::Error, RecordMode::WorkerStarted);
    ExpectMessages({});
}

TEST_F(ProxyExchange, ReplyOfOtherSize_IsNamedAndFreed) {
    for (const std::size_t size : {0u, 1u, 3u, 5u, 8u, 100000u}) {
        m_log.Clear();
        m_freed.clear();
        fakeipc::Reset();
        SetState(kBefore, RecordMode::WorkerStarted);
        EXPECT_FALSE(Send(fakeipc::Payload(std::string(size, '\0'))));
        ExpectState(RunStatus::Error, RecordMode::WorkerStarted);
        ExpectMessages({Error("SendVCRMessage", L"IPC return value size(", std::to_wstring(size) + L") error")});
        EXPECT_TRUE(EveryBlockIsFreedOnce());
    }
}

TEST_F(ProxyExchange, WithoutClient_IsSilentAndKeepsTheStatus) {
    IPCMessageClient* const client = Client(Proxy());
    Client(Proxy()) = nullptr;
    EXPECT_FALSE(SendVCRMessage(Proxy(), kTimeoutMs, m_request));
    ExpectState(kBefore, RecordMode::WorkerStarted);
    ExpectMessages({});
    EXPECT_TRUE(fakeipc::Calls().empty());
    Client(Proxy()) = client;
}

TEST_F(ProxyExchange, EveryFailureWhileStopping_KeepsStopping) {
    for (const fakeipc::Answer& answer :
         {fakeipc::SendFails(), fakeipc::NoPayload(), fakeipc::Payload("12345"), fakeipc::Result(-1)}) {
        SetState(RunStatus::Stopping, RecordMode::LocalRecord);
        EXPECT_FALSE(Send(answer));
        ExpectState(RunStatus::Stopping, RecordMode::LocalRecord);
    }
}

TEST_F(ProxyExchange, AfterEachFailure_TheNextSendWorks) {
    for (const fakeipc::Answer& answer :
         {fakeipc::SendFails(), fakeipc::NoPayload(), fakeipc::Payload("12345"), fakeipc::Result(-1)}) {
        EXPECT_TRUE(Send(fakeipc::Result(0)));
        EXPECT_FALSE(Send(answer));
        EXPECT_TRUE(Send(fakeipc::Result(0)));
    }
}

} // namespace

} // namespace proxytest
