/**
 * @file
 * As much of Windows as the fuzzed code asks for, natively: names and numbers, and files that are the fuzzer's bytes.
 *
 * A wchar_t has four bytes here instead of two. The fuzzed code counts in sizeof(wchar_t), so that every copy and bound
 * is exercised all the same; only the texts are others.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#define WINAPI
#define CALLBACK
#define __stdcall

using BOOL = int;
using BYTE = unsigned char;
using UINT = unsigned int;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using LONG = std::int32_t;
using LSTATUS = LONG;
using NTSTATUS = LONG;
using ULONG_PTR = std::uintptr_t;
using LPARAM = std::intptr_t;
using HANDLE = void*;
union LARGE_INTEGER {
    std::int64_t QuadPart;
};
using HKEY = struct HKEY__*;
using HMODULE = struct HMODULE__*;
using HMONITOR = struct HMONITOR__*;
using HDC = struct HDC__*;

struct RECT {
    LONG left, top, right, bottom;
};
using LPRECT = RECT*;
struct MONITORINFO {
    DWORD cbSize;
    RECT rcMonitor, rcWork;
    DWORD dwFlags;
};
struct CRITICAL_SECTION {
    void* opaque;
};

inline constexpr int FALSE = 0;
inline constexpr int TRUE = 1;
inline constexpr DWORD MAX_PATH = 260;
inline constexpr DWORD GENERIC_READ = 1, FILE_SHARE_READ = 1, FILE_SHARE_WRITE = 2, FILE_SHARE_DELETE = 4;
inline constexpr DWORD OPEN_EXISTING = 3, FILE_ATTRIBUTE_NORMAL = 0x80, FILE_FLAG_SEQUENTIAL_SCAN = 0x08000000;
inline constexpr DWORD ERROR_SUCCESS = 0, ERROR_FILE_NOT_FOUND = 2, ERROR_NOT_ENOUGH_MEMORY = 8, ERROR_OUTOFMEMORY = 14,
                       ERROR_INSUFFICIENT_BUFFER = 122, ERROR_BAD_PATHNAME = 161, ERROR_NO_SYSTEM_RESOURCES = 1450;
inline constexpr DWORD GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT = 2, GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS = 4;
inline constexpr UINT CP_ACP = 0, CP_UTF8 = 65001;
inline constexpr int SM_XVIRTUALSCREEN = 76, SM_YVIRTUALSCREEN = 77, SM_CXVIRTUALSCREEN = 78, SM_CYVIRTUALSCREEN = 79;
inline constexpr unsigned long KEY_ALL_ACCESS = 0xF003F;
inline HKEY const HKEY_LOCAL_MACHINE = nullptr;
inline HKEY const HKEY_USERS = nullptr;

// What every file holds, wherever it lies; the first file that is opened is the first one closed.
namespace native {
void SetFile(std::span<const unsigned char> bytes);
}

HANDLE CreateFileA(const char* path, DWORD access, DWORD sharing, void* security, DWORD disposition, DWORD flags,
                   HANDLE pattern);
BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size);
BOOL ReadFile(HANDLE file, void* buffer, DWORD size, DWORD* count, void* overlapped);
BOOL CloseHandle(HANDLE handle);
DWORD GetLastError();
void SetLastError(DWORD error);
DWORD GetModuleFileNameA(HMODULE module, char* path, DWORD size);
DWORD GetModuleFileNameW(HMODULE module, wchar_t* path, DWORD size);
HMODULE GetModuleHandleW(const wchar_t* name);
BOOL GetModuleHandleExW(DWORD flags, const wchar_t* name, HMODULE* module);
void OutputDebugStringW(const wchar_t* line);
int MultiByteToWideChar(UINT codePage, DWORD flags, const char* text, int length, wchar_t* wide, int size);
int WideCharToMultiByte(UINT codePage, DWORD flags, const wchar_t* text, int length, char* narrow, int size,
                        const char* replacement, BOOL* isReplaced);

// Named by code that no target reaches.
LSTATUS RegCloseKey(HKEY key);
BOOL FreeLibrary(HMODULE module);
void* LocalFree(void* block);
int GetSystemMetrics(int index);
BOOL GetMonitorInfoW(HMONITOR monitor, MONITORINFO* info);
BOOL EnumDisplayMonitors(HDC context, const RECT* clip, BOOL (*each)(HMONITOR, HDC, LPRECT, LPARAM), LPARAM parameter);
