// Saving and restoring the display scaling, against scripted displays.
#include "systemenvironment.h"

#include "queryfixture.h"

#include <array>
#include <climits>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>

namespace {

using namespace querytest;

const std::wstring kSid = fakeutil::kDefaultSid;
const std::wstring kRecord = kSid + L"\\Software\\Calvora\\LastestSetting";
const std::wstring kMonitors = kSid + L"\\Control Panel\\Desktop\\PerMonitorSettings";
const std::wstring kWindows = L"Software\\Microsoft\\Windows NT\\CurrentVersion";

constexpr int kAnyStep = 1;
constexpr std::size_t kRequestSize = 24;

// --- scripted displays

using SizesHook =
    kxtest::ImportHook<"USER32.dll", "GetDisplayConfigBufferSizes", decltype(GetDisplayConfigBufferSizes)>;
using QueryHook = kxtest::ImportHook<"USER32.dll", "QueryDisplayConfig", decltype(QueryDisplayConfig)>;
using SetHook = kxtest::ImportHook<"USER32.dll", "DisplayConfigSetDeviceInfo", decltype(DisplayConfigSetDeviceInfo)>;
using CallocHook = kxtest::ImportHook<"msvcrt.dll", "calloc", void*(std::size_t, std::size_t)>;

/** What the display calls answer, and what they were called with. */
class Displays {
public:
    // answers
    std::vector<DISPLAYCONFIG_PATH_INFO> paths;
    std::vector<DISPLAYCONFIG_MODE_INFO> modes;
    LONG sizesStatus = ERROR_SUCCESS;
    LONG queryStatus = ERROR_SUCCESS;
    LONG setStatus = ERROR_SUCCESS;
    DWORD lastError = 0;
    bool losesPathsInBetween = false;
    int failingAllocation = 0; ///< counted from one

    // calls
    std::vector<std::string> calls;
    std::vector<std::string> requests;
    std::vector<std::size_t> allocated; ///< bytes
    std::vector<const void*> blocks;

    void Forget() {
        calls.clear();
        requests.clear();
        allocated.clear();
        blocks.clear();
    }

    /** Times that a block of the allocation was freed. */
    std::ptrdiff_t FreesOf(std::size_t index) const { return m_freed.CountOf(blocks.at(index)); }

private:
    LONG Sizes(UINT32 flags, UINT32* pathCount, UINT32* modeCount) {
        calls.push_back("sizes " + std::to_string(flags));
        *pathCount = static_cast<UINT32>(paths.size());
        *modeCount = static_cast<UINT32>(modes.size());
        SetLastError(lastError);
        return sizesStatus;
    }
    LONG Query(UINT32 flags, UINT32* pathCount, DISPLAYCONFIG_PATH_INFO* pathArray, UINT32* modeCount,
               DISPLAYCONFIG_MODE_INFO* modeArray, DISPLAYCONFIG_TOPOLOGY_ID* topology) {
        calls.push_back("query " + std::to_string(flags) + " " + std::to_string(*pathCount) + " " +
                        std::to_string(*modeCount) + (topology == nullptr ? "" : " topology"));
        const bool isExpected = *pathCount == paths.size() && *modeCount == modes.size() && blocks.size() == 2 &&
                                pathArray == blocks[0] && modeArray == blocks[1];
        EXPECT_TRUE(isExpected);
        if (isExpected && queryStatus == ERROR_SUCCESS && losesPathsInBetween) {
            *pathCount = 0;
            *modeCount = 0;
        } else if (isExpected && queryStatus == ERROR_SUCCESS) {
            std::ranges::copy(paths, pathArray);
            std::ranges::copy(modes, modeArray);
        }
        SetLastError(lastError);
        return queryStatus;
    }
    LONG Set(DISPLAYCONFIG_DEVICE_INFO_HEADER* header) {
        calls.push_back("set");
        requests.emplace_back(reinterpret_cast<const char*>(header), kRequestSize);
        SetLastError(lastError);
        return setStatus;
    }
    void* Allocate(std::size_t count, std::size_t size) {
        allocated.push_back(count * size);
        void* block =
            static_cast<int>(allocated.size()) == failingAllocation ? nullptr : CallocHook::Original(count, size);
        blocks.push_back(block);
        return block;
    }

