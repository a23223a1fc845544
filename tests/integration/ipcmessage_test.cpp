// The host's end of the message channel, against real workers (ipcworker.exe) and scripted ones (ipcpeer.exe).
#include "ipctestbed.h"
#include "support/handlecount.h"
#include "support/hostfolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

namespace kxtest {

using ipcmessage::FrameHeader;
using ipcmessage::FrameKind;

namespace {

class ElapsedClock {
public:
    DWORD ElapsedMs() const { return static_cast<DWORD>(GetTickCount64() - m_start); }

private:
    ULONGLONG m_start = GetTickCount64();
};

std::string LargeText(std::size_t size) {
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        text[i] = static_cast<char>(i * 31 + (i >> 8));
    }
    return text;
}

// The bytes come from a connected worker; the channel closes the connection and serves the next worker.
void ExpectRefused(const std::string& hex) {
    Host host;
    const Child peer("ipcpeer.exe", "open 0 write " + ReadyFrame() + hex + " closed");
    ASSERT_TRUE(host.ready.Wait());
    EXPECT_EQ(peer.ExitCode(), 0u);
    ExpectNextWorkerServed(host);
}

} // namespace

TEST(IPCMessageClient, WorkerConnected_EveryFieldAndByteArrives) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    std::string payload("a\0b\xff", 4);
    TagIPCMessageItem request = Request(kEchoRecord, payload);
    request.reserved = 0x12345678;
    request.replyMessageId = 0x9ABCDEF0;
    IPCReplyItem reply;

    ASSERT_TRUE(host.client.SendIPCMessage(request, reply, kLimitMs));

    const std::uint32_t words[] = {
        kxvcr::kHostModuleId, kxvcr::kWorkerModuleId, kEchoRecord, 0x9ABCDEF0, 0x12345678, request.timeStamp, 4, 1, 1};
    EXPECT_EQ(TextOf(reply), std::string(reinterpret_cast<const char*>(words), sizeof words) + payload);
    EXPECT_EQ(reply.sourceModuleId, kxvcr::kWorkerModuleId);
    EXPECT_EQ(reply.targetModuleId, kxvcr::kHostModuleId);
    EXPECT_EQ(reply.messageId, 0x9ABCDEF0u);
    EXPECT_EQ(reply.replyMessageId, kIPCUnset);
    EXPECT_EQ(reply.reserved, kIPCUnset);
    EXPECT_LT(GetTickCount() - reply.timeStamp, kLimitMs);
}

TEST(IPCMessageClient, RequestWithoutPayload_ArrivesWithoutPayload) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    const TagIPCMessageItem request = Request(kEchoRecord);
    IPCReplyItem reply;

    ASSERT_TRUE(host.client.SendIPCMessage(request, reply, kLimitMs));

    const std::uint32_t words[] = {
        kxvcr::kHostModuleId, kxvcr::kWorkerModuleId, kEchoRecord, kEchoRecord, kIPCUnset, request.timeStamp, 0, 0, 0};
    EXPECT_EQ(TextOf(reply), std::string(reinterpret_cast<const char*>(words), sizeof words));
}

TEST(IPCMessageClient, NoticesInBothDirections_EveryFieldArrives) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    Signal arrived;
    Signal replied;
    TagIPCMessageItem seen;
    std::string text;
    bool isReplied = true;
    host.client.RegisterMessageCallback(kFullNotice, [&](TagIPCMessageItem& item) {
        seen = item;
        text = TextOf(item);
        arrived.Set();
    });
    host.client.RegisterMessageCallback(kNoticeReplyNotice, [&](TagIPCMessageItem& item) {
        isReplied = TextOf(item) != std::string(1, '\0');
        replied.Set();
    });
    std::string payload = "notice";
    TagIPCMessageItem notice = Request(kPostBack, payload);
    notice.replyMessageId = kIPCUnset;
    notice.reserved = 5;

    ASSERT_TRUE(host.client.PostIPCMessage(notice));

    ASSERT_TRUE(arrived.Wait());
    EXPECT_EQ(text, "notice");
    EXPECT_EQ(seen.sourceModuleId, kxvcr::kHostModuleId);
    EXPECT_EQ(seen.targetModuleId, kxvcr::kWorkerModuleId);
    EXPECT_EQ(seen.messageId, kFullNotice);
    EXPECT_EQ(seen.replyMessageId, kIPCUnset);
    EXPECT_EQ(seen.reserved, 5u);
    EXPECT_EQ(seen.timeStamp, notice.timeStamp);
    ASSERT_TRUE(replied.Wait());
    EXPECT_FALSE(isReplied) << "a notice has nobody to reply to";
}

