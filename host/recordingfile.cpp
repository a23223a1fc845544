#include "recordingfile.h"

#include "handle.h"

#include <utility>

namespace {

// The worker holds up to a few encoded pictures and, at the end, the index of the file.
constexpr std::uint64_t kNeededBytes = std::uint64_t{16} << 20;
constexpr std::uint64_t kWarnedAheadMs = 30000;
constexpr std::uint64_t kRateKnownMs = 2000; ///< before that, what was replayed counts for too much

} // namespace

RecordingFile::RecordingFile(std::wstring path)
    : m_path(std::move(path)),
      m_folder(m_path.substr(0, m_path.find_last_of(L'\\') + 1)) {}

std::optional<std::uint64_t> RecordingFile::Bytes() const {
    // The folder's entry of a file that is being written may lag behind, the file itself does not.
    const DWORD shared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const FileHandle file(
        CreateFileW(m_path.c_str(), FILE_READ_ATTRIBUTES, shared, nullptr, OPEN_EXISTING, 0, nullptr));
    LARGE_INTEGER size = {};
    if (!file || !GetFileSizeEx(file.get(), &size)) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(size.QuadPart);
}

std::optional<std::uint64_t> RecordingFile::DiskFreeBytes() const {
    ULARGE_INTEGER free = {};
    if (!GetDiskFreeSpaceExW(m_folder.c_str(), &free, nullptr, nullptr)) {
        return std::nullopt;
    }
    return free.QuadPart;
}

bool IsDiskLow(std::uint64_t diskFreeBytes, std::uint64_t fileBytes, std::chrono::milliseconds elapsed) {
    if (diskFreeBytes < kNeededBytes) {
        return true;
    }
    const auto elapsedMs = static_cast<std::uint64_t>(elapsed.count());
    return elapsedMs >= kRateKnownMs && diskFreeBytes < fileBytes / elapsedMs * kWarnedAheadMs;
}
