/** @file A proxy for tests of the commands: without a worker, or with one that it believes in. */
#pragma once

#include "unit/proxyfixture.h"

#include <cstdint>
#include <cstring>
#include <string>

namespace proxytest {

inline constexpr DWORD kTick = 0xFEDCBA98;
inline constexpr int kUntouched = 12345;

/** A record whose bytes all differ. */
template <class Record>
Record Patterned(unsigned char first) {
    Record record;
    unsigned char bytes[sizeof(Record)];
    for (std::size_t i = 0; i < sizeof(bytes); ++i) {
        bytes[i] = static_cast<unsigned char>(first + i);
    }
    std::memcpy(&record, bytes, sizeof(record));
    return record;
}

template <class Record>
std::string BytesOf(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

class ProxyCommands : public ProxyTest {
protected:
    ProxyCommands() { fakeipc::Reset(); }
    ~ProxyCommands() override {
        // A worker handle that a test planted is not the proxy's to close.
        if (m_planted) {
            proxyprivate::WorkerProcess(Proxy()).store(nullptr);
        }
    }

    /** Makes the proxy believe that a worker runs. */
    void PlantWorker() {
        m_planted = NewEvent();
        proxyprivate::WorkerProcess(Proxy()).store(m_planted.get());
    }

    fakeipc::Call OnlySend() {
        const auto sends = fakeipc::Calls(fakeipc::CallKind::Send);
        EXPECT_EQ(sends.size(), 1u);
        EXPECT_EQ(fakeipc::Calls().size(), 1u);
        return sends.empty() ? fakeipc::Call() : sends.front();
    }

    void ExpectRequest(const fakeipc::Call& send, std::uint32_t messageId, const std::string& payload) {
        EXPECT_EQ(send.item.sourceModuleId, kxvcr::kHostModuleId);
        EXPECT_EQ(send.item.targetModuleId, kxvcr::kWorkerModuleId);
        EXPECT_EQ(send.item.messageId, messageId);
        EXPECT_EQ(send.item.replyMessageId, messageId);
        EXPECT_EQ(send.item.reserved, 0xFFFFFFFFu);
        EXPECT_EQ(send.item.timeStamp, kTick);
        EXPECT_EQ(send.item.payloadSize, payload.size());
        EXPECT_TRUE(send.item.hasPayload);
        EXPECT_EQ(send.payload, payload);
        EXPECT_EQ(send.timeoutMs, kTimeoutMs);
        EXPECT_EQ(BytesOf(send.replyItem).substr(0, 24), BytesOf(TagIPCMessageItem()).substr(0, 24));
        EXPECT_EQ(send.replyItem.payloadSize, 0u);
        EXPECT_EQ(send.replyItem.payload, nullptr);
        EXPECT_FALSE(send.replyItem.hasPayload);
    }

    hooks::GetTickCountHook m_tick{[] { return kTick; }};

private:
    OwnedHandle m_planted;
};

} // namespace proxytest
