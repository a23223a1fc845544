// The worker's end of the message channel: ipcworker.exe under a real host, and under this process's raw pipe.
#include "ipctestbed.h"

#include <gtest/gtest.h>

#include <array>
#include <span>

namespace kxtest {

using ipcmessage::FrameHeader;
using ipcmessage::FrameKind;

namespace {

constexpr DWORD kTimeoutResult = 258;

// A host's end without a library behind it.
class RawHost {
public:
    RawHost()
        : m_pipe(CreateNamedPipeW(PipeNameOfThisProcess().c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_FIRST_PIPE_INSTANCE,
                                  PIPE_TYPE_BYTE | PIPE_WAIT, 1, 65536, 65536, 0, nullptr)) {}
    ~RawHost() { CloseHandle(m_pipe); }
    RawHost(const RawHost&) = delete;
    RawHost& operator=(const RawHost&) = delete;

    bool Accept() const { return ConnectNamedPipe(m_pipe, nullptr) || GetLastError() == ERROR_PIPE_CONNECTED; }

    bool Read(std::span<std::byte> bytes) const {
        while (!bytes.empty()) {
            DWORD read = 0;
            if (!ReadFile(m_pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr)) {
                return false;
            }
            bytes = bytes.subspan(read);
        }
        return true;
    }

    bool Write(const std::string& bytes) const {
        DWORD written = 0;
        return WriteFile(m_pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) != FALSE;
    }

private:
    HANDLE m_pipe;
};

std::string BytesOf(const FrameHeader& header) {
    std::string bytes(ipcmessage::kFrameHeaderSize, '\0');
    ipcmessage::EncodeFrameHeader(header,
                                  std::as_writable_bytes(std::span(bytes)).first<ipcmessage::kFrameHeaderSize>());
    return bytes;
}

// The worker drops the connection, calls its disconnect callback once and ends with 0.
void ExpectWorkerDisconnects(const std::string& bytes) {
    const RawHost host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.Accept());
    std::array<std::byte, ipcmessage::kFrameHeaderSize> ready;
    ASSERT_TRUE(host.Read(ready));
    ASSERT_TRUE(host.Write(bytes));
    EXPECT_EQ(worker.ExitCode(), 0u);
}

} // namespace

TEST(IPCMessageService, NoChannel_ConnectTimesOut) {
    const Child worker("ipcworker.exe", "connect 200");
    EXPECT_EQ(worker.ExitCode(), kTimeoutResult);
}

TEST(IPCMessageService, ZeroTimeout_TriesOnce) {
    const Child worker("ipcworker.exe", "connect 0");
    EXPECT_EQ(worker.ExitCode(), kTimeoutResult);
    const Host host;
    const Child second("ipcworker.exe", "connect 0");
    EXPECT_EQ(second.ExitCode(), 0u);
}

TEST(IPCMessageService, ChannelOpenedLater_Connects) {
    const Child worker("ipcworker.exe", "connect 10000");
    const Host host;
    EXPECT_EQ(worker.ExitCode(), 0u);
}

TEST(IPCMessageService, ChannelTaken_ConnectTimesOut) {
    Host host;
    const Child first("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    const Child second("ipcworker.exe", "connect 200");
    EXPECT_EQ(second.ExitCode(), kTimeoutResult);
    EXPECT_EQ(Ask(host.client, kEchoPayload, "x"), "x");
}

TEST(IPCMessageService, PipeOfAnotherProcess_AccessDenied) {
    const std::string created = UniqueName("created");
    const Signal isCreated(created);
    const Child squatter("ipcpeer.exe", "squat " + std::to_string(GetCurrentProcessId()) + " signal " + created +
                                            " wait " + UniqueName("never"));
    ASSERT_TRUE(isCreated.Wait());
    const Child worker("ipcworker.exe", "connect 5000");
    EXPECT_EQ(worker.ExitCode(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST(IPCMessageService, UnknownId_GoesToDefaultHandler) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    EXPECT_EQ(Ask(host.client, 0xABCDEF, "x"), "default");
}

TEST(IPCMessageService, EmptyReply_ArrivesWithoutPayload) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    EXPECT_EQ(Ask(host.client, kEmptyReply, "x"), "(none)");
}

TEST(IPCMessageService, HandlerThrows_RequestUnansweredAndNextServed) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    EXPECT_EQ(Ask(host.client, kThrow, "x", kQuietMs), "(failed)");
    EXPECT_EQ(Ask(host.client, kEchoPayload, "x"), "x");
}

TEST(IPCMessageService, SecondReply_Refused) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    Signal arrived;
    std::string second;
    host.client.RegisterMessageCallback(kSecondReplyNotice, [&](TagIPCMessageItem& item) {
        second = TextOf(item);
        arrived.Set();
    });
    EXPECT_EQ(Ask(host.client, kReplyTwice, "x"), "first");
    ASSERT_TRUE(arrived.Wait());
    EXPECT_EQ(second, std::string(1, '\0'));
}

TEST(IPCMessageService, ReplyOverTheLimit_RefusedAndMayReplyAgain) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    EXPECT_EQ(Ask(host.client, kReplyTooLarge, "x"), "refused");
}

TEST(IPCMessageService, HostSendsGarbage_Disconnects) {
    ExpectWorkerDisconnects(std::string(100, '\xA5'));
}

TEST(IPCMessageService, HostSendsOversizedFrame_Disconnects) {
    ExpectWorkerDisconnects(BytesOf({.payloadSize = kIPCMaxPayload + 1, .hasPayload = true}));
}

TEST(IPCMessageService, HostSendsReply_Disconnects) {
    ExpectWorkerDisconnects(BytesOf({.kind = FrameKind::Reply, .sequence = 1}));
}

TEST(IPCMessageService, HostDies_DisconnectCallbackRuns) {
    const std::string name = UniqueName("orphan");
    const Signal connected(name + "-connected");
    const Signal lost(name + "-lost");
    const Child host("ipcworker.exe", "host " + name);
    ASSERT_TRUE(connected.Wait());
    EXPECT_FALSE(lost.Wait(0));
    host.Kill();
    EXPECT_TRUE(lost.Wait());
}

} // namespace kxtest
