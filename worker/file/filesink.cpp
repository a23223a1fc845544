// A recording's file as a sink for packets.
//
// The thread ends when the end was announced and the queue is empty, when a write fails (the writer has finished the
// file then), or when finishing takes too long.
#include "worker/file/filesink.h"

#include "worker/log.h"
#include "worker/ticks.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <new>
#include <utility>

namespace kxvcr {

namespace {

constexpr MediaTime kMostUnflushed = std::chrono::milliseconds(500);

std::int64_t TicksAfter(std::int64_t milliseconds) noexcept {
    return NowTicks() + milliseconds * TicksPerSecond() / 1000;
}

std::size_t MemoryOf(const Packet& packet) noexcept {
    return packet.bytes.size() + FileSink::kBytesPerPacket;
}

} // namespace

FileSink::FileSink(std::unique_ptr<OutputFile>&& file, std::unique_ptr<MediaWriter>&& writer, MediaTime start,
                   std::size_t memoryLimit, FileSinkOwner owner)
    : m_file(std::move(file)),
      m_writer(std::move(writer)),
      m_start(start),
      m_memoryLimit(memoryLimit),
      m_owner(std::move(owner)),
      m_flushedUntil(start) {}

FileSink::~FileSink() {
    EndThread();
}

bool FileSink::Start() noexcept {
    m_diskFlushDue = TicksAfter(kDiskFlushMilliseconds);
    try {
        m_thread = std::thread(&FileSink::WriteAll, this);
    } catch (const std::exception&) { // no thread, or no memory for it
        return false;
    }
    return true;
}

bool FileSink::Add(const SharedPacket& packet) {
    std::unique_lock lock(m_mutex);
    ++m_waitForRoom;
    m_roomCame.wait(lock, [this] { return m_cutShort || m_bytesWaiting < m_memoryLimit; });
    --m_waitForRoom;
    if (m_cutShort) {
        return false;
    }
    Append(packet);
    return true;
}

// A thread that met the first of a replay's pictures alone would show it as all that there is of the file's beginning.
bool FileSink::AddAll(std::span<const SharedPacket> packets) {
    const std::lock_guard lock(m_mutex);
    if (m_cutShort) {
        return false;
    }
    std::ranges::for_each(packets, [this](const SharedPacket& packet) { Append(packet); });
    return true;
}

void FileSink::Append(const SharedPacket& packet) {
    m_queue.push_back(packet);
    m_bytesWaiting += MemoryOf(*packet);
    m_statistics.mostBytesWaiting = std::max(m_statistics.mostBytesWaiting, m_bytesWaiting.load());
    if (m_queue.size() == 1) { // else the thread has not waited since the one before
        m_packetCame.notify_one();
    }
}

void FileSink::WriteAll() noexcept {
    bool kept = true;
    while (kept) {
        const std::optional<SharedPacket> packet = WaitForPacket();
        if (!packet) {
            return;
        }
        kept = Do(*packet);
    }
    {
        const std::lock_guard lock(m_mutex);
        m_cutShort = true;
    }
    m_roomCame.notify_all();
    m_owner.onCutShort();
}

// Waits for packets, the end, or the time of the next flush. What is settled is asked before the queue is looked at, so
// that everything before that moment was taken. The queue is taken as a whole: whoever adds many packets, as the end of
// a replay does, does not meet this thread at each of them.
std::optional<SharedPacket> FileSink::WaitForPacket() {
    if (m_taken.empty()) {
        std::unique_lock lock(m_mutex);
        const std::int64_t patience = std::max<std::int64_t>(m_flushDue - NowTicks(), 0);
        m_packetCame.wait_for(lock, std::chrono::duration_cast<std::chrono::microseconds>(TimeOf(patience)),
                              [this] { return m_ending || !m_queue.empty(); });
        m_settled = m_owner.settled();
        if (m_queue.empty()) {
            return m_ending ? std::nullopt : std::optional(SharedPacket());
        }
        m_taken.swap(m_queue);
    }
    SharedPacket packet = std::move(m_taken.front());
    m_taken.pop_front();
    return packet;
}

// No packet of a picture before it is missing. Looked for when it is flushed, not for each packet: behind the last
// picture of a still screen there may be half an hour of sound.
MediaTime FileSink::CompleteUntil() const noexcept {
    const auto next =
        std::ranges::find(m_taken, Stream::Picture, [](const SharedPacket& waiting) { return waiting->stream; });
    return next == m_taken.end() ? m_settled : std::min(m_settled, (*next)->time);
}

bool FileSink::Do(const SharedPacket& packet) noexcept {
    const bool isBefore = m_progress.pictures == 0;
    if (packet != nullptr && !Write(packet)) {
        return false;
    }
    const bool isFirstPicture = isBefore && m_progress.pictures != 0;
    return (!isFirstPicture && !EndsBacklog(packet) && NowTicks() < m_flushDue) || Flush(CompleteUntil());
}

// What a replay has kept comes at once, and is not to wait in the writer for the next flush.
bool FileSink::EndsBacklog(const SharedPacket& packet) const noexcept {
    return packet != nullptr && m_taken.empty() && packet->time - m_flushedUntil >= kMostUnflushed;
}

bool FileSink::Write(const SharedPacket& packet) noexcept {
    const bool kept = Give(packet);
    m_bytesWaiting -= MemoryOf(*packet);
    if (m_waitForRoom != 0) { // counted before it looks at the bytes, so that one of the two sees the other
        const std::lock_guard lock(m_mutex);
        m_roomCame.notify_all();
    }
    if (!kept) {
        m_leftOut = packet->time;
        return false;
    }
    ++m_statistics.packets;
    if (packet->stream == Stream::Picture) {
        m_progress.pictures = packet->time <= m_start ? 1 : m_progress.pictures + 1;
    }
    return true;
}

bool FileSink::Give(const SharedPacket& packet) noexcept {
    if (NowTicks() > m_finishLimit) {
        KXVCR_LOG_ERROR(L"The recording's last pictures are left out: writing them takes too long");
        return false;
    }
    try {
        const ScopedTicks watch(m_statistics.writeTicks);
        return m_writer->Add(packet) || GiveUp();
    } catch (const std::bad_alloc&) {
        KXVCR_LOG_ERROR(L"Cannot write the recording further: no memory");
        return false;
    }
}

bool FileSink::GiveUp() noexcept {
    const DWORD error = GetLastError(); // before the log changes it
    KXVCR_LOG_ERROR(L"Cannot write the recording further: error " << error << L"; the file ends here and was closed");
    return false;
}

bool FileSink::Flush(MediaTime until) noexcept {
    try {
        const ScopedTicks watch(m_statistics.writeTicks);
        if (!m_writer->Flush(until)) {
            return GiveUp();
        }
    } catch (const std::bad_alloc&) {
        KXVCR_LOG_ERROR(L"Cannot write the recording further: no memory");
        return false;
    }
    m_flushedUntil = until;
    m_progress.length = std::max(until - m_start, m_progress.length);
    m_progress.bytes = m_writer->Size();
    m_owner.onProgress(m_progress);
    if (NowTicks() >= m_diskFlushDue) {
        FlushToDisk();
        m_diskFlushDue = TicksAfter(kDiskFlushMilliseconds);
    }
    m_flushDue = TicksAfter(kFlushMilliseconds);
    return true;
}

// A flush that fails is no reason to end the recording: the data is on its way all the same. When finishing has a limit
// there is no time to wait for the disk.
void FileSink::FlushToDisk() noexcept {
    if (m_finishLimit != INT64_MAX) {
        return;
    }
    const ScopedTicks watch(m_statistics.diskFlushTicks);
    m_file->Flush();
    ++m_statistics.diskFlushes;
}

void FileSink::EndThread() noexcept {
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_packetCame.notify_one();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void FileSink::Finish(MediaTime end) {
    EndThread();
    const MediaTime written = m_cutShort ? m_leftOut.value_or(m_start + m_progress.length) : end;
    m_writer->Finish(std::max(written, m_start));
    FlushToDisk();
    m_progress.length = std::max(written - m_start, MediaTime(0));
    m_progress.bytes = m_writer->Size();
    m_progress.isFinished = true;
    m_writer.reset();
    m_file.reset(); // closed before anybody is told that it is finished
    m_owner.onProgress(m_progress);
}

void FileSink::Discard() noexcept {
    EndThread();
    m_file->Discard();
}

} // namespace kxvcr
