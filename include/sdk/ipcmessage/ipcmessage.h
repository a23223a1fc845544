/**
 * @file
 * The suite's inter-process message channel (IPCMessage.dll): the message record and both ends of a channel.
 *
 * A channel connects one host process with one worker process at a time. The host holds the client end, which
 * owns the channel's named pipe; a worker is a child process of the host, started from the folder that the host's
 * program lies in, and opens its parent's pipe with the service end. Each end checks the other's process. Frames are at
 * most kIPCMaxPayload bytes of payload.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <type_traits>

/** Marks what the library exports; empty in a program that carries the library's code itself. */
#if defined(KXIPCMESSAGE_STATIC)
#define KXIPCMESSAGE_API
#elif defined(KXIPCMESSAGE_BUILD)
#define KXIPCMESSAGE_API __declspec(dllexport)
#else
#define KXIPCMESSAGE_API __declspec(dllimport)
#endif

inline constexpr std::uint32_t kIPCUnset = 0xFFFFFFFF;    ///< value of an id that was not given
inline constexpr std::uint32_t kIPCMaxPayload = 1u << 20; ///< bytes of payload in one message, at most

/** Milliseconds that a post or a reply waits for an other end that does not read; then the connection is dropped. */
inline constexpr std::uint32_t kIPCWriteLimitMs = 2000;

/**
 * One message. A plain record shared by both ends of the library's interface; it owns nothing. A request borrows
 * the caller's payload for the call; a reply is received into an IPCReplyItem, which owns its block.
 */
struct TagIPCMessageItem {
    std::uint32_t sourceModuleId = kIPCUnset; ///< the sender's module
    std::uint32_t targetModuleId = kIPCUnset; ///< the receiver's module
    std::uint32_t messageId = kIPCUnset;      ///< which message of the module it is
    std::uint32_t replyMessageId = kIPCUnset; ///< the message id of a request that expects a reply, else kIPCUnset
    std::uint32_t reserved = kIPCUnset;       ///< carried to the other end as it is
    std::uint32_t timeStamp = 0;              ///< GetTickCount() when the message was built, in milliseconds
    std::uint32_t payloadSize = 0;            ///< in bytes; not looked at without hasPayload
    void* payload = nullptr;                  ///< not looked at without hasPayload
    bool hasPayload = false; ///< whether the payload is sent; a payload that is present may have 0 bytes
};
static_assert(std::is_standard_layout_v<TagIPCMessageItem> && std::is_trivially_copyable_v<TagIPCMessageItem>);
static_assert(sizeof(TagIPCMessageItem) == 48);
static_assert(offsetof(TagIPCMessageItem, sourceModuleId) == 0 && offsetof(TagIPCMessageItem, targetModuleId) == 4);
static_assert(offsetof(TagIPCMessageItem, messageId) == 8 && offsetof(TagIPCMessageItem, replyMessageId) == 12);
static_assert(offsetof(TagIPCMessageItem, reserved) == 16 && offsetof(TagIPCMessageItem, timeStamp) == 20);
static_assert(offsetof(TagIPCMessageItem, payloadSize) == 24 && offsetof(TagIPCMessageItem, payload) == 32);
static_assert(offsetof(TagIPCMessageItem, hasPayload) == 40);

/** A received message: owns the payload block, which the library allocated with malloc. */
struct IPCReplyItem : TagIPCMessageItem {
    IPCReplyItem() = default;
    ~IPCReplyItem() { ReleasePayload(); }
    IPCReplyItem(const IPCReplyItem&) = delete;
    IPCReplyItem& operator=(const IPCReplyItem&) = delete;

    /** Frees the block and leaves the item without a payload. */
    void ReleasePayload() noexcept {
        std::free(payload);
        payload = nullptr;
        payloadSize = 0;
        hasPayload = false;
    }
};

/** Receives one message; the item and its payload are valid during the call only. What it throws is dropped. */
using IPCMessageCallback = std::function<void(TagIPCMessageItem&)>;

/**
 * The host's end of a channel: owns the channel's pipe and accepts one worker at a time. After a worker is gone
 * the next one can connect. All members may be called from any thread, except that the client must not be
 * destroyed from one of its own callbacks. Only what says so throws.
 */
class KXIPCMESSAGE_API IPCMessageClient {
public:
    /**
     * Opens the channel for workers of one module.
     * @param moduleId the worker's module id; it names the channel together with this process
     * @param reserved1, reserved2 belong to the suite's interface and have no meaning on this channel; pass false
     *
     * A channel that cannot be opened (its name is taken, no memory) is not reported here: every send on it fails.
     * @throws std::bad_alloc
     */
    IPCMessageClient(int moduleId, bool reserved1, bool reserved2);