    const querytest::FreedBlocks& m_freed;
    SizesHook m_sizes{[this](auto... arguments) { return Sizes(arguments...); }};
    QueryHook m_query{[this](auto... arguments) { return Query(arguments...); }};
    SetHook m_set{[this](auto... arguments) { return Set(arguments...); }};
    CallocHook m_calloc{[this](std::size_t count, std::size_t size) { return Allocate(count, size); }};

public:
    explicit Displays(const querytest::FreedBlocks& freed) : m_freed(freed) {}
};

DISPLAYCONFIG_PATH_INFO Path(DWORD adapterLow, LONG adapterHigh, UINT32 source, UINT32 modeIndex) {
    DISPLAYCONFIG_PATH_INFO path{};
    path.sourceInfo.adapterId = {adapterLow, adapterHigh};
    path.sourceInfo.id = source;
    path.sourceInfo.modeInfoIdx = modeIndex;
    path.targetInfo.adapterId = {0x99999999, 0x77777777};
    path.targetInfo.id = 0x55555555;
    path.flags = DISPLAYCONFIG_PATH_ACTIVE;
    return path;
}

DISPLAYCONFIG_MODE_INFO SourceMode(LONG left) {
    DISPLAYCONFIG_MODE_INFO mode{};
    mode.infoType = DISPLAYCONFIG_MODE_INFO_TYPE_SOURCE;
    mode.sourceMode.position = {left, 0};
    return mode;
}

class DpiTest : public QueryTest {
protected:
    // Two displays; the primary one, at the origin, is on the second path.
    DpiTest() {
        displays.paths = {Path(0x04030201, 0x14131211, 0x24232221, 0), Path(5, 6, 7, 1)};
        displays.modes = {SourceMode(1920), SourceMode(0), SourceMode(0)};
    }

    void StartAgain() {
        Restart();
        displays.Forget();
    }

    void ExpectFreed(std::size_t count) {
        ASSERT_EQ(displays.blocks.size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            EXPECT_EQ(displays.FreesOf(i), 1);
        }
    }

    static void StoreRecord(const std::wstring& name, RegistryData data) {
        fakeutil::SetRegistryValue(HKEY_USERS, kRecord, name, std::move(data));
    }
    static void StoreMonitor(const std::wstring& monitor, RegistryData data) {
        fakeutil::SetRegistryValue(HKEY_USERS, kMonitors + L"\\" + monitor, L"DpiValue", std::move(data));
    }
    static void StoreRelease(const std::wstring& release) {
        fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kWindows, L"ReleaseId", release);
    }
    static Call WriteRelease(const std::wstring& release) {
        return call::WriteText(HKEY_USERS, kRecord, L"LastestOSVersion", release, kFullAccess);
    }
    static Call WriteIndex(int index) {
        return call::WriteInt(HKEY_USERS, kRecord, L"LastestDPIIndex", index, kFullAccess);
    }
    static Call WriteValue(int value) {
        return call::WriteInt(HKEY_USERS, kRecord, L"LastestDPIValue", value, kFullAccess);
    }
    static Call ReadRecordInt(const std::wstring& name) {
        return call::ReadInt(HKEY_USERS, kRecord, name, kFullAccess);
    }
    static std::vector<Call> Writes() {
        std::vector<Call> calls = fakeutil::Calls();
        std::erase_if(calls, [](const Call& call) { return call.function != "DE::Registry::SetValue"; });
        return calls;
    }

    const querytest::FreedBlocks& freed = Freed();
    Displays displays{freed};
};

