// A scripted process that speaks bytes on a channel's pipe. Its arguments are steps, done in order:
//   open PID            opens the pipe of host PID, 0 for the parent
//   squat PID           creates the pipe of host PID
//   write HEX           writes bytes; a pipe that is closed already is no failure
//   read                reads one frame
//   reply INDEX HEX     answers the frame read INDEX-th (from 0)
//   closed              reads until the other end closes the pipe
//   signal NAME, wait NAME    named events
//   grandchild STEP...  does the remaining steps in a child of its own
// The exit code is 0, or kFailedStep plus the number of the step that failed.
#include "common/win/modulepath.h"
#include "ipcprotocol.h"
#include "suite/ipcmessage/frame.h"

#include <windows.h>
#include <winternl.h>

#include <array>
#include <map>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace {

using ipcmessage::FrameHeader;
using ipcmessage::kFrameHeaderSize;

constexpr int kFailedStep = 10;
constexpr UINT kOverdue = 97;
constexpr DWORD kStepLimitMs = 10000;
constexpr DWORD kRetryPauseMs = 5;

struct Failure {};

void Require(bool isTrue) {
    if (!isTrue) {
        throw Failure{};
    }
}

std::vector<std::byte> FromHex(const std::string& hex) {
    std::vector<std::byte> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<std::byte>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

DWORD ParentId() {
    ULONG_PTR facts[6]{};
    Require(NtQueryInformationProcess(GetCurrentProcess(), ProcessBasicInformation, facts, sizeof facts, nullptr) >= 0);
    return static_cast<DWORD>(facts[5]);
}

std::wstring PipeName(const std::string& hostId) {
    const DWORD id = hostId == "0" ? ParentId() : static_cast<DWORD>(std::stoul(hostId));
    return L"\\\\.\\pipe\\KxIPCMessage." + std::to_wstring(id) + L"." + std::to_wstring(kTestModule);
}

class Peer {
public:
    explicit Peer(std::vector<std::string> steps) : m_steps(std::move(steps)) {}

    int Run() {
        const std::map<std::string, void (Peer::*)()> actions = {
            {"open", &Peer::Open},     {"squat", &Peer::Squat},      {"write", &Peer::Write},
            {"read", &Peer::Read},     {"reply", &Peer::Reply},      {"closed", &Peer::AwaitClosed},
            {"signal", &Peer::Signal}, {"wait", &Peer::AwaitSignal}, {"grandchild", &Peer::RunGrandchild},
        };
        for (int number = 0; m_next < m_steps.size(); ++number) {
            try {
                (this->*actions.at(Argument()))();
            } catch (...) {
                return kFailedStep + number;
            }
        }
        return 0;
    }

private:
    const std::string& Argument() { return m_steps.at(m_next++); }

    void Open() {
        const std::wstring name = PipeName(Argument());
        const ULONGLONG end = GetTickCount64() + kStepLimitMs;
        do {
            m_pipe = CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
            if (m_pipe != INVALID_HANDLE_VALUE) {
                return;
            }
            Sleep(kRetryPauseMs);
        } while (GetTickCount64() < end);
        throw Failure{};
    }

    void Squat() {
        m_pipe =
            CreateNamedPipeW(PipeName(Argument()).c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 0, 0, 0, nullptr);
        Require(m_pipe != INVALID_HANDLE_VALUE);
    }

    void WriteBytes(const std::vector<std::byte>& bytes) {
        DWORD written = 0;
        WriteFile(m_pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    }

    void Write() { WriteBytes(FromHex(Argument())); }

    void ReadBytes(std::span<std::byte> bytes) {
        while (!bytes.empty()) {
            DWORD read = 0;
            Require(ReadFile(m_pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) != FALSE);
            bytes = bytes.subspan(read);
        }
    }

    void Read() {
        std::array<std::byte, kFrameHeaderSize> bytes;
        ReadBytes(bytes);
        FrameHeader header;
        Require(ipcmessage::DecodeFrameHeader(bytes, header) == ipcmessage::FrameFault::None);
        std::vector<std::byte> payload(header.payloadSize);
        ReadBytes(payload);
        m_frames.push_back(header);
    }

    void Reply() {
        const FrameHeader& request = m_frames.at(std::stoul(Argument()));
        const std::vector<std::byte> payload = FromHex(Argument());
        const FrameHeader reply{.kind = ipcmessage::FrameKind::Reply,
                                .sequence = request.sequence,
                                .payloadSize = static_cast<std::uint32_t>(payload.size()),
                                .hasPayload = true};
        std::vector<std::byte> frame(kFrameHeaderSize);
        ipcmessage::EncodeFrameHeader(reply, std::span(frame).first<kFrameHeaderSize>());
        frame.insert(frame.end(), payload.begin(), payload.end());
        WriteBytes(frame);
    }

    void AwaitClosed() {
        std::array<std::byte, 256> ignored;
        DWORD read = 0;
        while (ReadFile(m_pipe, ignored.data(), static_cast<DWORD>(ignored.size()), &read, nullptr)) {
        }
        const DWORD error = GetLastError();
        Require(error == ERROR_BROKEN_PIPE || error == ERROR_PIPE_NOT_CONNECTED);
    }

    HANDLE Event() { return CreateEventA(nullptr, TRUE, FALSE, Argument().c_str()); }

    void Signal() { SetEvent(Event()); }

    void AwaitSignal() { Require(WaitForSingleObject(Event(), kStepLimitMs) == WAIT_OBJECT_0); }

    void RunGrandchild() {
        std::wstring commandLine = L'"' + kx::ModulePath(nullptr).value() + L'"';
        while (m_next < m_steps.size()) {
            const std::string argument = Argument();
            commandLine += L' ' + std::wstring(argument.begin(), argument.end());
        }
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION process{};
        Require(CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                               &process) != FALSE);
        Require(WaitForSingleObject(process.hProcess, kStepLimitMs) == WAIT_OBJECT_0);
        DWORD exitCode = 1;
        GetExitCodeProcess(process.hProcess, &exitCode);
        Require(exitCode == 0);
    }

    std::vector<std::string> m_steps;
    std::size_t m_next = 0;
    HANDLE m_pipe = INVALID_HANDLE_VALUE;
    std::vector<FrameHeader> m_frames;
};

} // namespace

int main(int argc, char** argv) {
    std::thread([] {
        Sleep(kPeerLimitMs);
        TerminateProcess(GetCurrentProcess(), kOverdue);
    }).detach();
    return Peer(std::vector<std::string>(argv + 1, argv + argc)).Run();
}