TEST(IPCMessageClient, PayloadSizesUpToTheLimit_ComeBackWhole) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    for (const std::size_t size : {0u, 1u, 4047u, 4048u, 4049u, 65536u, 65537u, kIPCMaxPayload}) {
        const std::string text = LargeText(size);
        EXPECT_TRUE(Ask(host.client, kEchoPayload, text) == text) << size;
    }
}

TEST(IPCMessageClient, PayloadOverTheLimit_RefusedAndConnectionKept) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    std::string large(kIPCMaxPayload + 1, 'x');
    const TagIPCMessageItem request = Request(kEchoPayload, large);
    IPCReplyItem reply;

    EXPECT_FALSE(host.client.SendIPCMessage(request, reply, kLimitMs));
    EXPECT_FALSE(host.client.PostIPCMessage(request));

    EXPECT_FALSE(reply.hasPayload);
    EXPECT_EQ(Ask(host.client, kEchoPayload, "small"), "small");
}

TEST(IPCMessageClient, PayloadFlagWithoutBlock_Refused) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    TagIPCMessageItem request = Request(kEchoPayload);
    request.hasPayload = true;
    request.payloadSize = 8;

    EXPECT_FALSE(host.client.PostIPCMessage(request));
    EXPECT_EQ(Ask(host.client, kEchoPayload, "small"), "small");
}

TEST(IPCMessageClient, NoWorker_SendAndPostFailAtOnce) {
    Host host;
    const ElapsedClock watch;
    EXPECT_EQ(Ask(host.client, kEchoPayload, "x", INFINITE), "(failed)");
    EXPECT_FALSE(host.client.PostIPCMessage(Request(kEchoPayload)));
    EXPECT_LT(watch.ElapsedMs(), kAtOnceMs);
}

