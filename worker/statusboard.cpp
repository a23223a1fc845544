// Writes the recording's figures into shared memory. The sequence is odd while they change, so that a reader that meets
// an odd one, or another one afterwards, reads again.
#include "worker/statusboard.h"

#include <atomic>
#include <cstddef>
#include <cstring>
#include <cwchar>
#include <iterator>

namespace kxvcr {

bool StatusBoard::Open(std::uint32_t hostProcessId) noexcept {
    wchar_t name[std::size(kRecordingStatusNameFormat) + 10] = {};
    _snwprintf(name, std::size(name) - 1, kRecordingStatusNameFormat, static_cast<unsigned long>(hostProcessId));
    m_status.Reset();
    m_section.Reset(
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(RecordingStatus), name));
    if (!m_section) {
        return false;
    }
    m_status.Reset(static_cast<RecordingStatus*>(
        MapViewOfFile(m_section.Get(), FILE_MAP_WRITE | FILE_MAP_READ, 0, 0, sizeof(RecordingStatus))));
    if (!m_status) {
        return false;
    }
    Write({});
    return true;
}

void StatusBoard::Write(const RecordingStatus& status) noexcept {
    if (!m_status) {
        return;
    }
    constexpr std::size_t kFigures = offsetof(RecordingStatus, pictures);
    const std::atomic_ref sequence(m_status->sequence);
    const std::uint32_t odd = sequence.load(std::memory_order_relaxed) | 1;
    sequence.store(odd, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release); // nothing below is seen before the odd sequence
    m_status->version = kRecordingStatusVersion;
    std::memcpy(reinterpret_cast<std::byte*>(m_status.Get()) + kFigures,
                reinterpret_cast<const std::byte*>(&status) + kFigures, sizeof(status) - kFigures);
    sequence.store(odd + 1, std::memory_order_release);
}

} // namespace kxvcr
