// Restoring the display scaling after an update of Windows, against scripted displays.
#include "dpifixture.h"

#include <climits>
#include <optional>
#include <ostream>

namespace querytest {

namespace {

// --- RestoreSystemDpi4Common

const std::wstring kNoReleaseLine =
    L"RestoreSystemDpi Warning: GetValue failed.(SystemEnvironment::RestoreSystemDpi4Common)\n";
const std::wstring kFirstSaveLine =
    L"RestoreSystemDpi Warning: first save dpi value.(SystemEnvironment::RestoreSystemDpi4Common)\n";
std::wstring ChangedLine(const std::wstring& release) {
    return L"RestoreSystemDpi ok: sysversion changed to " + release + L"(SystemEnvironment::RestoreSystemDpi4Common)\n";
}
const std::wstring kRefusedStepLine =
    L"DisplayConfigSetDeviceInfo fail:1450, status= 31(SystemEnvironment::ApplyDpiSetting)\n";
const std::wstring kRestoreFailedLine =
    L"RestoreSystemDpi error: ApplyDpiSetting fail:1450(SystemEnvironment::RestoreSystemDpi4Common)\n";

// A write that a row expects: of the release, the index or the value.
struct Written {
    std::optional<std::wstring> release;
    std::optional<int> index;
    std::optional<int> value;
};
Written Release(const std::wstring& release) {
    return {release, std::nullopt, std::nullopt};
}
Written Index(int index) {
    return {std::nullopt, index, std::nullopt};
}
Written Value(int value) {
    return {std::nullopt, std::nullopt, value};
}

struct Recorded {
    std::optional<std::wstring> release = {};
    std::optional<int> dpi = {};
    std::optional<int> index = {};
};
struct InForce {
    std::optional<std::wstring> release = {};
    int dpi = 0;
    std::optional<int> step = {}; // of the monitor
};
struct Row {
    const char* name = "";
    Recorded recorded = {};
    InForce inForce = {};
    bool acceptsStep = true;
    // what comes out, with an offset of -1
    bool result = true;
    std::vector<Written> written = {};
    std::optional<int> applied = {};
    std::vector<std::wstring> lines = {};
};
std::ostream& operator<<(std::ostream& out, const Row& row) {
    return out << row.name;
}

class RestoreTest : public DpiTest {
protected:
    void Arrange(const Row& row) {
        fakeutil::SetSystemDpi(row.inForce.dpi);
        displays.setStatus = row.acceptsStep ? ERROR_SUCCESS : ERROR_GEN_FAILURE;
        displays.lastError = 1450;
        if (row.recorded.release) {
            StoreRecord(L"LastestOSVersion", *row.recorded.release);
        }
        if (row.recorded.dpi) {
            StoreRecord(L"LastestDPIValue", static_cast<unsigned long>(*row.recorded.dpi));
        }
        if (row.recorded.index) {
            StoreRecord(L"LastestDPIIndex", static_cast<unsigned long>(*row.recorded.index));
        }
        if (row.inForce.release) {
            StoreRelease(*row.inForce.release);
        }
        if (row.inForce.step) {
            StoreMonitor(L"A", static_cast<unsigned long>(*row.inForce.step));
        }
    }
    static std::vector<Call> CallsOf(const std::vector<Written>& written) {
        std::vector<Call> calls;
        for (const Written& write : written) {
            calls.push_back(write.release ? WriteRelease(*write.release)
                            : write.index ? WriteIndex(*write.index)
                                          : WriteValue(*write.value));
        }
        return calls;
    }
};
class RestoreTableTest : public RestoreTest, public testing::WithParamInterface<Row> {};

INSTANTIATE_TEST_SUITE_P(
    Decisions, RestoreTableTest,
    testing::Values(
        Row{.name = "NothingRecorded",
            .inForce = {L"2009", 144, 2},
            .written = {Release(L"2009"), Index(2), Value(144)},
            .lines = {kNoReleaseLine, ChangedLine(L"2009"), kFirstSaveLine}},
        Row{.name = "NothingRecordedAndNoMonitor",
            .inForce = {L"2009", 144, {}},
            .written = {Release(L"2009"), Index(0), Value(144)},
            .lines = {kNoReleaseLine, ChangedLine(L"2009"), kNoSubKeysLine, kFirstSaveLine}},
        // Two empty releases are equal.
        Row{.name = "NothingRecordedAndNoRelease",
            .inForce = {{}, 144, 2},
            .written = {Index(2), Value(144)},
            .lines = {kNoReleaseLine, kFirstSaveLine}},
        Row{.name = "RecordedAndPresentReleaseEmpty",
            .recorded = {L"", 144, 2},
            .inForce = {{}, 144, 2},
            .result = false},
        Row{.name = "ReleaseUnknownBefore",
            .recorded = {{}, 144, 2},
            .inForce = {{}, 96, 2},
            .written = {Index(2), Value(96)},
            .lines = {kNoReleaseLine}},
        Row{.name = "SamePair", .recorded = {L"2009", 144, 2}, .inForce = {L"2009", 144, 2}, .result = false},
        Row{.name = "SameReleaseOtherDpi",
            .recorded = {L"2009", 144, 2},
            .inForce = {L"2009", 96, 2},
            .written = {Index(2), Value(96)}},
        Row{.name = "SameReleaseOtherStep",
            .recorded = {L"2009", 144, 2},
            .inForce = {L"2009", 144, 3},
            .written = {Index(3), Value(144)}},
        Row{.name = "SameReleaseNoMonitor",
            .recorded = {L"2009", 144, 2},
            .inForce = {L"2009", 144, {}},
            .written = {Index(0), Value(144)},
            .lines = {kNoSubKeysLine}},
        Row{.name = "SameReleaseNoValue",
            .recorded = {L"2009", {}, 2},
            .inForce = {L"2009", 144, 2},
            .written = {Index(2), Value(144)},
            .lines = {kFirstSaveLine}},
        Row{.name = "SameReleaseNoIndex",
            .recorded = {L"2009", 144, {}},
            .inForce = {L"2009", 144, 2},
            .written = {Index(2), Value(144)},
            .lines = {kFirstSaveLine}},
        Row{.name = "ReleaseChangedSameDpi",
            .recorded = {L"1909", 144, 2},
            .inForce = {L"2009", 144, 3},
            .written = {Release(L"2009"), Index(3), Value(144)},
            .lines = {ChangedLine(L"2009")}},
        Row{.name = "ReleaseChangedSamePair",
            .recorded = {L"1909", 144, 2},
            .inForce = {L"2009", 144, 2},
            .result = false,
            .written = {Release(L"2009")},
            .lines = {ChangedLine(L"2009")}},
        Row{.name = "ReleaseChangedOtherDpi",
            .recorded = {L"1909", 144, 2},
            .inForce = {L"2009", 96, 0},
            .written = {Release(L"2009")},
            .applied = 1,
            .lines = {ChangedLine(L"2009")}},
        Row{.name = "ReleaseChangedOtherDpiStepRefused",
            .recorded = {L"1909", 144, 2},
            .inForce = {L"2009", 96, 0},
            .acceptsStep = false,
            .result = false,
            .written = {Release(L"2009")},
            .applied = 1,
            .lines = {ChangedLine(L"2009"), kRefusedStepLine, kRestoreFailedLine}},
        Row{.name = "ReleaseChangedOtherDpiNoMonitor",
            .recorded = {L"1909", 144, 2},
            .inForce = {L"2009", 96, {}},
            .written = {Release(L"2009")},
            .applied = 1,
            .lines = {ChangedLine(L"2009"), kNoSubKeysLine}},
        Row{.name = "ReleaseChangedOtherDpiNegativeIndex",
            .recorded = {L"1909", 144, -2},
            .inForce = {L"2009", 96, 0},
            .written = {Release(L"2009")},
            .applied = -3,
            .lines = {ChangedLine(L"2009")}},
        Row{.name = "ReleaseChangedNoValue",
            .recorded = {L"1909", {}, 2},
            .inForce = {L"2009", 96, 0},
            .written = {Release(L"2009"), Index(0), Value(96)},
            .lines = {ChangedLine(L"2009"), kFirstSaveLine}},
        Row{.name = "ReleaseChangedNoIndex",
            .recorded = {L"1909", 144, {}},
            .inForce = {L"2009", 96, 0},
            .written = {Release(L"2009"), Index(0), Value(96)},
            .lines = {ChangedLine(L"2009"), kFirstSaveLine}},
        Row{.name = "ReleaseRecordMissing",
            .recorded = {{}, 144, 2},
            .inForce = {L"2009", 96, 0},
            .written = {Release(L"2009")},
            .applied = 1,
            .lines = {kNoReleaseLine, ChangedLine(L"2009")}},
        Row{.name = "ReleaseGone",
            .recorded = {L"2009", 144, 2},
            .inForce = {{}, 96, 0},
            .written = {Release(L"")},
            .applied = 1,
            .lines = {ChangedLine(L"")}},
        Row{.name = "ReleaseDiffersInCase",
            .recorded = {L"20h2", 144, 2},
            .inForce = {L"20H2", 96, 0},
            .written = {Release(L"20H2")},
            .applied = 1,
            .lines = {ChangedLine(L"20H2")}},
        Row{.name = "ReleaseDiffersInABlank",
            .recorded = {L"2009 ", 144, 2},
            .inForce = {L"2009", 96, 0},
            .written = {Release(L"2009")},
            .applied = 1,
            .lines = {ChangedLine(L"2009")}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(RestoreTableTest, Row_IsDecidedAndWritten) {
    Arrange(GetParam());
    EXPECT_EQ(SystemEnvironment::RestoreSystemDpi4Common(-1), GetParam().result);
    EXPECT_EQ(Writes(), CallsOf(GetParam().written));
    EXPECT_EQ(TakeLines(), GetParam().lines);
    EXPECT_EQ(displays.requests, GetParam().applied ? std::vector<std::string>{RequestWithStep(*GetParam().applied)}
                                                    : std::vector<std::string>());
    EXPECT_EQ(displays.calls.size(), GetParam().applied ? 3u : 0u);
}

const Row kRestores = {.recorded = {L"1909", 144, 2}, .inForce = {L"2009", 96, 0}};

TEST_F(RestoreTest, Restoring_AsksInOrder) {
    Arrange(kRestores);
    EXPECT_TRUE(SystemEnvironment::RestoreSystemDpi4Common(0));
    std::vector<Call> calls = fakeutil::Calls();
    std::erase(calls, Call{"KXPROCESS::GetCurrentUserSidstr", ""});
    EXPECT_THAT(calls,
                ElementsAre(call::ReadText(HKEY_LOCAL_MACHINE, kWindows, L"ReleaseId", kFullAccess),
                            call::ReadText(HKEY_USERS, kRecord, L"LastestOSVersion", kFullAccess),
                            WriteRelease(L"2009"), ReadRecordInt(L"LastestDPIValue"), ReadRecordInt(L"LastestDPIIndex"),
                            Call{"SystemInfo::GetSystemDPI", ""}, call::GetKeys(HKEY_USERS, kMonitors, kFullAccess),
                            call::ReadInt(HKEY_USERS, kMonitors + L"\\A", L"DpiValue", kFullAccess)));
    TakeLines();
}

TEST_F(RestoreTest, Offset_IsAddedToTheRecordedStep) {
    for (const int offset : {0, 1, -1, -2, 100}) {
        StartAgain();
        Arrange(kRestores);
        EXPECT_TRUE(SystemEnvironment::RestoreSystemDpi4Common(offset));
        EXPECT_THAT(displays.requests, ElementsAre(RequestWithStep(2 + offset)));
        EXPECT_THAT(TakeLines(), ElementsAre(ChangedLine(L"2009")));
    }
}

TEST_F(RestoreTest, ReleaseIsNotWritten_IsIgnoredAndTheStepRestored) {
    Arrange(kRestores);
    fakeutil::FailRegistryWrite(1);
    EXPECT_TRUE(SystemEnvironment::RestoreSystemDpi4Common(0));
    EXPECT_THAT(displays.requests, ElementsAre(RequestWithStep(2)));
    EXPECT_THAT(TakeLines(), ElementsAre(ChangedLine(L"2009")));
}

// bool DE::Registry::GetValue(HKEY, const std::wstring&, const std::wstring&, std::wstring&, DWORD)
using ReadTextHook =
    kxtest::ImportHook<"Util.dll",
                       "_ZN2DE8Registry8GetValueEP6HKEY__RKNSt7__cxx1112basic_stringIwSt11char_traitsIwESaIwEEESA_"
                       "RS8_m",
                       bool(HKEY, const std::wstring&, const std::wstring&, std::wstring&, DWORD)>;

TEST_F(RestoreTest, TextThatAFailedReadLeaves_IsNoRememberedRelease) {
    Arrange(Row{.recorded = {{}, 144, 2}, .inForce = {L"2009", 96, 0}});
    const ReadTextHook hook(
        [](HKEY root, const std::wstring& key, const std::wstring& name, std::wstring& value, DWORD access) {
            const bool isRead = ReadTextHook::Original(root, key, name, value, access);
            if (!isRead) {
                value = L"2009";
            }
            return isRead;
        });
    EXPECT_TRUE(SystemEnvironment::RestoreSystemDpi4Common(0));
    EXPECT_THAT(Writes(), ElementsAre(WriteRelease(L"2009")));
    EXPECT_THAT(TakeLines(), ElementsAre(kNoReleaseLine, ChangedLine(L"2009")));
}

TEST_F(RestoreTest, ReleaseWriteThrows_NoLineSaysThatItChanged) {
    Arrange(kRestores);
    fakeutil::ThrowFrom("DE::Registry::SetValue");
    EXPECT_FALSE(SystemEnvironment::RestoreSystemDpi4Common(0));
    EXPECT_THAT(TakeLines(), IsEmpty());
}

TEST_F(RestoreTest, SaveFails_ItsResultAndItsLine) {
    Arrange(Row{.recorded = {L"2009", 144, 2}, .inForce = {L"2009", 96, 2}});
    fakeutil::FailRegistryWrite(1);
    EXPECT_FALSE(SystemEnvironment::RestoreSystemDpi4Common(0));
    EXPECT_THAT(TakeLines(), ElementsAre(L"SaveLastestSystemDpierror: DE::Registry::SetIndex fail.step"
                                         L"(SystemEnvironment::SaveLastestSystemDpi)\n"));
}

TEST_F(RestoreTest, AfterRestoring_NextCallSavesWhatIsInForceThen) {
    Arrange(kRestores);
    EXPECT_TRUE(SystemEnvironment::RestoreSystemDpi4Common(0));
    TakeLines();
    fakeutil::SetSystemDpi(144);
    StoreMonitor(L"A", 2ul);
    EXPECT_FALSE(SystemEnvironment::RestoreSystemDpi4Common(0));
    fakeutil::SetSystemDpi(192);
    EXPECT_TRUE(SystemEnvironment::RestoreSystemDpi4Common(0));
    EXPECT_THAT(Writes(), ElementsAre(WriteRelease(L"2009"), WriteIndex(2), WriteValue(192)));
    EXPECT_EQ(displays.requests.size(), 1u);
}

TEST_F(RestoreTest, FirstCallOfAUser_RecordsAndTheSecondWritesNothing) {
    StoreRelease(L"2009");
    StoreMonitor(L"A", 2ul);
    EXPECT_TRUE(SystemEnvironment::RestoreSystemDpi4Common(0));
    EXPECT_EQ(TakeLines().size(), 3u);
    EXPECT_FALSE(SystemEnvironment::RestoreSystemDpi4Common(0));
    EXPECT_EQ(Writes().size(), 3u);
}

TEST_F(RestoreTest, AnyCallThrows_FalseAndTheNextWorks) {
    for (const char* function :
         {"KXPROCESS::GetCurrentUserSidstr", "DE::Registry::GetValue", "DE::Registry::SetValue", "DE::WcharToChar"}) {
        SCOPED_TRACE(function);
        StartAgain();
        Arrange(kRestores);
        fakeutil::ThrowFrom(function);
        EXPECT_NO_THROW(SystemEnvironment::RestoreSystemDpi4Common(0));
        EXPECT_FALSE(fakeutil::IsThrowPending());
        TakeLines();
    }
    StartAgain();
    Arrange(kRestores);
    EXPECT_TRUE(SystemEnvironment::RestoreSystemDpi4Common(0));
    EXPECT_THAT(TakeLines(), ElementsAre(ChangedLine(L"2009")));
}

// --- RestoreSystemDpi

TEST_F(RestoreTest, ProductFour_GoesTwoStepsDownAndEveryOtherOne) {
    for (const auto& [index, step] : {std::pair(4, 0), std::pair(3, 1), std::pair(5, 1), std::pair(0, 1),
                                      std::pair(-1, 1), std::pair(-4, 1), std::pair(40, 1), std::pair(INT_MAX, 1)}) {
        SCOPED_TRACE(index);
        StartAgain();
        Arrange(kRestores);
        fakeutil::SetProductIndex(index);
        EXPECT_TRUE(SystemEnvironment::RestoreSystemDpi());
        EXPECT_THAT(displays.requests, ElementsAre(RequestWithStep(step)));
        EXPECT_THAT(TakeLines(), ElementsAre(ChangedLine(L"2009")));
    }
}

TEST_F(RestoreTest, Entry_GivesTheResultOfTheDecision) {
    Arrange(kRestores);
    displays.setStatus = ERROR_GEN_FAILURE;
    EXPECT_FALSE(SystemEnvironment::RestoreSystemDpi());
    EXPECT_THAT(TakeLines(), ElementsAre(ChangedLine(L"2009"), kRefusedStepLine, kRestoreFailedLine));
}

TEST_F(RestoreTest, ProductIndexThrows_NothingGetsOutAndTheNextWorks) {
    Arrange(kRestores);
    fakeutil::ThrowFrom("ProductAdapt::MachineType::GetProductIndex");
    EXPECT_NO_THROW(EXPECT_FALSE(SystemEnvironment::RestoreSystemDpi()));
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_TRUE(SystemEnvironment::RestoreSystemDpi());
    EXPECT_THAT(TakeLines(), ElementsAre(ChangedLine(L"2009")));
}

} // namespace

} // namespace querytest
