/**
 * @file
 * The recorder: makes what the commands ask for out of a pipeline, a replay, a file or the live server.
 */
#pragma once

#include "worker/commands.h"
#include "worker/file/fileformat.h"
#include "worker/file/filesink.h"
#include "worker/live/liveserver.h"
#include "worker/livefeed.h"
#include "worker/packethub.h"
#include "worker/pipeline.h"
#include "worker/settings.h"
#include "worker/statusboard.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace kxvcr {

/** Records the screen. All members may be called from any thread. */
class ScreenRecorder final : public RecordingDevice {
public:
    ScreenRecorder() = default;
    ~ScreenRecorder() override;

    /**
     * Calls @p callback in a thread of the recorder when what was started has ended by itself: a file was closed early,
     * or the recorded window is closed. Set before Prepare().
     */
    void SetEndCallback(std::function<void()> callback) { m_endCallback = std::move(callback); }

    ScreenLayout Layout() const override;

    /**
     * Does everything slow: devices, memory, the encoder, the first picture and its encoding. Begins to capture when a
     * replay is to be kept. A window that is closed before something was started ends what is started then: the replay
     * of a program that crashed is worth keeping.
     */
    Result Prepare(const RecordSettings& asked) override;

    /**
     * Creates the file, in the format of its name, and begins to record, with what the replay has kept at the file's
     * beginning. A file that cannot be started is removed.
     */
    Result StartFile(const std::wstring& path) override;

    /** Begins to listen and to show the screen to viewers. What the replay has kept is dropped. */
    LiveStart StartLive(const LiveSettings& settings) override;

    /**
     * Ends the recording or the live server, if any; returns when its file is closed or its viewers are gone.
     * Nothing can be started afterwards.
     */
    void Finish() noexcept;

    /** From now on, Finish() leaves out what is still in memory after so many milliseconds. */
    void LimitFinish(std::uint32_t milliseconds) noexcept;

    /** Whether a recording's file had to be closed before its end, because it could not be written. */
    bool FileCutShort() const noexcept { return m_cutShort; }

    /** Whether what was started showed a window that was closed. */
    bool WindowClosed() const noexcept { return m_windowClosed && m_started; }

private:
    bool CanStart() const noexcept { return !m_ended && m_parts.source != nullptr && !m_started; }
    Result MakeSource(RecordSettings& settings, PipelineParts& parts);
    void OnWindowClosed() noexcept;
    void NoteStarted();
    Result EnsureEncoder(Codec codec);
    Result EnsureSoundEncoder(Codec picture);
    StreamFormat Format() const;
    Result StartReplay();
    Result StartCapturing();
    Result StartFile(const std::wstring& path, FileFormat format);
    Result Record(const std::shared_ptr<FileSink>& file, MediaTime start);
    std::shared_ptr<FileSink> OpenFile(const std::wstring& path, FileFormat format, MediaTime start);
    FileSinkOwner OwnerOfFile();
    void ReportProgress(const FileProgress& progress) noexcept;

    mutable std::mutex m_mutex;
    bool m_ended = false;
    std::atomic<bool> m_started = false; // a file or the live server
    RecordSettings m_settings;
    PipelineParts m_parts;
    PacketHub m_hub;
    std::unique_ptr<LiveFeed> m_liveFeed;
    std::shared_ptr<LiveServer> m_live;
    StatusBoard m_board;
    MediaTime m_liveStart{};           // the length of the replay in the file
    std::uint64_t m_droppedBefore = 0; // pictures dropped before the file was started
    std::function<void()> m_endCallback;
    std::atomic<bool> m_cutShort = false;
    std::atomic<bool> m_windowClosed = false;

    std::mutex m_limitMutex; // for the next two
    std::shared_ptr<FileSink> m_file;
    std::int64_t m_finishLimit = INT64_MAX;

    std::unique_ptr<Pipeline> m_pipeline;
    std::atomic<const Pipeline*> m_running = nullptr; // the same, for the file's thread
};

} // namespace kxvcr