TEST(IPCMessageClient, ThisProcessConnects_RefusedAndChannelServes) {
    Host host;
    const HANDLE pipe = CreateFileW(PipeNameOfThisProcess().c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(pipe, INVALID_HANDLE_VALUE);
    char byte = 0;
    DWORD read = 0;
    EXPECT_FALSE(ReadFile(pipe, &byte, 1, &read, nullptr));
    CloseHandle(pipe);
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageClient, GrandchildConnects_RefusedAndChannelServes) {
    Host host;
    const Child peer("ipcpeer.exe",
                     "grandchild open " + std::to_string(GetCurrentProcessId()) + " write " + ReadyFrame() + " closed");
    EXPECT_EQ(peer.ExitCode(), 0u);
    EXPECT_FALSE(host.ready.Wait(0)) << "a message of a wrong process was taken";
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageClient, ChildFromAnotherFolderConnects_RefusedAndChannelServes) {
    const TempFolder elsewhere;
    ASSERT_TRUE(std::filesystem::copy_file(OwnFolder() / "ipcpeer.exe", elsewhere.Path() / "ipcpeer.exe"));
    Host host;
    const Child peer(elsewhere.Name("ipcpeer.exe"), "open 0 write " + ReadyFrame() + " closed");
    EXPECT_EQ(peer.ExitCode(), 0u);
    EXPECT_FALSE(host.ready.Wait(0)) << "a message of a wrong process was taken";
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageClient, ChildByAnotherNameOfTheFolder_Served) {
    const std::string folder = OwnFolder().string();
    std::string upper = folder;
    CharUpperA(upper.data());
    ASSERT_NE(upper, folder);
    Host host;
    const Child worker(upper + "\\ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    EXPECT_EQ(Ask(host.client, kEchoPayload, "x"), "x");
}

TEST(IPCMessageClient, OversizedFrame_Refused) {
    ExpectRefused(HexOf(FrameHeader{.payloadSize = kIPCMaxPayload + 1, .hasPayload = true}));
    ExpectRefused(HexOf(FrameHeader{.payloadSize = 0xFFFFFFFF, .hasPayload = true}));
}

TEST(IPCMessageClient, Garbage_Refused) {
    ExpectRefused(HexOf(std::string(200, '\xA5')));
}

TEST(IPCMessageClient, WrongMagicVersionKindOrFlags_Refused) {
    const std::string good = HexOf(FrameHeader{});
    for (const std::size_t at : {0u, 4u, 6u, 45u}) {
        std::string bad = good;
        bad.replace(at * 2, 2, "7f");
        SCOPED_TRACE(at);
        ExpectRefused(bad);
    }
}

TEST(IPCMessageClient, RequestFrameFromWorker_Refused) {
    ExpectRefused(HexOf(FrameHeader{.kind = FrameKind::Request, .sequence = 1}));
}

TEST(IPCMessageClient, TruncatedFrame_NothingDeliveredAndChannelServes) {
    Host host;
    std::atomic<bool> isDelivered = false;
    host.client.RegisterMessageCallback(7, [&](TagIPCMessageItem&) { isDelivered = true; });
    const std::string frame = HexOf(FrameHeader{.messageId = 7, .payloadSize = 4, .hasPayload = true}) + "0102";
    const std::string letIn = UniqueName("let-in");
    const Signal isLetIn(letIn);
    const Child peer("ipcpeer.exe", "open 0 write " + ReadyFrame() + frame + " wait " + letIn);
    ASSERT_TRUE(host.ready.Wait());
    isLetIn.Set();
    EXPECT_EQ(peer.ExitCode(), 0u);
    ExpectNextWorkerServed(host);
    EXPECT_FALSE(isDelivered);
}

TEST(IPCMessageClient, WorkerDiesInTheMiddleOfItsReply_SendFailsAtOnce) {
    Host host;
    const std::string half = HexOf(FrameHeader{.kind = FrameKind::Reply, .sequence = 1}).substr(0, 40);
    const Child peer("ipcpeer.exe", "open 0 write " + ReadyFrame() + " read write " + half);
    ASSERT_TRUE(host.ready.Wait());
    const ElapsedClock watch;
    EXPECT_EQ(Ask(host.client, kEchoPayload, "x", INFINITE), "(failed)");
    EXPECT_LT(watch.ElapsedMs(), kAtOnceMs);
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageClient, SilentWorker_TimesOutWithinBoundAndKeepsConnection) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    constexpr DWORD kTimeoutMs = 300;
    const ElapsedClock watch;
    EXPECT_EQ(Ask(host.client, kStaySilent, "x", kTimeoutMs), "(failed)");
    EXPECT_GE(watch.ElapsedMs() + 20, kTimeoutMs);
    EXPECT_LT(watch.ElapsedMs(), kAtOnceMs);
    EXPECT_EQ(Ask(host.client, kEchoPayload, "next"), "next");
}

TEST(IPCMessageClient, LateReply_DroppedAndNextRequestGetsItsOwn) {
    Host host;
    const std::string go = UniqueName("go");
    const Signal mayReply(go);
    const Child peer("ipcpeer.exe", "open 0 write " + ReadyFrame() + " read wait " + go + " reply 0 " + HexOf("late") +
                                        " read reply 0 " + HexOf("later") + " reply 1 " + HexOf("good") + " closed");
    ASSERT_TRUE(host.ready.Wait());

    EXPECT_EQ(Ask(host.client, 1, "first", 100), "(failed)");
    mayReply.Set();
    EXPECT_EQ(Ask(host.client, 1, "second"), "good");
}

TEST(IPCMessageClient, RepliesInReverseOrder_EachRequestGetsItsOwn) {
    Host host;
    const std::string first = UniqueName("first");
    const Signal isFirstRead(first);
    const Child peer("ipcpeer.exe", "open 0 write " + ReadyFrame() + " read signal " + first + " read reply 1 " +
                                        HexOf("two") + " reply 0 " + HexOf("one") + " closed");
    ASSERT_TRUE(host.ready.Wait());
    std::string one;
    std::thread sender([&] { one = Ask(host.client, 1, "one"); });
    EXPECT_TRUE(isFirstRead.Wait());

    EXPECT_EQ(Ask(host.client, 1, "two"), "two");
    sender.join();
    EXPECT_EQ(one, "one");
}

class IPCMessageClientThreads : public testing::TestWithParam<int> {};

TEST_P(IPCMessageClientThreads, RequestsAtOnce_EachGetsItsOwnReply) {
    constexpr int kRequestsEach = 50;
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    std::atomic<int> good = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < GetParam(); ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < kRequestsEach; ++i) {
                const std::string text =
                    std::to_string(thread) + ":" + std::to_string(i) + LargeText(static_cast<std::size_t>(i) * 100);
                good += Ask(host.client, kEchoPayload, text) == text;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(good, GetParam() * kRequestsEach);
}

INSTANTIATE_TEST_SUITE_P(TwoAndEight, IPCMessageClientThreads, testing::Values(2, 8));

TEST(IPCMessageClient, WorkerDiesInHandler_WaitingRequestsFailAtOnce) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    Signal isWaiting;
    host.client.RegisterMessageCallback(kSilentNotice, [&](TagIPCMessageItem&) { isWaiting.Set(); });
    std::string silent;
    std::thread sender([&] { silent = Ask(host.client, kStaySilent, "x", INFINITE); });
    EXPECT_TRUE(isWaiting.Wait());

    const ElapsedClock watch;
    EXPECT_EQ(Ask(host.client, kDie, "x", INFINITE), "(failed)");
    sender.join();

    EXPECT_EQ(silent, "(failed)");
    EXPECT_LT(watch.ElapsedMs(), kAtOnceMs);
    EXPECT_EQ(worker.ExitCode(), static_cast<DWORD>(kDiedInHandler));
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageClient, WorkerThatDoesNotRead_SendTimesOutAndConnectionIsDropped) {
    Host host;
    const std::string go = UniqueName("go");
    const Signal mayRead(go);
    const Child peer("ipcpeer.exe", "open 0 write " + ReadyFrame() + " wait " + go + " closed");
    ASSERT_TRUE(host.ready.Wait());

    const ElapsedClock watch;
    EXPECT_EQ(Ask(host.client, kEchoPayload, LargeText(kIPCMaxPayload), 300), "(failed)");
    EXPECT_LT(watch.ElapsedMs(), kAtOnceMs);

    mayRead.Set();
    EXPECT_EQ(peer.ExitCode(), 0u);
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageClient, WorkerThatDoesNotRead_PostEndsWithinItsLimit) {
    Host host;
    const Child peer("ipcpeer.exe", "open 0 write " + ReadyFrame() + " wait " + UniqueName("never"));
    ASSERT_TRUE(host.ready.Wait());
    std::string large = LargeText(kIPCMaxPayload);

    const ElapsedClock watch;
    EXPECT_FALSE(host.client.PostIPCMessage(Request(kEchoPayload, large)));
    EXPECT_LT(watch.ElapsedMs(), kIPCWriteLimitMs + kAtOnceMs);
    peer.Kill();
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageClient, SecondSendBehindStuckWrite_TimesOutByItself) {
    Host host;
    const Child peer("ipcpeer.exe", "open 0 write " + ReadyFrame() + " wait " + UniqueName("never"));
    ASSERT_TRUE(host.ready.Wait());
    std::string stuck;
    std::thread sender([&] { stuck = Ask(host.client, kEchoPayload, LargeText(kIPCMaxPayload), INFINITE); });

    const ElapsedClock watch;
    EXPECT_EQ(Ask(host.client, kEchoPayload, "x", kQuietMs), "(failed)");
    EXPECT_LT(watch.ElapsedMs(), kAtOnceMs);
    peer.Kill();
    sender.join();
    EXPECT_EQ(stuck, "(failed)");
}

