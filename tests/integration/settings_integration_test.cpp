// Consent, settings and switches with the real suite libraries on a real registry.
#include "agreementsign.h"
#include "systemenvironment.h"

#include "productprofile.h"
#include "registrykeys.h"
#include "support/agreementprivate.h"
#include "support/debuglines.h"
#include "support/handlecount.h"
#include "support/hostfolder.h"
#include "support/logcapture.h"
#include "support/scratchregistry.h"

#include "sdk/util/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace integrationtest {

namespace {

using kxtest::MappedRoot;
using kxtest::ReadOnlyKey;
using kxtest::StoredRegistryNumber;
using kxtest::StoredRegistryText;
using kxtest::StoreRegistryBytes;
using kxtest::StoreRegistryNumber;
using kxtest::StoreRegistryText;
using profiletest::ProfileFile;
using profiletest::WriteProfile;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t kLongLength = 40000;

void UseAgreementService(bool inUse) {
    WriteProfile(std::string("<AgreementService inUse=\"") + (inUse ? "true" : "false") + "\"/>");
}

class SettingsIntegrationTest : public testing::Test {
protected:
    SettingsIntegrationTest() : m_sid(KXPROCESS::GetCurrentUserSidstr()) {
        std::filesystem::remove(ProfileFile());
        EXPECT_THAT(m_sid, testing::StartsWith(L"S-1-5-"));
    }
    ~SettingsIntegrationTest() override { std::filesystem::remove(ProfileFile()); }

    std::wstring OfUser(const std::wstring& path) const { return m_sid + L"\\" + path; }
    void StoreUserText(const std::wstring& path, const std::wstring& name, const std::wstring& text) const {
        StoreRegistryText(HKEY_USERS, OfUser(path), name, text);
    }
    void StoreVersions(const std::wstring& below, const std::wstring& agreement, const std::wstring& privacy) const {
        StoreUserText(kService + L"\\" + below, L"133", agreement);
        StoreUserText(kService + L"\\" + below, L"10021", privacy);
    }
    void AcceptClause(const std::wstring& protocol = L"1") const {
        StoreUserText(kGuide, L"Protocol", protocol);
        StoreUserText(kGuide, L"ProtocolVer", L"9");
    }
    const std::wstring& Sid() const { return m_sid; }

    kxtest::DebugLines m_lines;

private:
    std::wstring m_sid;
    MappedRoot m_machine{HKEY_LOCAL_MACHINE, L"machine"};
    MappedRoot m_users{HKEY_USERS, L"users"};
};

// --- agreement judgement

TEST_F(SettingsIntegrationTest, NoProfile_AgreementServiceIsNotInUse) {
    StoreUserText(kService, L"WndAgreeCache", L"1");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), 2);
}

TEST_F(SettingsIntegrationTest, ProfileDecides_WhetherTheAgreementIsJudged) {
    UseAgreementService(true);
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), 0);
    UseAgreementService(false);
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), 2);
    WriteProfile("");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), 2);
    kxtest::WriteFileBytes(ProfileFile(), "<ProductProfile><AgreementService inUse=\"true\"/>");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), 2);
}

TEST_F(SettingsIntegrationTest, AgreeCache_IsWrittenReadAndDecides) {
    UseAgreementService(true);
    EXPECT_FALSE(AgreementSign::GetAgreeCache());
    AgreementSign::SetAgreeCache(true);
    EXPECT_EQ(StoredRegistryText(HKEY_USERS, OfUser(kService), L"WndAgreeCache"), L"1");
    EXPECT_TRUE(AgreementSign::GetAgreeCache());
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), -1);
    AgreementSign::SetAgreeCache(false);
    EXPECT_EQ(StoredRegistryText(HKEY_USERS, OfUser(kService), L"WndAgreeCache"), L"0");
    EXPECT_FALSE(AgreementSign::GetAgreeCache());
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), 0);
}

