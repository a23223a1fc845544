/**
 * @file
 * Owners of the system's handles and blocks.
 */
#pragma once

#include "common/win/owner.h"

#include <windows.h>

namespace kx {

/** A process, thread, event, token or job: their creators return null on failure. */
using KernelHandle = Owner<FreedBy<HANDLE, &CloseHandle>>;

/** A file, a pipe or a snapshot: their creators return INVALID_HANDLE_VALUE, which is -1, on failure. */
using FileHandle = Owner<FreedBy<HANDLE, &CloseHandle, -1>>;

using RegistryKey = Owner<FreedBy<HKEY, &RegCloseKey>>;

/** A library that LoadLibrary loaded or whose count was raised. */
using Module = Owner<FreedBy<HMODULE, &FreeLibrary>>;

/** A block that a system function allocated and that LocalFree frees. */
template <class T>
using LocalBlock = Owner<FreedBy<T*, &LocalFree>>;

} // namespace kx
