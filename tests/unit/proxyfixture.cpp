// A fresh proxy for each test, the fakes in their first state, and workers that live as long as a test says.
#include "unit/proxyfixture.h"

#include <atomic>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <thread>

namespace proxytest {

namespace {

constexpr wchar_t kExitCodeVariable[] = L"KX_UNIT_WORKER_EXIT_CODE";
constexpr wchar_t kEventVariable[] = L"KX_UNIT_WORKER_EVENT";

} // namespace

OwnedHandle Duplicate(HANDLE handle) {
    HANDLE copy = nullptr;
    if (DuplicateHandle(GetCurrentProcess(), handle, GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS) ==
        FALSE) {
        throw std::runtime_error("a handle that should be open is not");
    }
    return OwnedHandle(copy);
}

OwnedHandle NewEvent() {
    return OwnedHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

WorkerPlan::WorkerPlan() {
    static std::atomic<int> s_number{0};
    m_eventName =
        L"kx-unit-worker-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(s_number.fetch_add(1));
    m_event.reset(CreateEventW(nullptr, TRUE, FALSE, m_eventName.c_str()));
    Live(0);
}

WorkerPlan::~WorkerPlan() {
    EndWorkers();
}

void WorkerPlan::EndAtOnce(unsigned long exitCode) {
    SetEnvironmentVariableW(kExitCodeVariable, std::to_wstring(exitCode).c_str());
    SetEnvironmentVariableW(kEventVariable, nullptr);
}

void WorkerPlan::Live(unsigned long exitCode) {
    ResetEvent(m_event.get());
    SetEnvironmentVariableW(kExitCodeVariable, std::to_wstring(exitCode).c_str());
    SetEnvironmentVariableW(kEventVariable, m_eventName.c_str());
}

void WorkerPlan::EndWorkers() {
    SetEvent(m_event.get());
}

unsigned long ExitCodeOf(HANDLE process) {
    EXPECT_EQ(WaitForSingleObject(process, kLimitMs), WAIT_OBJECT_0);
    DWORD exitCode = 0;
    EXPECT_NE(GetExitCodeProcess(process, &exitCode), FALSE);
    return exitCode;
}

bool LockIsFree(ScreenRecordProxy& proxy) {
    bool free = false;
    std::thread([&] {
        free = TryEnterCriticalSection(&proxyprivate::Lock(proxy)) != FALSE;
        if (free) {
            LeaveCriticalSection(&proxyprivate::Lock(proxy));
        }
    }).join();
    return free;
}

Launcher::Launcher(bool ready)
    : m_ready(ready),
      m_hook([this](LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES processSecurity,
                    LPSECURITY_ATTRIBUTES threadSecurity, BOOL inherit, DWORD flags, LPVOID environment, LPCWSTR folder,
                    LPSTARTUPINFOW startup, LPPROCESS_INFORMATION information) {
          const auto start = [&] {
              return hooks::CreateProcessHook::Original(application, commandLine, processSecurity, threadSecurity,
                                                        inherit, flags, environment, folder, startup, information);
          };
          BOOL started = start();
          if (started == FALSE) { // the worker is there: a loaded system that emulates Windows loses one now and then
              std::printf("the worker could not be started, error %lu; once more\n", GetLastError());
              started = start();
          }
          if (started != FALSE) {
              m_rawProcess = information->hProcess;
              m_rawThread = information->hThread;
              m_worker = Duplicate(information->hProcess);
          }
          if (m_ready) {
              EXPECT_TRUE(fakeipc::Deliver(kxvcr::kMessageReady));
          }
          return started;
      }) {}

ProxyTest::ProxyTest() {
    fakeipc::Reset();
    fakeutil::Reset();
    m_proxy = ScreenRecordProxy::CreateProxy();
    if (m_proxy == nullptr) {
        throw std::runtime_error("no proxy");
    }
}

ProxyTest::~ProxyTest() {
    if (HasFailure()) {
        std::cout << "the log's messages: " << testing::PrintToString(m_log.Events()) << std::endl;
    }
    m_plan.EndWorkers();
    Release();
    fakeipc::Reset();
    fakeutil::Reset();
}

void ProxyTest::Release() {
    ScreenRecordProxy::ReleaseProxy(m_proxy);
    m_proxy = nullptr;
}

OwnedHandle ProxyTest::RunWorker() {
    const Launcher launcher;
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), 0u);
    return Duplicate(launcher.Worker());
}

void ProxyTest::ExpectRunWorks() {
    m_plan.Live(0);
    const OwnedHandle worker = RunWorker();
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
    m_plan.EndWorkers();
    AwaitMonitor();
    EXPECT_EQ(ExitCodeOf(worker.get()), 0u);
}

void ProxyTest::AwaitMonitor() {
    const OwnedHandle monitor = Duplicate(proxyprivate::MonitorThread(Proxy()));
    EXPECT_EQ(WaitForSingleObject(monitor.get(), kLimitMs), WAIT_OBJECT_0);
}

void ProxyTest::SetState(RunStatus status, RecordMode mode) {
    proxyprivate::Status(Proxy()).store(status);
    proxyprivate::Mode(Proxy()).store(mode);
}

void ProxyTest::ExpectState(RunStatus status, RecordMode mode) {
    EXPECT_EQ(static_cast<int>(proxyprivate::Status(Proxy()).load()), static_cast<int>(status));
    EXPECT_EQ(Proxy().GetCurRecordMode(), static_cast<int>(mode));
}

void ProxyTest::ExpectNothingHeld() {
    EXPECT_EQ(proxyprivate::WorkerProcess(Proxy()).load(), nullptr);
    EXPECT_EQ(proxyprivate::MonitorThread(Proxy()), nullptr);
}

void ProxyTest::ExpectMessages(const std::vector<proxymessages::Message>& messages) {
    proxymessages::ExpectMessages(m_log.Events(), messages);
}

} // namespace proxytest