TEST_F(SettingsIntegrationTest, LoginPath_WalksThroughRecordAndCache) {
    UseAgreementService(true);
    StoreUserText(kService, L"UserLoginFlag", L"1");
    StoreVersions(L"WithoutAccountLogin\\LocalVersion", L"9", L"9");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), 0);
    StoreVersions(L"KXRecordWithLoginCache", L"8", L"9");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), 1);
    StoreVersions(L"KXRecordWithLoginCache", L"9", L"9x");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), -1);
    StoreUserText(kService, L"ServerUpdatedFlag", L"1");
    StoreVersions(L"WithAccountLogin\\TMSVersion", L"9", L"99");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), -1);
    StoreVersions(L"WithAccountLogin\\TMSVersion", L"99", L"99");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), 1);
    StoreVersions(L"KXRecordWithLogin", L"99", L"99");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), -1);
}

TEST_F(SettingsIntegrationTest, WithoutLoginPath_ComparesBothParts) {
    UseAgreementService(true);
    StoreVersions(L"WithoutAccountLogin\\LocalVersion", L"9", L"10");
    StoreUserText(kService + L"\\KXRecordWithoutLogin\\UserAgreement", L"Version", L"9");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), 1);
    StoreUserText(kService + L"\\KXRecordWithoutLogin\\PrivacyStatement", L"Version", L"10");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), -1);
    StoreUserText(kService + L"\\KXRecordWithoutLogin\\PrivacyStatement", L"Version", L"9");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), -1);
    StoreUserText(kService + L"\\KXRecordWithoutLogin\\UserAgreement", L"Version", L"10");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), 1);
}

TEST_F(SettingsIntegrationTest, NumbersWhereFlagsAndVersionsBelong_ReadAsMissing) {
    UseAgreementService(true);
    StoreRegistryNumber(HKEY_USERS, OfUser(kService), L"WndAgreeCache", 1);
    EXPECT_FALSE(AgreementSign::GetAgreeCache());
    StoreRegistryNumber(HKEY_USERS, OfUser(kService), L"UserLoginFlag", 1);
    StoreVersions(L"KXRecordWithLogin", L"9", L"9");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), 0);
}

TEST_F(SettingsIntegrationTest, BranchIds_AreCompared) {
    const std::wstring record = L"\\Software\\Calvora\\AgreementService\\KXRecordWithLogin";
    EXPECT_EQ(agreementprivate::JudgeBranchId(record), -1);
    StoreUserText(kService + L"\\WithAccountLogin\\LocalVersion", L"BranchId", L"b");
    EXPECT_EQ(agreementprivate::JudgeBranchId(record), 1);
    StoreUserText(kService + L"\\KXRecordWithLogin", L"BranchId", L"b");
    EXPECT_EQ(agreementprivate::JudgeBranchId(record), -1);
}

TEST_F(SettingsIntegrationTest, AgreeFlag_IsWrittenAndDeletedAlone) {
    agreementprivate::DeleteAgreeFlag();
    agreementprivate::RecordeAgreeFlag();
    StoreUserText(kService, L"Other", L"1");
    EXPECT_EQ(StoredRegistryText(HKEY_USERS, OfUser(kService), L"AgreeFlag"), L"1");
    agreementprivate::DeleteAgreeFlag();
    EXPECT_EQ(StoredRegistryText(HKEY_USERS, OfUser(kService), L"AgreeFlag"), std::nullopt);
    EXPECT_EQ(StoredRegistryText(HKEY_USERS, OfUser(kService), L"Other"), L"1");
}

TEST_F(SettingsIntegrationTest, ServiceKeyWithoutWriteAccess_FlagsAreReadAndWritesIgnored) {
    UseAgreementService(true);
    StoreUserText(kService, L"WndAgreeCache", L"1");
    StoreUserText(kService, L"AgreeFlag", L"0");
    {
        const ReadOnlyKey readOnly(HKEY_USERS, OfUser(kService));
        EXPECT_EQ(AgreementSign::JudgeAgreementSign(), -1);
        AgreementSign::SetAgreeCache(false);
        EXPECT_TRUE(AgreementSign::GetAgreeCache());
        agreementprivate::RecordeAgreeFlag();
        EXPECT_EQ(StoredRegistryText(HKEY_USERS, OfUser(kService), L"AgreeFlag"), L"0");
        agreementprivate::DeleteAgreeFlag();
        EXPECT_EQ(StoredRegistryText(HKEY_USERS, OfUser(kService), L"AgreeFlag"), L"0");
    }
    AgreementSign::SetAgreeCache(false);
    EXPECT_FALSE(AgreementSign::GetAgreeCache());
}

