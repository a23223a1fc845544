// The table of the proxy's commands, and how each is called.
#include "unit/proxycommands.h"

namespace proxytest {

namespace {

// The forms of preparing, which differ in the mode that they end in.
Command PrepareCommand(const char* name, RecordMode mode, bool (*call)(ScreenRecordProxy& proxy)) {
    return {
        .name = name,
        .from = RunStatus::Running,
        .during = RunStatus::Preparing,
        .after = RunStatus::Prepared,
        .mode = mode,
        .function = "PrepareTimemachine",
        .refusal = L"Can not call prepare on status ",
        .failedSend = {Error("SendVCRMessage", L"Send IPC msg failed!"),
                       Error("PrepareTimemachine", L"Send IPC Message failed")},
        .failedAnswer = {Error("PrepareTimemachine", L"Send IPC Message failed")},
        .call = call,
    };
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Command& command) {
    return out << command.name;
}

const std::vector<Command>& AllCommands() {
    static const std::vector<Command> s_commands = {
        PrepareCommand("Prepare", RecordMode::Prepared,
                       [](ScreenRecordProxy& proxy) { return proxy.Prepare(ScreenRecordParam(), kTimeoutMs); }),
        PrepareCommand(
            "PrepareTimemachineWithZero", RecordMode::Prepared,
            [](ScreenRecordProxy& proxy) { return proxy.PrepareTimemachine(ScreenRecordParam(), 0, kTimeoutMs); }),
        PrepareCommand(
            "PrepareTimemachine", RecordMode::PreparedTimemachine,
            [](ScreenRecordProxy& proxy) { return proxy.PrepareTimemachine(ScreenRecordParam(), 30, kTimeoutMs); }),
        {
            .name = "StartLocalRecord",
            .from = RunStatus::Prepared,
            .during = RunStatus::LocalRecordStarting,
            .after = RunStatus::LocalRecordRunning,
            .mode = RecordMode::LocalRecord,
            .function = "StartLocalRecord",
            .refusal = L"Can not start local record on mode ",
            .failedSend = {Error("SendVCRMessage", L"Send IPC msg failed!"),
                           Error("StartLocalRecord", L"Send Ipc Message failed")},
            .failedAnswer = {Error("StartLocalRecord", L"Send Ipc Message failed")},
            .call = [](ScreenRecordProxy& proxy) { return proxy.StartLocalRecord(L"C:\\a.webm", 0, kTimeoutMs); },
        },
        {
            .name = "StartLiveServer",
            .from = RunStatus::Prepared,
            .during = RunStatus::LiveServerStarting,
            .after = RunStatus::LiveServerRunning,
            .mode = RecordMode::LiveServer,
            .function = "StartLiveServer",
            .refusal = L"Can not start live server on mode ",
            .failedSend = {Error("StartLiveServer", L"Send IPC msg(StartLiveServer) failed!")},
            .failedAnswer = {},
            .call =
                [](ScreenRecordProxy& proxy) {
                    int result = 0;
                    return proxy.StartLiveServer(LiveServerParam(), kTimeoutMs, result);
                },
        },
    };
    return s_commands;
}

} // namespace proxytest
