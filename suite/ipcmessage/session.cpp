// One connection: framed, overlapped input and output on a connected pipe, and the exchanges in flight.
#include "session.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

namespace ipcmessage {
namespace {

static_assert(kFrameMaxPayload == kIPCMaxPayload);

// Waits for a started read or write and cancels it when the event is signalled or the time is over. The operation
// has ended when this returns, so its OVERLAPPED may live on the caller's stack.
DWORD FinishIo(HANDLE pipe, OVERLAPPED& io, HANDLE cancelEvent, DWORD timeoutMs, DWORD& transferred) noexcept {
    if (!HasOverlappedIoCompleted(&io)) {
        const HANDLE handles[] = {io.hEvent, cancelEvent};
        if (WaitForMultipleObjects(2, handles, FALSE, timeoutMs) != WAIT_OBJECT_0) {
            CancelIoEx(pipe, &io);
        }
    }
    return GetOverlappedResult(pipe, &io, &transferred, TRUE) ? ERROR_SUCCESS : GetLastError();
}

bool HeaderOf(FrameKind kind, std::uint64_t sequence, const TagIPCMessageItem& item, FrameHeader& header) noexcept {
    header = FrameHeader{
        .kind = kind,
        .sequence = sequence,
        .sourceModuleId = item.sourceModuleId,
        .targetModuleId = item.targetModuleId,
        .messageId = item.messageId,
        .replyMessageId = item.replyMessageId,
        .reserved = item.reserved,
        .timeStamp = item.timeStamp,
        .payloadSize = item.hasPayload ? item.payloadSize : 0,
        .hasPayload = item.hasPayload,
    };
    const bool isPayloadMissing = header.payloadSize != 0 && item.payload == nullptr;
    return !isPayloadMissing && CheckFrameHeader(header) == FrameFault::None;
}

} // namespace

Deadline::Deadline(DWORD timeoutMs) noexcept
    : m_end(std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs)),
      m_isInfinite(timeoutMs == INFINITE) {}