    /** Ends the channel: fails waiting sends, waits for a callback that is running, closes the pipe. */
    ~IPCMessageClient();

    IPCMessageClient(const IPCMessageClient&) = delete;
    IPCMessageClient& operator=(const IPCMessageClient&) = delete;

    /** Calls @p member of @p object on the library's thread for each message with @p messageId from the worker. */
    template <class T>
    void RegisterMessageCallback(std::uint32_t messageId, T* object, void (T::*member)(TagIPCMessageItem&)) {
        RegisterMessageCallback(messageId, [object, member](TagIPCMessageItem& item) { (object->*member)(item); });
    }

    /**
     * The same for any callable; replaces an earlier one for that id, which may still be running.
     * @throws std::bad_alloc; the earlier one stays then
     */
    void RegisterMessageCallback(std::uint32_t messageId, IPCMessageCallback callback);

    /**
     * Removes every callback. One that is running when this is called has ended when this returns, unless this is
     * called by that callback itself.
     */
    void UnRegisterMessageCallbackAll();

    /**
     * Sends a request and waits for its reply.
     * @param request borrowed for the call
     * @param reply receives the worker's reply; left without a payload on failure
     * @param timeoutMs limit of the whole exchange in milliseconds; INFINITE waits without limit
     * @return false when no worker is connected, the connection breaks, the request is larger than
     *         kIPCMaxPayload, or the time runs out; a reply that comes later is dropped
     *
     * A callback that runs holds up the replies behind it. A send from a callback fails at once, since its reply
     * could not be received. When the time runs out while the worker takes only a part of the request, the
     * connection is dropped.
     */
    bool SendIPCMessage(const TagIPCMessageItem& request, IPCReplyItem& reply, unsigned int timeoutMs);

    /**
     * Sends a message that has no reply. Waits kIPCWriteLimitMs at most; a worker that has not taken the message by
     * then is disconnected.
     * @return whether the message was handed to the system for the connected worker
     */
    bool PostIPCMessage(const TagIPCMessageItem& request);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

/** Answers one request; valid while the handler runs. The payload is copied before Reply returns. */
class KXIPCMESSAGE_API IPCReplySender {
public:
    virtual ~IPCReplySender();

    /**
     * Sends the reply; the first call for a request counts, later ones are refused. Waits kIPCWriteLimitMs at most;
     * the connection is dropped when the host has not taken the reply by then.
     * @param payload null for a reply without a payload
     * @param payloadSize in bytes, at most kIPCMaxPayload
     * @return whether the reply was handed to the system
     */
    virtual bool Reply(const void* payload, std::uint32_t payloadSize) = 0;
};

/** Handles one request or notice. For a notice (nothing waits for a reply) Reply returns false. */
using IPCRequestHandler = std::function<void(const TagIPCMessageItem& request, IPCReplySender& sender)>;

/**
 * The worker's end of a channel, good for one connection. Handlers run one after the other on the library's thread;
 * what they throw is dropped. The service must not be destroyed from one of its own callbacks. Only what says so
 * throws.
 */
class KXIPCMESSAGE_API IPCMessageService {
public:
    /**
     * @param moduleId the worker's own module id, the one that the host opened the channel for
     * @throws std::bad_alloc
     */
    explicit IPCMessageService(int moduleId);

    /** Ends the connection and waits for a handler that is running. */
    ~IPCMessageService();

    IPCMessageService(const IPCMessageService&) = delete;
    IPCMessageService& operator=(const IPCMessageService&) = delete;

    /** Handles requests with @p messageId; set before Connect. @throws std::bad_alloc */
    void RegisterRequestHandler(std::uint32_t messageId, IPCRequestHandler handler);

    /** Handles requests whose id has no handler of its own; set before Connect. Without it they go unanswered. */
    void SetDefaultHandler(IPCRequestHandler handler);

    /** Called once on the library's thread when the connection is lost (not when the service is destroyed). */
    void SetDisconnectCallback(std::function<void()> callback);

    /**
     * Opens the parent process's channel.
     * @param timeoutMs how long to wait for the channel to exist and be free, in milliseconds
     * @return 0, or the Windows error code: WAIT_TIMEOUT when the time is over, ERROR_ACCESS_DENIED when the pipe's
     *         other end is not the parent process, ERROR_NOT_FOUND when the parent has ended,
     *         ERROR_ALREADY_INITIALIZED after a Connect that succeeded. Any other failure may be tried again.
     */
    unsigned long Connect(unsigned int timeoutMs);

    /**
     * Sends a notice to the host. Waits kIPCWriteLimitMs at most; the connection is dropped when the host has not taken
     * the notice by then.
     * @return whether the notice was handed to the system
     */
    bool PostIPCMessage(const TagIPCMessageItem& message);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};