// --- clause

TEST_F(SettingsIntegrationTest, Clause_FollowsProtocolVersionAndJudgement) {
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    AcceptClause(L"accepted");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "accepted");
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "accepted");
    UseAgreementService(true);
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "accepted");
    AgreementSign::SetAgreeCache(true);
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "accepted");
    for (const wchar_t* version : {L"8", L"abc", L"", L"4294967296"}) {
        StoreUserText(kGuide, L"ProtocolVer", version);
        EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
        EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "0");
    }
    for (const wchar_t* version : {L"10", L" 12x", L"-1"}) {
        StoreUserText(kGuide, L"ProtocolVer", version);
        EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "accepted");
    }
    EXPECT_THAT(m_lines.Lines(), IsEmpty());
}

TEST_F(SettingsIntegrationTest, ExpiredClause_IsResetInTheRegistry) {
    AcceptClause();
    StoreRegistryText(HKEY_LOCAL_MACHINE, kExpiry, Sid(), L"1");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_EQ(StoredRegistryText(HKEY_USERS, OfUser(kGuide), L"Protocol"), L"0");
    EXPECT_THAT(m_lines.Lines(),
                ElementsAre(L"current agreeClause is expired " + Sid() + L"(SystemEnvironment::IsAgreeClause)\n"));
}

TEST_F(SettingsIntegrationTest, ClauseValuesOfOtherTypes_ReadAsMissing) {
    AcceptClause();
    StoreRegistryNumber(HKEY_LOCAL_MACHINE, kExpiry, Sid(), 1);
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "1");
    StoreRegistryNumber(HKEY_USERS, OfUser(kGuide), L"ProtocolVer", 9);
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    AcceptClause();
    StoreRegistryNumber(HKEY_USERS, OfUser(kGuide), L"Protocol", 1);
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "0");
}

TEST_F(SettingsIntegrationTest, ClauseTextWithoutTerminator_IsReadWhole) {
    AcceptClause();
    StoreRegistryBytes(HKEY_USERS, OfUser(kGuide), L"Protocol", REG_SZ, std::string_view("7\0x", 3));
    StoreRegistryBytes(HKEY_USERS, OfUser(kGuide), L"ProtocolVer", REG_SZ, std::string_view("9\0", 2));
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "7");
    StoreUserText(kGuide, L"Protocol", std::wstring(kLongLength, L'x'));
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), std::string(kLongLength, 'x'));
}

TEST_F(SettingsIntegrationTest, GuideKeyWithoutWriteAccess_ClauseIsNotAccepted) {
    AcceptClause();
    StoreUserText(kGuide, L"Capture", L"1");
    {
        const ReadOnlyKey readOnly(HKEY_USERS, OfUser(kGuide));
        EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
        EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "0");
        EXPECT_EQ(SystemEnvironment::GetCaptureSwitch(), L"0");
    }
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "1");
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "1");
    EXPECT_EQ(SystemEnvironment::GetCaptureSwitch(), L"1");
}

TEST_F(SettingsIntegrationTest, ExpiryKeyWithoutWriteAccess_ClauseIsNotExpired) {
    AcceptClause();
    StoreRegistryText(HKEY_LOCAL_MACHINE, kExpiry, Sid(), L"1");
    const ReadOnlyKey readOnly(HKEY_LOCAL_MACHINE, kExpiry);
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "1");
    EXPECT_EQ(StoredRegistryText(HKEY_USERS, OfUser(kGuide), L"Protocol"), L"1");
    EXPECT_THAT(m_lines.Lines(), IsEmpty());
}

// --- settings

