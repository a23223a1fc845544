// One worker from its start to its end. The library's log is listened to all the while: it says why a command failed.
#include "host/session.h"

#include "host/folders.h"

#include "sdk/vcr/workerprotocol.h"

#include <algorithm>
#include <string>
#include <variant>

namespace kxrecord {

using KxScreenRecord::RecordMode;
using KxScreenRecord::ScreenRecordProxy;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds kUpdateInterval{200};
constexpr wchar_t kWorkerLog[] = L"KXVCR";

std::wstring WorkerPath() {
    return HostFolder() + L"\\" + kxvcr::kWorkerFileNameWide;
}

} // namespace

std::unique_ptr<Report> MakeReport(const SessionOptions& options) {
    return options.json ? MakeJsonReport() : MakeTextReport(options.verbosity);
}

void WorkerSession::Releaser::operator()(ScreenRecordProxy* proxy) const {
    ScreenRecordProxy::ReleaseProxy(proxy);
}

WorkerSession::WorkerSession(Report& report, const SessionOptions& options, const StopSignal& stop)
    : m_report(report),
      m_options(options),
      m_picture(options.picture),
      m_stop(stop),
      m_log(options.verbosity == Verbosity::Verbose) {}

Exit WorkerSession::ChooseWindow() {
    if (m_options.window.empty()) {
        return Exit::Success;
    }
    const std::variant<WindowInfo, Failure> chosen = kxrecord::ChooseWindow(CurrentWindows(), m_options.window);
    if (const auto* const failure = std::get_if<Failure>(&chosen)) {
        return Fail(*failure);
    }
    const auto& window = std::get<WindowInfo>(chosen);
    m_picture.window = window.handle;
    m_report.Window(window);
    return Exit::Success;
}

Exit WorkerSession::Begin(std::chrono::seconds replay) {
    if (const Exit exit = ChooseWindow(); exit != Exit::Success) {
        return exit;
    }
    m_proxy.reset(ScreenRecordProxy::CreateProxy());
    if (!m_proxy) {
        return Fail(HostFailure(Exit::NoProxy, L"the recorder could not be set up for lack of memory; close other "
                                               L"programs and try again"));
    }
    ChooseSoundDevices(m_options.soundDevices);
    const unsigned long started = m_proxy->RunProcess(m_options.timeoutMs);
    // A worker that ends with code 0 before it is ready leaves nothing to command.
    if (started != ERROR_SUCCESS || Is(RecordMode::NoWorker)) {
        return Fail(IsFile(WorkerPath()) ? Stage::Start : Stage::StartWithoutWorker, started);
    }
    const auto seconds = static_cast<unsigned int>(replay.count());
    if (!m_proxy->PrepareTimemachine(m_picture, seconds, m_options.timeoutMs)) {
        return Refused(seconds == 0 ? Command::Prepare : Command::PrepareReplay, {}, 0);
    }
    return Exit::Success;
}

bool WorkerSession::Is(RecordMode mode) const {
    return m_proxy->GetCurRecordMode() == static_cast<int>(mode);
}

Exit WorkerSession::Refused(Command command, const std::wstring& file, std::uint32_t port) {
    const Exchange exchange = m_log.TakeExchange();
    StopWorker();
    return Fail(ExplainRefusal(command, exchange, {m_picture, file, port}, CurrentScreen(), LogOf(kWorkerLog)));
}

Exit WorkerSession::End(Stage whileWorking, RecordMode working) {
    if (!Is(working)) {
        const unsigned long code = m_proxy->WaitLiveProcessEnd(m_options.timeoutMs);
        // The end of the Windows session tells both to stop: the worker finishes its file by itself.
        if (code == ERROR_SUCCESS && m_stop.WaitFor(0)) {
            return Exit::Success;
        }
        return Fail(whileWorking, code);
    }
    const unsigned long code = StopWorker();
    return code == ERROR_SUCCESS ? Exit::Success : Fail(Stage::Finish, code);
}

Exit WorkerSession::Fail(const Failure& failure) {
    m_report.Error(failure);
    return failure.exit;
}

Exit WorkerSession::Fail(Stage stage, unsigned long code) {
    return Fail(Explain(stage, code, LogOf(kWorkerLog)));
}

unsigned long WorkerSession::StopWorker() {
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

} // namespace kxrecord
