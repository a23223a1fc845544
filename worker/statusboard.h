/**
 * @file
 * Writes what only the worker knows of its recording where its host can read it (sdk/vcr/recordingstatus.h).
 */
#pragma once

#include "common/win/handle.h"
#include "sdk/vcr/recordingstatus.h"

#include <cstdint>

namespace kxvcr {

/** The section of shared memory; without one, nothing is written. To be used by one thread at a time. */
class StatusBoard {
public:
    StatusBoard() noexcept = default;
    StatusBoard(const StatusBoard&) = delete;
    StatusBoard& operator=(const StatusBoard&) = delete;

    /**
     * Makes the section of a host, or takes over the one that an earlier worker made and the host still has open. May
     * be called again, as a second start after a refused one does.
     * @return false when the system refuses it, with the reason in GetLastError()
     */
    bool Open(std::uint32_t hostProcessId) noexcept;

    /** Replaces the figures; a reader never takes half of them for the whole. Version and sequence are the board's. */
    void Write(const RecordingStatus& status) noexcept;

private:
    kx::KernelHandle m_section;
    kx::Owner<kx::FreedBy<RecordingStatus*, &UnmapViewOfFile>> m_status;
};

} // namespace kxvcr
