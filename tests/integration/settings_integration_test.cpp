// Consent, settings and switches with the real suite libraries on a real registry.
//
// HKEY_LOCAL_MACHINE and HKEY_USERS of this process are mapped onto scratch keys below HKEY_CURRENT_USER, so that every
// call works on real keys and leaves the machine's own settings alone.
#include "agreementsign.h"
#include "systemenvironment.h"

#include "support/childprocess.h"
#include "support/debuglines.h"
#include "support/hostfolder.h"
#include "support/importpatch.h"
#include "support/privateaccess.h"
#include "support/scratchregistry.h"

#include "sdk/util/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct RecordeAgreeFlagTag {
    using Type = void (*)();
};
struct DeleteAgreeFlagTag {
    using Type = void (*)();
};
struct JudgeBranchIdTag {
    using Type = int (*)(const std::wstring&);
};

} // namespace

template struct kxtest::Expose<RecordeAgreeFlagTag, &AgreementSign::RecordeAgreeFlag>;
template struct kxtest::Expose<DeleteAgreeFlagTag, &AgreementSign::DeleteAgreeFlag>;
template struct kxtest::Expose<JudgeBranchIdTag, &AgreementSign::JudgeBranchId>;

namespace {

using kxtest::StoredRegistryNumber;
using kxtest::StoredRegistryText;
using kxtest::StoreRegistryBytes;
using kxtest::StoreRegistryNumber;
using kxtest::StoreRegistryText;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t kLongLength = 40000;

const std::wstring kService = L"Software\\Calvora\\AgreementService";
const std::wstring kGuide = L"SOFTWARE\\Calvora\\KXLoginGuide";
const std::wstring kSetting = L"SOFTWARE\\Calvora\\setting";
const std::wstring kExpiry = L"SOFTWARE\\Calvora\\setting\\expireLogin";
const std::wstring kPowerManager = L"Software\\Calvora\\ZLKPowerManager";
const std::wstring kCrashControl = L"SYSTEM\\CurrentControlSet\\Control\\CrashControl";
const std::wstring kSessionPower = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Power";

// Reading and deleting stay allowed, so that the key can be removed again.
const wchar_t* const kNoWriting = L"D:P(D;;0x6;;;WD)(A;;KA;;;WD)";
const wchar_t* const kEverything = L"D:P(A;;KA;;;WD)";

void Check(LSTATUS status, const char* what) {
    if (status != ERROR_SUCCESS) {
        throw std::runtime_error(std::string(what) + ": error " + std::to_string(status));
    }
}

void SetSecurity(HKEY root, const std::wstring& path, const wchar_t* sddl) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, &descriptor, nullptr) == FALSE) {
        throw std::runtime_error("bad security descriptor");
    }
    const std::unique_ptr<void, decltype(&LocalFree)> owned(descriptor, &LocalFree);
    HKEY key = nullptr;
    Check(RegOpenKeyExW(root, path.c_str(), 0, WRITE_DAC, &key), "open for security");
    const kxtest::RegistryKey closing(key);
    Check(RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, descriptor), "set security");
}

// A key without write access, until the object goes.
class ReadOnlyKey {
public:
    ReadOnlyKey(HKEY root, const std::wstring& path) : m_root(root), m_path(path) {
        SetSecurity(root, path, kNoWriting);
        HKEY key = nullptr;
        if (RegOpenKeyExW(root, path.c_str(), 0, KEY_ALL_ACCESS, &key) != ERROR_ACCESS_DENIED) {
            const kxtest::RegistryKey closing(key);
            throw std::runtime_error("the registry does not enforce the key's security");
        }
    }
    ~ReadOnlyKey() { SetSecurity(m_root, m_path, kEverything); }
    ReadOnlyKey(const ReadOnlyKey&) = delete;
    ReadOnlyKey& operator=(const ReadOnlyKey&) = delete;

private:
    HKEY m_root;
    std::wstring m_path;
};

std::filesystem::path ProfileFile() {
    return kxtest::OwnFolder() / "config" / "ProductProfile.xml";
}
void WriteProfile(const std::string& content) {
    kxtest::WriteFileBytes(ProfileFile(), "<ProductProfile>" + content + "</ProductProfile>");
}
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
    kxtest::MappedRoot m_machine{HKEY_LOCAL_MACHINE, L"machine", REG_OPTION_NON_VOLATILE};
    kxtest::MappedRoot m_users{HKEY_USERS, L"users", REG_OPTION_NON_VOLATILE};
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
    EXPECT_EQ(kxtest::kPrivate<JudgeBranchIdTag>(record), -1);
    StoreUserText(kService + L"\\WithAccountLogin\\LocalVersion", L"BranchId", L"b");
    EXPECT_EQ(kxtest::kPrivate<JudgeBranchIdTag>(record), 1);
    StoreUserText(kService + L"\\KXRecordWithLogin", L"BranchId", L"b");
    EXPECT_EQ(kxtest::kPrivate<JudgeBranchIdTag>(record), -1);
}

