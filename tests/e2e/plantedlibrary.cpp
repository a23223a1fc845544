// A library with the name and the functions of one of the system's, to be put into a program's own folder. Whoever
// loads it leaves a file beside it, with the program's name and the ending .planted.
#include <windows.h>

#include <string>

namespace {

std::wstring PathOf(HMODULE module) {
    std::wstring path(MAX_PATH, L'\0');
    path.resize(GetModuleFileNameW(module, path.data(), MAX_PATH));
    return path;
}

void LeaveMark(HMODULE self) {
    const std::wstring own = PathOf(self);
    const std::wstring program = PathOf(nullptr);
    const std::wstring mark =
        own.substr(0, own.rfind(L'\\') + 1) + program.substr(program.rfind(L'\\') + 1) + L".planted";
    CloseHandle(CreateFileW(mark.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
}

} // namespace

extern "C" {
__declspec(dllexport) UINT WINAPI timeBeginPeriod(UINT) {
    return 0;
}
__declspec(dllexport) UINT WINAPI timeEndPeriod(UINT) {
    return 0;
}
}

BOOL WINAPI DllMain(HINSTANCE self, DWORD reason, void*) {
    if (reason == DLL_PROCESS_ATTACH) {
        LeaveMark(self);
    }
    return TRUE;
}