// --- ApplyDpiSetting

constexpr char kFirstPathsRequest[] = "\xfc\xff\xff\xff" // the request to set the scale
                                      "\x18\x00\x00\x00"
                                      "\x01\x02\x03\x04"
                                      "\x11\x12\x13\x14"
                                      "\x21\x22\x23\x24";

std::string RequestWithStep(int step) {
    std::string request(kFirstPathsRequest, kRequestSize - sizeof step);
    return request.append(reinterpret_cast<const char*>(&step), sizeof step);
}

TEST_F(DpiTest, AcceptedStep_OneRequestForTheFirstPathThoughItIsNotPrimary) {
    EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(2), 1);
    EXPECT_THAT(displays.calls, ElementsAre("sizes 2", "query 2 2 3", "set"));
    EXPECT_THAT(displays.requests, ElementsAre(RequestWithStep(2)));
    EXPECT_THAT(fakeutil::Calls(), IsEmpty());
}

TEST_F(DpiTest, AnyStep_IsSentAsItIs) {
    for (const int step : {0, 1, -1, -2, 5, INT_MAX, INT_MIN}) {
        StartAgain();
        EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(step), 1);
        EXPECT_THAT(displays.requests, ElementsAre(RequestWithStep(step)));
    }
}

TEST_F(DpiTest, NegativeAdapter_IsSentAsItIs) {
    displays.paths[0] = Path(0xFFFFFFFE, -3, 0xFFFFFFFD, 0);
    EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(1), 1);
    EXPECT_THAT(displays.requests, ElementsAre(std::string("\xfc\xff\xff\xff\x18\0\0\0\xfe\xff\xff\xff\xfd\xff\xff\xff"
                                                           "\xfd\xff\xff\xff\x01\0\0\0",
                                                           kRequestSize)));
}

TEST_F(DpiTest, Arrays_HaveTheSizesAskedForAndAreFreed) {
    EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(kAnyStep), 1);
    EXPECT_THAT(displays.allocated, ElementsAre(2u * 72u, 3u * 64u));
    ExpectFreed(2);
}

TEST_F(DpiTest, OneDisplay_IsSet) {
    displays.paths.pop_back();
    EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(2), 1);
    EXPECT_THAT(displays.requests, ElementsAre(RequestWithStep(2)));
}

TEST_F(DpiTest, NoActivePath_ZeroWithoutARequest) {
    displays.paths.clear();
    displays.modes.clear();
    EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(kAnyStep), 0);
    EXPECT_THAT(displays.requests, IsEmpty());
    for (std::size_t i = 0; i < displays.blocks.size(); ++i) {
        EXPECT_EQ(displays.FreesOf(i), displays.blocks[i] == nullptr ? 0 : 1);
    }
}

TEST_F(DpiTest, PathsGoBetweenTheCalls_ZeroWithoutARequest) {
    displays.losesPathsInBetween = true;
    EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(kAnyStep), 0);
    EXPECT_THAT(displays.requests, IsEmpty());
    ExpectFreed(2);
}

TEST_F(DpiTest, FirstAllocationFails_ZeroWithoutALineAndNothingIsAskedFor) {
    displays.failingAllocation = 1;
    EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(kAnyStep), 0);
    EXPECT_THAT(displays.calls, ElementsAre("sizes 2"));
    EXPECT_THAT(displays.allocated, ElementsAre(2u * 72u));
}

TEST_F(DpiTest, SecondAllocationFails_ReportedAndTheFirstIsFreed) {
    displays.failingAllocation = 2;
    EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(kAnyStep), 0);
    EXPECT_THAT(TakeLines(), ElementsAre(L"calloc  display_modes fail:(SystemEnvironment::ApplyDpiSetting)\n"));
    EXPECT_THAT(displays.calls, ElementsAre("sizes 2"));
    ASSERT_EQ(displays.blocks.size(), 2u);
    EXPECT_EQ(displays.FreesOf(0), 1);
    displays.failingAllocation = 0;
    StartAgain();
    EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(kAnyStep), 1);
}

