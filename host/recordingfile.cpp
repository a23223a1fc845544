// A recording's file as the system shows it to the host, while the worker writes it.
#include "host/recordingfile.h"

#include "common/win/handle.h"

#include <array>
#include <string_view>
#include <utility>

namespace kxrecord {

namespace {

// The worker holds up to a few encoded pictures and, at the end, the index of the file.
constexpr std::uint64_t kNeededBytes = std::uint64_t{16} << 20;
constexpr std::string_view kMp4Brand = "ftyp";                 // behind the four bytes of the box's size
constexpr std::string_view kMatroskaHead = "\x1a\x45\xdf\xa3"; // of WebM as well
constexpr std::uint64_t kWarnedAheadMs = 30000;
constexpr std::uint64_t kRateKnownMs = 2000; ///< before that, what was replayed counts for too much

} // namespace

RecordingFile::RecordingFile(std::wstring path)
    : m_path(std::move(path)),
      m_folder(m_path.substr(0, m_path.find_last_of(L'\\') + 1)) {}

std::optional<std::uint64_t> RecordingFile::Bytes() const {
    // The folder's entry of a file that is being written may lag behind, the file itself does not.
    const DWORD shared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const kx::FileHandle file(
        CreateFileW(m_path.c_str(), FILE_READ_ATTRIBUTES, shared, nullptr, OPEN_EXISTING, 0, nullptr));
    LARGE_INTEGER size = {};
    if (!file || !GetFileSizeEx(file.Get(), &size)) {
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

Existing WhatExists(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return Existing::Nothing;
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return Existing::Folder;
    }
    const DWORD shared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const kx::FileHandle file(CreateFileW(path.c_str(), GENERIC_READ, shared, nullptr, OPEN_EXISTING, 0, nullptr));
    std::array<char, 8> head = {};
    DWORD size = 0;
    if (!file || !ReadFile(file.Get(), head.data(), static_cast<DWORD>(head.size()), &size, nullptr)) {
        return Existing::Nothing;
    }
    const std::string_view text(head.data(), size);
    const bool isMp4 = text.size() == head.size() && text.substr(4) == kMp4Brand;
    return text.empty() || isMp4 || text.starts_with(kMatroskaHead) ? Existing::Recording : Existing::Other;
}

bool IsDiskLow(std::uint64_t diskFreeBytes, std::uint64_t fileBytes, std::chrono::milliseconds elapsed) {
    if (diskFreeBytes < kNeededBytes) {
        return true;
    }
    const auto elapsedMs = static_cast<std::uint64_t>(elapsed.count());
    return elapsedMs >= kRateKnownMs && diskFreeBytes < fileBytes / elapsedMs * kWarnedAheadMs;
}

} // namespace kxrecord
