/**
 * @file
 * Where the captured pictures go: into the replay buffer, and from the start of a recording on into its file.
 */
#pragma once

#include "filesink.h"
#include "framesink.h"
#include "replaybuffer.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>

namespace kxvcr {

/**
 * Switches from the replay buffer to a file between two slots, so that each slot is in the file once. The sink's own
 * members are called by the capturing thread, the others by any.
 */
class CaptureSink final : public FrameSink {
public:
    /** Keeps the pictures of so many slots until the switch; none unless told. */
    void KeepReplay(std::uint64_t slots);

    /** Gives what was kept and everything from the next slot on to @p file. @return false when capturing has ended */
    bool SwitchTo(std::unique_ptr<FileSink>& file);

    /** Gives the file back, when capturing could not be started. */
    std::unique_ptr<FileSink> Detach() noexcept;

    bool AddFrame(std::uint64_t slot, std::span<const std::byte> jpeg) override;

    /** Finishes and closes the file, if any. */
    void Finish(std::uint64_t endSlot) override;

    /** Capturing has ended; a file that was not finished is closed as it is. */
    void End() noexcept;

    /** As FileSink's. */
    void LimitFinish(std::int64_t ticks) noexcept;

    /** Whether pictures are missing at the end of the file. */
    bool CutShort() const noexcept { return m_cutShort; }

private:
    std::mutex m_mutex;
    ReplayBuffer m_replay;
    std::unique_ptr<FileSink> m_file;
    std::int64_t m_finishLimit = INT64_MAX;
    bool m_ended = false;
    std::atomic<bool> m_cutShort = false;
};

} // namespace kxvcr
