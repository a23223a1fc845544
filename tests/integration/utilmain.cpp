// Entry of the suite libraries' test programs: a child's scenario when one is asked for, else the tests. A test that
// hangs ends the program.
#include "utilchild.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

constexpr DWORD kWatchdogMs = 110'000;
constexpr UINT kWatchdogExitCode = 124;

DWORD WINAPI Watch(void* finished) {
    if (WaitForSingleObject(finished, kWatchdogMs) == WAIT_TIMEOUT) {
        std::fputs("the watchdog ends a test program that hangs\n", stderr);
        TerminateProcess(GetCurrentProcess(), kWatchdogExitCode);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (const auto exitCode = utiltest::RunRequestedScenario(argc, argv)) {
        return *exitCode;
    }
    testing::InitGoogleTest(&argc, argv);
    const HANDLE finished = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE watchdog = CreateThread(nullptr, 0, Watch, finished, 0, nullptr);
    const int result = RUN_ALL_TESTS();
    SetEvent(finished);
    WaitForSingleObject(watchdog, kWatchdogMs);
    CloseHandle(watchdog);
    CloseHandle(finished);
    return result;
}
