// Reads the worker's section of shared memory. The worker counts the sequence up before and after it writes: figures
// read between two equal even numbers belong together.
#include "host/recordingstatus.h"

#include "common/win/handle.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <iterator>

namespace kxrecord {

namespace {

constexpr int kAttempts = 1000; ///< the worker writes for some nanoseconds

std::uint32_t SequenceOf(const void* view) noexcept {
    const auto* const sequence = static_cast<const std::byte*>(view) + offsetof(kxvcr::RecordingStatus, sequence);
    return *reinterpret_cast<const volatile std::uint32_t*>(sequence);
}

} // namespace

StatusView::StatusView() noexcept {
    wchar_t name[64] = {};
    static_cast<void>(std::swprintf(name, std::size(name), kxvcr::kRecordingStatusNameFormat, GetCurrentProcessId()));
    const kx::KernelHandle section(OpenFileMappingW(FILE_MAP_READ, FALSE, name));
    if (section) {
        m_view.reset(MapViewOfFile(section.Get(), FILE_MAP_READ, 0, 0, sizeof(kxvcr::RecordingStatus)));
    }
}

std::optional<kxvcr::RecordingStatus> StatusView::Read() const noexcept {
    if (m_view == nullptr) {
        return std::nullopt;
    }
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        kxvcr::RecordingStatus status;
        const std::uint32_t before = SequenceOf(m_view.get());
        std::atomic_thread_fence(std::memory_order_acquire);
        std::memcpy(&status, m_view.get(), sizeof(status));
        std::atomic_thread_fence(std::memory_order_acquire);
        if (before % 2 == 0 && SequenceOf(m_view.get()) == before) {
            return status.version == kxvcr::kRecordingStatusVersion ? std::optional(status) : std::nullopt;
        }
        SwitchToThread();
    }
    return std::nullopt;
}

} // namespace kxrecord
