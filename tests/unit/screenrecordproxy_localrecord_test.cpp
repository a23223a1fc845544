// StartLocalRecord: which path and length it takes, and what reaches the worker.
#include "unit/proxycommandfixture.h"

namespace proxytest {

namespace {

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
    std::size_t sentCharacters = 0; ///< before the terminating zero; 0 when the path is refused
    std::wstring refusedLength = L"";
};

class LocalRecordPath : public ProxyCommands, public testing::WithParamInterface<PathCase> {};
INSTANTIATE_TEST_SUITE_P(
    Paths, LocalRecordPath,
    testing::Values(
        PathCase{.name = "OneCharacter", .textLength = 1, .toldLength = 1, .sentCharacters = 1},
        PathCase{.name = "LengthOfText", .textLength = 9, .toldLength = 9, .sentCharacters = 9},
        PathCase{.name = "ZeroTakesTheText", .textLength = 9, .toldLength = 0, .sentCharacters = 9},
        PathCase{.name = "ZeroTakes260", .textLength = 260, .toldLength = 0, .sentCharacters = 260},
        PathCase{.name = "Longest", .textLength = 260, .toldLength = 260, .sentCharacters = 260},
        PathCase{.name = "OneTooLong", .textLength = 261, .toldLength = 261, .refusedLength = L"261"},
        PathCase{.name = "ZeroTakes261", .textLength = 261, .toldLength = 0, .refusedLength = L"261"},
        PathCase{.name = "ZeroTakes300", .textLength = 300, .toldLength = 0, .refusedLength = L"300"},
        PathCase{.name = "LengthShorterThanText", .textLength = 9, .toldLength = 4, .sentCharacters = 4},
        PathCase{.name = "LongTextShortLength", .textLength = 300, .toldLength = 10, .sentCharacters = 10},
        PathCase{.name = "LengthLongerThanText", .textLength = 9, .toldLength = 20, .sentCharacters = 20},
        PathCase{.name = "LongestLengthShortText", .textLength = 1, .toldLength = 260, .sentCharacters = 260},
        PathCase{.name = "LengthTooLongForShortText", .textLength = 9, .toldLength = 261, .refusedLength = L"261"},
        PathCase{.name = "GreatestLength", .textLength = 9, .toldLength = 0xFFFFFFFF, .refusedLength = L"4294967295"}),
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
    ExpectRequest(OnlySend(), kxvcr::kMessageStartLocalRecord, Utf16Bytes(text.substr(0, characters), characters + 1));
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

} // namespace

} // namespace proxytest
