// RunProcess and its steps: the busy check, verification and the launch.
#include "support/hostfolder.h"
#include "unit/proxyfixture.h"

#include <cstring>

namespace proxytest {

namespace {

using proxyprivate::MonitorThread;
using proxyprivate::ReadyEvent;
using proxyprivate::WorkerProcess;

constexpr DWORD kNoResources = 1450;

using ProxyLaunch = ProxyTest;

TEST_F(ProxyLaunch, ReadyWorker_IsHeldAndWatched) {
    const OwnedHandle worker = RunWorker();
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
    EXPECT_EQ(GetProcessId(WorkerProcess(Proxy()).load()), GetProcessId(worker.get()));
    EXPECT_NE(MonitorThread(Proxy()), nullptr);
    EXPECT_TRUE(LockIsFree(Proxy()));
    ExpectMessages({});
}

TEST_F(ProxyLaunch, ModeOtherThanZero_IsBusyAndTouchesNothing) {
    const Launcher launcher;
    for (const RecordMode mode : kAllModes) {
        if (mode == RecordMode::NoWorker) {
            continue;
        }
        for (const RunStatus status : kAllStatuses) {
            m_log.Clear();
            SetState(status, mode);
            EXPECT_EQ(Proxy().RunProcess(kLimitMs), kBusy);
            ExpectState(status, mode);
            ExpectMessages({Warn("RunProcess", L"Can not run screen record process on mode ",
                                 std::to_wstring(static_cast<int>(mode)))});
        }
    }
    EXPECT_EQ(launcher.Launches(), 0);
    EXPECT_TRUE(fakeutil::Calls().empty());
    ExpectNothingHeld();
}

TEST_F(ProxyLaunch, SecondRunWhileTheFirstLives_IsBusy) {
    const OwnedHandle worker = RunWorker();
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), kBusy);
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
    EXPECT_EQ(WaitForSingleObject(worker.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST_F(ProxyLaunch, DuringTheVerification_StateIsStartingAndTheLockIsFree) {
    int verifications = 0;
    fakeutil::ScriptFileSha256Hex([&](const std::string&) {
        ++verifications;
        ExpectState(RunStatus::Starting, RecordMode::WorkerStarted);
        EXPECT_TRUE(LockIsFree(Proxy()));
        return "00";
    });
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), kBadSignature);
    EXPECT_EQ(verifications, 1);
}

TEST_F(ProxyLaunch, DuringTheLaunch_StateIsStarting) {
    const hooks::CreateProcessHook hook([this](auto&&...) {
        ExpectState(RunStatus::Starting, RecordMode::WorkerStarted);
        return FALSE;
    });
    Proxy().RunProcess(kLimitMs);
    EXPECT_EQ(hook.Calls(), 1);
}

TEST_F(ProxyLaunch, AnyStatus_DoesNotHinderARunFromModeZero) {
    for (const RunStatus status : {RunStatus::Error, RunStatus::Stopping, RunStatus::Running}) {
        SetState(status, RecordMode::NoWorker);
        ExpectRunWorks();
    }
}

TEST_F(ProxyLaunch, KnownRunningWorker_IsBusyAndResetsTheState) {
    const OwnedHandle worker = RunWorker();
    void* const held = WorkerProcess(Proxy()).load();
    SetState(RunStatus::Running, RecordMode::NoWorker);
    const Launcher launcher;
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), kBusy);
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    ExpectMessages({Warn("CheckEnv", L"Screen record process is running, can not start new process")});
    EXPECT_EQ(launcher.Launches(), 0);
    EXPECT_EQ(WorkerProcess(Proxy()).load(), held);
    EXPECT_TRUE(LockIsFree(Proxy()));
}

TEST_F(ProxyLaunch, KnownWorker_IsLookedAtAndLetGoUnderTheLock) {
    ExpectRunWorks();
    void* const former = WorkerProcess(Proxy()).load();
    int waits = 0;
    int closes = 0;
    const hooks::WaitHook wait([&](HANDLE handle, DWORD timeoutMs) {
        if (handle == former) {
            ++waits;
            EXPECT_EQ(timeoutMs, 0u);
            EXPECT_FALSE(LockIsFree(Proxy()));
        }
        return hooks::WaitHook::Original(handle, timeoutMs);
    });
    const hooks::CloseHandleHook close([&](HANDLE handle) {
        if (handle == former) {
            ++closes;
            EXPECT_FALSE(LockIsFree(Proxy()));
        }
        return hooks::CloseHandleHook::Original(handle);
    });
    EXPECT_EQ(proxyprivate::CheckEnv(Proxy()), 0u);
    EXPECT_EQ(waits, 1);
    EXPECT_EQ(closes, 1);
}

