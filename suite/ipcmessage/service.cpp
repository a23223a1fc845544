// The worker's end of a channel: one connection to the parent process, whose requests and notices are handled one
// after the other on the library's thread. The connection ends when the host closes its end or dies, when it sends
// bytes that are not a frame or a frame that only a worker sends, when a write did not get through in time, or when
// the service is destroyed: mark, cancel, wait, free.
#include "channel.h"
#include "session.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace ipcmessage {
namespace {

constexpr DWORD kRetryPauseMs = 10; // between two attempts to open a channel that is not there yet

class RequestReplySender final : public IPCReplySender {
public:
    RequestReplySender(Session& session, const FrameHeader& request) noexcept
        : m_session(session),
          m_request(request) {}

    bool Reply(const void* payload, std::uint32_t payloadSize) override {
        if (payloadSize > kIPCMaxPayload || m_request.kind != FrameKind::Request || m_isReplied.exchange(true)) {
            return false;
        }
        const TagIPCMessageItem reply{
            .sourceModuleId = m_request.targetModuleId,
            .targetModuleId = m_request.sourceModuleId,
            .messageId = m_request.replyMessageId,
            .timeStamp = GetTickCount(),
            .payloadSize = payloadSize,
            .payload = const_cast<void*>(payload), // the record's pointer is writable for receivers; sending only reads
            .hasPayload = payload != nullptr,
        };
        try {
            return m_session.Send(FrameKind::Reply, m_request.sequence, reply, Deadline(kIPCWriteLimitMs));
        } catch (const std::exception&) {
            return false;
        }
    }

private:
    Session& m_session;
    const FrameHeader m_request;
    std::atomic<bool> m_isReplied = false;
};

bool MayComeYet(DWORD error) noexcept {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PIPE_BUSY;
}

class WorkerEnd {
public:
    explicit WorkerEnd(int moduleId) noexcept : m_moduleId(moduleId) {}
    ~WorkerEnd();
    WorkerEnd(const WorkerEnd&) = delete;
    WorkerEnd& operator=(const WorkerEnd&) = delete;

    DWORD Connect(Deadline deadline);
    bool Post(const TagIPCMessageItem& message);

    std::map<std::uint32_t, IPCRequestHandler> m_handlers; // these three are set before Connect and constant after it
    IPCRequestHandler m_defaultHandler;
    std::function<void()> m_disconnectCallback;

private:
    DWORD OpenPipe(Deadline deadline);
    void Run() noexcept;
    void ReceiveAll();
    void Handle(const Message& message) noexcept;

    const int m_moduleId;
    FileHandle m_pipe;
    std::atomic<std::shared_ptr<Session>> m_session;
    std::atomic<bool> m_isStopping = false;
    std::thread m_thread;
};

WorkerEnd::~WorkerEnd() {
    m_isStopping = true;
    if (const std::shared_ptr<Session> session = m_session.load()) {
        session->Break();
    }
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

DWORD WorkerEnd::Connect(Deadline deadline) {
    if (m_thread.joinable()) {
        return ERROR_ALREADY_INITIALIZED;
    }
    const DWORD error = OpenPipe(deadline);
    if (error != ERROR_SUCCESS) {
        return error;
    }
    try {
        m_session = std::make_shared<Session>(m_pipe.Get());
        m_thread = std::thread([this] { Run(); });
    } catch (const std::exception&) {
        // Given up, so that the channel is free for another attempt.
        m_session = std::shared_ptr<Session>();
        m_pipe = {};
        throw;
    }
    return ERROR_SUCCESS;
}

DWORD WorkerEnd::OpenPipe(Deadline deadline) {
    ParentProcess parent;
    const DWORD parentError = parent.Open();
    if (parentError != ERROR_SUCCESS) {
        return parentError;
    }
    const std::wstring name = ChannelName(parent.Id(), m_moduleId);
    for (;;) {
        const DWORD error = OpenChannelPipe(name, parent.Id(), m_pipe);
        if (!MayComeYet(error)) {
            return error;
        }
        const DWORD pause = std::min(deadline.Remaining(), kRetryPauseMs);
        if (pause == 0) {
            return WAIT_TIMEOUT;
        }
        if (WaitForSingleObject(parent.Get(), pause) != WAIT_TIMEOUT) {
            return ERROR_NOT_FOUND;
        }
    }
}

bool WorkerEnd::Post(const TagIPCMessageItem& message) {
    const std::shared_ptr<Session> session = m_session.load();
    return session && session->Send(FrameKind::Notice, 0, message, Deadline(kIPCWriteLimitMs));
}

void WorkerEnd::Run() noexcept {
    try {
        ReceiveAll();
    } catch (const std::exception&) {
        // No memory for a frame: the connection ends, as it does for a frame that cannot be read.
    }
    m_session.load()->Close();
    m_pipe = {};
    if (m_isStopping || !m_disconnectCallback) {
        return;
    }
    try {
        m_disconnectCallback();
    } catch (...) {
        // The connection is gone already; there is nothing left to undo.
    }
}

void WorkerEnd::ReceiveAll() {
    const std::shared_ptr<Session> session = m_session.load();
    Message message;
    while (session->Receive(message) && message.header.kind != FrameKind::Reply) {
        Handle(message);
    }
}

void WorkerEnd::Handle(const Message& message) noexcept {
    const auto found = m_handlers.find(message.header.messageId);
    const IPCRequestHandler& handler = found != m_handlers.end() ? found->second : m_defaultHandler;
    if (!handler) {
        return;
    }
    RequestReplySender sender(*m_session.load(), message.header);
    try {
        handler(ItemOf(message), sender);
    } catch (...) {
        // A handler that fails leaves its request unanswered, as one that does not reply.
    }
}

} // namespace
} // namespace ipcmessage

IPCReplySender::~IPCReplySender() = default;

class IPCMessageService::Impl final : public ipcmessage::WorkerEnd {
public:
    using WorkerEnd::WorkerEnd;
};

IPCMessageService::IPCMessageService(int moduleId) : m_impl(std::make_unique<Impl>(moduleId)) {}

IPCMessageService::~IPCMessageService() = default;

void IPCMessageService::RegisterRequestHandler(std::uint32_t messageId, IPCRequestHandler handler) {
    m_impl->m_handlers[messageId] = std::move(handler);
}

void IPCMessageService::SetDefaultHandler(IPCRequestHandler handler) {
    m_impl->m_defaultHandler = std::move(handler);
}

void IPCMessageService::SetDisconnectCallback(std::function<void()> callback) {
    m_impl->m_disconnectCallback = std::move(callback);
}

unsigned long IPCMessageService::Connect(unsigned int timeoutMs) {
    try {
        return m_impl->Connect(ipcmessage::Deadline(timeoutMs));
    } catch (const std::system_error& error) {
        return static_cast<unsigned long>(error.code().value());
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

bool IPCMessageService::PostIPCMessage(const TagIPCMessageItem& message) {
    try {
        return m_impl->Post(message);
    } catch (const std::exception&) {
        return false;
    }
}
