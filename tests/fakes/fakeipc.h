/**
 * @file
 * Control interface of the scriptable IPCMessage.dll: what the code under test did with the message client, in order,
 * and what the client answers. All functions may be called from any thread.
 */
#pragma once

#include "sdk/ipcmessage/ipcmessage.h"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#if defined(KXIPCMESSAGE_BUILD)
#define FAKEIPC_API __declspec(dllexport)
#else
#define FAKEIPC_API __declspec(dllimport)
#endif

namespace fakeipc {

enum class CallKind { Construct, Register, Send, Post, UnRegisterAll, Destroy };

using ItemBytes = std::array<std::uint8_t, sizeof(TagIPCMessageItem)>;

/** One call of a client. Members that its kind does not have keep their initial values. */
struct Call {
    CallKind kind{};
    const IPCMessageClient* client = nullptr;
    int moduleId = 0;            ///< Construct
    bool reserved1 = false;      ///< Construct
    bool reserved2 = false;      ///< Construct
    std::uint32_t messageId = 0; ///< Register
    TagIPCMessageItem item;      ///< Send, Post: the item as it was passed; its pointer may dangle by now
    ItemBytes itemBytes{};       ///< Send, Post: all bytes of the item, padding included
    std::string payload;         ///< Send, Post: a copy of the payload's bytes
    TagIPCMessageItem replyItem; ///< Send: the reply item as it was passed in
    unsigned int timeoutMs = 0;  ///< Send
};

/** What one send does. */
struct Answer {
    bool sent = true;             ///< the result of SendIPCMessage
    bool hasPayload = true;       ///< whether the reply carries a payload
    std::string payload;          ///< the reply's bytes
    bool withoutBlock = false;    ///< the reply claims a payload of 4 bytes but has no block
    std::function<void()> before; ///< run before the answer is given
};

FAKEIPC_API Answer SendFails();
FAKEIPC_API Answer NoPayload();
FAKEIPC_API Answer Payload(std::string bytes);
FAKEIPC_API Answer Result(std::int32_t value);

/** Forgets all calls and scripts: sends are then answered with a result of 1 and posts succeed. */
FAKEIPC_API void Reset();

/** Queues the answer of one send. */
FAKEIPC_API void QueueAnswer(Answer answer);

/** The answer of every send that finds the queue empty. */
FAKEIPC_API void SetDefaultAnswer(Answer answer);

/** The result of every post from now on. */
FAKEIPC_API void SetPostResult(bool result);

/** Makes the constructor throw std::bad_alloc. */
FAKEIPC_API void SetConstructorThrows(bool throws);

/** Called at the beginning of each call of a client, on the caller's thread. An empty function removes it. */
FAKEIPC_API void SetObserver(std::function<void(const Call&)> observer);

/** All calls since Reset, oldest first. */
FAKEIPC_API std::vector<Call> Calls();

/** The calls of one kind. */
FAKEIPC_API std::vector<Call> Calls(CallKind kind);

/** The payload blocks that replies were given, in the order of the replies. */
FAKEIPC_API std::vector<void*> ReplyBlocks();

/**
 * Delivers a message without a payload to the newest client on a thread of the library and waits until its callback
 * has returned.
 * @return whether a callback was registered for the id
 */
FAKEIPC_API bool Deliver(std::uint32_t messageId);

} // namespace fakeipc