DWORD Deadline::Remaining() const noexcept {
    if (m_isInfinite) {
        return INFINITE;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_end - std::chrono::steady_clock::now());
    return static_cast<DWORD>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

TagIPCMessageItem ItemOf(const Message& message) noexcept {
    return TagIPCMessageItem{
        .sourceModuleId = message.header.sourceModuleId,
        .targetModuleId = message.header.targetModuleId,
        .messageId = message.header.messageId,
        .replyMessageId = message.header.replyMessageId,
        .reserved = message.header.reserved,
        .timeStamp = message.header.timeStamp,
        .payloadSize = message.header.payloadSize,
        .payload = message.payload.get(),
        .hasPayload = message.header.hasPayload,
    };
}

Session::Session(HANDLE pipe)
    : m_pipe(pipe),
      m_readDone(MakeEvent()),
      m_writeDone(MakeEvent()),
      m_brokenEvent(MakeEvent()) {}

bool Session::IsBroken() noexcept {
    const std::lock_guard lock(m_lock);
    return m_isBroken;
}

// Bytes read, at least one; 0 when the session is broken.
DWORD Session::ReadSome(std::span<std::byte> target) noexcept {
    OVERLAPPED io{};
    io.hEvent = m_readDone.Get();
    if (!ReadFile(m_pipe, target.data(), static_cast<DWORD>(target.size()), nullptr, &io) &&
        GetLastError() != ERROR_IO_PENDING) {
        return 0;
    }
    DWORD transferred = 0;
    if (FinishIo(m_pipe, io, m_brokenEvent.Get(), INFINITE, transferred) != ERROR_SUCCESS) {
        return 0;
    }
    return transferred;
}

bool Session::Fill(std::span<std::byte> target) noexcept {
    while (!target.empty()) {
        if (m_unread.empty() && target.size() >= m_input.size()) {
            const DWORD read = ReadSome(target);
            if (read == 0) {
                return false;
            }
            target = target.subspan(read);
            continue;
        }
        if (m_unread.empty()) {
            m_unread = std::span(m_input).first(ReadSome(m_input));
            if (m_unread.empty()) {
                return false;
            }
        }
        const std::size_t count = std::min(target.size(), m_unread.size());
        std::memcpy(target.data(), m_unread.data(), count);
        target = target.subspan(count);
        m_unread = m_unread.subspan(count);
    }
    return true;
}

bool Session::Receive(Message& message) {
    std::array<std::byte, kFrameHeaderSize> bytes;
    if (IsBroken() || !Fill(bytes) || DecodeFrameHeader(bytes, message.header) != FrameFault::None) {
        return false;
    }
    message.payload.reset();
    if (!message.header.hasPayload) {
        return true;
    }
    const std::size_t size = message.header.payloadSize;
    message.payload.reset(std::malloc(std::max<std::size_t>(size, 1)));
    if (!message.payload) {
        throw std::bad_alloc();
    }
    return Fill({static_cast<std::byte*>(message.payload.get()), size});
}

void Session::CompleteExchange(Message reply) noexcept {
    const std::lock_guard lock(m_lock);
    const auto found = m_pending.find(reply.header.sequence);
    if (found == m_pending.end()) {
        return;
    }
    PendingExchange& exchange = *found->second;
    m_pending.erase(found);
    exchange.reply = std::move(reply);
    exchange.isDone = true;
    WakeConditionVariable(&exchange.arrived);
}

bool Session::Exchange(const TagIPCMessageItem& request, IPCReplyItem& reply, Deadline deadline) {
    PendingExchange exchange;
    std::uint64_t sequence = 0;
    {
        const std::lock_guard lock(m_lock);
        if (m_isBroken) {
            return false;
        }
        sequence = ++m_lastSequence;
        m_pending.emplace(sequence, &exchange);
    }
    // The entry points into this frame of the stack: it goes whichever way the call ends.
    struct Withdrawal {
        Session& session;
        std::uint64_t sequence;
        ~Withdrawal() {
            const std::lock_guard lock(session.m_lock);
            session.m_pending.erase(sequence);
        }
    } const withdrawal{*this, sequence};

    if (!Send(FrameKind::Request, sequence, request, deadline)) {
        return false;
    }
    {
        const std::lock_guard lock(m_lock);
        while (!exchange.isDone && !m_isBroken) {
            if (!m_lock.Sleep(exchange.arrived, deadline.Remaining()) && deadline.Remaining() == 0) {
                break;
            }
        }
        if (!exchange.isDone) {
            return false;
        }
    }
    static_cast<TagIPCMessageItem&>(reply) = ItemOf(exchange.reply);
    static_cast<void>(exchange.reply.payload.release()); // the reply owns the block now
    return true;
}

// The right to write: one thread at a time, given up when the session breaks or the time is over.
class Session::WriteTurn {
public:
    WriteTurn(Session& session, Deadline deadline) noexcept : m_session(session) {
        const std::lock_guard lock(m_session.m_lock);
        while (m_session.m_isWriting && !m_session.m_isBroken) {
            if (!m_session.m_lock.Sleep(m_session.m_turnFree, deadline.Remaining()) && deadline.Remaining() == 0) {
                return;
            }
        }
        if (m_session.m_isBroken) {
            return;
        }
        m_session.m_isWriting = true;
        m_isHeld = true;
    }
    ~WriteTurn() {
        if (!m_isHeld) {
            return;
        }
        const std::lock_guard lock(m_session.m_lock);
        m_session.m_isWriting = false;
        WakeAllConditionVariable(&m_session.m_turnFree);
    }
    WriteTurn(const WriteTurn&) = delete;
    WriteTurn& operator=(const WriteTurn&) = delete;

    explicit operator bool() const noexcept { return m_isHeld; }

private:
    Session& m_session;
    bool m_isHeld = false;
};

bool Session::Send(FrameKind kind, std::uint64_t sequence, const TagIPCMessageItem& item, Deadline deadline) {
    FrameHeader header;
    if (!HeaderOf(kind, sequence, item, header)) {
        return false;
    }
    const WriteTurn turn(*this, deadline);
    if (!turn) {
        return false;
    }
    m_outgoing.resize(kFrameHeaderSize + header.payloadSize);
    const std::span frame(m_outgoing);
    EncodeFrameHeader(header, frame.first<kFrameHeaderSize>());
    if (header.payloadSize != 0) {
        std::memcpy(frame.data() + kFrameHeaderSize, item.payload, header.payloadSize);
    }
    return WriteAll(deadline);
}

// A frame that was not written whole leaves the other end without a frame's beginning to go on from, and a cancelled
// write does not tell what was taken: the session ends then.
bool Session::WriteAll(Deadline deadline) noexcept {
    OVERLAPPED io{};
    io.hEvent = m_writeDone.Get();
    DWORD transferred = 0;
    const bool isStarted = WriteFile(m_pipe, m_outgoing.data(), static_cast<DWORD>(m_outgoing.size()), nullptr, &io) ||
                           GetLastError() == ERROR_IO_PENDING;
    if (isStarted && FinishIo(m_pipe, io, m_brokenEvent.Get(), deadline.Remaining(), transferred) == ERROR_SUCCESS &&
        transferred == m_outgoing.size()) {
        return true;
    }
    Break();
    return false;
}

void Session::Break() noexcept {
    const std::lock_guard lock(m_lock);
    m_isBroken = true;
    SetEvent(m_brokenEvent.Get());
    WakeAllConditionVariable(&m_turnFree);
    for (const auto& [sequence, exchange] : m_pending) {
        WakeConditionVariable(&exchange->arrived);
    }
}

void Session::Close() noexcept {
    Break();
    const std::lock_guard lock(m_lock);
    while (m_isWriting) {
        m_lock.Sleep(m_turnFree, INFINITE);
    }
}

} // namespace ipcmessage
