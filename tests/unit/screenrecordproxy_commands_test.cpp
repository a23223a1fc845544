// The commands: which statuses accept them, what reaches the worker, and what a failed exchange leaves behind.
#include "unit/proxyfixture.h"

#include <cstring>
#include <string>

namespace {

using namespace proxytest;
using fakeipc::CallKind;
using proxyprivate::Client;
using proxyprivate::Status;
using proxyprivate::WorkerProcess;

constexpr std::uint32_t kProxyModule = 0x4E0000;
constexpr std::uint32_t kWorkerModule = 0x650000;
constexpr std::uint32_t kPrepareMessage = 0x4E0003;
constexpr std::uint32_t kLiveMessage = 0x4E0004;
constexpr std::uint32_t kLocalMessage = 0x4E0005;
constexpr std::uint32_t kStopMessage = 0x4E0006;
constexpr DWORD kTick = 0xFEDCBA98;
constexpr int kUntouched = 12345;

// A record whose bytes all differ.
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

std::string Utf16Bytes(const std::wstring& text, std::size_t characters) {
    std::wstring padded = text;
    padded.resize(characters, L'\0');
    return {reinterpret_cast<const char*>(padded.data()), padded.size() * sizeof(wchar_t)};
}

// Fills a page with text up to its very end; reading on raises.
class TextBeforeGuard {
public:
    explicit TextBeforeGuard(const std::wstring& text) {
        constexpr std::size_t kPage = 4096;
        m_pages = static_cast<std::byte*>(VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        DWORD former = 0;
        VirtualProtect(m_pages + kPage, kPage, PAGE_NOACCESS, &former);
        const std::size_t bytes = (text.size() + 1) * sizeof(wchar_t);
        m_text = reinterpret_cast<wchar_t*>(m_pages + kPage - bytes);
        std::memcpy(m_text, text.c_str(), bytes);
    }
    ~TextBeforeGuard() { VirtualFree(m_pages, 0, MEM_RELEASE); }
    TextBeforeGuard(const TextBeforeGuard&) = delete;
    TextBeforeGuard& operator=(const TextBeforeGuard&) = delete;

    wchar_t* Text() const { return m_text; }

private:
    std::byte* m_pages = nullptr;
    wchar_t* m_text = nullptr;
};

class ProxyCommands : public ProxyTest {
protected:
    ProxyCommands() { fakeipc::Reset(); }
    ~ProxyCommands() override {
        // A worker handle that a test planted is not the proxy's to close.
        if (m_planted) {
            WorkerProcess(Proxy()).store(nullptr);
        }
    }

    /** Makes the proxy believe that a worker runs. */
    void PlantWorker() {
        m_planted = NewEvent();
        WorkerProcess(Proxy()).store(m_planted.get());
    }

    fakeipc::Call OnlySend() {
        const auto sends = fakeipc::Calls(CallKind::Send);
        EXPECT_EQ(sends.size(), 1u);
        EXPECT_EQ(fakeipc::Calls().size(), 1u);
        return sends.empty() ? fakeipc::Call() : sends.front();
    }

