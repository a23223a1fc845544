// Another worker for the same protocol: takes every command and, in place of a recording, writes a file that says how
// many commands there were. Built as KXVCR.exe and entered into the manifest, it runs under any host.
#include <sdk/ipcmessage/ipcmessage.h>
#include <sdk/vcr/workerprotocol.h>

#include <windows.h>

#include <cstdint>
#include <fstream>
#include <string>

namespace {

constexpr unsigned int kConnectTimeoutMs = 5000;

struct State {
    HANDLE end = CreateEventW(nullptr, TRUE, FALSE, nullptr); // lives as long as the process
    std::wstring path;
    int commands = 0;
};

void Answer(IPCReplySender& sender, kxvcr::Result result) {
    const auto reply = static_cast<std::int32_t>(result);
    sender.Reply(&reply, sizeof(reply));
}

bool ReportReady(IPCMessageService& service) {
    TagIPCMessageItem ready;
    ready.sourceModuleId = kxvcr::kWorkerModuleId;
    ready.targetModuleId = kxvcr::kHostModuleId;
    ready.messageId = kxvcr::kMessageReady;
    ready.timeStamp = GetTickCount();
    return service.PostIPCMessage(ready);
}

} // namespace

int main() {
    State state;
    IPCMessageService service(static_cast<int>(kxvcr::kWorkerModuleId));
    service.SetDefaultHandler(
        [](const TagIPCMessageItem&, IPCReplySender& sender) { Answer(sender, kxvcr::Result::UnknownCommand); });
    service.RegisterRequestHandler(kxvcr::kMessagePrepare, [&state](const auto&, IPCReplySender& sender) {
        ++state.commands;
        Answer(sender, kxvcr::Result::Accepted);
    });
    service.RegisterRequestHandler(kxvcr::kMessageStartLocalRecord, [&state](const auto& request, auto& sender) {
        ++state.commands;
        state.path = static_cast<const wchar_t*>(request.payload); // the proxy sends the terminating zero along
        Answer(sender, kxvcr::Result::Accepted);
    });
    service.RegisterRequestHandler(kxvcr::kMessageStop, [&state](const auto&, auto&) { SetEvent(state.end); });
    service.SetDisconnectCallback([&state] { SetEvent(state.end); });
    if (service.Connect(kConnectTimeoutMs) != ERROR_SUCCESS || !ReportReady(service)) {
        return static_cast<int>(kxvcr::ExitCode::NoChannel);
    }
    WaitForSingleObject(state.end, INFINITE);
    if (!state.path.empty()) {
        std::ofstream(state.path.c_str()) << state.commands << " commands\n";
    }
    return static_cast<int>(kxvcr::ExitCode::Finished);
}
