// The host's end of the message channel while Windows refuses what it is asked: the channel stays closed or drops the
// worker that meets the fault, and works for the next one.
#include "ipctestbed.h"
#include "support/importpatch.h"

#include <gtest/gtest.h>

#include <windows.h>
// These need the types of windows.h.
#include <sddl.h>
#include <winternl.h>

#include <atomic>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace kxtest {

namespace {

constexpr DWORD kNoSuchChannel = 258; // a worker's exit code

HMODULE Channel() {
    return GetModuleHandleW(L"IPCMessage.dll");
}

template <ImportName Function, class Fn>
using KernelHook = ImportHook<"KERNEL32.dll", Function, Fn>;
template <ImportName Function, class Fn>
using AdvapiHook = ImportHook<"ADVAPI32.dll", Function, Fn>;

template <class Result>
auto Fails(Result result) {
    return [result](auto&&...) {
        SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return result;
    };
}

// There is no channel, and the client says so to whoever sends; the next client has one.
template <class Hook>
void ExpectNoChannel(typename Hook::Callable fault) {
    {
        const Hook hook(std::move(fault), Channel());
        Host host;
        EXPECT_GT(hook.Calls(), 0);
        const Child worker("ipcworker.exe", "connect 0");
        EXPECT_EQ(worker.ExitCode(), kNoSuchChannel);
        EXPECT_EQ(Ask(host.client, kEchoPayload, "x"), "(failed)");
        EXPECT_FALSE(host.client.PostIPCMessage(Request(kEchoPayload)));
    }
    Host host;
    ExpectNextWorkerServed(host);
}

// The worker's connection is closed and nothing of it delivered; the same channel serves the next worker.
template <class Hook>
void ExpectWorkerDropped(typename Hook::Callable fault) {
    Host host;
    {
        const Hook hook(std::move(fault), Channel());
        const Child peer("ipcpeer.exe", "open 0 write " + ReadyFrame() + " closed");
        EXPECT_EQ(peer.ExitCode(), 0u);
        EXPECT_GT(hook.Calls(), 0);
        EXPECT_FALSE(host.ready.Wait(0));
    }
    ExpectNextWorkerServed(host);
}

using CreateEventHook = KernelHook<"CreateEventW", decltype(CreateEventW)>;

// The @p failing-th event, counted from 1, cannot be made.
CreateEventHook::Callable EventFails(int failing) {
    return [failing, made = std::make_shared<std::atomic<int>>(0)](auto&&... arguments) -> HANDLE {
        if (++*made == failing) {
            SetLastError(ERROR_NO_SYSTEM_RESOURCES);
            return nullptr;
        }
        return CreateEventHook::Original(arguments...);
    };
}

} // namespace

TEST(IPCMessageFault, NoPipe_NoChannelUntilTheNextClient) {
    ExpectNoChannel<KernelHook<"CreateNamedPipeW", decltype(CreateNamedPipeW)>>(Fails(INVALID_HANDLE_VALUE));
}

TEST(IPCMessageFault, NoEventToStopBy_NoChannelUntilTheNextClient) {
    ExpectNoChannel<CreateEventHook>(EventFails(1));
}

TEST(IPCMessageFault, NoToken_NoChannelUntilTheNextClient) {
    ExpectNoChannel<AdvapiHook<"OpenProcessToken", decltype(OpenProcessToken)>>(Fails(FALSE));
}

TEST(IPCMessageFault, NoUserOfTheToken_NoChannelUntilTheNextClient) {
    ExpectNoChannel<AdvapiHook<"GetTokenInformation", decltype(GetTokenInformation)>>(Fails(FALSE));
}

TEST(IPCMessageFault, NoTextOfTheUser_NoChannelUntilTheNextClient) {
    ExpectNoChannel<AdvapiHook<"ConvertSidToStringSidW", decltype(ConvertSidToStringSidW)>>(Fails(FALSE));
}

TEST(IPCMessageFault, NoAccessList_NoChannelUntilTheNextClient) {
    ExpectNoChannel<AdvapiHook<"ConvertStringSecurityDescriptorToSecurityDescriptorW",
                               decltype(ConvertStringSecurityDescriptorToSecurityDescriptorW)>>(Fails(FALSE));
}

TEST(IPCMessageFault, NoThread_NoChannelUntilTheNextClient) {
    // void std::thread::_M_start_thread(std::unique_ptr<_State>, void (*)())
    using StartThreadHook = ImportHook<"libstdc++-6.dll",
                                       "_ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_"
                                       "EEPFvvE",
                                       void(void*, void*, void (*)())>;
    ExpectNoChannel<StartThreadHook>(
        [](auto&&...) { throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again)); });
}

