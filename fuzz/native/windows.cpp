// Windows, natively: every file holds the fuzzer's bytes, and every text is narrowed and widened byte by byte.
#include "windows.h"
// These need the types of windows.h.
#include "shlwapi.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

std::span<const unsigned char> g_bytes;
DWORD g_lastError = 0;

struct OpenFile {
    std::span<const unsigned char> unread;
};

constexpr char kProgram[] = "C:\\Host\\host.exe";

// Characters to convert: -1 stands for all of a text that ends with a zero, and the zero.
template <class Character>
int LengthOf(const Character* text, int length) {
    return length >= 0 ? length : static_cast<int>(std::char_traits<Character>::length(text)) + 1;
}

template <class To, class From>
int Convert(const From* text, int length, To* converted, int size) {
    const int count = LengthOf(text, length);
    if (size == 0) {
        return count;
    }
    if (size < count) {
        g_lastError = ERROR_INSUFFICIENT_BUFFER;
        return 0;
    }
    std::transform(text, text + count, converted,
                   [](From character) { return static_cast<To>(static_cast<unsigned char>(character)); });
    return count;
}

} // namespace

void native::SetFile(std::span<const unsigned char> bytes) {
    g_bytes = bytes;
}

HANDLE CreateFileA(const char*, DWORD, DWORD, void*, DWORD, DWORD, HANDLE) {
    return new OpenFile{g_bytes};
}

BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size) {
    size->QuadPart = static_cast<std::int64_t>(static_cast<OpenFile*>(file)->unread.size());
    return TRUE;
}

BOOL ReadFile(HANDLE file, void* buffer, DWORD size, DWORD* count, void*) {
    auto& unread = static_cast<OpenFile*>(file)->unread;
    *count = static_cast<DWORD>(std::min<std::size_t>(size, unread.size()));
    std::copy_n(unread.begin(), *count, static_cast<unsigned char*>(buffer));
    unread = unread.subspan(*count);
    return TRUE;
}

BOOL CloseHandle(HANDLE handle) {
    delete static_cast<OpenFile*>(handle);
    return TRUE;
}

DWORD GetLastError() {
    return g_lastError;
}

void SetLastError(DWORD error) {
    g_lastError = error;
}

DWORD GetModuleFileNameA(HMODULE, char* path, DWORD size) {
    return static_cast<DWORD>(std::string(kProgram).copy(path, size - 1));
}

DWORD GetModuleFileNameW(HMODULE, wchar_t* path, DWORD size) {
    return static_cast<DWORD>(Convert(kProgram, -1, path, static_cast<int>(size))) - 1;
}

HMODULE GetModuleHandleW(const wchar_t*) {
    return nullptr;
}

BOOL GetModuleHandleExW(DWORD, const wchar_t* name, HMODULE* module) {
    *module = reinterpret_cast<HMODULE>(const_cast<wchar_t*>(name));
    return TRUE;
}

void OutputDebugStringW(const wchar_t*) {}

int MultiByteToWideChar(UINT, DWORD, const char* text, int length, wchar_t* wide, int size) {
    return Convert(text, length, wide, size);
}

int WideCharToMultiByte(UINT, DWORD, const wchar_t* text, int length, char* narrow, int size, const char*, BOOL*) {
    return Convert(text, length, narrow, size);
}

BOOL PathRemoveFileSpecA(char* path) {
    char* const separator = std::strrchr(path, '\\');
    if (separator != nullptr) {
        *separator = '\0';
    }
    return separator != nullptr;
}

BOOL PathAppendA(char* path, const char* more) {
    std::strcat(std::strcat(path, "\\"), more);
    return TRUE;
}

BOOL PathFileExistsA(const char*) {
    return TRUE;
}