struct StatusCase {
    LONG status;
    DWORD lastError;
    std::wstring numbers;
};
std::ostream& operator<<(std::ostream& out, const StatusCase& status) {
    return out << status.status << " and " << status.lastError;
}
class DisplayStatusTest : public DpiTest, public testing::WithParamInterface<StatusCase> {
protected:
    DisplayStatusTest() { displays.lastError = GetParam().lastError; }

    static std::wstring LineOf(const wchar_t* function) {
        return std::wstring(function) + L" fail:" + GetParam().numbers + L"(SystemEnvironment::ApplyDpiSetting)\n";
    }
};

INSTANTIATE_TEST_SUITE_P(Statuses, DisplayStatusTest,
                         testing::Values(StatusCase{ERROR_ACCESS_DENIED, 0, L"0, status= 5"},
                                         StatusCase{ERROR_GEN_FAILURE, 1450, L"1450, status= 31"},
                                         StatusCase{ERROR_NOT_SUPPORTED, 50, L"50, status= 50"},
                                         StatusCase{ERROR_INVALID_PARAMETER, 4294967295, L"4294967295, status= 87"},
                                         StatusCase{ERROR_INSUFFICIENT_BUFFER, 7, L"7, status= 122"},
                                         StatusCase{-1, 7, L"7, status= -1"}));

TEST_P(DisplayStatusTest, BufferSizesFail_ReportedAndNothingIsAllocated) {
    displays.sizesStatus = GetParam().status;
    EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(kAnyStep), 0);
    EXPECT_THAT(TakeLines(), ElementsAre(LineOf(L"GetDisplayConfigBufferSizes")));
    EXPECT_THAT(displays.calls, ElementsAre("sizes 2"));
    EXPECT_THAT(displays.allocated, IsEmpty());
}

TEST_P(DisplayStatusTest, QueryFails_ReportedAndBothArraysAreFreed) {
    displays.queryStatus = GetParam().status;
    EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(kAnyStep), 0);
    EXPECT_THAT(TakeLines(), ElementsAre(LineOf(L"QueryDisplayConfig")));
    EXPECT_THAT(displays.requests, IsEmpty());
    ExpectFreed(2);
}

TEST_P(DisplayStatusTest, RequestFails_ReportedAndBothArraysAreFreed) {
    displays.setStatus = GetParam().status;
    EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(kAnyStep), 0);
    EXPECT_THAT(TakeLines(), ElementsAre(LineOf(L"DisplayConfigSetDeviceInfo")));
    EXPECT_EQ(displays.requests.size(), 1u);
    ExpectFreed(2);
    displays.setStatus = ERROR_SUCCESS;
    StartAgain();
    EXPECT_EQ(SystemEnvironment::ApplyDpiSetting(kAnyStep), 1);
}

// --- GetLastestSystemDpi

constexpr wchar_t kNoSubKeysLine[] =
    L"GetLastestSystemDpi error: no-sub-keys(SystemEnvironment::GetLastestSystemDpi)\n";
constexpr wchar_t kNoValueLine[] = L"GetLastestSystemDpi error: no-sub -keys(SystemEnvironment::GetLastestSystemDpi)\n";

class LastestDpiTest : public DpiTest {
protected:
    LastestDpiTest() { fakeutil::SetSystemDpi(144); }

    void ExpectFailure(const wchar_t* line) {
        int dpi = -5;
        int step = -6;
        EXPECT_FALSE(SystemEnvironment::GetLastestSystemDpi(&dpi, &step));
        EXPECT_EQ(dpi, 144);
        EXPECT_EQ(step, -6);
        EXPECT_THAT(TakeLines(), ElementsAre(line));
    }
};

