/**
 * @file
 * What everything on the message channel is compared with: bytes on a bare overlapped pipe between two processes, and
 * the other process.
 */
#pragma once

#include "common/win/handle.h"

#include <windows.h>

#include <cstddef>
#include <span>
#include <string>

namespace bench {

inline constexpr DWORD kLimitMs = 30'000; // for everything that must happen

/** This program started again with a role; its end is waited for by the destructor. */
class OtherProcess {
public:
    explicit OtherProcess(const std::wstring& role);
    ~OtherProcess();
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    HANDLE Get() const noexcept { return m_process.Get(); }

private:
    kx::KernelHandle m_process;
};

/** One end of a bare pipe. Every member throws Failure when the system refuses. */
class RawPipe {
public:
    /** The end that others connect to. */
    static RawPipe Create(const std::wstring& name);

    /** The end of another process, whose pipe exists. */
    static RawPipe Open(const std::wstring& name);

    void Accept();
    void Write(std::span<const std::byte> bytes);

    /** Reads until @p bytes are full. @return false when the other end is gone */
    bool Read(std::span<std::byte> bytes);

private:
    explicit RawPipe(HANDLE pipe);
    bool Finish(OVERLAPPED& io, bool isDone, DWORD& count);

    kx::FileHandle m_pipe;
    kx::KernelHandle m_event;
};

/** The pipe's name for a purpose; no other process of the machine has the same. */
std::wstring RawPipeName(const wchar_t* purpose);

/**
 * The role "raw NAME IN OUT EVERY" of a program: reads EVERY times IN bytes, then writes OUT bytes, until the other end
 * goes.
 */
int BounceBytes(char** arguments);

} // namespace bench
