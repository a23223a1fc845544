// One rule for the whole library: what cannot be answered for want of memory is std::bad_alloc, never a failure value,
// so that nobody takes a lost answer for a missing one. Here the codes of Windows that say so.
#pragma once

#include <windows.h>

#include <new>

namespace kxutil {

/** @param error a code of GetLastError or of a registry function */
inline void ThrowIfOutOfMemory(DWORD error) {
    if (error == ERROR_NOT_ENOUGH_MEMORY || error == ERROR_OUTOFMEMORY || error == ERROR_NO_SYSTEM_RESOURCES) {
        throw std::bad_alloc();
    }
}

/** Whether a registry function did what it was asked; no memory is std::bad_alloc. */
inline bool IsDone(LSTATUS status) {
    ThrowIfOutOfMemory(static_cast<DWORD>(status));
    return status == ERROR_SUCCESS;
}

} // namespace kxutil