TEST_F(LastestDpiTest, FirstMonitorInTheOrderGiven_IsRead) {
    StoreMonitor(L"B", 7ul);
    StoreMonitor(L"A", 0xFFFFFFFEul);
    int dpi = 0;
    int step = 0;
    EXPECT_TRUE(SystemEnvironment::GetLastestSystemDpi(&dpi, &step));
    EXPECT_EQ(dpi, 144);
    EXPECT_EQ(step, -2);
    EXPECT_THAT(fakeutil::Calls(),
                ElementsAre(Call{"SystemInfo::GetSystemDPI", ""}, Call{"KXPROCESS::GetCurrentUserSidstr", ""},
                            call::GetKeys(HKEY_USERS, kMonitors, kFullAccess),
                            call::ReadInt(HKEY_USERS, kMonitors + L"\\A", L"DpiValue", kFullAccess)));
}

TEST_F(LastestDpiTest, NoMonitorsKey_Reported) {
    ExpectFailure(kNoSubKeysLine);
}

TEST_F(LastestDpiTest, MonitorsKeyWithoutSubkeys_Reported) {
    fakeutil::AddRegistryKey(HKEY_USERS, kMonitors);
    fakeutil::SetRegistryValue(HKEY_USERS, kMonitors, L"DpiValue", 3ul);
    ExpectFailure(kNoSubKeysLine);
}

TEST_F(LastestDpiTest, FullAccessRefused_Reported) {
    StoreMonitor(L"A", 3ul);
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    ExpectFailure(kNoSubKeysLine);
}

TEST_F(LastestDpiTest, FirstMonitorWithoutAStep_ReportedAndTheSecondIsNotRead) {
    fakeutil::AddRegistryKey(HKEY_USERS, kMonitors + L"\\A");
    StoreMonitor(L"B", 7ul);
    ExpectFailure(kNoValueLine);
}

TEST_F(LastestDpiTest, TextWhereTheStepBelongs_Reported) {
    StoreMonitor(L"A", std::wstring(L"7"));
    ExpectFailure(kNoValueLine);
}

TEST_F(LastestDpiTest, AnyCallThrows_FalseAndTheNextWorks) {
    StoreMonitor(L"A", 7ul);
    int dpi = 0;
    int step = 0;
    for (const char* function : {"SystemInfo::GetSystemDPI", "KXPROCESS::GetCurrentUserSidstr", "DE::Registry::GetKeys",
                                 "DE::Registry::GetValue"}) {
        SCOPED_TRACE(function);
        fakeutil::ThrowFrom(function);
        EXPECT_NO_THROW(EXPECT_FALSE(SystemEnvironment::GetLastestSystemDpi(&dpi, &step)));
        EXPECT_FALSE(fakeutil::IsThrowPending());
    }
    EXPECT_TRUE(SystemEnvironment::GetLastestSystemDpi(&dpi, &step));
}

// --- SaveLastestSystemDpi

class SaveTest : public DpiTest {
protected:
    static void StorePair(unsigned long index, unsigned long value) {
        StoreRecord(L"LastestDPIIndex", index);
        StoreRecord(L"LastestDPIValue", value);
    }
};

TEST_F(SaveTest, NothingSaved_BothAreWrittenIndexFirst) {
    EXPECT_TRUE(SystemEnvironment::SaveLastestSystemDpi(144, -2));
    EXPECT_THAT(Writes(), ElementsAre(WriteIndex(-2), WriteValue(144)));
    EXPECT_EQ(fakeutil::StoredValue(HKEY_USERS, kRecord, L"LastestDPIIndex"), RegistryData(0xFFFFFFFEul));
    EXPECT_EQ(fakeutil::StoredValue(HKEY_USERS, kRecord, L"LastestDPIValue"), RegistryData(144ul));
}

