// A bare overlapped pipe without frames, checks or threads.
#include "benchmarks/rawpipe.h"

#include "benchmarks/pairs.h"
#include "common/win/modulepath.h"

#include <cstdlib>
#include <vector>

namespace bench {

namespace {

constexpr DWORD kBufferBytes = 64 * 1024; // as the channel's

} // namespace

OtherProcess::OtherProcess(const std::wstring& role) {
    std::wstring commandLine = L"\"" + kx::ModulePath(nullptr).value() + L"\" " + role;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    Require(CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                           &process) != FALSE,
            "the other process does not start");
    const kx::KernelHandle thread(process.hThread);
    m_process.Reset(process.hProcess);
}

OtherProcess::~OtherProcess() {
    WaitForSingleObject(m_process.Get(), kLimitMs);
}

RawPipe::RawPipe(HANDLE pipe) : m_pipe(pipe), m_event(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    Require(m_pipe && m_event, "no pipe");
}

RawPipe RawPipe::Create(const std::wstring& name) {
    return RawPipe(
        CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
                         PIPE_TYPE_BYTE | PIPE_REJECT_REMOTE_CLIENTS, 1, kBufferBytes, kBufferBytes, 0, nullptr));
}

RawPipe RawPipe::Open(const std::wstring& name) {
    return RawPipe(CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_OVERLAPPED, nullptr));
}

bool RawPipe::Finish(OVERLAPPED& io, bool isDone, DWORD& count) {
    return (isDone || GetLastError() == ERROR_IO_PENDING) && GetOverlappedResult(m_pipe.Get(), &io, &count, TRUE);
}

void RawPipe::Accept() {
    OVERLAPPED io{};
    io.hEvent = m_event.Get();
    const bool isDone = ConnectNamedPipe(m_pipe.Get(), &io) != FALSE;
    DWORD ignored = 0;
    Require(GetLastError() == ERROR_PIPE_CONNECTED || Finish(io, isDone, ignored), "nobody connects");
}

void RawPipe::Write(std::span<const std::byte> bytes) {
    OVERLAPPED io{};
    io.hEvent = m_event.Get();
    DWORD count = 0;
    const bool isDone = WriteFile(m_pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, &io) != FALSE;
    Require(Finish(io, isDone, count) && count == bytes.size(), "a write on the bare pipe fails");
}

bool RawPipe::Read(std::span<std::byte> bytes) {
    while (!bytes.empty()) {
        OVERLAPPED io{};
        io.hEvent = m_event.Get();
        DWORD count = 0;
        const bool isDone =
            ReadFile(m_pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, &io) != FALSE;
        if (!Finish(io, isDone, count) || count == 0) {
            return false;
        }
        bytes = bytes.subspan(count);
    }
    return true;
}

std::wstring RawPipeName(const wchar_t* purpose) {
    return L"\\\\.\\pipe\\KxBenchmark." + std::to_wstring(GetCurrentProcessId()) + L"." + purpose;
}

int BounceBytes(char** arguments) {
    const std::string name = arguments[0];
    std::vector<std::byte> in(std::strtoul(arguments[1], nullptr, 10));
    const std::vector<std::byte> out(std::strtoul(arguments[2], nullptr, 10));
    const unsigned long every = std::strtoul(arguments[3], nullptr, 10);
    RawPipe pipe = RawPipe::Open({name.begin(), name.end()});
    for (unsigned long count = 1; pipe.Read(in); ++count) {
        if (count % every == 0) {
            pipe.Write(out);
        }
    }
    return 0;
}

} // namespace bench
