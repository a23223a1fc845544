/**
 * @file
 * A recording's file as a sink for packets: a thread of its own writes them, so that a slow disk delays no capture.
 */
#pragma once

#include "worker/file/mediawriter.h"
#include "worker/file/outputfile.h"
#include "worker/packet.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <thread>

namespace kxvcr {

/** How far a file has come. */
struct FileProgress {
    std::uint64_t pictures = 0; ///< pictures that the file shows
    MediaTime length{};         ///< of the file, in its own time
    std::uint64_t bytes = 0;    ///< in the file
    bool isFinished = false;
};

/** What the disk took for all packets of one file together. */
struct FileStatistics {
    std::uint64_t packets = 0;        ///< in the file
    std::uint64_t diskFlushes = 0;    ///< times that the file's data was brought to the disk
    std::size_t mostBytesWaiting = 0; ///< the longest that the queue was
    std::int64_t writeTicks = 0;
    std::int64_t diskFlushTicks = 0;
};

/** What a file sink asks and tells. All are called from its thread, the first two until Finish() returns. */
struct FileSinkOwner {
    std::function<MediaTime()> settled; ///< no packet of a picture before this moment comes any more
    std::function<void(const FileProgress&)> onProgress;
    std::function<void()> onCutShort; ///< the file was closed early
};

/**
 * Writes packets to a file in the background: the first picture at once, then several times a second what has come, and
 * about once a second everything to the disk itself, so that a killed worker loses less than half a second and a loss
 * of power about one.
 */
class FileSink final : public PacketSink {
public:
    static constexpr std::int64_t kFlushMilliseconds = 250;
    static constexpr std::int64_t kDiskFlushMilliseconds = 1000;

    /** What a packet takes beside its bytes while it waits. */
    static constexpr std::size_t kBytesPerPacket = 160;

    /**
     * @param writer of @p file, which begins at @p start
     * @param memoryLimit bytes that may wait to be written; with more waiting, Add() waits for the disk
     * @throws std::bad_alloc file and writer are then still the caller's
     */
    FileSink(std::unique_ptr<OutputFile>&& file, std::unique_ptr<MediaWriter>&& writer, MediaTime start,
             std::size_t memoryLimit, FileSinkOwner owner);
    ~FileSink() override;

    /** Starts the thread. @return false when the system refuses it */
    bool Start() noexcept;

    /** Takes a packet, which is written soon afterwards. May be called from any thread. @throws std::bad_alloc */
    bool Add(const SharedPacket& packet) override;
    bool AddAll(std::span<const SharedPacket> packets) override; ///< @throws std::bad_alloc

    /** Returns when everything is written, or the limit of LimitFinish() was passed, and the file is finished. */
    void Finish(MediaTime end) override;

    /** Leaves out the packets that Finish() has not written at @p ticks. May be called from any thread. */
    void LimitFinish(std::int64_t ticks) noexcept { m_finishLimit = ticks; }

    /** Closes and removes the file. */
    void Discard() noexcept;

    /** Whether packets are missing at the end of the file; final after Finish(). */
    bool CutShort() const noexcept { return m_cutShort; }

    /** Final after Finish(). */
    const FileStatistics& Statistics() const noexcept { return m_statistics; }

    /** Final after Finish(). */
    const FileProgress& Progress() const noexcept { return m_progress; }

private:
    void Append(const SharedPacket& packet);
    void WriteAll() noexcept;
    std::optional<SharedPacket> WaitForPacket(); // null: it is time for a flush; none: the end
    MediaTime CompleteUntil() const noexcept;
    bool Do(const SharedPacket& packet) noexcept;
    bool EndsBacklog(const SharedPacket& packet) const noexcept;
    bool Write(const SharedPacket& packet) noexcept;
    bool Give(const SharedPacket& packet) noexcept;
    bool Flush(MediaTime until) noexcept;
    bool GiveUp() noexcept;
    void FlushToDisk() noexcept;
    void EndThread() noexcept;

    // Both ask for memory when they are made, and stand first: without it nothing was taken from the caller yet.
    std::deque<SharedPacket> m_queue;
    std::deque<SharedPacket> m_taken; // by the thread out of the queue, and not yet written

    std::unique_ptr<OutputFile> m_file;
    std::unique_ptr<MediaWriter> m_writer;
    MediaTime m_start;
    std::size_t m_memoryLimit;
    FileSinkOwner m_owner;
    std::atomic<std::int64_t> m_finishLimit = INT64_MAX;
    std::atomic<bool> m_cutShort = false;

    std::mutex m_mutex;
    std::condition_variable m_packetCame; // or the end
    std::condition_variable m_roomCame;   // or a refusal
    bool m_ending = false;
    std::atomic<std::size_t> m_bytesWaiting = 0; // in the queue and taken out of it
    std::atomic<unsigned> m_waitForRoom = 0;     // calls of Add()

    // The thread's own, until it has ended.
    MediaTime m_settled{}; // when the queue was looked at
    FileStatistics m_statistics;
    FileProgress m_progress;
    MediaTime m_flushedUntil{};
    std::optional<MediaTime> m_leftOut; // the time of the first packet that was not written
    std::int64_t m_flushDue = 0;
    std::int64_t m_diskFlushDue = 0;

    std::thread m_thread;
};

} // namespace kxvcr
