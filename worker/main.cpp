// KXVCR.exe: the worker process. Wires the host's channel, the commands and the recorder, and waits for the end:
// the stop notice, the loss of the host, a file that could not be written any further, the closing of the recorded
// window, or the end of the Windows session.
//
// A program without a console of its own, so that no console window opens on the screen that it records.
#include "common/win/handle.h"
#include "sdk/vcr/workerprotocol.h"
#include "worker/commands.h"
#include "worker/log.h"
#include "worker/recorder.h"
#include "worker/sessionend.h"

#include "sdk/ipcmessage/ipcmessage.h"

#include <log4cplus/initializer.h>
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <new>
#include <span>

namespace kxvcr {

namespace {

constexpr unsigned int kConnectTimeoutMs = 5000;
constexpr std::uint32_t kFinishWithoutHostMs = 700; // the worker outlives its host by a second at most
constexpr char kUsage[] =
    "KXVCR.exe is started by its host program with the argument -IPCProxy; it does nothing else.\r\n";

bool IsStartedByHost() {
    return __argc == 2 && std::strcmp(__argv[1], kProxyArgument) == 0;
}

// A program without a console has no standard error of its own unless it was redirected.
void PrintUsage() {
    HANDLE standardError = GetStdHandle(STD_ERROR_HANDLE);
    if ((standardError == nullptr || standardError == INVALID_HANDLE_VALUE) && AttachConsole(ATTACH_PARENT_PROCESS)) {
        standardError = GetStdHandle(STD_ERROR_HANDLE);
    }
    DWORD written = 0;
    WriteFile(standardError, kUsage, sizeof(kUsage) - 1, &written, nullptr);
}

void Reply(CommandHandler& commands, const TagIPCMessageItem& request, IPCReplySender& sender) {
    std::span<const std::byte> payload;
    if (request.hasPayload) {
        payload = {static_cast<const std::byte*>(request.payload), request.payloadSize};
    }
    const std::int32_t reply = commands.Answer(request.messageId, payload);
    if (!sender.Reply(&reply, sizeof(reply))) {
        KXVCR_LOG_WARN(L"Nobody took the reply to command " << request.messageId);
    }
}

bool ReportReady(IPCMessageService& service) {
    TagIPCMessageItem ready;
    ready.sourceModuleId = kWorkerModuleId;
    ready.targetModuleId = kHostModuleId;
    ready.messageId = kMessageReady;
    ready.timeStamp = GetTickCount();
    return service.PostIPCMessage(ready);
}

// Serves the host until @p end is signalled: by the recorder, or here when the host says stop or is gone. Returns false
// when the channel cannot be opened.
bool Serve(ScreenRecorder& recorder, const kx::KernelHandle& end) {
    CommandHandler commands(recorder);
    SessionEndWindow sessionEnd([&recorder] { recorder.Finish(); });

    std::mutex answering; // held while a command is carried out and answered
    IPCMessageService service(static_cast<int>(kWorkerModuleId));
    service.SetDefaultHandler([&commands, &answering](const TagIPCMessageItem& request, IPCReplySender& sender) {
        const std::lock_guard lock(answering);
        Reply(commands, request, sender);
    });
    service.RegisterRequestHandler(kMessageStop, [&end](const TagIPCMessageItem&, IPCReplySender&) {
        KXVCR_LOG_INFO(L"The host says stop");
        SetEvent(end.Get());
    });
    service.SetDisconnectCallback([&end, &recorder] {
        KXVCR_LOG_WARN(L"The host is gone");
        recorder.LimitFinish(kFinishWithoutHostMs);
        SetEvent(end.Get());
    });
    if (const unsigned long error = service.Connect(kConnectTimeoutMs); error != ERROR_SUCCESS) {
        KXVCR_LOG_ERROR(L"Cannot connect to the host's channel: error " << error);
        return false;
    }
    if (!ReportReady(service)) {
        KXVCR_LOG_ERROR(L"Cannot report ready to the host");
        return false;
    }
    sessionEnd.WaitFor(end.Get());
    // A start may end by itself at once, and is answered all the same before the channel goes.
    const std::lock_guard lock(answering);
    return true;
}

ExitCode Run() {
    if (!IsStartedByHost()) {
        PrintUsage();
        return ExitCode::Usage;
    }
    const kx::KernelHandle end(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!end) {
        throw std::bad_alloc();
    }
    ScreenRecorder recorder;
    recorder.SetEndCallback([&end] { SetEvent(end.Get()); });
    if (!Serve(recorder, end)) {
        return ExitCode::NoChannel;
    }
    recorder.Finish();
    if (recorder.FileCutShort()) {
        return ExitCode::FileCutShort;
    }
    if (recorder.WindowClosed()) {
        KXVCR_LOG_INFO(L"The recorded window was closed");
        return ExitCode::WindowClosed;
    }
    return ExitCode::Finished;
}

} // namespace

} // namespace kxvcr

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
    // Libraries of Windows come from the system folder, never from the worker's own: the host verified one file.
    if (!SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32)) {
        return static_cast<int>(kxvcr::ExitCode::OutOfResources);
    }
    try {
        // Ctrl-C in the host's terminal is the host's to answer: it stops the worker by its command.
        SetConsoleCtrlHandler(nullptr, TRUE);
        // A log library with a thread pool waits for ever when it is unloaded; this ends the pool while it still runs.
        const log4cplus::Initializer logging;
        return static_cast<int>(kxvcr::Run());
    } catch (const std::exception&) {
        return static_cast<int>(kxvcr::ExitCode::OutOfResources);
    }
}