TEST_F(SettingsIntegrationTest, EmptyRegistry_Defaults) {
    EXPECT_EQ(SystemEnvironment::GetPowerManagerIntellMode(), "1");
    EXPECT_EQ(SystemEnvironment::GetCaptureSwitch(), L"0");
    EXPECT_EQ(SystemEnvironment::GetLogSwitch(), "0");
    EXPECT_EQ(SystemEnvironment::GetFirewareValue(), "0");
    EXPECT_FALSE(SystemEnvironment::IsKernelCrashDumpEnabled());
    EXPECT_EQ(SystemEnvironment::GetSessionPowerValue(L"HiberbootEnabled"), -1);
    EXPECT_FALSE(SystemEnvironment::IsAutoRepairEnabled());
}

TEST_F(SettingsIntegrationTest, TextSettings_AreReadFromTheirKeys) {
    StoreRegistryText(HKEY_LOCAL_MACHINE, kPowerManager, L"PowerManagerIntellMode", L"\u00e9");
    StoreUserText(kGuide, L"Capture", L"\u00e92");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kGuide, L"LogSwitch", L"3");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kGuide, L"Fireware", L"4");
    EXPECT_EQ(SystemEnvironment::GetPowerManagerIntellMode(), "\xc3\xa9");
    EXPECT_EQ(SystemEnvironment::GetCaptureSwitch(), L"\u00e92");
    EXPECT_EQ(SystemEnvironment::GetLogSwitch(), "3");
    EXPECT_EQ(SystemEnvironment::GetFirewareValue(), "4");
}

TEST_F(SettingsIntegrationTest, TextSettingsStoredAsNumbersOrEmpty_Defaults) {
    for (const bool isNumber : {true, false}) {
        const auto store = [isNumber](HKEY root, const std::wstring& path, const std::wstring& name) {
            isNumber ? StoreRegistryNumber(root, path, name, 7) : StoreRegistryText(root, path, name, L"");
        };
        store(HKEY_LOCAL_MACHINE, kPowerManager, L"PowerManagerIntellMode");
        store(HKEY_USERS, OfUser(kGuide), L"Capture");
        store(HKEY_LOCAL_MACHINE, kGuide, L"LogSwitch");
        store(HKEY_LOCAL_MACHINE, kGuide, L"Fireware");
        EXPECT_EQ(SystemEnvironment::GetPowerManagerIntellMode(), "1");
        EXPECT_EQ(SystemEnvironment::GetCaptureSwitch(), L"0");
        EXPECT_EQ(SystemEnvironment::GetLogSwitch(), "0");
        EXPECT_EQ(SystemEnvironment::GetFirewareValue(), "0");
    }
}

