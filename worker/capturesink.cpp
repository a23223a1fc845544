// Where the captured pictures go. The lock is never held while something is written: the file's thread does that.
#include "worker/capturesink.h"

#include "worker/capture/stopwatch.h"

#include "sdk/util/logtool.h"

#include <log4cplus/loggingmacros.h>

#include <utility>

namespace kxvcr {

namespace {

void LogSummary(const FileSink& file) {
    const FileStatistics& statistics = file.Statistics();
    LOG4CPLUS_INFO(GetLogger(), L"File finished: "
                                    << statistics.written << L" frames, " << file.Size() << L" bytes; write "
                                    << MillisecondsEach(statistics.writeTicks, statistics.written)
                                    << L" ms each, flush to the disk "
                                    << MillisecondsEach(statistics.flushTicks, statistics.flushes)
                                    << L" ms each; at most " << statistics.mostBytesWaiting << L" bytes waited");
}

} // namespace

void CaptureSink::KeepReplay(std::uint64_t slots) {
    const std::lock_guard lock(m_mutex);
    m_replay = ReplayBuffer(slots, kReplayMemoryLimit);
}

bool CaptureSink::SwitchTo(std::unique_ptr<FileSink>& file) {
    std::size_t replayBytes = 0;
    {
        const std::lock_guard lock(m_mutex);
        if (m_ended) {
            return false;
        }
        replayBytes = m_replay.Bytes();
        m_file = std::move(file);
        m_file->LimitFinish(m_finishLimit);
        m_file->Begin(m_replay.Take());
    }
    LOG4CPLUS_INFO(GetLogger(), L"The file begins with " << replayBytes << L" bytes of replay");
    return true;
}

bool CaptureSink::SwitchTo(FrameSink& live) noexcept {
    PictureQueue dropped; // freed outside the lock
    const std::lock_guard lock(m_mutex);
    if (m_ended) {
        return false;
    }
    dropped = m_replay.Take();
    m_live = &live;
    return true;
}

std::unique_ptr<FileSink> CaptureSink::Detach() noexcept {
    const std::lock_guard lock(m_mutex);
    m_live = nullptr;
    return std::move(m_file);
}

FrameSink* CaptureSink::Target() const noexcept {
    return m_file != nullptr ? m_file.get() : m_live;
}

bool CaptureSink::AddFrame(std::uint64_t slot, std::span<const std::byte> jpeg) {
    FrameSink* target = nullptr;
    {
        const std::lock_guard lock(m_mutex);
        target = Target(); // stays until this thread calls Finish() or End()
        if (target == nullptr) {
            m_replay.Add(slot, jpeg);
            return true;
        }
    }
    return target->AddFrame(slot, jpeg);
}

void CaptureSink::Finish(std::uint64_t endSlot) {
    FrameSink* target = nullptr;
    {
        const std::lock_guard lock(m_mutex);
        m_ended = true;
        target = Target();
    }
    if (target == nullptr) {
        return;
    }
    target->Finish(endSlot);
    const std::unique_ptr<FileSink> file = Detach();
    if (file == nullptr) {
        return;
    }
    m_cutShort = file->CutShort();
    LogSummary(*file);
}

void CaptureSink::End() noexcept {
    const std::lock_guard lock(m_mutex);
    m_ended = true;
    m_live = nullptr;
    if (m_file != nullptr) { // not finished
        m_cutShort = true;
    }
    m_file.reset();
}

void CaptureSink::LimitFinish(std::int64_t ticks) noexcept {
    const std::lock_guard lock(m_mutex);
    m_finishLimit = ticks;
    if (m_file != nullptr) {
        m_file->LimitFinish(ticks);
    }
}

} // namespace kxvcr
