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
#include <vector>

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

// void std::thread::_M_start_thread(std::unique_ptr<_State>, void (*)())
using StartThreadHook = ImportHook<"libstdc++-6.dll",
                                   "_ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_"
                                   "EEPFvvE",
                                   void(void*, void*, void (*)())>;

void ThreadDoesNotStart(void*, void*, void (*)()) {
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
}

} // namespace

TEST(IPCMessageFault, NoPipe_NoChannelUntilTheNextClient) {
    ExpectNoChannel<KernelHook<"CreateNamedPipeW", decltype(CreateNamedPipeW)>>(Fails(INVALID_HANDLE_VALUE));
}

// What the system is asked for keeps others out: nobody can add an end to the pipe, and no other machine reaches it.
TEST(IPCMessageFault, Pipe_IsAskedForAsTheOnlyEndAndForThisMachine) {
    using PipeHook = KernelHook<"CreateNamedPipeW", decltype(CreateNamedPipeW)>;
    std::string asked;
    const PipeHook hook(
        [&](LPCWSTR name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD out, DWORD in, auto... rest) {
            asked = (openMode & FILE_FLAG_FIRST_PIPE_INSTANCE) != 0 ? "first" : "any";
            asked += (pipeMode & PIPE_REJECT_REMOTE_CLIENTS) != 0 ? " local of " : " remote of ";
            asked += std::to_string(instances) + ", " + std::to_string(out) + " " + std::to_string(in);
            return PipeHook::Original(name, openMode, pipeMode, instances, out, in, rest...);
        },
        Channel());
    const Host host;
    EXPECT_EQ(asked, "first local of 1, 65536 65536");
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
    ExpectNoChannel<StartThreadHook>(ThreadDoesNotStart);
}

TEST(IPCMessageFault, NoEventToListenWith_NoChannelUntilTheNextClient) {
    ExpectNoChannel<CreateEventHook>(EventFails(2));
}

// --- listening

using ConnectHook = KernelHook<"ConnectNamedPipe", decltype(ConnectNamedPipe)>;
using WaitHook = KernelHook<"WaitForSingleObject", decltype(WaitForSingleObject)>;
using WaitManyHook = KernelHook<"WaitForMultipleObjects", decltype(WaitForMultipleObjects)>;
using ResultHook = KernelHook<"GetOverlappedResult", decltype(GetOverlappedResult)>;

// Sends fail while the system refuses, and the same channel serves the worker that comes afterwards.
template <class Hook>
void ExpectListeningTriedAgain(typename Hook::Callable fault) {
    constexpr int kRefusals = 2;
    const Signal refused;
    std::atomic<int> refusals = 0;
    const Hook hook(
        [&](auto&&... arguments) {
            if (refusals == kRefusals) {
                refused.Set();
                return Hook::Original(arguments...);
            }
            ++refusals;
            return fault(arguments...);
        },
        Channel());
    Host host;
    EXPECT_EQ(Ask(host.client, kEchoPayload, "x"), "(failed)");
    ASSERT_TRUE(refused.Wait());
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageFault, PipeThatCannotListen_TriedAgain) {
    ExpectListeningTriedAgain<ConnectHook>(Fails(FALSE));
}

TEST(IPCMessageFault, ListeningThatCannotWait_TriedAgain) {
    ExpectListeningTriedAgain<WaitManyHook>(Fails(DWORD{WAIT_FAILED}));
}

TEST(IPCMessageFault, DestroyedBetweenTwoAttemptsToListen_EndsThePause) {
    const ConnectHook refusal(Fails(FALSE), Channel());
    const Signal pauses;
    std::atomic<DWORD> pauseMs = 0;
    const WaitHook wait(
        [&](HANDLE handle, DWORD timeoutMs) {
            if (timeoutMs == 0) {
                return WaitHook::Original(handle, timeoutMs);
            }
            pauseMs = timeoutMs;
            pauses.Set();
            return WaitHook::Original(handle, INFINITE);
        },
        Channel());
    {
        const Host host;
        EXPECT_TRUE(pauses.Wait());
    }
    EXPECT_EQ(pauseMs, 100u);
    EXPECT_EQ(refusal.Calls(), 1);
}