TEST_F(SaveTest, EqualPair_FalseAndNothingIsWritten) {
    StorePair(0xFFFFFFFE, 144);
    EXPECT_FALSE(SystemEnvironment::SaveLastestSystemDpi(144, -2));
    std::vector<Call> calls = fakeutil::Calls();
    EXPECT_THAT(calls,
                testing::UnorderedElementsAre(Call{"KXPROCESS::GetCurrentUserSidstr", ""},
                                              ReadRecordInt(L"LastestDPIIndex"), ReadRecordInt(L"LastestDPIValue")));
}

TEST_F(SaveTest, OneOfThePairDiffers_BothAreWritten) {
    for (const auto& [index, value] : {std::pair(1ul, 144ul), std::pair(2ul, 96ul), std::pair(144ul, 2ul)}) {
        Restart();
        StorePair(index, value);
        EXPECT_TRUE(SystemEnvironment::SaveLastestSystemDpi(144, 2));
        EXPECT_THAT(Writes(), ElementsAre(WriteIndex(2), WriteValue(144)));
    }
}

TEST_F(SaveTest, OneOfThePairIsMissing_BothAreWritten) {
    StoreRecord(L"LastestDPIIndex", 2ul);
    EXPECT_TRUE(SystemEnvironment::SaveLastestSystemDpi(144, 2));
    EXPECT_THAT(Writes(), ElementsAre(WriteIndex(2), WriteValue(144)));
    Restart();
    StoreRecord(L"LastestDPIValue", 144ul);
    EXPECT_TRUE(SystemEnvironment::SaveLastestSystemDpi(144, 2));
    EXPECT_THAT(Writes(), ElementsAre(WriteIndex(2), WriteValue(144)));
}

TEST_F(SaveTest, PairThatLooksLikeNothingSaved_IsWritten) {
    EXPECT_TRUE(SystemEnvironment::SaveLastestSystemDpi(-1, -999));
    EXPECT_THAT(Writes(), ElementsAre(WriteIndex(-999), WriteValue(-1)));
}

TEST_F(SaveTest, TextsWhereThePairBelongs_BothAreWritten) {
    StoreRecord(L"LastestDPIIndex", std::wstring(L"2"));
    StoreRecord(L"LastestDPIValue", std::wstring(L"144"));
    EXPECT_TRUE(SystemEnvironment::SaveLastestSystemDpi(144, 2));
    EXPECT_THAT(Writes(), ElementsAre(WriteIndex(2), WriteValue(144)));
}

TEST_F(SaveTest, IndexIsNotWritten_FalseReportedAndTheValueIsNotTried) {
    fakeutil::FailRegistryWrite(1);
    EXPECT_FALSE(SystemEnvironment::SaveLastestSystemDpi(144, 2));
    EXPECT_THAT(Writes(), ElementsAre(WriteIndex(2)));
    EXPECT_THAT(TakeLines(), ElementsAre(L"SaveLastestSystemDpierror: DE::Registry::SetIndex fail.step"
                                         L"(SystemEnvironment::SaveLastestSystemDpi)\n"));
    EXPECT_TRUE(SystemEnvironment::SaveLastestSystemDpi(144, 2));
}

TEST_F(SaveTest, ValueIsNotWritten_FalseAndReported) {
    fakeutil::FailRegistryWrite(2);
    EXPECT_FALSE(SystemEnvironment::SaveLastestSystemDpi(144, 2));
    EXPECT_THAT(Writes(), ElementsAre(WriteIndex(2), WriteValue(144)));
    EXPECT_THAT(TakeLines(), ElementsAre(L"SaveLastestSystemDpi error: DE::Registry::SetValue fail.step"
                                         L"(SystemEnvironment::SaveLastestSystemDpi)\n"));
    EXPECT_EQ(fakeutil::StoredValue(HKEY_USERS, kRecord, L"LastestDPIIndex"), RegistryData(2ul));
    EXPECT_TRUE(SystemEnvironment::SaveLastestSystemDpi(144, 2));
}

