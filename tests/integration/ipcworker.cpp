// A worker on the real service end, and a small host for the test of a host's death.
//   ipcworker serve            connects, answers as ipcprotocol.h says, ends when the connection is lost
//   ipcworker connect MS       connects and returns the code
//   ipcworker host EVENT       a host that starts "ipcworker orphan EVENT" and waits to be killed
//   ipcworker orphan EVENT     connects and signals EVENT in its disconnect callback
#include "common/win/modulepath.h"
#include "ipcprotocol.h"
#include "sdk/ipcmessage/ipcmessage.h"

#include <windows.h>

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr unsigned int kConnectLimitMs = 10000;
constexpr UINT kOverdue = 97;
constexpr int kDisconnectNotOnce = 96;

void EndWhenOverdue() {
    std::thread([] {
        Sleep(kPeerLimitMs);
        TerminateProcess(GetCurrentProcess(), kOverdue);
    }).detach();
}

HANDLE NamedEvent(const std::wstring& name) {
    return CreateEventW(nullptr, TRUE, FALSE, name.c_str());
}

void PostResult(IPCMessageService& service, std::uint32_t messageId, bool result) {
    TagIPCMessageItem notice;
    notice.messageId = messageId;
    notice.payload = &result;
    notice.payloadSize = sizeof result;
    notice.hasPayload = true;
    service.PostIPCMessage(notice);
}

void ReplyRecord(const TagIPCMessageItem& request, IPCReplySender& sender) {
    const std::uint32_t words[] = {request.sourceModuleId, request.targetModuleId, request.messageId,
                                   request.replyMessageId, request.reserved,       request.timeStamp,
                                   request.payloadSize,    request.hasPayload,     request.payload != nullptr};
    std::vector<unsigned char> bytes(sizeof words + request.payloadSize);
    std::memcpy(bytes.data(), words, sizeof words);
    if (request.payloadSize != 0) {
        std::memcpy(bytes.data() + sizeof words, request.payload, request.payloadSize);
    }
    sender.Reply(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

void RegisterHandlers(IPCMessageService& service) {
    service.RegisterRequestHandler(kEchoPayload, [](const TagIPCMessageItem& request, IPCReplySender& sender) {
        sender.Reply(request.payload, request.payloadSize);
    });
    service.RegisterRequestHandler(kEmptyReply,
                                   [](const TagIPCMessageItem&, IPCReplySender& sender) { sender.Reply(nullptr, 0); });
    service.RegisterRequestHandler(kStaySilent, [&service](const TagIPCMessageItem&, IPCReplySender&) {
        TagIPCMessageItem notice;
        notice.messageId = kSilentNotice;
        service.PostIPCMessage(notice);
    });
    service.RegisterRequestHandler(kPostBack, [&service](const TagIPCMessageItem& request, IPCReplySender& sender) {
        TagIPCMessageItem notice = request;
        notice.messageId = kFullNotice;
        service.PostIPCMessage(notice);
        const bool isReplied = sender.Reply(nullptr, 0);
        PostResult(service, kNoticeReplyNotice, isReplied);
    });
    service.RegisterRequestHandler(
        kThrow, [](const TagIPCMessageItem&, IPCReplySender&) { throw std::runtime_error("handler"); });
    service.RegisterRequestHandler(
        kDie, [](const TagIPCMessageItem&, IPCReplySender&) { TerminateProcess(GetCurrentProcess(), kDiedInHandler); });
    service.RegisterRequestHandler(kReplyTwice, [&service](const TagIPCMessageItem&, IPCReplySender& sender) {
        sender.Reply("first", 5);
        PostResult(service, kSecondReplyNotice, sender.Reply("second", 6));
    });
    service.RegisterRequestHandler(kReplyTooLarge, [](const TagIPCMessageItem&, IPCReplySender& sender) {
        const std::vector<char> large(kIPCMaxPayload + 1);
        sender.Reply(large.data(), kIPCMaxPayload + 1) ? sender.Reply("accepted", 8) : sender.Reply("refused", 7);
    });
    service.RegisterRequestHandler(kEchoRecord, ReplyRecord);
    service.SetDefaultHandler([](const TagIPCMessageItem&, IPCReplySender& sender) { sender.Reply("default", 7); });
}

void PostReady(IPCMessageService& service) {
    TagIPCMessageItem ready;
    ready.messageId = kReadyNotice;
    service.PostIPCMessage(ready);
}

int Serve() {
    const HANDLE lost = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<int> disconnects = 0;
    {
        IPCMessageService service(kTestModule);
        RegisterHandlers(service);
        service.SetDisconnectCallback([&] {
            ++disconnects;
            SetEvent(lost);
        });
        if (const DWORD error = service.Connect(kConnectLimitMs)) {
            return static_cast<int>(error);
        }
        PostReady(service);
        WaitForSingleObject(lost, INFINITE);
    }
    return disconnects == 1 ? 0 : kDisconnectNotOnce;
}

int ConnectOnly(const std::wstring& timeoutMs) {
    IPCMessageService service(kTestModule);
    return static_cast<int>(service.Connect(static_cast<unsigned int>(std::stoul(timeoutMs))));
}

int ActAsHost(const std::wstring& eventName) {
    IPCMessageClient client(kTestModule, false, false);
    std::wstring commandLine = L"\"" + kx::ModulePath(nullptr).value() + L"\" orphan " + eventName;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process)) {
        return static_cast<int>(GetLastError());
    }
    WaitForSingleObject(process.hProcess, INFINITE);
    return 0;
}

int ServeAsOrphan(const std::wstring& eventName) {
    const HANDLE lost = NamedEvent(eventName + L"-lost");
    IPCMessageService service(kTestModule);
    service.SetDisconnectCallback([lost] { SetEvent(lost); });
    if (const DWORD error = service.Connect(kConnectLimitMs)) {
        return static_cast<int>(error);
    }
    SetEvent(NamedEvent(eventName + L"-connected"));
    WaitForSingleObject(lost, INFINITE);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    EndWhenOverdue();
    const std::string role = argc > 1 ? argv[1] : "";
    const std::string value = argc > 2 ? argv[2] : "";
    const std::wstring argument(value.begin(), value.end());
    if (role == "serve") {
        return Serve();
    }
    if (role == "connect") {
        return ConnectOnly(argument);
    }
    if (role == "host") {
        return ActAsHost(argument);
    }
    return ServeAsOrphan(argument);
}
