// The scriptable message client.
#include "fakes/fakeipc.h"

#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

class IPCMessageClient::Impl {
public:
    std::mutex mutex;
    std::map<std::uint32_t, IPCMessageCallback> callbacks;
};

namespace fakeipc {

namespace {

struct State {
    std::mutex mutex;
    std::vector<Call> calls;
    std::deque<Answer> answers;
    Answer defaultAnswer = Result(1);
    bool postResult = true;
    bool constructorThrows = false;
    std::function<void(const Call&)> observer;
    std::vector<void*> replyBlocks;
    // Takes a callback's running time as a whole, so that removing the callbacks waits for it.
    std::recursive_mutex delivery;
    std::function<IPCMessageCallback(std::uint32_t)> findCallback;
};

State& TheState() {
    static State s_state;
    return s_state;
}

void Note(const Call& call) {
    State& state = TheState();
    std::function<void(const Call&)> observer;
    {
        const std::lock_guard guard(state.mutex);
        state.calls.push_back(call);
        observer = state.observer;
    }
    if (observer) {
        observer(call);
    }
}

Call CallWithItem(CallKind kind, const IPCMessageClient* client, const TagIPCMessageItem& item) {
    Call call;
    call.kind = kind;
    call.client = client;
    call.item = item;
    std::memcpy(call.itemBytes.data(), &item, sizeof(item));
    if (item.payload != nullptr) {
        call.payload.assign(static_cast<const char*>(item.payload), item.payloadSize);
    }
    return call;
}

Answer NextAnswer() {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    if (state.answers.empty()) {
        return state.defaultAnswer;
    }
    Answer answer = std::move(state.answers.front());
    state.answers.pop_front();
    return answer;
}

void FillReply(const Answer& answer, IPCReplyItem& reply) {
    if (!answer.hasPayload) {
        return;
    }
    reply.hasPayload = true;
    if (answer.withoutBlock) {
        reply.payloadSize = sizeof(std::int32_t);
        return;
    }
    reply.payloadSize = static_cast<std::uint32_t>(answer.payload.size());
    reply.payload = std::malloc(answer.payload.empty() ? 1 : answer.payload.size());
    if (reply.payload == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(reply.payload, answer.payload.data(), answer.payload.size());
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    state.replyBlocks.push_back(reply.payload);
}

} // namespace

Answer SendFails() {
    Answer answer;
    answer.sent = false;
    answer.hasPayload = false;
    return answer;
}

Answer NoPayload() {
    Answer answer;
    answer.hasPayload = false;
    return answer;
}

Answer Payload(std::string bytes) {
    Answer answer;
    answer.payload = std::move(bytes);
    return answer;
}

Answer Result(std::int32_t value) {
    return Payload(std::string(reinterpret_cast<const char*>(&value), sizeof(value)));
}

void Reset() {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    state.calls.clear();
    state.answers.clear();
    state.defaultAnswer = Result(1);
    state.postResult = true;
    state.constructorThrows = false;
    state.observer = nullptr;
    state.replyBlocks.clear();
}

void QueueAnswer(Answer answer) {
    const std::lock_guard guard(TheState().mutex);
    TheState().answers.push_back(std::move(answer));
}

void SetDefaultAnswer(Answer answer) {
    const std::lock_guard guard(TheState().mutex);
    TheState().defaultAnswer = std::move(answer);
}

void SetPostResult(bool result) {
    const std::lock_guard guard(TheState().mutex);
    TheState().postResult = result;
}

void SetConstructorThrows(bool throws) {
    const std::lock_guard guard(TheState().mutex);
    TheState().constructorThrows = throws;
}

void SetObserver(std::function<void(const Call&)> observer) {
    const std::lock_guard guard(TheState().mutex);
    TheState().observer = std::move(observer);
}

std::vector<Call> Calls() {
    const std::lock_guard guard(TheState().mutex);
    return TheState().calls;
}

std::vector<Call> Calls(CallKind kind) {
    std::vector<Call> calls = Calls();
    std::erase_if(calls, [kind](const Call& call) { return call.kind != kind; });
    return calls;
}

std::vector<void*> ReplyBlocks() {
    const std::lock_guard guard(TheState().mutex);
    return TheState().replyBlocks;
}

bool Deliver(std::uint32_t messageId) {
    bool delivered = false;
    std::thread([&] {
        const std::lock_guard guard(TheState().delivery);
        const IPCMessageCallback callback =
            TheState().findCallback ? TheState().findCallback(messageId) : IPCMessageCallback();
        if (!callback) {
            return;
        }
        TagIPCMessageItem item;
        item.messageId = messageId;
        callback(item);
        delivered = true;
    }).join();
    return delivered;
}

} // namespace fakeipc

using fakeipc::Call;
using fakeipc::CallKind;

IPCMessageClient::IPCMessageClient(int moduleId, bool reserved1, bool reserved2) : m_impl(std::make_unique<Impl>()) {
    Call call;
    call.kind = CallKind::Construct;
    call.client = this;
    call.moduleId = moduleId;
    call.reserved1 = reserved1;
    call.reserved2 = reserved2;
    fakeipc::Note(call);
    if (fakeipc::TheState().constructorThrows) {
        throw std::bad_alloc();
    }
    const std::lock_guard guard(fakeipc::TheState().delivery);
    fakeipc::TheState().findCallback = [impl = m_impl.get()](std::uint32_t messageId) {
        const std::lock_guard implGuard(impl->mutex);
        const auto found = impl->callbacks.find(messageId);
        return found == impl->callbacks.end() ? IPCMessageCallback() : found->second;
    };
}

IPCMessageClient::~IPCMessageClient() {
    Call call;
    call.kind = CallKind::Destroy;
    call.client = this;
    fakeipc::Note(call);
    const std::lock_guard guard(fakeipc::TheState().delivery);
    fakeipc::TheState().findCallback = nullptr;
}

void IPCMessageClient::RegisterMessageCallback(std::uint32_t messageId, IPCMessageCallback callback) {
    Call call;
    call.kind = CallKind::Register;
    call.client = this;
    call.messageId = messageId;
    fakeipc::Note(call);
    const std::lock_guard guard(m_impl->mutex);
    m_impl->callbacks[messageId] = std::move(callback);
}

void IPCMessageClient::UnRegisterMessageCallbackAll() {
    Call call;
    call.kind = CallKind::UnRegisterAll;
    call.client = this;
    fakeipc::Note(call);
    const std::lock_guard delivery(fakeipc::TheState().delivery);
    const std::lock_guard guard(m_impl->mutex);
    m_impl->callbacks.clear();
}

bool IPCMessageClient::SendIPCMessage(const TagIPCMessageItem& request, IPCReplyItem& reply, unsigned int timeoutMs) {
    Call call = fakeipc::CallWithItem(CallKind::Send, this, request);
    call.replyItem = reply;
    call.timeoutMs = timeoutMs;
    fakeipc::Note(call);
    const fakeipc::Answer answer = fakeipc::NextAnswer();
    if (answer.before) {
        answer.before();
    }
    if (answer.sent) {
        fakeipc::FillReply(answer, reply);
    }
    return answer.sent;
}

bool IPCMessageClient::PostIPCMessage(const TagIPCMessageItem& request) {
    fakeipc::Note(fakeipc::CallWithItem(CallKind::Post, this, request));
    const std::lock_guard guard(fakeipc::TheState().mutex);
    return fakeipc::TheState().postResult;
}
