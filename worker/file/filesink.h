/**
 * @file
 * A recording's file as a sink for pictures: a thread of its own writes them, so that a slow disk delays no capture.
 */
#pragma once

#include "worker/file/matroskawriter.h"
#include "worker/file/outputfile.h"
#include "worker/framesink.h"
#include "worker/replay/picturequeue.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace kxvcr {

/** What became of the pictures of one file, and the time that the disk took for them together. */
struct FileStatistics {
    std::uint64_t written = 0;        ///< pictures in the file
    std::uint64_t flushes = 0;        ///< times that the file's data was brought to the disk
    std::size_t mostBytesWaiting = 0; ///< the longest that the queue was
    std::int64_t writeTicks = 0;
    std::int64_t flushTicks = 0;
};

/**
 * Writes pictures to a file in the background. The first picture, of whatever slot, is shown at the file's time 0.
 *
 * About once a second the file's data is brought to the disk, so that a loss of power costs no more.
 */
class FileSink final : public FrameSink {
public:
    static constexpr std::int64_t kFlushSeconds = 1;

    /** @param memoryLimit bytes that may wait to be written; with more waiting, AddFrame() waits for the disk */
    FileSink(std::unique_ptr<OutputFile> file, std::unique_ptr<MatroskaWriter> writer,
             std::size_t memoryLimit) noexcept;
    ~FileSink() override;

    /** Starts the thread. @return false when the system refuses it */
    bool Start() noexcept;

    /** Writes @p pictures, which are all older than any other, first. To be called before the first AddFrame(). */
    void Begin(PictureQueue pictures) noexcept;

    /** Copies the picture; it is written soon afterwards. @throws std::bad_alloc */
    bool AddFrame(std::uint64_t slot, std::span<const std::byte> jpeg) override;

    /** Returns when everything is written, or the limit of LimitFinish() was passed, and the file is finished. */
    void Finish(std::uint64_t endSlot) override;

    /** Leaves out the pictures that Finish() has not written at @p ticks. May be called from any thread. */
    void LimitFinish(std::int64_t ticks) noexcept { m_finishLimit = ticks; }

    /** Closes and removes the file. */
    void Discard() noexcept;

    /** Whether pictures are missing at the end of the file; final after Finish(). */
    bool CutShort() const noexcept { return m_cutShort; }

    /** Final after Finish(). */
    const FileStatistics& Statistics() const noexcept { return m_statistics; }

    /** Bytes in the file; final after Finish(). */
    std::uint64_t Size() const noexcept { return m_writer->Size(); }

private:
    void WriteAll() noexcept;
    bool WaitForPicture(std::unique_lock<std::mutex>& lock);
    bool Write(const QueuedPicture& picture) noexcept;
    void FlushWhenDue();
    void Flush();
    void EndThread() noexcept;

    std::unique_ptr<OutputFile> m_file;
    std::unique_ptr<MatroskaWriter> m_writer;
    std::size_t m_memoryLimit;
    std::atomic<std::int64_t> m_finishLimit = INT64_MAX;
    std::atomic<bool> m_cutShort = false;

    std::mutex m_mutex;
    std::condition_variable m_pictureCame; // or the end
    std::condition_variable m_roomCame;    // or a refusal
    PictureQueue m_queue;
    bool m_ending = false;
    std::optional<std::uint64_t> m_firstSlot;

    // The thread's own, until it has ended.
    FileStatistics m_statistics;
    std::uint64_t m_writtenEnd = 0;
    std::int64_t m_flushDue = 0;

    std::thread m_thread;
};

} // namespace kxvcr