TEST_F(SettingsIntegrationTest, AgreeFlag_IsWrittenAndDeletedAlone) {
    kxtest::kPrivate<DeleteAgreeFlagTag>();
    kxtest::kPrivate<RecordeAgreeFlagTag>();
    StoreUserText(kService, L"Other", L"1");
    EXPECT_EQ(StoredRegistryText(HKEY_USERS, OfUser(kService), L"AgreeFlag"), L"1");
    kxtest::kPrivate<DeleteAgreeFlagTag>();
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
        kxtest::kPrivate<RecordeAgreeFlagTag>();
        EXPECT_EQ(StoredRegistryText(HKEY_USERS, OfUser(kService), L"AgreeFlag"), L"0");
        kxtest::kPrivate<DeleteAgreeFlagTag>();
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

// --- the secondary SKU: the firmware table is read once in a process, so each table has a process of its own

std::string Record(std::uint8_t type, std::string fields, const std::vector<std::string>& texts) {
    std::string record;
    record += static_cast<char>(type);
    record += static_cast<char>(fields.size() + 4);
    record += std::string(2, '\0');
    record += fields;
    for (const std::string& text : texts) {
        record += text + '\0';
    }
    return record + std::string(texts.empty() ? 2 : 1, '\0');
}

// System and enclosure record with one text each, their SKU numbers.
std::string FirmwareTable(const std::string& systemSku, const std::string& enclosureSku) {
    constexpr std::size_t kSystemFields = 0x1B - 4;
    constexpr std::size_t kSystemSku = 0x19 - 4;
    constexpr std::size_t kEnclosureFields = 0x16 - 4;
    constexpr std::size_t kEnclosureSku = 0x15 - 4;
    std::string system(kSystemFields, '\0');
    std::string enclosure(kEnclosureFields, '\0');
    if (!systemSku.empty()) {
        system[kSystemSku] = 1;
    }
    if (!enclosureSku.empty()) {
        enclosure[kEnclosureSku] = 1;
    }
    const auto texts = [](const std::string& sku) {
        return sku.empty() ? std::vector<std::string>() : std::vector<std::string>{sku};
    };
    const std::string records =
        Record(1, system, texts(systemSku)) + Record(3, enclosure, texts(enclosureSku)) + Record(127, "", {});
    const auto length = static_cast<std::uint32_t>(records.size());
    std::string header{"\0\3\2\0", 4};
    header.append(reinterpret_cast<const char*>(&length), sizeof(length));
    return header + records;
}

using FirmwareHook = kxtest::ImportHook<"KERNEL32.dll", "GetSystemFirmwareTable", decltype(GetSystemFirmwareTable)>;

void PrintSku(const std::string& systemSku, const std::string& enclosureSku) {
    const std::string table = FirmwareTable(systemSku, enclosureSku);
    const FirmwareHook hook(
        [&table](DWORD, DWORD, PVOID buffer, DWORD size) {
            if (buffer != nullptr && size >= table.size()) {
                std::memcpy(buffer, table.data(), table.size());
            }
            return static_cast<UINT>(table.size());
        },
        GetModuleHandleW(L"Util.dll"));
    std::printf("[%s]", SystemEnvironment::GetSecondarySku().c_str());
    std::fflush(stdout);
}

const kxtest::ChildScenario kSkusDiffer("skus-differ", [] { PrintSku("ABC", "XYZ-9"); });
const kxtest::ChildScenario kSkusEqual("skus-equal", [] { PrintSku("XYZ-9", "XYZ-9"); });
const kxtest::ChildScenario kSkusDifferInCase("skus-differ-in-case", [] { PrintSku("xyz-9", "XYZ-9"); });
const kxtest::ChildScenario kNoSystemSku("no-system-sku", [] { PrintSku("", "XYZ-9"); });
const kxtest::ChildScenario kNoSecondarySku("no-secondary-sku", [] { PrintSku("ABC", ""); });

TEST(SecondarySkuIntegration, FirmwareTable_DecidesTheSku) {
    EXPECT_EQ(kxtest::RunChild("skus-differ").output, "[xyz-9]");
    EXPECT_EQ(kxtest::RunChild("skus-equal").output, "[]");
    EXPECT_EQ(kxtest::RunChild("skus-differ-in-case").output, "[xyz-9]");
    EXPECT_EQ(kxtest::RunChild("no-system-sku").output, "[xyz-9]");
    EXPECT_EQ(kxtest::RunChild("no-secondary-sku").output, "[]");
}

} // namespace
