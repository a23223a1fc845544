/**
 * @file
 * Where a module's file lies, whatever the length of its path.
 */
#pragma once

#include <windows.h>

#include <cstddef>
#include <optional>
#include <string>

namespace kx {

inline constexpr std::size_t kLongestPath = 32768; ///< characters that a Windows path can have, with its zero

/**
 * The full path of the file from which @p module was loaded; null stands for the program of the process.
 * @return nothing when the system does not tell; GetLastError has the reason
 * @throws std::bad_alloc
 */
inline std::optional<std::wstring> ModulePath(HMODULE module) {
    for (std::size_t capacity = MAX_PATH; capacity <= 2 * kLongestPath; capacity *= 2) {
        std::wstring path(capacity, L'\0');
        const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(capacity));
        if (length == 0) {
            return std::nullopt;
        }
        if (length < capacity) { // a path that was cut fills the buffer
            path.resize(length);
            return path;
        }
    }
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return std::nullopt;
}

/**
 * The folder of @p module's file, without a separator at its end.
 * @return nothing when the system does not tell; GetLastError has the reason
 * @throws std::bad_alloc
 */
inline std::optional<std::wstring> ModuleFolder(HMODULE module) {
    std::optional<std::wstring> path = ModulePath(module);
    if (!path) {
        return std::nullopt;
    }
    const std::size_t separator = path->find_last_of(L"\\/");
    if (separator == std::wstring::npos) {
        SetLastError(ERROR_BAD_PATHNAME);
        return std::nullopt;
    }
    path->resize(separator);
    return path;
}

/** The module that contains @p address; null when none does. Its count is not raised. */
inline HMODULE ModuleContaining(const void* address) noexcept {
    constexpr DWORD kFlags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    HMODULE module = nullptr;
    return GetModuleHandleExW(kFlags, static_cast<const wchar_t*>(address), &module) ? module : nullptr;
}

} // namespace kx