// What the system says of the listening counts, not that it has ended.
TEST(IPCMessageFault, ListeningThatFails_WorkerDroppedAndNextServed) {
    ExpectWorkerDropped<ResultHook>([](HANDLE pipe, OVERLAPPED* io, DWORD* transferred, BOOL waits) {
        const BOOL isDone = ResultHook::Original(pipe, io, transferred, waits);
        return *transferred == 0 ? FALSE : isDone;
    });
}

// The system writes into the channel's memory until the operation has ended.
TEST(IPCMessageFault, ListeningThatIsCancelled_IsWaitedFor) {
    const Signal listens;
    const WaitManyHook wait(
        [&](auto&&... arguments) {
            listens.Set();
            return WaitManyHook::Original(arguments...);
        },
        Channel());
    const ResultHook result([](auto&&... arguments) { return ResultHook::Original(arguments...); }, Channel());
    {
        const Host host;
        EXPECT_TRUE(listens.Wait());
    }
    EXPECT_EQ(result.Calls(), 1);
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

// The clock that start times are taken from is coarser than a quick host.
TEST(IPCMessageFault, WorkerStartedAtTheTimeOfItsHost_Served) {
    using TimesHook = KernelHook<"GetProcessTimes", decltype(GetProcessTimes)>;
    const TimesHook hook(
        [](HANDLE process, LPFILETIME created, auto... others) {
            const BOOL isTold = TimesHook::Original(process, created, others...);
            *created = {1, 1};
            return isTold;
        },
        Channel());
    Host host;
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageFault, WorkerWithoutAProgram_DroppedAndNextServed) {
    ExpectWorkerDropped<KernelHook<"QueryFullProcessImageNameW", decltype(QueryFullProcessImageNameW)>>(Fails(FALSE));
}

TEST(IPCMessageFault, ReadThatDoesNotStart_WorkerDroppedAndNextServed) {
    ExpectWorkerDropped<KernelHook<"ReadFile", decltype(ReadFile)>>(Fails(FALSE));
}

TEST(IPCMessageFault, ReadThatFails_WorkerDroppedAndNextServed) {
    ExpectWorkerDropped<ResultHook>([](HANDLE pipe, OVERLAPPED* io, DWORD* transferred, BOOL waits) {
        const BOOL isDone = ResultHook::Original(pipe, io, transferred, waits); // the read has ended when it fails
        if (*transferred == 0) {
            return isDone; // of the listening
        }
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

TEST(IPCMessageFault, ReadThatCannotWait_WorkerDroppedAndNextServed) {
    std::atomic<int> waits = 0;
    const WaitManyHook hook(
        [&](auto&&... arguments) -> DWORD {
            constexpr int kOfTheRead = 2; // behind the one for a worker
            return ++waits == kOfTheRead ? WAIT_FAILED : WaitManyHook::Original(arguments...);
        },
        Channel());
    Host host;
    const Child peer("ipcpeer.exe", "open 0 closed");
    EXPECT_EQ(peer.ExitCode(), 0u);
    ExpectNextWorkerServed(host);
}

TEST(IPCMessageFault, WorkerThatCannotBeWaitedFor_DroppedAndNextServed) {
    ExpectWorkerDropped<WaitHook>([](HANDLE handle, DWORD timeoutMs) {
        return GetProcessId(handle) != 0 ? WAIT_FAILED : WaitHook::Original(handle, timeoutMs);
    });
}

TEST(IPCMessageFault, ReadThatCannotBeCancelled_IsWaitedForUntilTheWorkerGoes) {
    using CancelHook = KernelHook<"CancelIoEx", decltype(CancelIoEx)>;
    using ReadHook = KernelHook<"ReadFile", decltype(ReadFile)>;
    auto host = std::make_unique<Host>();
    // The worker is silent behind its notice. A client that is destroyed before it reads on cancels its listening
    // first, which no worker would end.
    const Signal readsOn;
    const ReadHook read(
        [&, ready = &host->ready](auto&&... arguments) {
            if (ready->Wait(0)) {
                readsOn.Set();
            }
            return ReadHook::Original(arguments...);
        },
        Channel());
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(readsOn.Wait());
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

TEST(IPCMessageClient, DestroyedWhileASendWaitsBehindAStuckOne_BothFail) {
    using WriteHook = KernelHook<"WriteFile", decltype(WriteFile)>;
    using SleepHook = KernelHook<"SleepConditionVariableSRW", decltype(SleepConditionVariableSRW)>;
    auto host = std::make_unique<Host>();
    const Child peer("ipcpeer.exe", "open 0 write " + ReadyFrame() + " wait " + UniqueName("never"));
    ASSERT_TRUE(host->ready.Wait());
    const Signal firstWrites;
    const Signal secondWaits;
    const WriteHook write(
        [&](auto&&... arguments) {
            firstWrites.Set();
            return WriteHook::Original(arguments...);
        },
        Channel());
    const SleepHook sleep(
        [&](auto&&... arguments) {
            secondWaits.Set(); // with the lock, which it gives up when it sleeps
            return SleepHook::Original(arguments...);
        },
        Channel());
    std::string first;
    std::string second;
    std::thread firstSend([&first, client = &host->client] {
        first = Ask(*client, kEchoPayload, std::string(kIPCMaxPayload, 'x'), INFINITE);
    });
    EXPECT_TRUE(firstWrites.Wait());
    std::thread secondSend([&second, client = &host->client] { second = Ask(*client, kEchoPayload, "x", INFINITE); });
    EXPECT_TRUE(secondWaits.Wait());

    host.reset();

    firstSend.join();
    secondSend.join();
    EXPECT_EQ(first, "(failed)");
    EXPECT_EQ(second, "(failed)");
}

TEST(IPCMessageClient, WaitForTheTurnToWriteThatEndsEarly_GoesOn) {
    using WriteHook = KernelHook<"WriteFile", decltype(WriteFile)>;
    using SleepHook = KernelHook<"SleepConditionVariableSRW", decltype(SleepConditionVariableSRW)>;
    Host host;
    const Child worker("ipcworker.exe", "serve");
    ASSERT_TRUE(host.ready.Wait());
    const Signal firstWrites;
    const Signal secondWaitsAgain;
    std::atomic<int> writes = 0;
    std::atomic<int> waits = 0;
    const WriteHook write(
        [&](auto&&... arguments) {
            if (++writes == 1) {
                firstWrites.Set();
                EXPECT_TRUE(secondWaitsAgain.Wait());
            }
            return WriteHook::Original(arguments...);
        },
        Channel());
    const SleepHook sleep(
        [&](auto&&... arguments) {
            if (++waits == 1) {
                SetLastError(ERROR_TIMEOUT);
                return FALSE;
            }
            secondWaitsAgain.Set();
            return SleepHook::Original(arguments...);
        },
        Channel());
    std::string first;
    std::thread firstSend([&] { first = Ask(host.client, kEchoPayload, "first"); });
    EXPECT_TRUE(firstWrites.Wait());
    EXPECT_EQ(Ask(host.client, kEchoPayload, "second"), "second");
    firstSend.join();
    EXPECT_EQ(first, "first");
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

/** Makes this process the host and its own worker: the system says that it is its own parent. */
class OwnParent {
private:
    using FactsHook = ImportHook<"ntdll.dll", "NtQueryInformationProcess", decltype(NtQueryInformationProcess)>;
    static constexpr std::size_t kParentAt = 5; // of the pointer-sized words
    const FactsHook m_hook{[](HANDLE, PROCESSINFOCLASS, PVOID information, ULONG, PULONG) -> NTSTATUS {
                               static_cast<ULONG_PTR*>(information)[kParentAt] = GetCurrentProcessId();
                               return 0;
                           },
                           Channel()};
};

void ExpectReadyArrives(IPCMessageService& service, const Host& host) {
    TagIPCMessageItem ready;
    ready.messageId = kReadyNotice;
    EXPECT_TRUE(service.PostIPCMessage(ready));
    EXPECT_TRUE(host.ready.Wait());
}

TEST(IPCMessageFault, PipeThatDoesNotTellItsServer_ConnectGivesTheCodeUntilItDoes) {
    const OwnParent ownParent;
    Host host;
    IPCMessageService service(kTestModule);
    {
        const KernelHook<"GetNamedPipeServerProcessId", decltype(GetNamedPipeServerProcessId)> hook(Fails(FALSE),
                                                                                                    Channel());
        EXPECT_EQ(service.Connect(0), static_cast<DWORD>(ERROR_NO_SYSTEM_RESOURCES));
        EXPECT_EQ(hook.Calls(), 1);
    }
    EXPECT_EQ(service.Connect(kLimitMs), 0u);
    ExpectReadyArrives(service, host);
}

TEST(IPCMessageFault, ParentThatEndsBeforeItsChannelIsThere_ConnectGivesNotFoundAfterOnePause) {
    const OwnParent ownParent;
    std::vector<DWORD> pauses;
    const WaitHook hook(
        [&](HANDLE handle, DWORD timeoutMs) {
            if (timeoutMs == 0) {
                return WaitHook::Original(handle, timeoutMs);
            }
            pauses.push_back(timeoutMs);
            return static_cast<DWORD>(WAIT_OBJECT_0);
        },
        Channel());
    IPCMessageService service(kTestModule);
    EXPECT_EQ(service.Connect(kLimitMs), static_cast<DWORD>(ERROR_NOT_FOUND));
    EXPECT_EQ(pauses, std::vector<DWORD>{10});
}

TEST(IPCMessageFault, NoThreadForTheWorkersEnd_SendsNothingAndTheNextConnectWorks) {
    using WriteHook = KernelHook<"WriteFile", decltype(WriteFile)>;
    const OwnParent ownParent;
    const Host host;
    IPCMessageService service(kTestModule);
    {
        const StartThreadHook noThread(ThreadDoesNotStart, Channel());
        EXPECT_NE(service.Connect(kLimitMs), 0u);
    }
    {
        const WriteHook hook([](auto&&... arguments) { return WriteHook::Original(arguments...); }, Channel());
        EXPECT_FALSE(service.PostIPCMessage(Request(kReadyNotice)));
        EXPECT_EQ(hook.Calls(), 0);
    }
    EXPECT_EQ(service.Connect(kLimitMs), 0u);
    ExpectReadyArrives(service, host);
}

// A pipe's owner may learn who the worker's user is and no more, and nobody else uses the worker's end.
TEST(IPCMessageFault, WorkersEnd_IsOpenedAloneAndForIdentification) {
    using OpenHook = KernelHook<"CreateFileW", decltype(CreateFileW)>;
    const OwnParent ownParent;
    const Host host;
    std::vector<DWORD> asked;
    const OpenHook hook(
        [&](LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD how, DWORD flags,
            HANDLE like) {
            asked = {access, share, how, flags};
            return OpenHook::Original(name, access, share, security, how, flags, like);
        },
        Channel());
    IPCMessageService service(kTestModule);
    EXPECT_EQ(service.Connect(kLimitMs), 0u);
    EXPECT_EQ(asked, (std::vector<DWORD>{GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING,
                                         FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION}));
}

TEST(IPCMessageService, Destroyed_DisconnectCallbackIsNotCalled) {
    const OwnParent ownParent;
    const Host host;
    int calls = 0;
    {
        IPCMessageService service(kTestModule);
        service.SetDisconnectCallback([&] { ++calls; });
        ASSERT_EQ(service.Connect(kLimitMs), 0u);
        ExpectReadyArrives(service, host);
    }
    EXPECT_EQ(calls, 0);
}

} // namespace kxtest
