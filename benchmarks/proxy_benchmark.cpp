// The proxy and its channel: launching the worker, commands, and what a refused command costs. The worker is the
// shipped one where it is launched; elsewhere this program, started again, answers at once, so that what is measured
// is the way there and back.
#include "benchmarks/pairs.h"
#include "benchmarks/rawpipe.h"
#include "benchmarks/sha256.h"
#include "common/win/modulepath.h"
#include "screenrecordproxy.h"
#include "sdk/ipcmessage/ipcmessage.h"
#include "sdk/util/logtool.h"
#include "sdk/vcr/workerprotocol.h"
#include "tests/support/privateaccess.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

using KxScreenRecord::RunStatus;
using KxScreenRecord::ScreenRecordParam;
using KxScreenRecord::ScreenRecordProxy;

// A command is admitted in one status only; to repeat it, the status is put back.
struct StatusTag {
    using Type = std::atomic<RunStatus> ScreenRecordProxy::*;
};
template struct kxtest::Expose<StatusTag, &ScreenRecordProxy::m_runStatus>;
struct WorkerTag {
    using Type = std::atomic<void*> ScreenRecordProxy::*;
};
template struct kxtest::Expose<WorkerTag, &ScreenRecordProxy::m_workerProcess>;

namespace {

using bench::Goal;
using bench::kLimitMs;
using bench::OtherProcess;
using bench::RawPipe;
using bench::Require;
using bench::Timed;

constexpr std::size_t kFrameHeaderBytes = 48;
constexpr std::size_t kRequestBytes = kFrameHeaderBytes + sizeof(ScreenRecordParam);
constexpr std::size_t kReplyBytes = kFrameHeaderBytes + sizeof(std::int32_t);
constexpr std::uint32_t kMessageAnyPayload = 0x4E0FFF; // answered like a prepare, whatever it carries

double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/** The one proxy, for a scope. */
class Proxy {
public:
    Proxy() : m_proxy(ScreenRecordProxy::CreateProxy()) { Require(m_proxy != nullptr, "no proxy"); }
    ~Proxy() { ScreenRecordProxy::ReleaseProxy(m_proxy); }
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;

    ScreenRecordProxy* operator->() const noexcept { return m_proxy; }
    void SetStatus(RunStatus status) const noexcept { m_proxy->*kxtest::kPrivate<StatusTag> = status; }
    void SetWorker(void* process) const noexcept { m_proxy->*kxtest::kPrivate<WorkerTag> = process; }

    bool Prepare() const {
        SetStatus(RunStatus::Running);
        return m_proxy->Prepare({}, kLimitMs);
    }

private:
    ScreenRecordProxy* m_proxy;
};

// ---- Launch --------------------------------------------------------------------------------------------------------

double LaunchWithProxy() {
    const Proxy proxy;
    const auto start = std::chrono::steady_clock::now();
    Require(proxy->RunProcess(kLimitMs) == ERROR_SUCCESS, "the worker does not run");
    const double seconds = SecondsSince(start);
    proxy->Stop();
    Require(proxy->WaitLiveProcessEnd(kLimitMs) == 0, "the worker does not end");
    return seconds;
}

double LaunchBare() {
    const std::wstring folder = kx::ModuleFolder(nullptr).value();
    const std::wstring path = folder + L"\\" + kxvcr::kWorkerFileNameWide;
    RawPipe pipe = RawPipe::Create(L"\\\\.\\pipe\\KxIPCMessage." + std::to_wstring(GetCurrentProcessId()) + L"." +
                                   std::to_wstring(kxvcr::kWorkerModuleId));
    const auto start = std::chrono::steady_clock::now();
    Require(!bench::Sha256OfFile(path).empty(), "the worker's file cannot be read");
    std::wstring commandLine = L"\"" + path + L"\" -IPCProxy";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    Require(CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                           &process) != FALSE,
            "the worker does not start");
    const kx::KernelHandle thread(process.hThread);
    const kx::KernelHandle worker(process.hProcess);
    pipe.Accept();
    std::array<std::byte, kFrameHeaderBytes> ready{};
    Require(pipe.Read(ready), "the worker does not say that it is ready");
    const double seconds = SecondsSince(start);
    { const RawPipe closing = std::move(pipe); } // the worker ends with its host's pipe
    Require(WaitForSingleObject(worker.Get(), kLimitMs) == WAIT_OBJECT_0, "the worker does not end");
    return seconds;
}

