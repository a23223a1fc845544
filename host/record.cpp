#include "record.h"

#include "console.h"
#include "errors.h"
#include "folders.h"
#include "progress.h"
#include "stopsignal.h"

#include <algorithm>
#include <memory>

using KxScreenRecord::RecordMode;
using KxScreenRecord::ScreenRecordProxy;
using std::chrono::milliseconds;

namespace {

constexpr std::size_t kLongestPath = 260; ///< characters that StartLocalRecord accepts
constexpr milliseconds kUpdateInterval{200};
constexpr wchar_t kWorkerName[] = L"\\KXVCR.exe";

struct ProxyReleaser {
    void operator()(ScreenRecordProxy* proxy) const { ScreenRecordProxy::ReleaseProxy(proxy); }
};
using ProxyOwner = std::unique_ptr<ScreenRecordProxy, ProxyReleaser>;

// Says what failed and hands the code on.
unsigned long Fail(Stage stage, unsigned long code) {
    Write(Stream::Error, L"kxrecord: " + Explain(stage, code) + L"\n");
    return code;
}

// Ends the worker, which then completes its file. One that does not end in time is killed.
unsigned long EndWorker(ScreenRecordProxy& proxy, unsigned int timeoutMs) {
    proxy.Stop();
    const unsigned long code = proxy.WaitLiveProcessEnd(timeoutMs);
    if (code == WAIT_TIMEOUT)
        proxy.KillProcess();
    return code;
}

// Ends a worker that refused a command; the refusal, not the worker's end, is what is reported.
unsigned long Refused(ScreenRecordProxy& proxy, unsigned int timeoutMs, unsigned long code) {
    EndWorker(proxy, timeoutMs);
    return Fail(Stage::Host, code);
}

bool IsRecording(ScreenRecordProxy& proxy) {
    return proxy.GetCurRecordMode() == static_cast<int>(RecordMode::LocalRecord);
}

// Waits until the time is over, Ctrl-C comes or the worker is gone.
void WaitWhileRecording(ScreenRecordProxy& proxy, const StopSignal& stop, const RecordOptions& options,
                        Progress& progress) {
    while (IsRecording(proxy)) {
        milliseconds wait = kUpdateInterval;
        if (options.length)
            wait = std::clamp(*options.length - progress.Elapsed(), milliseconds{0}, wait);
        if (wait == milliseconds{0} || stop.WaitFor(static_cast<DWORD>(wait.count())))
            return;
        progress.Update();
    }
}

} // namespace

unsigned long Record(const RecordOptions& options) {
    const std::wstring file = FullPath(options.file);
    if (file.size() > kLongestPath)
        return Fail(Stage::Host, ERROR_FILENAME_EXCED_RANGE);

    const StopSignal stop;
    const ProxyOwner proxy(ScreenRecordProxy::CreateProxy());
    if (!proxy)
        return Fail(Stage::Host, kExitNoProxy);

    const unsigned long started = proxy->RunProcess(options.timeoutMs);
    if (started != 0)
        return Fail(IsFile(HostFolder() + kWorkerName) ? Stage::Start : Stage::StartWithoutWorker, started);
    if (!proxy->Prepare(options.picture, options.timeoutMs))
        return Refused(*proxy, options.timeoutMs, kExitPrepareRefused);
    if (!proxy->StartLocalRecord(file.c_str(), static_cast<unsigned int>(file.size()), options.timeoutMs))
        return Refused(*proxy, options.timeoutMs, kExitStartRefused);

    Progress progress(file);
    WaitWhileRecording(*proxy, stop, options, progress);
    const milliseconds recorded = progress.Elapsed();
    const bool workerGone = !IsRecording(*proxy);
    const unsigned long ended =
        workerGone ? proxy->WaitLiveProcessEnd(options.timeoutMs) : EndWorker(*proxy, options.timeoutMs);
    progress.Finish(recorded);
    if (workerGone) {
        Fail(Stage::Recording, ended);
        return ended == 0 ? kExitWorkerGone : ended;
    }
    return ended == 0 ? kExitSuccess : Fail(Stage::Finish, ended);
}
