// Setting the display scaling, and reading and saving what is in force, against scripted displays.
#include "dpifixture.h"

#include <climits>
#include <ostream>

namespace querytest {

namespace {

constexpr int kAnyStep = 1;

// --- ApplyDpiSetting

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

} // namespace

} // namespace querytest
