// One live view, from the start of the worker to its end.
#include "host/live.h"

#include "common/hex.h"
#include "host/stopsignal.h"

#include <windows.h>

#include <bcrypt.h>
#include <shellapi.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace kxrecord {

using KxScreenRecord::RecordMode;

namespace {

constexpr INT_PTR kFirstSuccess = 33; ///< smaller answers of ShellExecuteW are errors

using KxScreenRecord::LiveServerParam;

// The system's generator does not fail; if it did, no key would be worth having.
void MakeKey(LiveServerParam& server) {
    const NTSTATUS status = BCryptGenRandom(nullptr, server.key, sizeof(server.key), BCRYPT_USE_SYSTEM_PREFERRED_RNG);
    if (!BCRYPT_SUCCESS(status)) {
        throw std::runtime_error("the system makes no random numbers");
    }
}

std::wstring Url(const std::wstring& host, int port, const LiveServerParam& server) {
    std::wstring url = L"http://" + host + L":" + std::to_wstring(port) + L"/";
    if (std::ranges::all_of(server.key, [](std::uint8_t byte) { return byte == 0; })) {
        return url;
    }
    for (const std::uint8_t byte : server.key) {
        kx::AppendHex(url, byte);
    }
    return url + L"/";
}

// Who can look on besides those who are told the address.
const wchar_t* WarningOf(const LiveOptions& options) noexcept {
    if (options.server.listenOnAllInterfaces == 0) {
        return options.withKey ? nullptr : L"every account of this machine can see the screen: there is no key";
    }
    return options.withKey ? L"the screen travels unencrypted: whoever can listen to the network can see it"
                           : L"everybody who reaches this machine can see its screen: there is no key";
}

// The name that other machines know this one by; empty when the system does not tell.
std::wstring MachineName() {
    DWORD size = 0;
    GetComputerNameExW(ComputerNameDnsHostname, nullptr, &size);
    std::wstring name(size, L'\0');
    if (!GetComputerNameExW(ComputerNameDnsHostname, name.data(), &size)) {
        return {};
    }
    name.resize(size);
    return name;
}

LiveStart StartOf(const LiveServerParam& server, int port) {
    LiveStart start{port, Url(L"127.0.0.1", port, server), {}};
    if (server.listenOnAllInterfaces != 0) {
        start.networkUrl = Url(MachineName(), port, server);
    }
    return start;
}

void OpenPage(const std::wstring& url, Report& report) {
    const HINSTANCE answer = ShellExecuteW(nullptr, L"open", url.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
    if (reinterpret_cast<INT_PTR>(answer) < kFirstSuccess) {
        report.Warning(L"no browser could be started; open " + url + L" yourself");
    }
}

void WaitWhileServing(const WorkerSession& session, const StopSignal& stop, const LiveOptions& options, Report& report,
                      const Stopwatch& stopwatch) {
    while (session.Is(RecordMode::LiveServer)) {
        report.LiveProgress(stopwatch.Elapsed());
        const DWORD waitMs = NextWaitMs(options.session, stopwatch.Elapsed());
        if (waitMs == 0 || stop.WaitFor(waitMs)) {
            return;
        }
    }
}

} // namespace

Exit Live(const LiveOptions& options) {
    const std::unique_ptr<Report> report = MakeReport(options.session);
    const StopSignal stop;
    WorkerSession session(*report, options.session, stop);
    if (const Exit exit = session.Begin(std::chrono::seconds{0}); exit != Exit::Success) {
        return exit;
    }
    LiveServerParam server = options.server;
    if (options.withKey) {
        MakeKey(server);
    }
    int port = 0;
    if (!session.Proxy().StartLiveServer(server, options.session.timeoutMs, port)) {
        return session.Refused(Command::StartLive, {}, options.server.port);
    }

    const LiveStart start = StartOf(server, port);
    report->Serving(start);
    if (const wchar_t* warning = WarningOf(options); warning != nullptr) {
        report->Warning(warning);
    }
    if (options.open) {
        OpenPage(start.url, *report);
    }

    const Stopwatch stopwatch;
    WaitWhileServing(session, stop, options, *report, stopwatch);
    const std::chrono::milliseconds served = stopwatch.Elapsed();
    const Exit exit = session.End(Stage::Serving, RecordMode::LiveServer);
    report->Served(served, exit);
    return exit;
}

} // namespace kxrecord
