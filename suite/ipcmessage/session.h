/**
 * @file
 * One connection between a host and a worker, the same for both ends: whole frames in and out of a connected pipe,
 * and requests that wait for their replies.
 *
 * One thread, the library's, receives; any thread sends. A session ends in this order: Break marks it, wakes every
 * waiting thread and makes the pending reads and writes end; Close waits until the last writer has left the pipe.
 * After that the owner may disconnect or close the pipe. Threads that still hold the session find it broken.
 */
#pragma once

#include "frame.h"
#include "sdk/ipcmessage/ipcmessage.h"
#include "waiting.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <span>
#include <vector>

namespace ipcmessage {

/** A point in time up to which a call may wait. */
class Deadline {
public:
    /** @param timeoutMs milliseconds from now; INFINITE is never reached */
    explicit Deadline(DWORD timeoutMs) noexcept;

    /** Milliseconds until then, rounded up, or INFINITE; what the system's wait functions take. */
    DWORD Remaining() const noexcept;

private:
    std::chrono::steady_clock::time_point m_end;
    bool m_isInfinite;
};

struct FreeDeleter {
    void operator()(void* block) const noexcept { std::free(block); }
};

/** A received frame; the block is malloc's, and not null when the header says that there is a payload. */
struct Message {
    FrameHeader header;
    std::unique_ptr<void, FreeDeleter> payload;
};

/** The record of a received message; it borrows the message's block. */
TagIPCMessageItem ItemOf(const Message& message) noexcept;

/** One connected pipe, from the connection to its end. */
class Session {
public:
    /** @param pipe connected and overlapped; borrowed until Close returns. @throws std::system_error */
    explicit Session(HANDLE pipe);

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /**
     * Waits for the next frame; for the library's thread.
     * @return false when the session is broken: by the other end, by Break, or by bytes that are not a frame
     * @throws std::bad_alloc
     */
    bool Receive(Message& message);

    /** Gives a reply to the thread that waits for it; one that nobody waits for is dropped. */
    void CompleteExchange(Message reply) noexcept;

    /** Sends a request and waits for its reply. @throws std::bad_alloc */
    bool Exchange(const TagIPCMessageItem& request, IPCReplyItem& reply, Deadline deadline);

    /** Sends one frame; false when it was not handed to the system in time. @throws std::bad_alloc */
    bool Send(FrameKind kind, std::uint64_t sequence, const TagIPCMessageItem& item, Deadline deadline);

    /** Ends the session for every thread: those that wait return with a failure, and nothing more is read or sent. */
    void Break() noexcept;

    /** Break, and then waits until no thread writes any more: the pipe may go. */
    void Close() noexcept;

private:
    struct PendingExchange {
        CONDITION_VARIABLE arrived = CONDITION_VARIABLE_INIT;
        bool isDone = false;
        Message reply;
    };
    class WriteTurn;

    bool Fill(std::span<std::byte> target) noexcept;
    DWORD ReadSome(std::span<std::byte> target) noexcept;
    bool WriteAll(Deadline deadline) noexcept;
    bool IsBroken() noexcept;

    const HANDLE m_pipe;
    const KernelHandle m_readDone;
    const KernelHandle m_writeDone;
    const KernelHandle m_brokenEvent;

    SlimLock m_lock; // guards the next five
    bool m_isBroken = false;
    bool m_isWriting = false;
    CONDITION_VARIABLE m_turnFree = CONDITION_VARIABLE_INIT;
    std::uint64_t m_lastSequence = 0;
    std::map<std::uint64_t, PendingExchange*> m_pending;

    std::vector<std::byte> m_outgoing;     // owned by whoever has the write turn
    std::array<std::byte, 4096> m_input{}; // the next two belong to the receiving thread
    std::span<const std::byte> m_unread;
};

} // namespace ipcmessage