    void ExpectRequest(const fakeipc::Call& send, std::uint32_t messageId, const std::string& payload) {
        EXPECT_EQ(send.item.sourceModuleId, kProxyModule);
        EXPECT_EQ(send.item.targetModuleId, kWorkerModule);
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

// One command of the table: how to call it and what is told about it.
struct Command {
    const char* name;
    RunStatus from;
    RunStatus during;
    RunStatus after;
    RecordMode mode;
    const char* function;
    std::wstring refusal;
    std::vector<proxymessages::Message> failedSend;
    std::vector<proxymessages::Message> failedAnswer; ///< what the command itself adds when the answer is bad
    bool (*call)(ScreenRecordProxy& proxy);
};

std::ostream& operator<<(std::ostream& out, const Command& command) {
    return out << command.name;
}

// The forms of preparing, which differ in the mode that they end in.
Command PrepareCommand(const char* name, RecordMode mode, bool (*call)(ScreenRecordProxy& proxy)) {
    return {name,
            RunStatus::Running,
            RunStatus::Preparing,
            RunStatus::Prepared,
            mode,
            "PrepareTimemachine",
            L"Can not call prepare on status ",
            {Error("SendVCRMessage", L"Send IPC msg failed!"), Error("PrepareTimemachine", L"Send IPC Message failed")},
            {Error("PrepareTimemachine", L"Send IPC Message failed")},
            call};
}

const Command kCommands[] = {
    PrepareCommand("Prepare", RecordMode::Prepared,
                   [](ScreenRecordProxy& proxy) { return proxy.Prepare(ScreenRecordParam(), kTimeoutMs); }),
    PrepareCommand(
        "PrepareTimemachineWithZero", RecordMode::Prepared,
        [](ScreenRecordProxy& proxy) { return proxy.PrepareTimemachine(ScreenRecordParam(), 0, kTimeoutMs); }),
    PrepareCommand(
        "PrepareTimemachine", RecordMode::PreparedTimemachine,
        [](ScreenRecordProxy& proxy) { return proxy.PrepareTimemachine(ScreenRecordParam(), 30, kTimeoutMs); }),
    {"StartLocalRecord",
     RunStatus::Prepared,
     RunStatus::LocalRecordStarting,
     RunStatus::LocalRecordRunning,
     RecordMode::LocalRecord,
     "StartLocalRecord",
     L"Can not start local record on mode ",
     {Error("SendVCRMessage", L"Send IPC msg failed!"), Error("StartLocalRecord", L"Send Ipc Message failed")},
     {Error("StartLocalRecord", L"Send Ipc Message failed")},
     [](ScreenRecordProxy& proxy) { return proxy.StartLocalRecord(L"C:\\a.webm", 0, kTimeoutMs); }},
    {"StartLiveServer",
     RunStatus::Prepared,
     RunStatus::LiveServerStarting,
     RunStatus::LiveServerRunning,
     RecordMode::LiveServer,
     "StartLiveServer",
     L"Can not start live server on mode ",
     {Error("StartLiveServer", L"Send IPC msg(StartLiveServer) failed!")},
     {},
     [](ScreenRecordProxy& proxy) {
         int result = kUntouched;
         return proxy.StartLiveServer(LiveServerParam(), kTimeoutMs, result);
     }},
};

class EveryCommand : public ProxyCommands, public testing::WithParamInterface<Command> {};
INSTANTIATE_TEST_SUITE_P(Commands, EveryCommand, testing::ValuesIn(kCommands),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(EveryCommand, OtherStatus_IsRefusedAndChangesNothing) {
    for (const RunStatus status : kAllStatuses) {
        if (status == GetParam().from) {
            continue;
        }
        for (const RecordMode mode : kAllModes) {
            m_log.Clear();
            SetState(status, mode);
            EXPECT_FALSE(GetParam().call(Proxy()));
            ExpectState(status, mode);
            ExpectMessages({Error(GetParam().function, GetParam().refusal, std::to_wstring(static_cast<int>(status)))});
        }
    }
    EXPECT_TRUE(fakeipc::Calls().empty());
}

TEST_P(EveryCommand, ExpectedStatus_GoesThroughProgressToSuccess) {
    RunStatus during{};
    fakeipc::SetObserver([&](const fakeipc::Call&) { during = Status(Proxy()).load(); });
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_TRUE(GetParam().call(Proxy()));
    // The fixture calls on when this frame is gone.
    fakeipc::SetObserver(nullptr);
    EXPECT_EQ(static_cast<int>(during), static_cast<int>(GetParam().during));
    ExpectState(GetParam().after, GetParam().mode);
    ExpectMessages({});
}

TEST_P(EveryCommand, FailedSend_LeavesTheErrorStatusAndTheMode) {
    fakeipc::QueueAnswer(fakeipc::SendFails());
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(RunStatus::Error, RecordMode::WorkerStarted);
    ExpectMessages(GetParam().failedSend);
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_TRUE(GetParam().call(Proxy()));
}

TEST_P(EveryCommand, ReplyWithoutPayload_LeavesTheErrorStatus) {
    fakeipc::QueueAnswer(fakeipc::NoPayload());
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(RunStatus::Error, RecordMode::WorkerStarted);
    ExpectMessages(GetParam().failedAnswer);
}

TEST_P(EveryCommand, ReplyWithoutBlock_IsNoAnswer) {
    fakeipc::Answer answer;
    answer.withoutBlock = true;
    fakeipc::QueueAnswer(answer);
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(RunStatus::Error, RecordMode::WorkerStarted);
}

TEST_P(EveryCommand, FailureWhileStopping_KeepsTheStoppingStatus) {
    fakeipc::Answer answer = fakeipc::SendFails();
    answer.before = [this] { Status(Proxy()).store(RunStatus::Stopping); };
    fakeipc::QueueAnswer(answer);
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(RunStatus::Stopping, RecordMode::WorkerStarted);
}

TEST_P(EveryCommand, NegativeResult_LeavesTheErrorStatus) {
    fakeipc::QueueAnswer(fakeipc::Result(-7));
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(RunStatus::Error, RecordMode::WorkerStarted);
}

TEST_P(EveryCommand, WithoutClient_StaysInProgress) {
    IPCMessageClient* const client = Client(Proxy());
    Client(Proxy()) = nullptr;
    SetState(GetParam().from, RecordMode::WorkerStarted);
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(GetParam().during, RecordMode::WorkerStarted);
    ExpectMessages(GetParam().failedAnswer);
    EXPECT_TRUE(fakeipc::Calls().empty());
    Client(Proxy()) = client;
}

TEST_F(ProxyCommands, Prepare_SendsThe44Bytes) {
    const auto param = Patterned<ScreenRecordParam>(1);
    SetState(RunStatus::Running, RecordMode::WorkerStarted);
    EXPECT_TRUE(Proxy().Prepare(param, kTimeoutMs));
    ExpectRequest(OnlySend(), kPrepareMessage, BytesOf(param));
    EXPECT_EQ(OnlySend().payload.size(), 44u);
}

TEST_F(ProxyCommands, PrepareTimemachine_ZeroSendsThe44Bytes) {
    const auto param = Patterned<ScreenRecordParam>(2);
    SetState(RunStatus::Running, RecordMode::WorkerStarted);
    EXPECT_TRUE(Proxy().PrepareTimemachine(param, 0, kTimeoutMs));
    ExpectRequest(OnlySend(), kPrepareMessage, BytesOf(param));
}

TEST_F(ProxyCommands, PrepareTimemachine_ValueFollowsTheRecord) {
    for (const unsigned int value : {1u, 0x01020304u, 0xFFFFFFFFu}) {
        fakeipc::Reset();
        const auto param = Patterned<ScreenRecordParam>(3);
        SetState(RunStatus::Running, RecordMode::WorkerStarted);
        EXPECT_TRUE(Proxy().PrepareTimemachine(param, value, kTimeoutMs));
        ExpectRequest(OnlySend(), kPrepareMessage, BytesOf(param) + BytesOf(value));
        EXPECT_EQ(OnlySend().payload.size(), 48u);
        ExpectState(RunStatus::Prepared, RecordMode::PreparedTimemachine);
    }
}

TEST_F(ProxyCommands, Prepare_ZeroResultIsSuccess) {
    fakeipc::QueueAnswer(fakeipc::Result(0));
    SetState(RunStatus::Running, RecordMode::WorkerStarted);
    EXPECT_TRUE(Proxy().Prepare(ScreenRecordParam(), kTimeoutMs));
    ExpectState(RunStatus::Prepared, RecordMode::Prepared);
}

TEST_F(ProxyCommands, StartLocalRecord_ZeroResultIsSuccess) {
    fakeipc::QueueAnswer(fakeipc::Result(0));
    SetState(RunStatus::Prepared, RecordMode::Prepared);
    EXPECT_TRUE(Proxy().StartLocalRecord(L"a", 0, kTimeoutMs));
    ExpectState(RunStatus::LocalRecordRunning, RecordMode::LocalRecord);
}

TEST_F(ProxyCommands, StartLocalRecord_BeforePrepare_NamesStatusTwo) {
    SetState(RunStatus::Running, RecordMode::WorkerStarted);
    EXPECT_FALSE(Proxy().StartLocalRecord(L"a", 0, kTimeoutMs));
    ExpectMessages({Error("StartLocalRecord", L"Can not start local record on mode ", L"2")});
}

struct PathCase {
    const char* name;
    std::size_t textLength;
    unsigned int toldLength;
    std::size_t sentCharacters; ///< before the terminating zero; 0 when the path is refused
    std::wstring refusedLength;
};

class LocalRecordPath : public ProxyCommands, public testing::WithParamInterface<PathCase> {};
INSTANTIATE_TEST_SUITE_P(
    Paths, LocalRecordPath,
    testing::Values(PathCase{"OneCharacter", 1, 1, 1, L""}, PathCase{"LengthOfText", 9, 9, 9, L""},
                    PathCase{"ZeroTakesTheText", 9, 0, 9, L""}, PathCase{"ZeroTakes260", 260, 0, 260, L""},
                    PathCase{"Longest", 260, 260, 260, L""}, PathCase{"OneTooLong", 261, 261, 0, L"261"},
                    PathCase{"ZeroTakes261", 261, 0, 0, L"261"}, PathCase{"ZeroTakes300", 300, 0, 0, L"300"},
                    PathCase{"LengthShorterThanText", 9, 4, 4, L""}, PathCase{"LongTextShortLength", 300, 10, 10, L""},
                    PathCase{"LengthLongerThanText", 9, 20, 20, L""},
                    PathCase{"LongestLengthShortText", 1, 260, 260, L""},
                    PathCase{"LengthTooLongForShortText", 9, 261, 0, L"261"},
                    PathCase{"GreatestLength", 9, 0xFFFFFFFF, 0, L"4294967295"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(LocalRecordPath, Length_DecidesWhatIsSent) {
    std::wstring text;
    for (std::size_t i = 0; i < GetParam().textLength; ++i) {
        text.push_back(static_cast<wchar_t>(L'A' + i % 50));
    }
    const TextBeforeGuard guarded(text);
    SetState(RunStatus::Prepared, RecordMode::Prepared);
    const bool accepted = Proxy().StartLocalRecord(guarded.Text(), GetParam().toldLength, kTimeoutMs);
    if (GetParam().sentCharacters == 0) {
        EXPECT_FALSE(accepted);
        ExpectState(RunStatus::Prepared, RecordMode::Prepared);
        EXPECT_TRUE(fakeipc::Calls().empty());
        ExpectMessages({Error("StartLocalRecord", L"Invalid path length ", GetParam().refusedLength)});
        return;
    }
    EXPECT_TRUE(accepted);
    const std::size_t characters = GetParam().sentCharacters;
    ExpectRequest(OnlySend(), kLocalMessage, Utf16Bytes(text.substr(0, characters), characters + 1));
    EXPECT_EQ(OnlySend().payload.size(), 2 * characters + 2);
    ExpectMessages({});
}

TEST_F(ProxyCommands, StartLocalRecord_NoPath_IsRefusedInEveryStatus) {
    for (const RunStatus status : kAllStatuses) {
        for (const wchar_t* path : {static_cast<const wchar_t*>(nullptr), L""}) {
            for (const unsigned int length : {0u, 5u, 261u}) {
                m_log.Clear();
                SetState(status, RecordMode::Prepared);
                EXPECT_FALSE(Proxy().StartLocalRecord(path, length, kTimeoutMs));
                ExpectState(status, RecordMode::Prepared);
                ExpectMessages({Error("StartLocalRecord", L"Invalid path")});
            }
        }
    }
    EXPECT_TRUE(fakeipc::Calls().empty());
}

TEST_F(ProxyCommands, StartLocalRecord_BadLengthInWrongStatus_NamesTheLength) {
    SetState(RunStatus::Idle, RecordMode::NoWorker);
    EXPECT_FALSE(Proxy().StartLocalRecord(L"a", 261, kTimeoutMs));
    ExpectMessages({Error("StartLocalRecord", L"Invalid path length ", L"261")});
}

TEST_F(ProxyCommands, StartLiveServer_SendsThe40Bytes) {
    const auto param = Patterned<LiveServerParam>(4);
    int result = kUntouched;
    fakeipc::QueueAnswer(fakeipc::Result(8080));
    SetState(RunStatus::Prepared, RecordMode::Prepared);
    EXPECT_TRUE(Proxy().StartLiveServer(param, kTimeoutMs, result));
    ExpectRequest(OnlySend(), kLiveMessage, BytesOf(param));
    EXPECT_EQ(OnlySend().payload.size(), 40u);
    EXPECT_EQ(result, 8080);
    ExpectState(RunStatus::LiveServerRunning, RecordMode::LiveServer);
}

TEST_F(ProxyCommands, StartLiveServer_ResultOfZeroOrLess_FailsAndGivesZero) {
    for (const std::int32_t answer : {0, -1, static_cast<std::int32_t>(0x80000000)}) {
        int result = kUntouched;
        fakeipc::QueueAnswer(fakeipc::Result(answer));
        SetState(RunStatus::Prepared, RecordMode::Prepared);
        EXPECT_FALSE(Proxy().StartLiveServer(LiveServerParam(), kTimeoutMs, result));
        EXPECT_EQ(result, 0);
        ExpectState(RunStatus::Error, RecordMode::Prepared);
    }
    ExpectMessages({});
}

TEST_F(ProxyCommands, StartLiveServer_GreatestResult_IsGiven) {
    int result = kUntouched;
    fakeipc::QueueAnswer(fakeipc::Result(0x7FFFFFFF));
    SetState(RunStatus::Prepared, RecordMode::Prepared);
    EXPECT_TRUE(Proxy().StartLiveServer(LiveServerParam(), kTimeoutMs, result));
    EXPECT_EQ(result, 0x7FFFFFFF);
}

TEST_F(ProxyCommands, StartLiveServer_FailuresWithoutAnswer_LeaveTheResult) {
    int result = kUntouched;
    SetState(RunStatus::Idle, RecordMode::NoWorker);
    EXPECT_FALSE(Proxy().StartLiveServer(LiveServerParam(), kTimeoutMs, result));
    for (const fakeipc::Answer& answer : {fakeipc::SendFails(), fakeipc::NoPayload(), fakeipc::Payload("abc")}) {
        fakeipc::QueueAnswer(answer);
        SetState(RunStatus::Prepared, RecordMode::Prepared);
        EXPECT_FALSE(Proxy().StartLiveServer(LiveServerParam(), kTimeoutMs, result));
    }
    EXPECT_EQ(result, kUntouched);
}

TEST_F(ProxyCommands, StartLiveServer_ReplyOfOtherSize_NamesTheSizeAndFreesTheBlock) {
    for (const std::size_t size : {0u, 1u, 3u, 5u, 8u, 4096u}) {
        m_log.Clear();
        fakeipc::Reset();
        int result = kUntouched;
        std::vector<void*> freed;
        const hooks::FreeHook free([&](void* block) {
            freed.push_back(block);
            hooks::FreeHook::Original(block);
        });
        fakeipc::QueueAnswer(fakeipc::Payload(std::string(size, '\1')));
        SetState(RunStatus::Prepared, RecordMode::Prepared);
        EXPECT_FALSE(Proxy().StartLiveServer(LiveServerParam(), kTimeoutMs, result));
        ExpectState(RunStatus::Error, RecordMode::Prepared);
        ExpectMessages(
            {Error("StartLiveServer", L"StartLive IPC return value size(", std::to_wstring(size) + L") error")});
        EXPECT_EQ(std::count(freed.begin(), freed.end(), fakeipc::ReplyBlocks().at(0)), 1);
    }
}

TEST_F(ProxyCommands, StartLiveServer_GoodReply_FreesTheBlock) {
    std::vector<void*> freed;
    const hooks::FreeHook free([&](void* block) {
        freed.push_back(block);
        hooks::FreeHook::Original(block);
    });
    int result = kUntouched;
    SetState(RunStatus::Prepared, RecordMode::Prepared);
    EXPECT_TRUE(Proxy().StartLiveServer(LiveServerParam(), kTimeoutMs, result));
    EXPECT_EQ(std::count(freed.begin(), freed.end(), fakeipc::ReplyBlocks().at(0)), 1);
}

TEST_F(ProxyCommands, Stop_WithoutWorker_DoesNothing) {
    for (const RunStatus status : kAllStatuses) {
        SetState(status, RecordMode::WorkerStarted);
        Proxy().Stop();
        ExpectState(status, RecordMode::WorkerStarted);
    }
    EXPECT_TRUE(fakeipc::Calls().empty());
    ExpectMessages({});
}

TEST_F(ProxyCommands, Stop_EveryOtherStatus_PostsOnceAndKeepsTheMode) {
    PlantWorker();
    for (const RunStatus status : kAllStatuses) {
        if (status == RunStatus::Stopping) {
            continue;
        }
        for (const RecordMode mode : kAllModes) {
            fakeipc::Reset();
            SetState(status, mode);
            Proxy().Stop();
            ExpectState(RunStatus::Stopping, mode);
            EXPECT_EQ(fakeipc::Calls().size(), 1u);
            EXPECT_EQ(fakeipc::Calls(CallKind::Post).size(), 1u);
        }
    }
    ExpectMessages({});
}

TEST_F(ProxyCommands, Stop_PostsANoticeWithoutPayload) {
    PlantWorker();
    SetState(RunStatus::LocalRecordRunning, RecordMode::LocalRecord);
    Proxy().Stop();
    const fakeipc::Call post = fakeipc::Calls(CallKind::Post).at(0);
    EXPECT_EQ(post.item.sourceModuleId, kProxyModule);
    EXPECT_EQ(post.item.targetModuleId, kWorkerModule);
    EXPECT_EQ(post.item.messageId, kStopMessage);
    EXPECT_EQ(post.item.replyMessageId, 0xFFFFFFFFu);
    EXPECT_EQ(post.item.reserved, 0xFFFFFFFFu);
    EXPECT_EQ(post.item.timeStamp, kTick);
    EXPECT_EQ(post.item.payloadSize, 0u);
    EXPECT_EQ(post.item.payload, nullptr);
    EXPECT_FALSE(post.item.hasPayload);
}

TEST_F(ProxyCommands, Stop_Twice_SendsOnce) {
    PlantWorker();
    SetState(RunStatus::LocalRecordRunning, RecordMode::LocalRecord);
    Proxy().Stop();
    Proxy().Stop();
    EXPECT_EQ(fakeipc::Calls().size(), 1u);
    ExpectState(RunStatus::Stopping, RecordMode::LocalRecord);
    ExpectMessages({});
}

TEST_F(ProxyCommands, Stop_FailedPost_IsLoggedAndKeepsStopping) {
    PlantWorker();
    fakeipc::SetPostResult(false);
    SetState(RunStatus::LiveServerRunning, RecordMode::LiveServer);
    Proxy().Stop();
    ExpectState(RunStatus::Stopping, RecordMode::LiveServer);
    ExpectMessages({Error("Stop", L"Post IPC msg(Stop) failed!")});
}

TEST_F(ProxyCommands, Stop_FailedPost_IsAnErrorOnceNoLongerStopping) {
    PlantWorker();
    fakeipc::SetPostResult(false);
    fakeipc::SetObserver([this](const fakeipc::Call&) { Status(Proxy()).store(RunStatus::Running); });
    SetState(RunStatus::LocalRecordRunning, RecordMode::LocalRecord);
    Proxy().Stop();
    ExpectState(RunStatus::Error, RecordMode::LocalRecord);
}

TEST_F(ProxyCommands, Stop_WithoutClient_IsLoggedAfterTheStatusChanged) {
    PlantWorker();
    IPCMessageClient* const client = Client(Proxy());
    Client(Proxy()) = nullptr;
    SetState(RunStatus::Prepared, RecordMode::Prepared);
    Proxy().Stop();
    ExpectState(RunStatus::Stopping, RecordMode::Prepared);
    ExpectMessages({Error("Stop", L"objIPCClient is null.")});
    Client(Proxy()) = client;
}

TEST_F(ProxyCommands, Stop_ReadsTheWorkerWithoutTheLock) {
    PlantWorker();
    SetState(RunStatus::Prepared, RecordMode::Prepared);
    const hooks::EnterLockHook enter([](LPCRITICAL_SECTION lock) { hooks::EnterLockHook::Original(lock); });
    Proxy().Stop();
    EXPECT_EQ(enter.Calls(), 0);
    EXPECT_EQ(fakeipc::Calls(CallKind::Post).size(), 1u);
}

TEST_F(ProxyCommands, WholeRecording_WalksTheStates) {
    PlantWorker();
    SetState(RunStatus::Running, RecordMode::WorkerStarted);
    EXPECT_TRUE(Proxy().Prepare(ScreenRecordParam(), kTimeoutMs));
    EXPECT_FALSE(Proxy().Prepare(ScreenRecordParam(), kTimeoutMs));
    EXPECT_TRUE(Proxy().StartLocalRecord(L"a", 0, kTimeoutMs));
    EXPECT_FALSE(Proxy().StartLocalRecord(L"a", 0, kTimeoutMs));
    Proxy().Stop();
    EXPECT_FALSE(Proxy().StartLocalRecord(L"a", 0, kTimeoutMs));
    ExpectState(RunStatus::Stopping, RecordMode::LocalRecord);
    ExpectMessages({Error("PrepareTimemachine", L"Can not call prepare on status ", L"4"),
                    Error("StartLocalRecord", L"Can not start local record on mode ", L"6"),
                    Error("StartLocalRecord", L"Can not start local record on mode ", L"11")});
}

} // namespace
