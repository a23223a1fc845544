/**
 * @file
 * Owners of the system's handles and blocks.
 */
#pragma once

#include "common/win/owner.h"

#include <windows.h>

namespace kx {

struct KernelHandlePolicy {
    using Value = HANDLE;
    static Value None() noexcept { return nullptr; }
    static void Free(Value handle) noexcept { CloseHandle(handle); }
};
/** A process, thread, event, token or job: their creators return null on failure. */
using KernelHandle = Owner<KernelHandlePolicy>;

struct FileHandlePolicy {
    using Value = HANDLE;
    static Value None() noexcept { return INVALID_HANDLE_VALUE; }
    static void Free(Value handle) noexcept { CloseHandle(handle); }
};
/** A file, a pipe or a snapshot: their creators return INVALID_HANDLE_VALUE on failure. */
using FileHandle = Owner<FileHandlePolicy>;

struct RegistryKeyPolicy {
    using Value = HKEY;
    static Value None() noexcept { return nullptr; }
    static void Free(Value key) noexcept { RegCloseKey(key); }
};
using RegistryKey = Owner<RegistryKeyPolicy>;

struct ModulePolicy {
    using Value = HMODULE;
    static Value None() noexcept { return nullptr; }
    static void Free(Value module) noexcept { FreeLibrary(module); }
};
/** A library that LoadLibrary loaded or whose count was raised. */
using Module = Owner<ModulePolicy>;

template <class T>
struct LocalBlockPolicy {
    using Value = T*;
    static Value None() noexcept { return nullptr; }
    static void Free(Value block) noexcept { LocalFree(block); }
};
/** A block that a system function allocated and that LocalFree frees. */
template <class T>
using LocalBlock = Owner<LocalBlockPolicy<T>>;

} // namespace kx
