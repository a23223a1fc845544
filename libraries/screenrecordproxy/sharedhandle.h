/**
 * @file
 * A handle to wait on while its owner may close it.
 */
#pragma once

#include "common/win/handle.h"

#include <windows.h>

namespace KxScreenRecord {

/**
 * A handle of somebody else's to wait on while its owner may close it: a duplicate of its own, or the given handle
 * itself when the system has none left to give. Made while the owner cannot close it yet.
 */
class SharedHandle {
public:
    SharedHandle() noexcept = default;
    explicit SharedHandle(HANDLE handle) noexcept : m_borrowed(handle) {
        HANDLE duplicate = nullptr;
        const HANDLE self = GetCurrentProcess();
        if (DuplicateHandle(self, handle, self, &duplicate, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
            m_duplicate.Reset(duplicate);
        }
    }

    HANDLE Get() const noexcept { return m_duplicate ? m_duplicate.Get() : m_borrowed; }

private:
    HANDLE m_borrowed = nullptr;
    kx::KernelHandle m_duplicate;
};

} // namespace KxScreenRecord
