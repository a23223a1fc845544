// One live view, from the start of the worker to its end.
#include "host/live.h"

#include "host/stopsignal.h"

#include <shellapi.h>

namespace kxrecord {

using KxScreenRecord::RecordMode;

namespace {

constexpr INT_PTR kFirstSuccess = 33; ///< smaller answers of ShellExecuteW are errors

std::wstring Url(const std::wstring& host, int port) {
    return L"http://" + host + L":" + std::to_wstring(port) + L"/";
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

LiveStart StartOf(const LiveOptions& options, int port) {
    LiveStart start{port, Url(L"127.0.0.1", port), {}};
    if (options.server.listenOnAllInterfaces != 0) {
        start.networkUrl = Url(MachineName(), port);
    }
    return start;
}

void OpenPage(const std::wstring& url, Report& report) {
    const HINSTANCE answer = ShellExecuteW(nullptr, L"open", url.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
    if (reinterpret_cast<INT_PTR>(answer) < kFirstSuccess) {
        report.Warning(L"no browser could be started; open " + url + L" yourself");
    }
}

void WaitWhileServing(const Session& session, const StopSignal& stop, const LiveOptions& options, Report& report,
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
    Session session(*report, options.session, stop);
    if (const Exit exit = session.Begin(std::chrono::seconds{0}); exit != Exit::Success) {
        return exit;
    }
    int port = 0;
    if (!session.Proxy().StartLiveServer(options.server, options.session.timeoutMs, port)) {
        return session.Refused(Command::StartLive, {}, options.server.port);
    }

    const LiveStart start = StartOf(options, port);
    report->Serving(start);
    if (options.server.listenOnAllInterfaces != 0) {
        report->Warning(L"everybody who reaches this machine can see its screen: there is no password");
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
