// The recording's file on disk, over a Win32 handle. Every write names its offset, so that there is no file
// pointer to get out of step after a failed write.
#include "worker/file/outputfile.h"

#include <utility>

namespace kxvcr {

namespace {

// The system takes paths past MAX_PATH only when they are absolute and marked.
std::wstring SystemPath(const std::wstring& path) {
    const DWORD length = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (length < MAX_PATH) {
        return path;
    }
    std::wstring absolute(length, L'\0');
    absolute.resize(GetFullPathNameW(path.c_str(), length, absolute.data(), nullptr));
    if (absolute.starts_with(LR"(\\?\)") || absolute.starts_with(LR"(\\.\)")) {
        return absolute;
    }
    if (absolute.starts_with(LR"(\\)")) {
        return LR"(\\?\UNC)" + absolute.substr(1);
    }
    return LR"(\\?\)" + absolute;
}

} // namespace

std::unique_ptr<DiskFile> DiskFile::Create(const std::wstring& path) {
    // Before the file is made: one that nothing owns for want of memory would stay behind empty.
    std::unique_ptr<DiskFile> disk(new DiskFile(SystemPath(path)));
    disk->m_file.Reset(CreateFileW(disk->m_path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!disk->m_file) {
        return nullptr;
    }
    if (GetFileType(disk->m_file.Get()) != FILE_TYPE_DISK) {
        SetLastError(ERROR_BAD_PATHNAME);
        return nullptr;
    }
    return disk;
}

DiskFile::DiskFile(std::wstring path) noexcept : m_path(std::move(path)) {}

bool DiskFile::WriteAt(std::uint64_t offset, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        OVERLAPPED position = {};
        position.Offset = static_cast<DWORD>(offset);
        position.OffsetHigh = static_cast<DWORD>(offset >> 32);
        const DWORD wanted = bytes.size() > MAXLONG ? DWORD{MAXLONG} : static_cast<DWORD>(bytes.size());
        DWORD written = 0;
        if (!WriteFile(m_file.Get(), bytes.data(), wanted, &written, &position)) {
            return false;
        }
        if (written == 0) {
            SetLastError(ERROR_DISK_FULL);
            return false;
        }
        offset += written;
        bytes = bytes.subspan(written);
    }
    return true;
}

bool DiskFile::Truncate(std::uint64_t size) {
    FILE_END_OF_FILE_INFO end = {};
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    return SetFileInformationByHandle(m_file.Get(), FileEndOfFileInfo, &end, sizeof(end)) != FALSE;
}

bool DiskFile::Flush() {
    return FlushFileBuffers(m_file.Get()) != FALSE;
}

void DiskFile::Discard() noexcept {
    m_file.Reset();
    DeleteFileW(m_path.c_str());
}

} // namespace kxvcr