TEST_F(ProxyLaunch, EndedWorkersHandle_IsClosedBeforeTheNextRun) {
    ExpectRunWorks();
    void* const former = WorkerProcess(Proxy()).load();
    ASSERT_NE(former, nullptr);
    bool closed = false;
    const hooks::CloseHandleHook close([&](HANDLE handle) {
        closed = closed || handle == former;
        return hooks::CloseHandleHook::Original(handle);
    });
    EXPECT_EQ(proxyprivate::CheckEnv(Proxy()), 0u);
    EXPECT_TRUE(closed);
    EXPECT_EQ(WorkerProcess(Proxy()).load(), nullptr);
}

TEST_F(ProxyLaunch, FailedWaitOnTheKnownWorker_LetsTheHandleGo) {
    const OwnedHandle worker = RunWorker();
    {
        const hooks::WaitHook wait([](HANDLE handle, DWORD timeoutMs) {
            return timeoutMs == 0 ? WAIT_FAILED : hooks::WaitHook::Original(handle, timeoutMs);
        });
        EXPECT_EQ(proxyprivate::CheckEnv(Proxy()), 0u);
    }
    EXPECT_EQ(WorkerProcess(Proxy()).load(), nullptr);
    ExpectMessages({});
    m_plan.EndWorkers();
    AwaitMonitor();
}

TEST_F(ProxyLaunch, CheckEnv_AsksForTheWorkerBesideTheHost) {
    EXPECT_EQ(proxyprivate::CheckEnv(Proxy()), 0u);
    const std::string file = (kxtest::OwnFolder() / "KXVCR.exe").string();
    EXPECT_EQ(fakeutil::ArgumentsOf("DE::GetFileSha256Hex"), std::vector<std::string>{file});
}

TEST_F(ProxyLaunch, FailedVerification_StartsNothing) {
    ExpectRunWorks();
    const Launcher launcher;
    fakeutil::ScriptFileSha256Hex([](const std::string&) { return "00"; });
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), kBadSignature);
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    ExpectMessages({Error("CheckEnv", L"Screen record exe file verification error")});
    EXPECT_EQ(launcher.Launches(), 0);
}

TEST_F(ProxyLaunch, AfterFailedVerification_TheNextRunWorks) {
    fakeutil::ScriptFileSha256Hex([](const std::string&) { return "00"; });
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), kBadSignature);
    EXPECT_EQ(ReadyEvent(Proxy()), nullptr);
    fakeutil::Reset();
    ExpectRunWorks();
}

TEST_F(ProxyLaunch, WorkerFileThatCannotBeHeld_FailsTheVerificationAndTheNextRunWorks) {
    {
        const Launcher launcher;
        const hooks::CreateFileHook open([](auto&&...) {
            SetLastError(ERROR_SHARING_VIOLATION);
            return INVALID_HANDLE_VALUE;
        });
        EXPECT_EQ(Proxy().RunProcess(kLimitMs), kBadSignature);
        EXPECT_EQ(launcher.Launches(), 0);
    }
    ExpectMessages({Error("CheckEnv", L"Screen record exe file verification error")});
    ExpectRunWorks();
}

TEST_F(ProxyLaunch, HostWithoutAPath_FailsTheVerificationAndTheNextRunWorks) {
    {
        const Launcher launcher;
        const hooks::WideModuleNameHook name([](auto&&...) -> DWORD { return 0; });
        EXPECT_EQ(Proxy().RunProcess(kLimitMs), kBadSignature);
        EXPECT_EQ(launcher.Launches(), 0);
    }
    ExpectMessages({Error("CheckEnv", L"Screen record exe file verification error")});
    ExpectRunWorks();
}

TEST_F(ProxyLaunch, HostFolderThatCannotBeWidened_FailsTheVerificationAndTheNextRunWorks) {
    {
        const Launcher launcher;
        const hooks::WidenHook widen([](auto&&...) { return 0; });
        EXPECT_EQ(Proxy().RunProcess(kLimitMs), kBadSignature);
        EXPECT_EQ(launcher.Launches(), 0);
    }
    ExpectMessages({Error("CheckEnv", L"Screen record exe file verification error")});
    ExpectRunWorks();
}

