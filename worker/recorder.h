/**
 * @file
 * The recorder: takes a picture for every slot of the frame clock and gives it to a sink, in a thread of its own.
 */
#pragma once

#include "common/win/handle.h"
#include "worker/capturesink.h"
#include "worker/commands.h"
#include "worker/framesink.h"
#include "worker/parameters.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <utility>

namespace kxvcr {

class LiveServer;

/** What became of the slots of one recording, and the time that the steps took together. */
struct RecordStatistics {
    std::uint64_t captured = 0;  ///< slots with a picture of their own
    std::uint64_t unchanged = 0; ///< of these, slots whose picture was the one before, not encoded again
    std::uint64_t repeated = 0;  ///< slots missed, filled with the picture before
    std::uint64_t skipped = 0;   ///< slots left out of the file after a gap too long to fill
    std::uint64_t written = 0;   ///< pictures that the sink took
    std::int64_t grabTicks = 0;
    std::int64_t encodeTicks = 0;
};

/** Encoded pictures of something. */
class PictureSource {
public:
    virtual ~PictureSource() = default;

    /**
     * Takes a picture now and counts it.
     * @return the JPEG, valid until the next call; the one before when a new one cannot be had; empty when none was
     *         ever had
     */
    virtual std::span<const std::byte> Take(RecordStatistics& statistics) = 0;
};

/** Gives pictures to a sink at the frame clock's pace. */
class FrameLoop {
public:
    FrameLoop(PictureSource& pictures, FrameSink& sink, std::uint32_t framesPerSecond) noexcept
        : m_pictures(pictures),
          m_sink(sink),
          m_framesPerSecond(framesPerSecond) {}

    /**
     * Runs until @p stop is signalled or the sink refuses a picture, then finishes the sink. Slots without a picture
     * of their own, up to the moment of the stop, repeat the picture before.
     * @return false when the sink refused. @throws std::bad_alloc
     */
    bool Run(HANDLE stop);

    const RecordStatistics& Statistics() const noexcept { return m_statistics; }

private:
    bool GiveUntilStopped(HANDLE stop);
    bool Give(std::uint64_t slot);
    bool Repeat(std::uint64_t from, std::uint64_t end);

    PictureSource& m_pictures;
    FrameSink& m_sink;
    std::uint32_t m_framesPerSecond;
    std::uint64_t m_nextSlot = 0;
    std::span<const std::byte> m_picture;
    RecordStatistics m_statistics;
};

/** Records the screen. All members may be called from any thread. */
class ScreenRecorder final : public RecordingDevice {
public:
    /** @throws std::bad_alloc */
    ScreenRecorder();
    ~ScreenRecorder() override;

    /** Calls @p callback in the recording's thread when a file was closed early; set before StartFile(). */
    void SetCutShortCallback(std::function<void()> callback) { m_cutShortCallback = std::move(callback); }

    ScreenLayout Layout() const override;

    /**
     * Does everything slow: devices, memory, the first picture and its encoding. Begins to capture when a replay is
     * to be kept.
     */
    Result Prepare(const RecordSettings& settings) override;

    /**
     * Creates the file and begins to record, with what the replay has kept at the file's beginning. A file that
     * cannot be started is removed.
     */
    Result StartFile(const std::wstring& path) override;

    /** Begins to listen and to show the screen to viewers. What the replay has kept is dropped. */
    std::int32_t StartLive(const LiveSettings& settings) override;

    /**
     * Ends the recording or the live server, if any; returns when its file is closed or its viewers are gone.
     * Nothing can be started afterwards.
     */
    void Finish() noexcept;

    /** From now on, Finish() leaves out the pictures that are still in memory after so many milliseconds. */
    void LimitFinish(std::uint32_t milliseconds) noexcept;

    /** Whether a recording's file had to be closed before its end, because it could not be written. */
    bool FileCutShort() const noexcept { return m_sink.CutShort(); }

private:
    std::unique_ptr<FileSink> OpenFile(const std::wstring& path) const;
    bool StartCapturing() noexcept;
    void Capture() noexcept;

    mutable std::mutex m_mutex;
    kx::KernelHandle m_stop;
    bool m_ended = false;
    bool m_started = false; // a file or the live server
    RecordSettings m_settings;
    std::unique_ptr<PictureSource> m_pictures;
    std::unique_ptr<LiveServer> m_live;
    CaptureSink m_sink;
    std::thread m_thread;
    std::function<void()> m_cutShortCallback;
};

} // namespace kxvcr