void MeasureLaunch(bench::Runner& runner) {
    runner.Measure({"`RunProcess` to ready, monitor started",
                    "`CreateProcessW` of the same worker, its digest, and its first 48 bytes", Goal::Times(1.05),
                    LaunchWithProxy, LaunchBare});
}

// ---- Commands ------------------------------------------------------------------------------------------------------

/** The other end of a bare pipe. */
class Bouncer {
public:
    Bouncer(const wchar_t* purpose, std::size_t in, std::size_t out, unsigned every = 1)
        : m_pipe(RawPipe::Create(bench::RawPipeName(purpose))),
          m_process(L"raw " + bench::RawPipeName(purpose) + L" " + std::to_wstring(in) + L" " + std::to_wstring(out) +
                    L" " + std::to_wstring(every)),
          m_in(in),
          m_out(out) {
        m_pipe->Accept();
    }
    ~Bouncer() { m_pipe.reset(); } // the process ends with its pipe
    Bouncer(const Bouncer&) = delete;
    Bouncer& operator=(const Bouncer&) = delete;

    void Write() { m_pipe->Write(m_in); }
    void Read() { Require(m_pipe->Read(m_out), "the other end is gone"); }
    void Bounce() {
        Write();
        Read();
    }

private:
    std::optional<RawPipe> m_pipe;
    OtherProcess m_process;
    std::vector<std::byte> m_in;
    std::vector<std::byte> m_out;
};

/** A proxy connected to this program in the worker's role. */
class AnsweredProxy {
public:
    AnsweredProxy() : m_worker(L"worker") {
        m_proxy.SetWorker(m_worker.Get());
        const auto start = std::chrono::steady_clock::now();
        while (!m_proxy.Prepare()) { // there is nobody to send to until it has connected
            Require(SecondsSince(start) * 1000 < kLimitMs, "nobody answers");
        }
    }
    ~AnsweredProxy() { m_proxy.SetWorker(nullptr); }
    AnsweredProxy(const AnsweredProxy&) = delete;
    AnsweredProxy& operator=(const AnsweredProxy&) = delete;

    const Proxy* operator->() const noexcept { return &m_proxy; }

private:
    OtherProcess m_worker; // waited for after the proxy, whose end ends it
    Proxy m_proxy;
};

void MeasurePrepare(bench::Runner& runner) {
    constexpr std::size_t kTimes = 200;
    const AnsweredProxy proxy;
    Bouncer bare(L"prepare", kRequestBytes, kReplyBytes);
    runner.Measure({"`Prepare` round trip", "the same bytes there and back on a bare pipe", Goal::Times(1.15),
                    [&] { return Timed(kTimes, [&] { Require(proxy->Prepare(), "prepare fails"); }); },
                    [&] { return Timed(kTimes, [&] { bare.Bounce(); }); }});
}

void MeasureStop(bench::Runner& runner) {
    constexpr unsigned kTimes = 200; // what the pipe's buffer holds
    const AnsweredProxy proxy;
    Bouncer bare(L"stop", kFrameHeaderBytes, 1, kTimes);
    runner.Measure({"`Stop`", "one `WriteFile` of the same bytes", Goal::Times(1.5),
                    [&] {
                        const double seconds = Timed(kTimes, [&] {
                            proxy->SetStatus(RunStatus::Running);
                            (*proxy.operator->())->Stop();
                        });
                        Require(proxy->Prepare(), "the notices are not taken");
                        return seconds;
                    },
                    [&] {
                        const double seconds = Timed(kTimes, [&] { bare.Write(); });
                        bare.Read();
                        return seconds;
                    }});
}

// ---- Requests of several threads -----------------------------------------------------------------------------------

