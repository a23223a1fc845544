/**
 * @file
 * The worker that the unit tests launch. It ends with the exit code from KX_UNIT_WORKER_EXIT_CODE: at once, or when the
 * event named by KX_UNIT_WORKER_EVENT is set.
 */
#include <windows.h>

#include <cwchar>
#include <iterator>

namespace {

constexpr DWORD kLongestLifeMs = 60000;
constexpr unsigned long kNoSuchEvent = 96;

bool ReadVariable(const wchar_t* name, wchar_t (&value)[64]) {
    const DWORD length = GetEnvironmentVariableW(name, value, static_cast<DWORD>(std::size(value)));
    return length > 0 && length < std::size(value);
}

} // namespace

int main() {
    wchar_t text[64];
    const unsigned long exitCode =
        ReadVariable(L"KX_UNIT_WORKER_EXIT_CODE", text) ? std::wcstoul(text, nullptr, 10) : 0;
    if (!ReadVariable(L"KX_UNIT_WORKER_EVENT", text)) {
        ExitProcess(exitCode);
    }
    const HANDLE event = OpenEventW(SYNCHRONIZE, FALSE, text);
    if (event == nullptr) {
        ExitProcess(kNoSuchEvent);
    }
    WaitForSingleObject(event, kLongestLifeMs);
    ExitProcess(exitCode);
}
