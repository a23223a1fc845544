// Round trips of small requests over the message channel, beside the same bytes bounced over a bare overlapped pipe.
// The program starts itself as the other end: with "raw" it echoes bytes, with "service" it answers requests.
#include "common/win/handle.h"
#include "common/win/modulepath.h"
#include "sdk/ipcmessage/ipcmessage.h"
#include "sdk/vcr/workerprotocol.h"

#include <benchmark/benchmark.h>
#include <windows.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <vector>

namespace {

constexpr int kModule = static_cast<int>(kxvcr::kWorkerModuleId);
constexpr std::uint32_t kReadyNotice = 1;
constexpr std::uint32_t kEcho = 2;
constexpr std::size_t kPayloadBytes = 48;
constexpr std::size_t kRawMessageBytes = 48 + kPayloadBytes; // what a frame with that payload takes
constexpr benchmark::IterationCount kRoundTrips = 10000;
constexpr DWORD kLimitMs = 10000;
constexpr wchar_t kRawPipe[] = L"\\\\.\\pipe\\IpcBenchmarkFloor";

using RawMessage = std::array<char, kRawMessageBytes>;

class Child {
public:
    explicit Child(const wchar_t* role) {
        std::wstring commandLine = L"\"" + kx::ModulePath(nullptr).value() + L"\" " + role;
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION process{};
        if (CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                           &process)) {
            const kx::KernelHandle thread(process.hThread);
            m_process.Reset(process.hProcess);
        }
    }
    ~Child() { WaitForSingleObject(m_process.Get(), kLimitMs); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

private:
    kx::KernelHandle m_process;
};

class RawPipe {
public:
    explicit RawPipe(HANDLE pipe) : m_pipe(pipe), m_event(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

    bool Accept() {
        OVERLAPPED io = Io();
        return Finish(io, ConnectNamedPipe(m_pipe.Get(), &io) || GetLastError() == ERROR_PIPE_CONNECTED);
    }
    bool Read(RawMessage& message) {
        OVERLAPPED io = Io();
        return Finish(io, ReadFile(m_pipe.Get(), message.data(), kRawMessageBytes, nullptr, &io) != FALSE);
    }
    bool Write(const RawMessage& message) {
        OVERLAPPED io = Io();
        return Finish(io, WriteFile(m_pipe.Get(), message.data(), kRawMessageBytes, nullptr, &io) != FALSE);
    }

private:
    OVERLAPPED Io() const {
        OVERLAPPED io{};
        io.hEvent = m_event.Get();
        return io;
    }
    bool Finish(OVERLAPPED& io, bool isDone) {
        DWORD ignored = 0;
        return isDone || (GetLastError() == ERROR_IO_PENDING && GetOverlappedResult(m_pipe.Get(), &io, &ignored, TRUE));
    }

    kx::FileHandle m_pipe;
    kx::KernelHandle m_event;
};

struct Percentiles {
    double p50 = 0;
    double p99 = 0;
};

Percentiles& RawFloor() {
    static Percentiles s_floor;
    return s_floor;
}

// Runs the exchange once per iteration; counters in microseconds.
template <class Exchange>
Percentiles Measure(benchmark::State& state, Exchange exchange) {
    std::vector<double> times;
    times.reserve(kRoundTrips);
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        if (!exchange()) {
            state.SkipWithError("a round trip failed");
            return {};
        }
        times.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    const Percentiles result{times[times.size() / 2], times[times.size() * 99 / 100]};
    state.counters["p50_us"] = result.p50;
    state.counters["p99_us"] = result.p99;
    return result;
}

void RoundTrip_RawPipe(benchmark::State& state) {
    const HANDLE rawPipe =
        CreateNamedPipeW(kRawPipe, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
                         PIPE_TYPE_BYTE | PIPE_REJECT_REMOTE_CLIENTS, 1, 64 * 1024, 64 * 1024, 0, nullptr);
    if (rawPipe == INVALID_HANDLE_VALUE) {
        state.SkipWithError("no pipe");
        return;
    }
    const Child child(L"raw");
    RawPipe pipe(rawPipe); // closed before the child is waited for: that ends it
    if (!pipe.Accept()) {
        state.SkipWithError("no other end");
        return;
    }
    RawMessage message{};
    RawFloor() = Measure(state, [&] { return pipe.Write(message) && pipe.Read(message); });
}
BENCHMARK(RoundTrip_RawPipe)->Iterations(kRoundTrips)->UseRealTime()->Unit(benchmark::kMicrosecond);

void RoundTrip_Channel(benchmark::State& state) {
    const kx::KernelHandle ready(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    IPCMessageClient client(kModule, false, false);
    client.RegisterMessageCallback(kReadyNotice, [&ready](TagIPCMessageItem&) { SetEvent(ready.Get()); });
    const Child child(L"service");
    if (WaitForSingleObject(ready.Get(), kLimitMs) != WAIT_OBJECT_0) {
        state.SkipWithError("no other end");
        return;
    }
    std::array<char, kPayloadBytes> payload{};
    TagIPCMessageItem request;
    request.messageId = kEcho;
    request.replyMessageId = kEcho;
    request.payload = payload.data();
    request.payloadSize = kPayloadBytes;
    request.hasPayload = true;
    const Percentiles channel = Measure(state, [&] {
        IPCReplyItem reply;
        return client.SendIPCMessage(request, reply, kLimitMs) && reply.payloadSize == kPayloadBytes;
    });
    if (RawFloor().p50 > 0) {
        state.counters["p50_ratio"] = channel.p50 / RawFloor().p50;
        state.counters["p99_ratio"] = channel.p99 / RawFloor().p99;
    }
    TagIPCMessageItem end;
    end.messageId = kEcho + 1;
    client.PostIPCMessage(end);
}
BENCHMARK(RoundTrip_Channel)->Iterations(kRoundTrips)->UseRealTime()->Unit(benchmark::kMicrosecond);

int EchoRaw() {
    RawPipe pipe(
        CreateFileW(kRawPipe, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    RawMessage message{};
    while (pipe.Read(message) && pipe.Write(message)) {
    }
    return 0;
}

int AnswerRequests() {
    const kx::KernelHandle end(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    IPCMessageService service(kModule);
    service.RegisterRequestHandler(kEcho, [](const TagIPCMessageItem& request, IPCReplySender& sender) {
        sender.Reply(request.payload, request.payloadSize);
    });
    service.SetDefaultHandler([&end](const TagIPCMessageItem&, IPCReplySender&) { SetEvent(end.Get()); });
    service.SetDisconnectCallback([&end] { SetEvent(end.Get()); });
    if (const unsigned long error = service.Connect(kLimitMs)) {
        return static_cast<int>(error);
    }
    TagIPCMessageItem ready;
    ready.messageId = kReadyNotice;
    service.PostIPCMessage(ready);
    WaitForSingleObject(end.Get(), INFINITE);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::string role = argc > 1 ? argv[1] : "";
    if (role == "raw") {
        return EchoRaw();
    }
    if (role == "service") {
        return AnswerRequests();
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
