#include "session.h"

#include "folders.h"

#include <algorithm>

using KxScreenRecord::RecordMode;
using KxScreenRecord::ScreenRecordProxy;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds kUpdateInterval{200};
constexpr wchar_t kWorkerName[] = L"\\KXVCR.exe";

} // namespace

void Session::Releaser::operator()(ScreenRecordProxy* proxy) const {
    ScreenRecordProxy::ReleaseProxy(proxy);
}

Session::Session(Report& report, const SessionOptions& options, const StopSignal& stop)
    : m_report(report),
      m_options(options),
      m_stop(stop) {}

unsigned long Session::Begin(std::chrono::seconds replay) {
    m_proxy.reset(ScreenRecordProxy::CreateProxy());
    if (!m_proxy) {
        return Fail(Stage::Host, kExitNoProxy);
    }
    const unsigned long started = m_proxy->RunProcess(m_options.timeoutMs);
    if (started != 0) {
        return Fail(IsFile(HostFolder() + kWorkerName) ? Stage::Start : Stage::StartWithoutWorker, started);
    }
    const auto seconds = static_cast<unsigned int>(replay.count());
    if (!m_proxy->PrepareTimemachine(m_options.picture, seconds, m_options.timeoutMs)) {
        return Refused(seconds == 0 ? kExitPrepareRefused : kExitReplayRefused);
    }
    return kExitSuccess;
}

bool Session::Is(RecordMode mode) const {
    return m_proxy->GetCurRecordMode() == static_cast<int>(mode);
}

unsigned long Session::Refused(unsigned long code) {
    StopWorker();
    return Fail(Stage::Host, code);
}

unsigned long Session::End(Stage whileWorking, RecordMode working) {
    if (!Is(working)) {
        const unsigned long code = m_proxy->WaitLiveProcessEnd(m_options.timeoutMs);
        if (code == 0 && m_stop.WaitFor(0)) { // Wine passes Ctrl-C on to the worker, which then ends as if told to stop
            return kExitSuccess;
        }
        Fail(whileWorking, code);
        return code == 0 ? kExitWorkerGone : code;
    }
    const unsigned long code = StopWorker();
    return code == 0 ? kExitSuccess : Fail(Stage::Finish, code);
}

unsigned long Session::Fail(Stage stage, unsigned long code) {
    m_report.Error(code, Explain(stage, code));
    return code;
}

unsigned long Session::StopWorker() {
    m_proxy->Stop();
    const unsigned long code = m_proxy->WaitLiveProcessEnd(m_options.timeoutMs);
    if (code == WAIT_TIMEOUT) {
        m_proxy->KillProcess();
    }
    return code;
}

DWORD NextWaitMs(const SessionOptions& options, milliseconds elapsed) {
    milliseconds wait = kUpdateInterval;
    if (options.length) {
        wait = std::clamp(*options.length - elapsed, milliseconds{0}, wait);
    }
    return static_cast<DWORD>(wait.count());
}
