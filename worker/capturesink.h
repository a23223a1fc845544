/**
 * @file
 * Where the captured pictures go: into the replay buffer, and from a start on into a file or to the live server.
 */
#pragma once

#include "worker/file/filesink.h"
#include "worker/framesink.h"
#include "worker/replay/replaybuffer.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>

namespace kxvcr {

/**
 * Switches from the replay buffer to a target, once: to a file between two slots, so that each slot is in the file
 * once, or to the live server. The sink's own members are called by the capturing thread, the others by any.
 */
class CaptureSink final : public FrameSink {
public:
    /** Keeps the pictures of so many slots until the switch; none unless told. */
    void KeepReplay(std::uint64_t slots);

    /** Gives what was kept and everything from the next slot on to @p file. @return false when capturing has ended */
    bool SwitchTo(std::unique_ptr<FileSink>& file);

    /**
     * Drops what was kept and gives everything from the next slot on to @p live, which must live until capturing has
     * ended. @return false when capturing has ended
     */
    bool SwitchTo(FrameSink& live) noexcept;

    /** Takes the target away, when capturing could not be started. @return the file, if it was one */
    std::unique_ptr<FileSink> Detach() noexcept;

    bool AddFrame(std::uint64_t slot, std::span<const std::byte> jpeg) override;

    /** Finishes the target, if any, and closes it when it is a file. */
    void Finish(std::uint64_t endSlot) override;

    /** Capturing has ended; a file that was not finished is closed as it is, and counts as cut short. */
    void End() noexcept;

    /** As FileSink's. */
    void LimitFinish(std::int64_t ticks) noexcept;

    /** Whether pictures are missing at the end of the file. */
    bool CutShort() const noexcept { return m_cutShort; }

private:
    FrameSink* Target() const noexcept;

    std::mutex m_mutex;
    ReplayBuffer m_replay;
    std::unique_ptr<FileSink> m_file;
    FrameSink* m_live = nullptr;
    std::int64_t m_finishLimit = INT64_MAX;
    bool m_ended = false;
    std::atomic<bool> m_cutShort = false;
};

} // namespace kxvcr