// The library's thread ends then: what is left is a client on which every send fails.
TEST(IPCMessageFault, PipeThatCannotListen_SendsFailUntilTheNextClient) {
    using ConnectHook = KernelHook<"ConnectNamedPipe", decltype(ConnectNamedPipe)>;
    {
        const ConnectHook hook(Fails(FALSE), Channel());
        {
            Host host;
            EXPECT_EQ(Ask(host.client, kEchoPayload, "x"), "(failed)");
        }
        EXPECT_EQ(hook.Calls(), 1);
    }
    Host host;
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageFault, NoEventToListenWith_SendsFailUntilTheNextClient) {
    {
        const CreateEventHook hook(EventFails(2), Channel());
        {
            Host host;
            EXPECT_EQ(Ask(host.client, kEchoPayload, "x"), "(failed)");
        }
        EXPECT_EQ(hook.Calls(), 2);
    }
    Host host;
    ExpectNextWorkerServed(host);
}

// The connection needs three: for its reads, its writes and its end.
class IPCMessageConnectionFault : public testing::TestWithParam<int> {};

TEST_P(IPCMessageConnectionFault, NoEventForTheConnection_WorkerDroppedAndNextServed) {
    constexpr int kEventsOfTheChannel = 2;
    const CreateEventHook hook(EventFails(kEventsOfTheChannel + GetParam()), Channel());
    Host host;
    const Child peer("ipcpeer.exe", "open 0 write " + ReadyFrame() + " closed");
    EXPECT_EQ(peer.ExitCode(), 0u);
    EXPECT_FALSE(host.ready.Wait(0));
    ExpectNextWorkerServed(host);
}

INSTANTIATE_TEST_SUITE_P(EachEvent, IPCMessageConnectionFault, testing::Values(1, 2, 3));

TEST(IPCMessageFault, WorkerWithoutANumber_DroppedAndNextServed) {
    ExpectWorkerDropped<KernelHook<"GetNamedPipeClientProcessId", decltype(GetNamedPipeClientProcessId)>>(Fails(FALSE));
}

TEST(IPCMessageFault, WorkerThatDoesNotOpen_DroppedAndNextServed) {
    ExpectWorkerDropped<KernelHook<"OpenProcess", decltype(OpenProcess)>>(Fails(HANDLE{}));
}

TEST(IPCMessageFault, WorkerWithoutAParent_DroppedAndNextServed) {
    constexpr NTSTATUS kUnsuccessful = static_cast<NTSTATUS>(0xC0000001);
    ExpectWorkerDropped<ImportHook<"ntdll.dll", "NtQueryInformationProcess", decltype(NtQueryInformationProcess)>>(
        Fails(kUnsuccessful));
}

TEST(IPCMessageFault, WorkerWithoutAStartTime_DroppedAndNextServed) {
    ExpectWorkerDropped<KernelHook<"GetProcessTimes", decltype(GetProcessTimes)>>(Fails(FALSE));
}

TEST(IPCMessageFault, WorkerWithoutAProgram_DroppedAndNextServed) {
    ExpectWorkerDropped<KernelHook<"QueryFullProcessImageNameW", decltype(QueryFullProcessImageNameW)>>(Fails(FALSE));
}

TEST(IPCMessageFault, ReadThatDoesNotStart_WorkerDroppedAndNextServed) {
    ExpectWorkerDropped<KernelHook<"ReadFile", decltype(ReadFile)>>(Fails(FALSE));
}

TEST(IPCMessageFault, ReadThatFails_WorkerDroppedAndNextServed) {
    using ResultHook = KernelHook<"GetOverlappedResult", decltype(GetOverlappedResult)>;
    ExpectWorkerDropped<ResultHook>([](auto&&... arguments) {
        ResultHook::Original(arguments...); // the read has ended when it fails
        SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return FALSE;
    });
}

TEST(IPCMessageFault, WriteThatDoesNotStart_SendFailsAndNextWorkerServed) {
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    {
        const KernelHook<"WriteFile", decltype(WriteFile)> hook(Fails(FALSE), Channel());
        EXPECT_EQ(Ask(host.client, kEchoPayload, "x"), "(failed)");
        EXPECT_EQ(hook.Calls(), 1);
    }
    EXPECT_EQ(worker.ExitCode(), 0u) << "the connection is closed";
    ExpectNextWorkerServed(host);
}

// --- what is waited for

using WaitManyHook = KernelHook<"WaitForMultipleObjects", decltype(WaitForMultipleObjects)>;

// The @p failing-th wait, counted from 1, fails. The channel waits for a worker first, then for the worker's bytes.
WaitManyHook::Callable WaitFails(int failing) {
    return [failing, made = std::make_shared<std::atomic<int>>(0)](auto&&... arguments) -> DWORD {
        return ++*made == failing ? WAIT_FAILED : WaitManyHook::Original(arguments...);
    };
}

