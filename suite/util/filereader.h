// Sequential reading of a file that others may be writing, renaming or deleting meanwhile.
#pragma once

#include "common/win/handle.h"
#include "outofmemory.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>

namespace kxutil {

class FileReader {
public:
    /** Opens a file; its path is in the process's ANSI code page. A folder does not open. */
    explicit FileReader(const std::string& path) : m_file(Open(path)) {}

    bool IsOpen() const noexcept { return static_cast<bool>(m_file); }

    /** How many bytes the file has now; 0 when the system does not tell. */
    size_t Size() const noexcept {
        LARGE_INTEGER size{};
        return GetFileSizeEx(m_file.Get(), &size) ? static_cast<size_t>(size.QuadPart) : 0;
    }

    /** The next bytes, as many as fit; 0 at the end of the file; nothing when reading fails. */
    std::optional<size_t> Read(std::span<unsigned char> buffer) {
        DWORD count = 0;
        if (!ReadFile(m_file.Get(), buffer.data(), static_cast<DWORD>(buffer.size()), &count, nullptr)) {
            ThrowIfOutOfMemory(GetLastError());
            return std::nullopt;
        }
        return count;
    }

private:
    static kx::FileHandle Open(const std::string& path) {
        if (path.find('\0') != std::string::npos) {
            return {};
        }
        kx::FileHandle file(CreateFileA(path.c_str(), GENERIC_READ,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                        FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
        if (!file) {
            ThrowIfOutOfMemory(GetLastError());
        }
        return file;
    }

    kx::FileHandle m_file;
};

} // namespace kxutil