// A failed send leaves nothing of an earlier reply behind.
TEST(IPCMessageClient, ReplyThatIsUsedAgain_IsEmptyAfterAFailedSend) {
    Host host;
    IPCReplyItem reply;
    {
        const Child worker("ipcworker.exe", "serve");
        ASSERT_TRUE(host.ready.Wait());
        std::string payload = "x";
        ASSERT_TRUE(host.client.SendIPCMessage(Request(kEchoPayload, payload), reply, kLimitMs));
        ASSERT_EQ(TextOf(reply), "x");
        ASSERT_FALSE(host.client.SendIPCMessage(Request(kStaySilent), reply, kQuietMs));
    }
    EXPECT_EQ(TextOf(reply), "(none)");
}

TEST(IPCMessageClient, WorkersOneAfterTheOther_AllServed) {
    Host host;
    for (int i = 0; i < 3; ++i) {
        ExpectNextWorkerServed(host);
    }
}

TEST(IPCMessageClient, NameTakenByAnotherObject_SendsFail) {
    const HANDLE squatter =
        CreateNamedPipeW(PipeNameOfThisProcess().c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 2, 0, 0, 0, nullptr);
    ASSERT_NE(squatter, INVALID_HANDLE_VALUE);
    {
        Host host;
        EXPECT_EQ(Ask(host.client, kEchoPayload, "x"), "(failed)");
        EXPECT_FALSE(host.client.PostIPCMessage(Request(1)));
        host.client.UnRegisterMessageCallbackAll();
    }
    CloseHandle(squatter);
    Host host;
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageClient, SecondClientOfOneModule_FailsAndFirstServes) {
    Host first;
    Host second;
    EXPECT_EQ(Ask(second.client, kEchoPayload, "x"), "(failed)");
    ExpectNextWorkerServed(first);
}