TEST_F(ProxyLaunch, ReadyEvent_IsManualResetUnsignalledAndUnnamed) {
    int created = 0;
    const hooks::CreateEventHook create(
        [&](LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR name) {
            ++created;
            EXPECT_EQ(security, nullptr);
            EXPECT_EQ(manualReset, TRUE);
            EXPECT_EQ(initialState, FALSE);
            EXPECT_EQ(name, nullptr);
            return hooks::CreateEventHook::Original(security, manualReset, initialState, name);
        });
    EXPECT_EQ(proxyprivate::CheckEnv(Proxy()), 0u);
    EXPECT_EQ(created, 1);
    ASSERT_NE(ReadyEvent(Proxy()), nullptr);
    EXPECT_EQ(WaitForSingleObject(ReadyEvent(Proxy()), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST_F(ProxyLaunch, ExistingReadyEvent_IsResetAndKept) {
    EXPECT_EQ(proxyprivate::CheckEnv(Proxy()), 0u);
    void* const event = ReadyEvent(Proxy());
    SetEvent(event);
    EXPECT_EQ(proxyprivate::CheckEnv(Proxy()), 0u);
    EXPECT_EQ(ReadyEvent(Proxy()), event);
    EXPECT_EQ(WaitForSingleObject(event, 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST_F(ProxyLaunch, NoReadyEvent_GivesTheSystemsCode) {
    {
        const Launcher launcher;
        const hooks::CreateEventHook create([](auto&&...) -> HANDLE {
            SetLastError(kNoResources);
            return nullptr;
        });
        EXPECT_EQ(Proxy().RunProcess(kLimitMs), kNoResources);
        EXPECT_EQ(launcher.Launches(), 0);
    }
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    ExpectMessages({Error("CheckEnv", L"Create event for ipc notify failed, err=", L"1450")});
    EXPECT_EQ(ReadyEvent(Proxy()), nullptr);
    ExpectNothingHeld();
    ExpectRunWorks();
}

// What CreateProcessW was given.
struct LaunchArguments {
    bool hasApplication = true;
    std::wstring commandLine;
    bool hasProcessSecurity = true;
    bool hasThreadSecurity = true;
    BOOL inherit = TRUE;
    DWORD flags = 0xFFFFFFFF;
    bool hasEnvironment = true;
    bool hasFolder = true;
    STARTUPINFOW startup{};
};

TEST_F(ProxyLaunch, CreateProcess_IsGivenExactlyTheseArguments) {
    LaunchArguments given;
    const hooks::WideModuleNameHook moduleName([](HMODULE module, LPWSTR buffer, DWORD size) {
        EXPECT_EQ(module, nullptr);
        EXPECT_EQ(size, 260u);
        const std::wstring path = L"C:\\Some Folder\\Host.exe";
        std::memcpy(buffer, path.c_str(), (path.size() + 1) * sizeof(wchar_t));
        return static_cast<DWORD>(path.size());
    });
    const hooks::CreateProcessHook create(
        [&](LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES processSecurity,
            LPSECURITY_ATTRIBUTES threadSecurity, BOOL inherit, DWORD flags, LPVOID environment, LPCWSTR folder,
            LPSTARTUPINFOW startup, LPPROCESS_INFORMATION) {
            given = {application != nullptr,    commandLine,       processSecurity != nullptr,
                     threadSecurity != nullptr, inherit,           flags,
                     environment != nullptr,    folder != nullptr, *startup};
            commandLine[0] = L'?'; // the system may write to it
            SetLastError(ERROR_FILE_NOT_FOUND);
            return FALSE;
        });
    void* process = nullptr;
    EXPECT_EQ(proxyprivate::CreateRecordProcess(Proxy(), process), static_cast<unsigned long>(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(given.hasApplication);
    EXPECT_EQ(given.commandLine, L"\"C:\\Some Folder\\KXVCR.exe\" -IPCProxy");
    EXPECT_FALSE(given.hasProcessSecurity);
    EXPECT_FALSE(given.hasThreadSecurity);
    EXPECT_EQ(given.inherit, FALSE);
    EXPECT_EQ(given.flags, 0u);
    EXPECT_FALSE(given.hasEnvironment);
    EXPECT_FALSE(given.hasFolder);
    STARTUPINFOW expected{};
    expected.cb = sizeof(expected);
    EXPECT_EQ(std::memcmp(&given.startup, &expected, sizeof(expected)), 0);
    ExpectMessages({Error("CreateRecordProcess", L"CreateProcess failed! Err=", L"2")});
}

TEST_F(ProxyLaunch, LongestHostFolder_CommandLineIsWhole) {
    const std::wstring folder = L"C:\\" + std::wstring(250, L'f');
    const hooks::WideModuleNameHook moduleName([&](HMODULE, LPWSTR buffer, DWORD size) {
        const std::wstring path = folder + L"\\h.exe";
        EXPECT_EQ(path.size() + 1, size);
        std::memcpy(buffer, path.c_str(), (path.size() + 1) * sizeof(wchar_t));
        return static_cast<DWORD>(path.size());
    });
    std::wstring commandLine;
    const hooks::CreateProcessHook create([&](LPCWSTR, LPWSTR line, auto&&...) {
        commandLine = line;
        return FALSE;
    });
    void* process = nullptr;
    proxyprivate::CreateRecordProcess(Proxy(), process);
    EXPECT_EQ(commandLine, L"\"" + folder + L"\\KXVCR.exe\" -IPCProxy");
}

TEST_F(ProxyLaunch, WaitForReady_LeavesTheWorkersFileFree) {
    bool isFree = false;
    const hooks::WaitManyHook wait([&](auto&&... arguments) {
        constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
        const HANDLE file = CreateFileW((kxtest::OwnFolder() / "KXVCR.exe").c_str(), DELETE, kShareAll, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        isFree = file != INVALID_HANDLE_VALUE;
        CloseHandle(file);
        return hooks::WaitManyHook::Original(arguments...);
    });
    const OwnedHandle worker = RunWorker();
    EXPECT_TRUE(isFree);
}

TEST_F(ProxyLaunch, Worker_IsStartedFromTheHostsFolder) {
    std::wstring commandLine;
    const hooks::CreateProcessHook create([&](LPCWSTR, LPWSTR line, auto&&...) {
        commandLine = line;
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    });
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), static_cast<unsigned long>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(commandLine, L"\"" + (kxtest::OwnFolder() / "KXVCR.exe").wstring() + L"\" -IPCProxy");
}

TEST_F(ProxyLaunch, FailedLaunch_ClosesTheReadyEventAndGivesTheCode) {
    ExpectRunWorks();
    void* const event = ReadyEvent(Proxy());
    bool closed = false;
    {
        const hooks::CloseHandleHook close([&](HANDLE handle) {
            closed = closed || handle == event;
            SetLastError(ERROR_INVALID_HANDLE);
            return hooks::CloseHandleHook::Original(handle);
        });
        const hooks::CreateProcessHook create([](auto&&...) {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        });
        EXPECT_NE(Proxy().RunProcess(kLimitMs), 0u);
    }
    EXPECT_TRUE(closed);
    EXPECT_EQ(ReadyEvent(Proxy()), nullptr);
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    EXPECT_EQ(WorkerProcess(Proxy()).load(), nullptr);
    ExpectRunWorks();
}

TEST_F(ProxyLaunch, FailedLaunch_NamesTheCode) {
    const hooks::CreateProcessHook create([](auto&&...) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    });
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), static_cast<unsigned long>(ERROR_ACCESS_DENIED));
    ExpectMessages({Error("CreateRecordProcess", L"CreateProcess failed! Err=", L"5")});
    ExpectNothingHeld();
}

TEST_F(ProxyLaunch, StartedWorker_ItsThreadHandleIsClosedAndItsProcessHandleGiven) {
    EXPECT_EQ(proxyprivate::CheckEnv(Proxy()), 0u);
    const Launcher launcher;
    std::vector<HANDLE> closed;
    void* process = nullptr;
    {
        const hooks::CloseHandleHook close([&](HANDLE handle) {
            closed.push_back(handle);
            return hooks::CloseHandleHook::Original(handle);
        });
        EXPECT_EQ(proxyprivate::CreateRecordProcess(Proxy(), process), 0u);
    }
    EXPECT_EQ(process, launcher.WorkerAsTheProxySeesIt());
    EXPECT_EQ(closed, std::vector<HANDLE>{launcher.ThreadAsTheProxySeesIt()});
    EXPECT_EQ(WorkerProcess(Proxy()).load(), nullptr);
    m_plan.EndWorkers();
    EXPECT_EQ(proxyprivate::WaitProcessRunResult(Proxy(), process, kLimitMs), 0u);
    AwaitMonitor();
}

} // namespace

} // namespace proxytest