TEST_F(SettingsIntegrationTest, CrashDump_OnlyThreeIsRaised) {
    for (const DWORD number : {0ul, 1ul, 2ul, 3ul, 7ul, 0xFFFFFFFFul}) {
        StoreRegistryNumber(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled", number);
        EXPECT_EQ(SystemEnvironment::IsKernelCrashDumpEnabled(), number == 2);
        SystemEnvironment::FixSmallCrashDump();
        EXPECT_EQ(StoredRegistryNumber(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled"),
                  number == 3 ? 2 : number);
    }
}

TEST_F(SettingsIntegrationTest, NumbersStoredAsTexts_ReadAsMissing) {
    StoreRegistryText(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled", L"3");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kSessionPower, L"HiberbootEnabled", L"1");
    SystemEnvironment::FixSmallCrashDump();
    EXPECT_EQ(StoredRegistryText(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled"), L"3");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled", L"2");
    EXPECT_FALSE(SystemEnvironment::IsKernelCrashDumpEnabled());
    EXPECT_EQ(SystemEnvironment::GetSessionPowerValue(L"HiberbootEnabled"), -1);
}

TEST_F(SettingsIntegrationTest, SessionPowerValues_AreTakenAsSigned) {
    StoreRegistryNumber(HKEY_LOCAL_MACHINE, kSessionPower, L"HiberbootEnabled", 1);
    StoreRegistryNumber(HKEY_LOCAL_MACHINE, kSessionPower, L"All", 0xFFFFFFFF);
    StoreRegistryNumber(HKEY_LOCAL_MACHINE, kSessionPower, L"High", 0x80000000);
    EXPECT_EQ(SystemEnvironment::GetSessionPowerValue(L"HiberbootEnabled"), 1);
    EXPECT_EQ(SystemEnvironment::GetSessionPowerValue(L"All"), -1);
    EXPECT_EQ(SystemEnvironment::GetSessionPowerValue(L"High"), -2147483647 - 1);
}

TEST_F(SettingsIntegrationTest, LogSwitch_IsWrittenAndReadBack) {
    EXPECT_TRUE(SystemEnvironment::SetLogSwitch(true));
    EXPECT_EQ(StoredRegistryText(HKEY_LOCAL_MACHINE, kGuide, L"LogSwitch"), L"1");
    EXPECT_EQ(SystemEnvironment::GetLogSwitch(), "1");
    EXPECT_TRUE(SystemEnvironment::SetLogSwitch(false));
    EXPECT_EQ(StoredRegistryText(HKEY_LOCAL_MACHINE, kGuide, L"LogSwitch"), L"0");
}

TEST_F(SettingsIntegrationTest, MachineKeysWithoutWriteAccess_DefaultsAndNothingChanges) {
    StoreRegistryText(HKEY_LOCAL_MACHINE, kGuide, L"LogSwitch", L"1");
    StoreRegistryNumber(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled", 3);
    StoreRegistryNumber(HKEY_LOCAL_MACHINE, kSessionPower, L"HiberbootEnabled", 1);
    {
        const ReadOnlyKey guide(HKEY_LOCAL_MACHINE, kGuide);
        const ReadOnlyKey crashControl(HKEY_LOCAL_MACHINE, kCrashControl);
        const ReadOnlyKey sessionPower(HKEY_LOCAL_MACHINE, kSessionPower);
        EXPECT_EQ(SystemEnvironment::GetLogSwitch(), "0");
        EXPECT_FALSE(SystemEnvironment::SetLogSwitch(false));
        EXPECT_EQ(StoredRegistryText(HKEY_LOCAL_MACHINE, kGuide, L"LogSwitch"), L"1");
        SystemEnvironment::FixSmallCrashDump();
        EXPECT_EQ(StoredRegistryNumber(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled"), 3u);
        EXPECT_EQ(SystemEnvironment::GetSessionPowerValue(L"HiberbootEnabled"), -1);
    }
    EXPECT_EQ(SystemEnvironment::GetLogSwitch(), "1");
    SystemEnvironment::FixSmallCrashDump();
    EXPECT_TRUE(SystemEnvironment::IsKernelCrashDumpEnabled());
}

// --- switches

TEST_F(SettingsIntegrationTest, AutoRepair_NeedsClauseAndSetting) {
    StoreRegistryNumber(HKEY_USERS, OfUser(kSetting), L"AutoRepair", 1);
    EXPECT_FALSE(SystemEnvironment::IsAutoRepairEnabled());
    AcceptClause();
    EXPECT_TRUE(SystemEnvironment::IsAutoRepairEnabled());
    {
        const ReadOnlyKey readOnly(HKEY_USERS, OfUser(kSetting));
        EXPECT_FALSE(SystemEnvironment::IsAutoRepairEnabled());
    }
    StoreRegistryNumber(HKEY_USERS, OfUser(kSetting), L"AutoRepair", 2);
    EXPECT_FALSE(SystemEnvironment::IsAutoRepairEnabled());
    StoreRegistryText(HKEY_USERS, OfUser(kSetting), L"AutoRepair", L"1");
    EXPECT_FALSE(SystemEnvironment::IsAutoRepairEnabled());
}

TEST_F(SettingsIntegrationTest, DeviceFunction_FollowsTheProfilesProduct) {
    const std::filesystem::path file = kxtest::OwnFolder() / "config" / "DeviceFuncSwitchConf.xml";
    kxtest::WriteFileBytes(file, "<S><Power><Boost support=\"Book 13;Book 14;\">1</Boost><Eco>1</Eco></Power></S>");
    EXPECT_TRUE(SystemEnvironment::IsSupportDeviceFunc("Power", "Eco"));
    EXPECT_FALSE(SystemEnvironment::IsSupportDeviceFunc("Power", "Boost"));
    WriteProfile("<Product name=\"Book 14\" index=\"4\"/>");
    EXPECT_TRUE(SystemEnvironment::IsSupportDeviceFunc("Power", "Boost"));
    WriteProfile("<Product name=\"Book 15\" index=\"5\"/>");
    EXPECT_FALSE(SystemEnvironment::IsSupportDeviceFunc("Power", "Boost"));
    std::filesystem::remove(file);
    EXPECT_FALSE(SystemEnvironment::IsSupportDeviceFunc("Power", "Eco"));
    EXPECT_THAT(m_lines.Lines(), IsEmpty());
}

// --- all of them at once

// Every query once; whether each answered as the registry and the profile say.
bool AskEverything() {
    SystemEnvironment::FixSmallCrashDump();
    return AgreementSign::JudgeAgreementSign() == -1 && SystemEnvironment::IsAgreeClause() == "1" &&
           SystemEnvironment::GetLoginGuideProtocol() == "1" && SystemEnvironment::IsAutoRepairEnabled() &&
           SystemEnvironment::GetPowerManagerIntellMode() == "1" && SystemEnvironment::GetCaptureSwitch() == L"0" &&
           SystemEnvironment::IsKernelCrashDumpEnabled() && SystemEnvironment::GetSessionPowerValue(L"None") == -1 &&
           SystemEnvironment::GetLogSwitch() == "0" && SystemEnvironment::GetFirewareValue() == "0" &&
           SystemEnvironment::IsSupportDeviceFunc("Power", "Boost") &&
           !SystemEnvironment::IsSupportDeviceFunc("Power", "Eco");
}

class EverythingTest : public SettingsIntegrationTest {
protected:
    EverythingTest() {
        WriteProfile("<Product name=\"Book 14\" index=\"4\"/><AgreementService inUse=\"true\"/>");
        kxtest::WriteFileBytes(m_switches, "<S><Power><Boost support=\"Book 14;\">1</Boost></Power></S>");
        AcceptClause();
        AgreementSign::SetAgreeCache(true);
        StoreRegistryNumber(HKEY_USERS, OfUser(kSetting), L"AutoRepair", 1);
        StoreRegistryNumber(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled", 2);
    }
    ~EverythingTest() override { std::filesystem::remove(m_switches); }

private:
    std::filesystem::path m_switches = kxtest::OwnFolder() / "config" / "DeviceFuncSwitchConf.xml";
};

TEST_F(EverythingTest, ManyThreads_EachGetsTheRightAnswers) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 25;
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&right] {
            for (int round = 0; round < kRounds; ++round) {
                right += AskEverything() ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right.load(), kThreads * kRounds);
}

TEST_F(EverythingTest, ManyCalls_LeaveNoHandleOpen) {
    constexpr int kRounds = 50;
    agreementprivate::RecordeAgreeFlag();
    EXPECT_TRUE(AskEverything());
    const std::size_t before = kxtest::OpenHandleCount();
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_TRUE(AskEverything());
        agreementprivate::RecordeAgreeFlag();
        agreementprivate::DeleteAgreeFlag();
        SystemEnvironment::SetLogSwitch(false);
    }
    EXPECT_FALSE(kxtest::HandlesLeakedSince(before, kRounds));
}

TEST_F(EverythingTest, AnyAnswer_LeavesTheSharedLogAlone) {
    const kxtest::LogCapture log;
    EXPECT_TRUE(AskEverything());
    StoreRegistryText(HKEY_LOCAL_MACHINE, kExpiry, Sid(), L"1");
    EXPECT_FALSE(AskEverything());
    kxtest::WriteFileBytes(ProfileFile(), "<");
    kxtest::WriteFileBytes(kxtest::OwnFolder() / "config" / "DeviceFuncSwitchConf.xml", "<");
    EXPECT_FALSE(SystemEnvironment::IsSupportDeviceFunc("Power", "Boost"));
    EXPECT_THAT(log.Events(), IsEmpty());
}

} // namespace

} // namespace integrationtest
