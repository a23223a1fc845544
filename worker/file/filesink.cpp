// A recording's file as a sink for pictures. The queue between the capture and the disk is the replay buffer's, so
// that a recording takes the buffer over as it is.
//
// The thread ends when the end was announced and the queue is empty, when a write fails (the writer has finished the
// file then), or when finishing takes too long.
#include "worker/file/filesink.h"

#include "worker/capture/pacing.h"
#include "worker/capture/stopwatch.h"

#include "sdk/util/logtool.h"

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <system_error>

namespace kxvcr {

FileSink::FileSink(std::unique_ptr<OutputFile> file, std::unique_ptr<MatroskaWriter> writer,
                   std::size_t memoryLimit) noexcept
    : m_file(std::move(file)),
      m_writer(std::move(writer)),
      m_memoryLimit(memoryLimit) {}

FileSink::~FileSink() {
    EndThread();
}

bool FileSink::Start() noexcept {
    m_flushDue = NowTicks() + kFlushSeconds * TicksPerSecond();
    try {
        m_thread = std::thread(&FileSink::WriteAll, this);
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void FileSink::Begin(PictureQueue pictures) noexcept {
    if (pictures.Empty()) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    m_firstSlot = pictures.FirstSlot();
    m_queue = std::move(pictures);
    m_pictureCame.notify_one();
}

bool FileSink::AddFrame(std::uint64_t slot, std::span<const std::byte> jpeg) {
    std::unique_lock lock(m_mutex);
    m_roomCame.wait(lock, [this] { return m_cutShort || m_queue.Bytes() < m_memoryLimit; });
    if (m_cutShort) {
        return false;
    }
    if (!m_firstSlot) {
        m_firstSlot = slot;
    }
    m_queue.Add(slot, jpeg);
    m_statistics.mostBytesWaiting = std::max(m_statistics.mostBytesWaiting, m_queue.Bytes());
    m_pictureCame.notify_one();
    return true;
}

bool FileSink::WaitForPicture(std::unique_lock<std::mutex>& lock) {
    m_pictureCame.wait(lock, [this] { return m_ending || !m_queue.Empty(); });
    return !m_queue.Empty();
}

bool FileSink::Write(const QueuedPicture& picture) noexcept {
    if (NowTicks() > m_finishLimit) {
        LOG4CPLUS_ERROR(GetLogger(), L"The recording's last pictures are left out: writing them takes too long");
        return false;
    }
    const std::uint64_t slot = picture.slot - m_firstSlot.value_or(picture.slot);
    try {
        const Stopwatch watch(m_statistics.writeTicks);
        if (!m_writer->AddFrame(slot, *picture.jpeg)) {
            const DWORD error = GetLastError(); // before the log changes it
            LOG4CPLUS_ERROR(GetLogger(), L"Cannot write the recording further: error "
                                             << error << L"; the file ends here and was closed");
            return false;
        }
    } catch (const std::bad_alloc&) {
        LOG4CPLUS_ERROR(GetLogger(), L"Cannot write the recording further: no memory");
        return false;
    }
    ++m_statistics.written;
    m_writtenEnd = slot + 1;
    FlushWhenDue();
    return true;
}

// A flush that fails is no reason to end the recording: the data is on its way all the same. When finishing has a limit
// there is no time to wait for the disk.
void FileSink::Flush() {
    if (m_finishLimit != INT64_MAX) {
        return;
    }
    const Stopwatch watch(m_statistics.flushTicks);
    m_file->Flush();
    ++m_statistics.flushes;
}

void FileSink::FlushWhenDue() {
    if (NowTicks() < m_flushDue) {
        return;
    }
    Flush();
    m_flushDue = NowTicks() + kFlushSeconds * TicksPerSecond();
}

void FileSink::WriteAll() noexcept {
    std::unique_lock lock(m_mutex);
    while (WaitForPicture(lock)) {
        const QueuedPicture picture = m_queue.TakeFirst();
        lock.unlock();
        const bool kept = Write(picture);
        lock.lock();
        m_cutShort = !kept;
        m_roomCame.notify_one();
        if (!kept) {
            break;
        }
    }
}

void FileSink::EndThread() noexcept {
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_pictureCame.notify_one();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void FileSink::Finish(std::uint64_t endSlot) {
    EndThread();
    m_writer->Finish(m_cutShort || !m_firstSlot ? m_writtenEnd : endSlot - *m_firstSlot);
    Flush();
}

void FileSink::Discard() noexcept {
    EndThread();
    m_file->Discard();
}

} // namespace kxvcr
