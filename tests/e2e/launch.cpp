// launch.exe REPORT PROGRAM ARGUMENTS: runs a program with the standard streams of this one and writes to the file
// REPORT what the build machine's shell cannot see: the whole 32-bit exit code and the processor time of the program.
#include "common/win/handle.h"

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <memory>
#include <string>

namespace {

constexpr int kUsage = 64; ///< a code that no other program of the tests ends with

struct StreamCloser {
    void operator()(std::FILE* stream) const noexcept { std::fclose(stream); }
};

unsigned long long Milliseconds(const FILETIME& time) {
    constexpr unsigned long long kTicksPerMillisecond = 10000;
    return ((std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime) / kTicksPerMillisecond;
}

// The command line behind its first COUNT arguments, with the quotes that it came with.
wchar_t* CommandLineBehind(int count) {
    wchar_t* text = GetCommandLineW();
    for (int i = 0; i < count; ++i) {
        const wchar_t end = *text == L'"' ? L'"' : L' ';
        text += *text == L'"' ? 1 : 0;
        while (*text != L'\0' && *text != end) {
            ++text;
        }
        text += *text == L'"' ? 1 : 0;
        while (*text == L' ') {
            ++text;
        }
    }
    return text;
}

kx::KernelHandle Start(wchar_t* commandLine) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    // Wine now and then loses a process while it starts it, about one in several hundred, and says so with this error.
    constexpr int kAttempts = 3;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (CreateProcessW(nullptr, commandLine, nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) {
            const kx::KernelHandle thread(process.hThread);
            return kx::KernelHandle(process.hProcess);
        }
        if (GetLastError() != ERROR_INTERNAL_ERROR) {
            return {};
        }
    }
    return {};
}

} // namespace

extern "C" int wmain(int count, wchar_t** texts) {
    if (count < 3) {
        return kUsage;
    }
    const kx::KernelHandle process = Start(CommandLineBehind(2));
    if (!process) {
        std::fprintf(stderr, "launch: cannot start %ls, error %lu\n", texts[2], GetLastError());
        return 1;
    }
    WaitForSingleObject(process.Get(), INFINITE);

    DWORD exitCode = 0;
    FILETIME created, ended, kernel, user;
    if (!GetExitCodeProcess(process.Get(), &exitCode) ||
        !GetProcessTimes(process.Get(), &created, &ended, &kernel, &user)) {
        return 1;
    }
    std::FILE* opened = nullptr;
    _wfopen_s(&opened, texts[1], L"wb");
    const std::unique_ptr<std::FILE, StreamCloser> report(opened);
    if (!report) {
        return 1;
    }
    std::fprintf(report.get(), "exit %lu\nkernel-ms %llu\nuser-ms %llu\n", exitCode, Milliseconds(kernel),
                 Milliseconds(user));
    return 0;
}
