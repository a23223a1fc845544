/** @file The host's side of the message channel's tests: child processes, signals, a host, and frames as text. */
#pragma once

#include "common/win/handle.h"
#include "ipcprotocol.h"
#include "sdk/ipcmessage/ipcmessage.h"
#include "suite/ipcmessage/frame.h"

#include <windows.h>

#include <cstdint>
#include <string>

namespace kxtest {

inline constexpr DWORD kLimitMs = 10000; // for what must happen
inline constexpr DWORD kQuietMs = 200;   // for what must not happen
inline constexpr DWORD kAtOnceMs = 3000; // "at once" on a loaded machine, far below kLimitMs

/** A manual-reset event, named for other processes or not. */
class Signal {
public:
    explicit Signal(const std::string& name = {});

    void Set() const { SetEvent(m_event.Get()); }
    bool Wait(DWORD timeoutMs = kLimitMs) const {
        return WaitForSingleObject(m_event.Get(), timeoutMs) == WAIT_OBJECT_0;
    }

private:
    kx::KernelHandle m_event;
};

/** A name for a Signal that no other test or run uses. */
std::string UniqueName(const std::string& what);

/** A program beside the test, or one named with its folder, ended at the latest when this is destroyed. */
class Child {
public:
    Child(const std::string& program, const std::string& arguments);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /** The exit code, or STILL_ACTIVE after kLimitMs. */
    DWORD ExitCode() const;
    bool IsRunning() const { return WaitForSingleObject(m_process.Get(), 0) == WAIT_TIMEOUT; }
    void Kill() const;

private:
    kx::KernelHandle m_process;
};

/** A client with a signal for the worker's ready notice. */
struct Host {
    Host();
    Signal ready;
    IPCMessageClient client{kTestModule, false, false};
};

TagIPCMessageItem Request(std::uint32_t messageId);
TagIPCMessageItem Request(std::uint32_t messageId, std::string& payload);

/** A reply's payload as text; "(none)" without one. */
std::string TextOf(const TagIPCMessageItem& item);

/** Sends a request with a payload and returns the reply's, or "(failed)". */
std::string Ask(IPCMessageClient& client, std::uint32_t messageId, std::string payload, DWORD timeoutMs = kLimitMs);

/** A new worker connects and answers: what every fault test ends with. */
void ExpectNextWorkerServed(Host& host);

std::string HexOf(const ipcmessage::FrameHeader& header);
std::string HexOf(const std::string& text);

/** The frame with which a scripted peer reports that it is connected. */
std::string ReadyFrame();

std::wstring PipeNameOfThisProcess();

} // namespace kxtest