TEST(IPCMessageFault, ListeningThatCannotWait_SendsFailUntilTheNextClient) {
    {
        const WaitManyHook hook(WaitFails(1), Channel());
        Host host;
        const Child worker("ipcworker.exe", "connect 0");
        EXPECT_EQ(Ask(host.client, kEchoPayload, "x"), "(failed)");
    }
    Host host;
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageFault, ReadThatCannotWait_WorkerDroppedAndNextServed) {
    const WaitManyHook hook(WaitFails(2), Channel());
    Host host;
    const Child peer("ipcpeer.exe", "open 0 closed");
    EXPECT_EQ(peer.ExitCode(), 0u);
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageFault, WorkerThatCannotBeWaitedFor_DroppedAndNextServed) {
    using WaitHook = KernelHook<"WaitForSingleObject", decltype(WaitForSingleObject)>;
    ExpectWorkerDropped<WaitHook>([](HANDLE handle, DWORD timeoutMs) {
        return GetProcessId(handle) != 0 ? WAIT_FAILED : WaitHook::Original(handle, timeoutMs);
    });
}

TEST(IPCMessageFault, ReadThatCannotBeCancelled_IsWaitedForUntilTheWorkerGoes) {
    using CancelHook = KernelHook<"CancelIoEx", decltype(CancelIoEx)>;
    auto host = std::make_unique<Host>();
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host->ready.Wait());
    {
        const Signal refused;
        std::atomic<int> calls = 0;
        const CancelHook hook(
            [&](HANDLE pipe, OVERLAPPED* io) {
                if (++calls == 1) {
                    refused.Set();
                    return FALSE;
                }
                return CancelHook::Original(pipe, io);
            },
            Channel());
        std::thread end([&] { host.reset(); });
        EXPECT_TRUE(refused.Wait());
        worker.Kill();
        end.join();
    }
    Host next;
    ExpectNextWorkerServed(next);
}

TEST(IPCMessageFault, DisconnectThatFails_NextWorkerServed) {
    using DisconnectHook = KernelHook<"DisconnectNamedPipe", decltype(DisconnectNamedPipe)>;
    Host host;
    {
        const Signal refused;
        std::atomic<int> calls = 0;
        const DisconnectHook hook(
            [&](HANDLE pipe) {
                if (++calls == 1) {
                    refused.Set();
                    return FALSE;
                }
                return DisconnectHook::Original(pipe);
            },
            Channel());
        {
            const Child worker("ipcworker.exe", "serve");
            ASSERT_TRUE(host.ready.Wait());
        }
        EXPECT_TRUE(refused.Wait());
    }
    ExpectNextWorkerServed(host);
}

/** Lets the system name another process's program in capitals: the folder has to be recognised by its identity. */
class AnotherNameOfTheFolder {
private:
    using NameHook = KernelHook<"QueryFullProcessImageNameW", decltype(QueryFullProcessImageNameW)>;
    const NameHook m_hook{[](HANDLE process, DWORD flags, LPWSTR path, PDWORD length) {
                              const BOOL isGiven = NameHook::Original(process, flags, path, length);
                              if (isGiven != FALSE && process != GetCurrentProcess()) {
                                  CharUpperBuffW(path, *length);
                              }
                              return isGiven;
                          },
                          Channel()};
};

TEST(IPCMessageFault, WorkersFolderByAnotherName_Served) {
    const AnotherNameOfTheFolder anotherName;
    Host host;
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageFault, WorkersFolderWithoutAnIdentity_DroppedAndNextServed) {
    const AnotherNameOfTheFolder anotherName;
    ExpectWorkerDropped<KernelHook<"GetFileInformationByHandleEx", decltype(GetFileInformationByHandleEx)>>(
        Fails(FALSE));
}

// --- the worker's end

// This process is the host and its own worker: the system says that it is its own parent.
TEST(IPCMessageFault, PipeThatDoesNotTellItsServer_ConnectGivesTheCodeUntilItDoes) {
    using FactsHook = ImportHook<"ntdll.dll", "NtQueryInformationProcess", decltype(NtQueryInformationProcess)>;
    constexpr std::size_t kParentAt = 5; // of the pointer-sized words
    const FactsHook facts(
        [](HANDLE, PROCESSINFOCLASS, PVOID information, ULONG, PULONG) -> NTSTATUS {
            static_cast<ULONG_PTR*>(information)[kParentAt] = GetCurrentProcessId();
            return 0;
        },
        Channel());
    Host host;
    IPCMessageService service(kTestModule);
    {
        const KernelHook<"GetNamedPipeServerProcessId", decltype(GetNamedPipeServerProcessId)> hook(Fails(FALSE),
                                                                                                    Channel());
        EXPECT_EQ(service.Connect(0), static_cast<DWORD>(ERROR_NO_SYSTEM_RESOURCES));
        EXPECT_EQ(hook.Calls(), 1);
    }
    EXPECT_EQ(service.Connect(kLimitMs), 0u);
    TagIPCMessageItem ready;
    ready.messageId = kReadyNotice;
    EXPECT_TRUE(service.PostIPCMessage(ready));
    EXPECT_TRUE(host.ready.Wait());
}

} // namespace kxtest
