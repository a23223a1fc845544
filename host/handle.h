/**
 * @file
 * Owners of Windows kernel and file handles.
 */
#pragma once

#include <windows.h>

#include <memory>

namespace kxrecord {

struct KernelHandleCloser {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};

/** An event or any other handle whose failure value is null. */
using KernelHandle = std::unique_ptr<HANDLE, KernelHandleCloser>;

/** A file handle: INVALID_HANDLE_VALUE, which CreateFileW returns on failure, counts as none. */
class FileHandle {
public:
    explicit FileHandle(HANDLE handle) : m_handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}

    explicit operator bool() const { return m_handle != nullptr; }
    HANDLE get() const { return m_handle.get(); }

private:
    KernelHandle m_handle;
};

} // namespace kxrecord