TEST(IPCMessageClient, DestroyedWhileSendWaits_SendFails) {
    auto host = std::make_unique<Host>();
    Signal isWaiting;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host->ready.Wait());
    host->client.RegisterMessageCallback(kSilentNotice, [&](TagIPCMessageItem&) { isWaiting.Set(); });
    std::string answer;
    std::thread sender([&answer, client = &host->client] { answer = Ask(*client, kStaySilent, "x", INFINITE); });
    EXPECT_TRUE(isWaiting.Wait());

    host.reset();

    sender.join();
    EXPECT_EQ(answer, "(failed)");
    EXPECT_EQ(worker.ExitCode(), 0u) << "the worker's disconnect callback runs once";
}

TEST(IPCMessageClient, FiftyRounds_LeaveNoHandle) {
    constexpr int kRounds = 50;
    const auto round = [] {
        Host host;
        const Child peer("ipcpeer.exe", "open 0 write " + ReadyFrame() + " read reply 0 41 closed");
        ASSERT_TRUE(host.ready.Wait());
        EXPECT_EQ(Ask(host.client, 1, "x"), "A");
    };
    round();
    const std::size_t before = OpenHandleCount();
    for (int i = 0; i < kRounds; ++i) {
        round();
    }
    EXPECT_FALSE(HandlesLeakedSince(before, kRounds));
}

} // namespace kxtest