/** A client connected to this program in the worker's role. */
class AnsweredClient {
public:
    AnsweredClient()
        : m_ready(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
          m_client(std::make_unique<IPCMessageClient>(static_cast<int>(kxvcr::kWorkerModuleId), false, false)) {
        m_client->RegisterMessageCallback(kxvcr::kMessageReady,
                                          [this](TagIPCMessageItem&) { SetEvent(m_ready.Get()); });
        m_worker = std::make_unique<OtherProcess>(L"worker");
        Require(WaitForSingleObject(m_ready.Get(), kLimitMs) == WAIT_OBJECT_0, "nobody connects");
    }
    ~AnsweredClient() { m_client.reset(); } // the process ends with its pipe
    AnsweredClient(const AnsweredClient&) = delete;
    AnsweredClient& operator=(const AnsweredClient&) = delete;

    void Request(std::vector<std::byte>& payload) {
        TagIPCMessageItem request;
        request.messageId = kMessageAnyPayload;
        request.replyMessageId = kMessageAnyPayload;
        request.payload = payload.data();
        request.payloadSize = static_cast<std::uint32_t>(payload.size());
        request.hasPayload = true;
        IPCReplyItem reply;
        Require(m_client->SendIPCMessage(request, reply, kLimitMs) && reply.payloadSize == sizeof(std::int32_t),
                "a request is not answered");
    }

private:
    kx::KernelHandle m_ready;
    std::unique_ptr<OtherProcess> m_worker;
    std::unique_ptr<IPCMessageClient> m_client;
};

/** Lets its threads go on when all of them are here. The run-time library's may sleep through the last one's coming. */
class Gate {
public:
    explicit Gate(std::size_t threads) : m_threads(threads) {}

    void ArriveAndWait() {
        std::unique_lock lock(m_mutex);
        const std::uint64_t turn = m_turn;
        if (++m_here == m_threads) {
            m_here = 0;
            ++m_turn;
            m_opened.notify_all();
        }
        m_opened.wait(lock, [&] { return m_turn != turn; });
    }

private:
    std::size_t m_threads;
    std::mutex m_mutex;
    std::condition_variable m_opened;
    std::size_t m_here = 0;
    std::uint64_t m_turn = 0;
};

/** Eight threads that send their shares of the same batches at the same time. */
class Senders {
public:
    static constexpr std::size_t kThreads = 8;
    static constexpr std::size_t kRequests = 64; // of all threads together
    static constexpr std::size_t kBatches = 8;   // one after the other, so that starting the threads weighs little

    explicit Senders(AnsweredClient& client) {
        for (std::size_t i = 0; i < kThreads; ++i) {
            m_threads.emplace_back([this, &client](const std::stop_token& stop) {
                std::vector<std::byte> payload(sizeof(ScreenRecordParam));
                for (;;) {
                    m_begin.ArriveAndWait();
                    if (stop.stop_requested()) {
                        return;
                    }
                    for (std::size_t request = 0; request < kBatches * kRequests / kThreads; ++request) {
                        client.Request(payload);
                    }
                    m_end.ArriveAndWait();
                }
            });
        }
    }
    ~Senders() {
        for (std::jthread& thread : m_threads) {
            thread.request_stop();
        }
        m_begin.ArriveAndWait();
    }
    Senders(const Senders&) = delete;
    Senders& operator=(const Senders&) = delete;

