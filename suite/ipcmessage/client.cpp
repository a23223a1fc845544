// The host's end of a channel. The library's thread listens on the channel's pipe, lets the host's own worker in, and
// serves that connection until it ends in one of these ways, after which it listens again:
//   - the worker closes its end or dies;
//   - the worker sends bytes that are not a frame, or a frame that only a host sends;
//   - a write did not get through in time (the thread that wrote breaks the session);
//   - the client is destroyed, which also ends the thread: mark, cancel, wait, free.
// When the system refuses to listen, it is asked again after a pause, until the client is destroyed.
#include "channel.h"
#include "session.h"

#include <atomic>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace ipcmessage {
namespace {

constexpr DWORD kListenPauseMs = 100; // between two attempts to listen; a worker tries for longer to connect

class HostEnd {
public:
    explicit HostEnd(int moduleId);
    ~HostEnd();
    HostEnd(const HostEnd&) = delete;
    HostEnd& operator=(const HostEnd&) = delete;

    void RegisterMessageCallback(std::uint32_t messageId, IPCMessageCallback callback);
    void UnRegisterMessageCallbackAll() noexcept;
    std::shared_ptr<Session> CurrentSession() noexcept;
    bool IsLibraryThread() const noexcept { return m_libraryThreadId == GetCurrentThreadId(); }

private:
    using CallbackMap = std::map<std::uint32_t, std::shared_ptr<const IPCMessageCallback>>;

    void Run() noexcept;
    bool AwaitWorker() noexcept;
    void ServeWorker() noexcept;
    void ReceiveAll(Session& session);
    bool Publish(const std::shared_ptr<Session>& session) noexcept;
    void Withdraw() noexcept;
    void Dispatch(const Message& message) noexcept;

    FileHandle m_pipe;
    KernelHandle m_stopEvent;
    KernelHandle m_connectedEvent;
    std::atomic<DWORD> m_libraryThreadId = 0;

    SlimLock m_sessionLock; // guards the next two
    std::shared_ptr<Session> m_session;
    bool m_isStopping = false;

    SlimLock m_callbackLock; // guards the rest
    CallbackMap m_callbacks;
    bool m_isCallbackRunning = false;
    std::uint64_t m_callbackRuns = 0;
    CONDITION_VARIABLE m_callbackEnded = CONDITION_VARIABLE_INIT;

