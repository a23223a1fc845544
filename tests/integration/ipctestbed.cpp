// Child processes, signals and frames as text for the tests of the message channel.
#include "ipctestbed.h"

#include "support/hostfolder.h"

#include <gtest/gtest.h>

#include <memory>
#include <span>

namespace kxtest {

Signal::Signal(const std::string& name)
    : m_event(CreateEventA(nullptr, TRUE, FALSE, name.empty() ? nullptr : name.c_str())) {}

std::string UniqueName(const std::string& what) {
    static int s_count = 0;
    return "ipctest-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++s_count) + "-" + what;
}

Child::Child(const std::string& program, const std::string& arguments) {
    std::string commandLine = '"' + (OwnFolder() / program).string() + "\" " + arguments;
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    const BOOL isStarted =
        CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process);
    EXPECT_TRUE(isStarted) << program;
    if (isStarted) {
        const kx::KernelHandle thread(process.hThread);
        m_process.Reset(process.hProcess);
    }
}

Child::~Child() {
    Kill();
}

DWORD Child::ExitCode() const {
    WaitForSingleObject(m_process.Get(), kLimitMs);
    DWORD code = STILL_ACTIVE;
    GetExitCodeProcess(m_process.Get(), &code);
    return code;
}

void Child::Kill() const {
    TerminateProcess(m_process.Get(), 1);
    WaitForSingleObject(m_process.Get(), kLimitMs);
}

Host::Host() {
    client.RegisterMessageCallback(kReadyNotice, [this](TagIPCMessageItem&) { ready.Set(); });
}

TagIPCMessageItem Request(std::uint32_t messageId) {
    TagIPCMessageItem request;
    request.sourceModuleId = kxvcr::kHostModuleId;
    request.targetModuleId = kTestModule;
    request.messageId = messageId;
    request.replyMessageId = messageId;
    request.timeStamp = GetTickCount();
    return request;
}

TagIPCMessageItem Request(std::uint32_t messageId, std::string& payload) {
    TagIPCMessageItem request = Request(messageId);
    request.payload = payload.data();
    request.payloadSize = static_cast<std::uint32_t>(payload.size());
    request.hasPayload = true;
    return request;
}

std::string TextOf(const TagIPCMessageItem& item) {
    return item.hasPayload ? std::string(static_cast<const char*>(item.payload), item.payloadSize) : "(none)";
}

std::string Ask(IPCMessageClient& client, std::uint32_t messageId, std::string payload, DWORD timeoutMs) {
    IPCReplyItem reply;
    return client.SendIPCMessage(Request(messageId, payload), reply, timeoutMs) ? TextOf(reply) : "(failed)";
}

void ExpectNextWorkerServed(Host& host) {
    const auto ready = std::make_shared<Signal>(); // the callback's too: it stays registered when the test has failed
    host.client.RegisterMessageCallback(kReadyNotice, [ready](TagIPCMessageItem&) { ready->Set(); });
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(ready->Wait());
    EXPECT_EQ(Ask(host.client, kEchoPayload, "still here"), "still here");
    host.client.UnRegisterMessageCallbackAll();
}

std::string HexOf(const std::string& text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 15];
    }
    return hex;
}

std::string HexOf(const ipcmessage::FrameHeader& header) {
    std::string bytes(ipcmessage::kFrameHeaderSize, '\0');
    ipcmessage::EncodeFrameHeader(header,
                                  std::as_writable_bytes(std::span(bytes)).first<ipcmessage::kFrameHeaderSize>());
    return HexOf(bytes);
}

std::string ReadyFrame() {
    return HexOf(ipcmessage::FrameHeader{.messageId = kReadyNotice});
}

std::wstring PipeNameOfThisProcess() {
    return L"\\\\.\\pipe\\KxIPCMessage." + std::to_wstring(GetCurrentProcessId()) + L"." + std::to_wstring(kTestModule);
}

} // namespace kxtest