    double SendBatches() {
        const auto start = std::chrono::steady_clock::now();
        m_begin.ArriveAndWait();
        m_end.ArriveAndWait();
        return SecondsSince(start) / kBatches;
    }

private:
    Gate m_begin{kThreads + 1};
    Gate m_end{kThreads + 1};
    std::vector<std::jthread> m_threads;
};

void MeasureManyRequests(bench::Runner& runner) {
    AnsweredClient client;
    Senders senders(client);
    Bouncer bare(L"many", kRequestBytes, kReplyBytes);
    const auto bounceEach = [&] {
        return Senders::kRequests * Timed(Senders::kBatches * Senders::kRequests, [&] { bare.Bounce(); });
    };
    const auto bounceByEights = [&] {
        return Timed(Senders::kBatches * Senders::kRequests / Senders::kThreads,
                     [&] {
                         for (std::size_t i = 0; i < Senders::kThreads; ++i) {
                             bare.Write();
                         }
                         for (std::size_t i = 0; i < Senders::kThreads; ++i) {
                             bare.Read();
                         }
                     }) *
               Senders::kRequests / Senders::kThreads;
    };
    runner.Measure({"64 requests of 8 threads", "the same bytes on one bare pipe, by one thread, one after the other",
                    Goal::Times(1.3), [&] { return senders.SendBatches(); }, bounceEach});
    runner.Measure({"64 requests of 8 threads, 8 under way",
                    "the same bytes on one bare pipe, by one thread, 8 under way", Goal::None(),
                    [&] { return senders.SendBatches(); }, bounceByEights});
}

void GrowPayload(bench::Runner& runner) {
    constexpr double kKibibyte = 1024;
    constexpr std::size_t kTimes = 20;
    if (!runner.WantsGrowth()) {
        return;
    }
    AnsweredClient client;
    runner.Grow("Request with a payload", "KiB", {0, 64, 128, 256, 384, 512, 768, 1024}, [&](double size) {
        std::vector<std::byte> payload(static_cast<std::size_t>(size * kKibibyte));
        return Timed(kTimes, [&] { client.Request(payload); });
    });
}

// ---- Refusal -------------------------------------------------------------------------------------------------------

void MeasureRefusal(bench::Runner& runner) {
    constexpr std::size_t kTimes = 20'000;
    const Proxy proxy;
    proxy.SetStatus(RunStatus::Idle);
    const auto refused = [&] {
        return Timed(kTimes, [&] { Require(!proxy->Prepare({}, 0), "a command is admitted"); });
    };
    std::atomic<RunStatus> status = RunStatus::Idle;
    const auto compareAndSwap = [&] {
        RunStatus found = RunStatus::Running;
        Require(!status.compare_exchange_strong(found, RunStatus::Preparing), "the status is another");
    };
    const auto bare = [&] {
        return Timed(kTimes, [&] {
            compareAndSwap();
            Require(!GetLogger().isEnabledFor(log4cplus::ERROR_LOG_LEVEL), "the log is on");
        });
    };
    const auto withCopy = [&] {
        return Timed(kTimes, [&] {
            compareAndSwap();
            const log4cplus::Logger logger = GetLogger();
            Require(!logger.isEnabledFor(log4cplus::ERROR_LOG_LEVEL), "the log is on");
        });
    };
    runner.Measure({"refused command, log off", "an atomic compare-and-swap and a level check", Goal::Nanoseconds(5),
                    refused, bare});
    runner.Measure({"refused command, log off, by a message's rules",
                    "the same with the message's own copy of the logger", Goal::Nanoseconds(5), refused, withCopy});
}

// ---- The worker's role ---------------------------------------------------------------------------------------------

int AnswerEverything() {
    const kx::KernelHandle end(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    IPCMessageService service(static_cast<int>(kxvcr::kWorkerModuleId));
    service.SetDefaultHandler([](const TagIPCMessageItem& request, IPCReplySender& sender) {
        const std::int32_t accepted = 0;
        if (request.replyMessageId != kIPCUnset) {
            sender.Reply(&accepted, sizeof accepted);
        }
    });
    service.SetDisconnectCallback([&end] { SetEvent(end.Get()); });
    if (const unsigned long error = service.Connect(kLimitMs)) {
        return static_cast<int>(error);
    }
    TagIPCMessageItem ready;
    ready.messageId = kxvcr::kMessageReady;
    service.PostIPCMessage(ready);
    WaitForSingleObject(end.Get(), INFINITE);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::string_view role = argc > 1 ? argv[1] : "";
    if (role == "raw" && argc == 6) {
        return bench::BounceBytes(argv + 2);
    }
    if (role == "worker") {
        return AnswerEverything();
    }
    return bench::Run(argc, argv, [](bench::Runner& runner) {
        GetLogger().setLogLevel(log4cplus::OFF_LOG_LEVEL);
        GrowPayload(runner);
        if (!runner.WantsGrowth()) {
            MeasureLaunch(runner);
            MeasurePrepare(runner);
            MeasureStop(runner);
            MeasureManyRequests(runner);
            MeasureRefusal(runner);
        }
    });
}