    std::thread m_thread;
};

HostEnd::HostEnd(int moduleId) {
    try {
        m_stopEvent = MakeEvent();
        m_connectedEvent = MakeEvent();
        m_pipe = CreateChannelPipe(ChannelName(GetCurrentProcessId(), moduleId));
        if (m_pipe) {
            m_thread = std::thread([this] { Run(); });
        }
    } catch (const std::system_error&) {
        m_pipe = {};
    }
}

HostEnd::~HostEnd() {
    std::shared_ptr<Session> session;
    {
        const std::lock_guard lock(m_sessionLock);
        m_isStopping = true;
        session = m_session;
    }
    if (session) {
        session->Break();
    }
    if (m_thread.joinable()) {
        SetEvent(m_stopEvent.Get());
        m_thread.join();
    }
}

void HostEnd::RegisterMessageCallback(std::uint32_t messageId, IPCMessageCallback callback) {
    auto entry = std::make_shared<const IPCMessageCallback>(std::move(callback));
    const std::lock_guard lock(m_callbackLock);
    // The swap leaves the old callable to be destroyed after the lock: its destructor is foreign code.
    m_callbacks[messageId].swap(entry);
}

void HostEnd::UnRegisterMessageCallbackAll() noexcept {
    CallbackMap removed;
    const std::lock_guard lock(m_callbackLock);
    m_callbacks.swap(removed);
    if (IsLibraryThread()) {
        return;
    }
    const std::uint64_t run = m_callbackRuns;
    while (m_isCallbackRunning && m_callbackRuns == run) {
        m_callbackLock.Sleep(m_callbackEnded, INFINITE);
    }
}

std::shared_ptr<Session> HostEnd::CurrentSession() noexcept {
    const std::lock_guard lock(m_sessionLock);
    return m_session;
}

void HostEnd::Run() noexcept {
    m_libraryThreadId = GetCurrentThreadId();
    DWORD pauseMs = 0;
    while (WaitForSingleObject(m_stopEvent.Get(), pauseMs) != WAIT_OBJECT_0) {
        const bool isConnected = AwaitWorker();
        if (isConnected && IsPeerOwnWorker(m_pipe.Get())) {
            ServeWorker();
        }
        DisconnectNamedPipe(m_pipe.Get());
        pauseMs = isConnected ? 0 : kListenPauseMs;
    }
}

// True when some process has connected; false when the client is being destroyed or the system refuses to listen.
bool HostEnd::AwaitWorker() noexcept {
    OVERLAPPED io{};
    io.hEvent = m_connectedEvent.Get();
    const DWORD error = ConnectNamedPipe(m_pipe.Get(), &io) ? ERROR_SUCCESS : GetLastError();
    if (error == ERROR_PIPE_CONNECTED || error == ERROR_NO_DATA) {
        return true;
    }
    if (error != ERROR_IO_PENDING && error != ERROR_SUCCESS) {
        return false;
    }
    const HANDLE handles[] = {m_stopEvent.Get(), m_connectedEvent.Get()};
    if (WaitForMultipleObjects(2, handles, FALSE, INFINITE) != WAIT_OBJECT_0 + 1) {
        CancelIoEx(m_pipe.Get(), &io);
    }
    DWORD ignored = 0;
    return GetOverlappedResult(m_pipe.Get(), &io, &ignored, TRUE) != FALSE;
}

void HostEnd::ServeWorker() noexcept {
    std::shared_ptr<Session> session;
    try {
        session = std::make_shared<Session>(m_pipe.Get());
    } catch (const std::exception&) {
        return;
    }
    if (!Publish(session)) {
        return;
    }
    try {
        ReceiveAll(*session);
    } catch (const std::exception&) {
        // No memory for a frame: the connection ends, as it does for a frame that cannot be read.
    }
    Withdraw();
    session->Close();
}

// False when the client is being destroyed: nobody would break a session that is published after that.
bool HostEnd::Publish(const std::shared_ptr<Session>& session) noexcept {
    const std::lock_guard lock(m_sessionLock);
    if (m_isStopping) {
        return false;
    }
    m_session = session;
    return true;
}

void HostEnd::Withdraw() noexcept {
    const std::lock_guard lock(m_sessionLock);
    m_session.reset();
}

void HostEnd::ReceiveAll(Session& session) {
    Message message;
    while (session.Receive(message)) {
        switch (message.header.kind) {
        case FrameKind::Reply:
            session.CompleteExchange(std::move(message));
            break;
        case FrameKind::Notice:
            Dispatch(message);
            break;
        case FrameKind::Request:
            return;
        }
    }
}

void HostEnd::Dispatch(const Message& message) noexcept {
    std::shared_ptr<const IPCMessageCallback> callback;
    {
        const std::lock_guard lock(m_callbackLock);
        const auto found = m_callbacks.find(message.header.messageId);
        if (found == m_callbacks.end()) {
            return;
        }
        callback = found->second;
        m_isCallbackRunning = true;
        ++m_callbackRuns;
    }
    try {
        TagIPCMessageItem item = ItemOf(message);
        (*callback)(item);
    } catch (...) {
        // A callback's failure is its owner's; the channel goes on.
    }
    // Before the run counts as ended, so that what the callable captured is gone when unregistering returns.
    callback.reset();
    const std::lock_guard lock(m_callbackLock);
    m_isCallbackRunning = false;
    WakeAllConditionVariable(&m_callbackEnded);
}

} // namespace
} // namespace ipcmessage

class IPCMessageClient::Impl final : public ipcmessage::HostEnd {
public:
    using HostEnd::HostEnd;
};

IPCMessageClient::IPCMessageClient(int moduleId, bool /*reserved1*/, bool /*reserved2*/)
    : m_impl(std::make_unique<Impl>(moduleId)) {}

IPCMessageClient::~IPCMessageClient() = default;

void IPCMessageClient::RegisterMessageCallback(std::uint32_t messageId, IPCMessageCallback callback) {
    m_impl->RegisterMessageCallback(messageId, std::move(callback));
}

void IPCMessageClient::UnRegisterMessageCallbackAll() {
    m_impl->UnRegisterMessageCallbackAll();
}

bool IPCMessageClient::SendIPCMessage(const TagIPCMessageItem& request, IPCReplyItem& reply, unsigned int timeoutMs) {
    const ipcmessage::Deadline deadline(timeoutMs);
    reply.ReleasePayload();
    // The library's thread is the one that would receive the reply.
    if (m_impl->IsLibraryThread()) {
        return false;
    }
    const std::shared_ptr<ipcmessage::Session> session = m_impl->CurrentSession();
    try {
        return session && session->Exchange(request, reply, deadline);
    } catch (const std::exception&) {
        return false;
    }
}

bool IPCMessageClient::PostIPCMessage(const TagIPCMessageItem& request) {
    const ipcmessage::Deadline deadline(kIPCWriteLimitMs);
    const std::shared_ptr<ipcmessage::Session> session = m_impl->CurrentSession();
    try {
        return session && session->Send(ipcmessage::FrameKind::Notice, 0, request, deadline);
    } catch (const std::exception&) {
        return false;
    }
}
