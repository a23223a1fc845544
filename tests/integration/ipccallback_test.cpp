// The callbacks of the message channel's host end: which are called, on whose thread, and who waits for them.
#include "ipctestbed.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>

namespace kxtest {

using ipcmessage::FrameHeader;

namespace {

struct Counter {
    void OnReady(TagIPCMessageItem& item) {
        id = item.messageId;
        called.Set();
    }
    std::uint32_t id = 0;
    Signal called;
};

TEST(IPCMessageClient, MemberFunctionRegisteredAgain_OnlyTheLastIsCalled) {
    IPCMessageClient client(kTestModule, false, false);
    Counter first;
    Counter second;
    client.RegisterMessageCallback(kReadyNotice, &first, &Counter::OnReady);
    client.RegisterMessageCallback(kReadyNotice, &second, &Counter::OnReady);
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(second.called.Wait());
    EXPECT_EQ(second.id, kReadyNotice);
    EXPECT_FALSE(first.called.Wait(0));
}

// Does what must wait for a running callback while one runs.
void ExpectWaitsForCallback(IPCMessageClient& client, const std::function<void()>& act) {
    Signal entered;
    Signal mayEnd;
    Signal done;
    std::atomic<bool> isEnded = false;
    bool wasEnded = false;
    client.RegisterMessageCallback(kReadyNotice, [&](TagIPCMessageItem&) {
        entered.Set();
        mayEnd.Wait();
        isEnded = true;
    });
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(entered.Wait());
    std::thread caller([&] {
        act();
        wasEnded = isEnded;
        done.Set();
    });
    EXPECT_FALSE(done.Wait(kQuietMs));
    mayEnd.Set();
    EXPECT_TRUE(done.Wait());
    caller.join();
    EXPECT_TRUE(wasEnded);
}

TEST(IPCMessageClient, UnregisterWhileCallbackRuns_WaitsForItsEnd) {
    IPCMessageClient client(kTestModule, false, false);
    ExpectWaitsForCallback(client, [&client] { client.UnRegisterMessageCallbackAll(); });
}

TEST(IPCMessageClient, UnregisterWithinCallback_DoesNotWaitAndNoneIsCalledAfter) {
    IPCMessageClient client(kTestModule, false, false);
    Signal returned;
    std::atomic<int> calls = 0;
    client.RegisterMessageCallback(7, [&](TagIPCMessageItem&) { ++calls; });
    client.RegisterMessageCallback(kReadyNotice, [&](TagIPCMessageItem&) {
        client.UnRegisterMessageCallbackAll();
        returned.Set();
    });
    const std::string later = HexOf(FrameHeader{.messageId = 7});
    const Child peer("ipcpeer.exe", "open 0 write " + ReadyFrame() + later + " read reply 0 00 closed");
    ASSERT_TRUE(returned.Wait());
    EXPECT_EQ(Ask(client, 1, "x"), std::string(1, '\0'));
    EXPECT_EQ(calls, 0);
}

TEST(IPCMessageClient, CallbackThrows_ChannelGoesOn) {
    IPCMessageClient client(kTestModule, false, false);
    Signal entered;
    client.RegisterMessageCallback(kReadyNotice, [&](TagIPCMessageItem&) {
        entered.Set();
        throw std::runtime_error("callback");
    });
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(entered.Wait());
    EXPECT_EQ(Ask(client, kEchoPayload, "x"), "x");
}

TEST(IPCMessageClient, SendWithinCallback_FailsAtOnce) {
    IPCMessageClient client(kTestModule, false, false);
    Signal done;
    std::string answer;
    client.RegisterMessageCallback(kReadyNotice, [&](TagIPCMessageItem&) {
        answer = Ask(client, kEchoPayload, "x", INFINITE);
        done.Set();
    });
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(done.Wait());
    EXPECT_EQ(answer, "(failed)");
    EXPECT_EQ(Ask(client, kEchoPayload, "x"), "x");
}

TEST(IPCMessageClient, DestroyedWhileCallbackRuns_WaitsForItsEnd) {
    auto client = std::make_unique<IPCMessageClient>(kTestModule, false, false);
    ExpectWaitsForCallback(*client, [&client] { client.reset(); });
}

} // namespace

} // namespace kxtest