TEST_F(SaveTest, AnyCallThrows_FalseAndTheNextWorks) {
    for (const char* function :
         {"KXPROCESS::GetCurrentUserSidstr", "DE::Registry::GetValue", "DE::Registry::SetValue"}) {
        SCOPED_TRACE(function);
        fakeutil::ThrowFrom(function);
        EXPECT_NO_THROW(EXPECT_FALSE(SystemEnvironment::SaveLastestSystemDpi(144, 2)));
        EXPECT_FALSE(fakeutil::IsThrowPending());
    }
    EXPECT_TRUE(SystemEnvironment::SaveLastestSystemDpi(144, 2));
}

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

struct Row {
    const char* name;
    // what is recorded
    std::optional<std::wstring> recordedRelease;
    std::optional<int> recordedValue;
    std::optional<int> recordedIndex;
    // what is in force
    std::optional<std::wstring> release;
    int systemDpi;
    std::optional<int> step;
    bool acceptsStep;
    // what comes out, with an offset of -1
    bool result;
    std::vector<Written> written;
    std::optional<int> applied;
    std::vector<std::wstring> lines;
};
std::ostream& operator<<(std::ostream& out, const Row& row) {
    return out << row.name;
}

class RestoreTest : public DpiTest {
protected:
    void Arrange(const Row& row) {
        fakeutil::SetSystemDpi(row.systemDpi);
        displays.setStatus = row.acceptsStep ? ERROR_SUCCESS : ERROR_GEN_FAILURE;
        displays.lastError = 1450;
        if (row.recordedRelease) {
            StoreRecord(L"LastestOSVersion", *row.recordedRelease);
        }
        if (row.recordedValue) {
            StoreRecord(L"LastestDPIValue", static_cast<unsigned long>(*row.recordedValue));
        }
        if (row.recordedIndex) {
            StoreRecord(L"LastestDPIIndex", static_cast<unsigned long>(*row.recordedIndex));
        }
        if (row.release) {
            StoreRelease(*row.release);
        }
        if (row.step) {
            StoreMonitor(L"A", static_cast<unsigned long>(*row.step));
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
        Row{"NothingRecorded",
            {},
            {},
            {},
            L"2009",
            144,
            2,
            true,
            true,
            {Release(L"2009"), Index(2), Value(144)},
            {},
            {kNoReleaseLine, ChangedLine(L"2009"), kFirstSaveLine}},
        Row{"NothingRecordedAndNoMonitor",
            {},
            {},
            {},
            L"2009",
            144,
            {},
            true,
            true,
            {Release(L"2009"), Index(0), Value(144)},
            {},
            {kNoReleaseLine, ChangedLine(L"2009"), kNoSubKeysLine, kFirstSaveLine}},
        // Two empty releases are equal.
        Row{"NothingRecordedAndNoRelease",
            {},
            {},
            {},
            {},
            144,
            2,
            true,
            true,
            {Index(2), Value(144)},
            {},
            {kNoReleaseLine, kFirstSaveLine}},
        Row{"RecordedAndPresentReleaseEmpty", L"", 144, 2, {}, 144, 2, true, false, {}, {}, {}},
        Row{"ReleaseUnknownBefore", {}, 144, 2, {}, 96, 2, true, true, {Index(2), Value(96)}, {}, {kNoReleaseLine}},
        Row{"SamePair", L"2009", 144, 2, L"2009", 144, 2, true, false, {}, {}, {}},
        Row{"SameReleaseOtherDpi", L"2009", 144, 2, L"2009", 96, 2, true, true, {Index(2), Value(96)}, {}, {}},
        Row{"SameReleaseOtherStep", L"2009", 144, 2, L"2009", 144, 3, true, true, {Index(3), Value(144)}, {}, {}},
        Row{"SameReleaseNoMonitor",
            L"2009",
            144,
            2,
            L"2009",
            144,
            {},
            true,
            true,
            {Index(0), Value(144)},
            {},
            {kNoSubKeysLine}},
        Row{"SameReleaseNoValue",
            L"2009",
            {},
            2,
            L"2009",
            144,
            2,
            true,
            true,
            {Index(2), Value(144)},
            {},
            {kFirstSaveLine}},
        Row{"SameReleaseNoIndex",
            L"2009",
            144,
            {},
            L"2009",
            144,
            2,
            true,
            true,
            {Index(2), Value(144)},
            {},
            {kFirstSaveLine}},
        Row{"ReleaseChangedSameDpi",
            L"1909",
            144,
            2,
            L"2009",
            144,
            3,
            true,
            true,
            {Release(L"2009"), Index(3), Value(144)},
            {},
            {ChangedLine(L"2009")}},
        Row{"ReleaseChangedSamePair",
            L"1909",
            144,
            2,
            L"2009",
            144,
            2,
            true,
            false,
            {Release(L"2009")},
            {},
            {ChangedLine(L"2009")}},
        Row{"ReleaseChangedOtherDpi",
            L"1909",
            144,
            2,
            L"2009",
            96,
            0,
            true,
            true,
            {Release(L"2009")},
            1,
            {ChangedLine(L"2009")}},
        Row{"ReleaseChangedOtherDpiStepRefused",
            L"1909",
            144,
            2,
            L"2009",
            96,
            0,
            false,
            false,
            {Release(L"2009")},
            1,
            {ChangedLine(L"2009"), kRefusedStepLine, kRestoreFailedLine}},
        Row{"ReleaseChangedOtherDpiNoMonitor",
            L"1909",
            144,
            2,
            L"2009",
            96,
            {},
            true,
            true,
            {Release(L"2009")},
            1,
            {ChangedLine(L"2009"), kNoSubKeysLine}},
        Row{"ReleaseChangedOtherDpiNegativeIndex",
            L"1909",
            144,
            -2,
            L"2009",
            96,
            0,
            true,
            true,
            {Release(L"2009")},
            -3,
            {ChangedLine(L"2009")}},
        Row{"ReleaseChangedNoValue",
            L"1909",
            {},
            2,
            L"2009",
            96,
            0,
            true,
            true,
            {Release(L"2009"), Index(0), Value(96)},
            {},
            {ChangedLine(L"2009"), kFirstSaveLine}},
        Row{"ReleaseChangedNoIndex",
            L"1909",
            144,
            {},
            L"2009",
            96,
            0,
            true,
            true,
            {Release(L"2009"), Index(0), Value(96)},
            {},
            {ChangedLine(L"2009"), kFirstSaveLine}},
        Row{"ReleaseRecordMissing",
            {},
            144,
            2,
            L"2009",
            96,
            0,
            true,
            true,
            {Release(L"2009")},
            1,
            {kNoReleaseLine, ChangedLine(L"2009")}},
        Row{"ReleaseGone", L"2009", 144, 2, {}, 96, 0, true, true, {Release(L"")}, 1, {ChangedLine(L"")}},
        Row{"ReleaseDiffersInCase",
            L"20h2",
            144,
            2,
            L"20H2",
            96,
            0,
            true,
            true,
            {Release(L"20H2")},
            1,
            {ChangedLine(L"20H2")}},
        Row{"ReleaseDiffersInABlank",
            L"2009 ",
            144,
            2,
            L"2009",
            96,
            0,
            true,
            true,
            {Release(L"2009")},
            1,
            {ChangedLine(L"2009")}}),
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

const Row kRestores{"", L"1909", 144, 2, L"2009", 96, 0, true, true, {}, {}, {}};

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

TEST_F(RestoreTest, SaveFails_ItsResultAndItsLine) {
    Arrange(Row{"", L"2009", 144, 2, L"2009", 96, 2, true, true, {}, {}, {}});
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
