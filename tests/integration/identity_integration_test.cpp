// The identity queries with the real suite libraries on a real registry.
//
// HKEY_LOCAL_MACHINE and HKEY_USERS of this process are mapped onto scratch keys that are not kept on disk, as HARDWARE
// of a real machine is not.
#include "systemenvironment.h"

#include "firmwaretable.h"
#include "onedisplay.h"
#include "productprofile.h"
#include "registrykeys.h"
#include "support/childprocess.h"
#include "support/debuglines.h"
#include "support/hostfolder.h"
#include "support/importpatch.h"
#include "support/scratchregistry.h"

#include "sdk/util/process.h"
#include "sdk/util/smbios.h"
#include "sdk/util/text.h"
#include "sdk/util/wmi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace integrationtest {

namespace {

using firmwaretest::Bytes;
using firmwaretest::Structure;
using kxtest::StoredRegistryNumber;
using kxtest::StoredRegistryText;
using kxtest::StoreRegistryBytes;
using kxtest::StoreRegistryNumber;
using kxtest::StoreRegistryText;
using profiletest::WriteProfile;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t kNoVersionLine[] = L"Registry GetValue fail(SystemEnvironment::GetVersionFromRegistry)\n";
constexpr char kOemRoot[] = "c:\\recovery";
constexpr char kOemFile[] = "c:\\recovery\\OEM\\version.txt";

std::filesystem::path LogTypeFile() {
    return kxtest::OwnFolder() / "config" / "LogType.xml";
}

class IdentityIntegrationTest : public testing::Test {
protected:
    IdentityIntegrationTest() : m_sid(KXPROCESS::GetCurrentUserSidstr()) {
        if (std::filesystem::exists(kOemRoot)) {
            throw std::runtime_error("the machine has an OEM folder of its own");
        }
        RemoveFiles();
        EXPECT_THAT(m_sid, testing::StartsWith(L"S-1-5-"));
    }
    ~IdentityIntegrationTest() override {
        EXPECT_THAT(m_lines.Lines(), IsEmpty());
        RemoveFiles();
        std::error_code ignored;
        std::filesystem::remove_all(kOemRoot, ignored);
    }

    std::vector<std::wstring> TakeLines() {
        std::vector<std::wstring> lines = m_lines.Lines();
        m_lines.Clear();
        return lines;
    }
    std::wstring OfUser(const std::wstring& path) const { return m_sid + L"\\" + path; }
    const std::wstring& Sid() const { return m_sid; }

private:
    static void RemoveFiles() {
        std::filesystem::remove(profiletest::ProfileFile());
        std::filesystem::remove(LogTypeFile());
    }

    std::wstring m_sid;
    kxtest::DebugLines m_lines;
    kxtest::MappedRoot m_machine{HKEY_LOCAL_MACHINE, L"machine", REG_OPTION_VOLATILE};
    kxtest::MappedRoot m_users{HKEY_USERS, L"users", REG_OPTION_VOLATILE};
};

// --- Windows

TEST_F(IdentityIntegrationTest, EmptyRegistry_EmptyTexts) {
    EXPECT_EQ(SystemEnvironment::GetOSVersion(), "");
    EXPECT_EQ(SystemEnvironment::GetOSReleaseId(), "");
    EXPECT_EQ(SystemEnvironment::GetOSBuildBranch(), "");
    EXPECT_EQ(SystemEnvironment::GetOSBuildVersion(), "");
    EXPECT_EQ(SystemEnvironment::GetBIOSVersion(), "");
    EXPECT_THAT(TakeLines(), ElementsAre(L"Get registry value fail(SystemEnvironment::GetOSVersion)\n"));
}

TEST_F(IdentityIntegrationTest, WindowsValues_AreRead) {
    StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"ProductName", L"Windows 10 Pr\u00e9");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"ReleaseId", L"2009");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"BuildBranch", L"vb_release");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"BuildLabEx", L"19041.1.amd64fre.vb_release.191206-1406");
    StoreRegistryNumber(HKEY_LOCAL_MACHINE, kWindows, L"UBR", 1237);
    EXPECT_EQ(SystemEnvironment::GetOSVersion(), "Windows 10 Pr\xe9");
    EXPECT_EQ(SystemEnvironment::GetOSReleaseId(), "2009");
    EXPECT_EQ(SystemEnvironment::GetOSBuildBranch(), "vb_release");
    EXPECT_EQ(SystemEnvironment::GetOSBuildVersion(), "19041.1237");
    StoreRegistryNumber(HKEY_LOCAL_MACHINE, kWindows, L"UBR", 0xFFFFFFFF);
    EXPECT_EQ(SystemEnvironment::GetOSBuildVersion(), "19041.4294967295");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"UBR", L"1237");
    EXPECT_EQ(SystemEnvironment::GetOSBuildVersion(), "");
}

TEST_F(IdentityIntegrationTest, WindowsNameOf127And128Characters_LimitIsBetween) {
    StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"ProductName", std::wstring(127, L'x'));
    EXPECT_EQ(SystemEnvironment::GetOSVersion(), std::string(127, 'x'));
    StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"ProductName", std::wstring(128, L'x'));
    EXPECT_EQ(SystemEnvironment::GetOSVersion(), "");
    EXPECT_THAT(TakeLines(), ElementsAre(L"strcpy_s fail(SystemEnvironment::GetOSVersion)\n"));
}

TEST_F(IdentityIntegrationTest, TextWithoutTerminator_IsReadWhole) {
    StoreRegistryBytes(HKEY_LOCAL_MACHINE, kWindows, L"ReleaseId", REG_SZ, std::string_view("2\0000\0000\0009\0x", 9));
    EXPECT_EQ(SystemEnvironment::GetOSReleaseId(), "2009");
}

TEST_F(IdentityIntegrationTest, RunningWindows_IsAsWindowsSays) {
    OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof version;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    ASSERT_TRUE(GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&version)));
#pragma GCC diagnostic pop
    std::ostringstream expected;
    expected << "Microsoft Windows NT " << version.dwMajorVersion << '.' << version.dwMinorVersion << '.'
             << version.dwBuildNumber;
    const std::wstring servicePack = version.szCSDVersion;
    if (servicePack.empty()) {
        expected << '.' << version.wServicePackMajor;
    } else {
        expected << ' ' << std::string(servicePack.begin(), servicePack.end());
    }
    EXPECT_EQ(SystemEnvironment::OSVersion(), expected.str());
}

// --- firmware and product version

TEST_F(IdentityIntegrationTest, BiosVersion_IsCutAtItsSecondPoint) {
    StoreRegistryText(HKEY_LOCAL_MACHINE, kBios, L"BIOSVersion", L"2.10.0.1");
    EXPECT_EQ(SystemEnvironment::GetBIOSVersion(), "2.10");
}

TEST_F(IdentityIntegrationTest, OemFile_IsCopiedBelowAKeyThatIsNotKept) {
    StoreRegistryText(HKEY_LOCAL_MACHINE, kBios, L"BIOSVersion", L"1.2");
    kxtest::WriteFileBytes(kOemFile, "  V1.05_2021 \r\n");
    EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "V1.05");
    EXPECT_EQ(StoredRegistryText(HKEY_LOCAL_MACHINE, kProduct, L"Version"), L"  V1.05_2021 \r\n");
    std::filesystem::remove(kOemFile);
    EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "V1.05");
    EXPECT_EQ(SystemEnvironment::GetVersionFromRegistry(), "V1.05");
}

TEST_F(IdentityIntegrationTest, UnicodeOemFile_IsCopiedWithoutItsMark) {
    kxtest::WriteFileBytes(kOemFile, std::string_view("\xff\xfeV\0002\0_\0x\0", 10));
    EXPECT_TRUE(SystemEnvironment::IsFileUnicode());
    EXPECT_EQ(SystemEnvironment::GetUnicodeString(), L"V2_x");
    EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "V2");
    EXPECT_EQ(StoredRegistryText(HKEY_LOCAL_MACHINE, kProduct, L"Version"), L"V2_x");
}

TEST_F(IdentityIntegrationTest, NoOemVersion_EmptyAndReported) {
    EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "");
    EXPECT_EQ(SystemEnvironment::GetProductSeries(), "other");
    EXPECT_THAT(TakeLines(), ElementsAre(kNoVersionLine, kNoVersionLine));
    EXPECT_EQ(StoredRegistryText(HKEY_LOCAL_MACHINE, kProduct, L"Version"), std::nullopt);
}

TEST_F(IdentityIntegrationTest, ProductVersionOf62And63Characters_LimitIsBetween) {
    StoreRegistryText(HKEY_LOCAL_MACHINE, kProduct, L"Version", std::wstring(62, L'x'));
    EXPECT_EQ(SystemEnvironment::GetVersionFromRegistry(), std::string(62, 'x'));
    StoreRegistryText(HKEY_LOCAL_MACHINE, kProduct, L"Version", std::wstring(63, L'x'));
    EXPECT_EQ(SystemEnvironment::GetVersionFromRegistry(), "");
}

// On the machine's own registry.
TEST(HardwareKeyIntegration, OemFile_IsCopiedBelowTheMachinesHardwareKey) {
    ASSERT_FALSE(std::filesystem::exists(kOemRoot));
    HKEY kept = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kProduct.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                              nullptr, &kept, nullptr),
              ERROR_CHILD_MUST_BE_VOLATILE);
    kxtest::WriteFileBytes(kOemFile, "V3_x");
    const std::string version = SystemEnvironment::GetOEMVersion();
    std::filesystem::remove_all(kOemRoot);
    EXPECT_EQ(version, "V3");
    EXPECT_EQ(StoredRegistryText(HKEY_LOCAL_MACHINE, kProduct, L"Version"), L"V3_x");
    EXPECT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, kProduct.c_str()), ERROR_SUCCESS);
}

// --- device identifier: each scenario has a process of its own

const kxtest::ChildScenario kRegistrySerial("registry-serial", [] {
    const kxtest::MappedRoot machine(HKEY_LOCAL_MACHINE, L"machine", REG_OPTION_VOLATILE);
    StoreRegistryText(HKEY_LOCAL_MACHINE, kBios, L"BIOSSerialNumber", L"SN-1");
    std::printf("%s ", SystemEnvironment::GetDeviceId().c_str());
    StoreRegistryText(HKEY_LOCAL_MACHINE, kBios, L"BIOSSerialNumber", L"SN-2");
    std::printf("%s", SystemEnvironment::GetDeviceId().c_str());
});
TEST(DeviceIdIntegration, SerialInTheRegistry_IsKept) {
    EXPECT_EQ(kxtest::RunChild("registry-serial").output, "SN-1 SN-1");
}

// On the machine's own registry: WMI finds its parts there.
const kxtest::ChildScenario kWmiSerial("wmi-serial",
                                       [] { std::printf("%s", SystemEnvironment::GetDeviceId().c_str()); });
TEST(DeviceIdIntegration, NoSerialInTheRegistry_WmisIsGivenAndWritten) {
    ASSERT_EQ(StoredRegistryText(HKEY_LOCAL_MACHINE, kBios, L"BIOSSerialNumber"), std::nullopt);
    const std::wstring serial = WMI(L"ROOT\\CIMV2").SelectStr(L"SELECT * FROM Win32_BIOS", L"SerialNumber");
    EXPECT_EQ(kxtest::RunChild("wmi-serial").output,
              serial.empty() ? "21111111111111111111" : DE::UnicodeToANSI(serial));
    EXPECT_EQ(StoredRegistryText(HKEY_LOCAL_MACHINE, kBios, L"BIOSSerialNumber"), serial);
    EXPECT_EQ(RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kBios.c_str(), L"BIOSSerialNumber"), ERROR_SUCCESS);
}

// --- SMBIOS: the table is read once in a process

// System record with version and SKU, and an OEM strings record.
Bytes FirmwareTable(const std::string& version, const std::string& sku, const std::string& oemString) {
    Bytes system(0x1B - 4);
    system[0x06 - 4] = 1;
    system[0x19 - 4] = 2;
    return firmwaretest::Table(
        3, 2, {Structure(1, system, {version, sku}), Structure(11, {1}, {oemString}), Structure(127, {}, {})});
}

void PrintFirmwareFacts() {
    std::string version = "before";
    const bool hasVersion = SystemEnvironment::GetBIOSSysVersion(version);
    std::uint32_t code = 0;
    const int hasCode = SystemEnvironment::GetOemProductCode(&code);
    const std::wstring text = SystemEnvironment::GetOemProductCodeString();
    std::printf("%d [%s] %d %08x [%s] [%s]", hasVersion ? 1 : 0, version.c_str(), hasCode, code,
                DE::UnicodeToANSI(text).c_str(), SystemEnvironment::GetSystemSkuCode().c_str());
}

void PrintFirmwareFactsOf(const Bytes& table) {
    const firmwaretest::MachineTable machine(table);
    PrintFirmwareFacts();
}

const kxtest::ChildScenario kFullTable("full-table",
                                       [] { PrintFirmwareFactsOf(FirmwareTable("Version 7", "ABC 1", "$ORV456ab")); });
const kxtest::ChildScenario kShortOemString("short-oem-string",
                                            [] { PrintFirmwareFactsOf(FirmwareTable("V", "abC", "$ORV456a")); });
const kxtest::ChildScenario kOtherOemString("other-oem-string",
                                            [] { PrintFirmwareFactsOf(FirmwareTable("V", "C", "$orv456ab")); });
const kxtest::ChildScenario kNoTable("no-table", [] { PrintFirmwareFactsOf({}); });

TEST(FirmwareIntegration, Table_DecidesVersionSkuAndCode) {
    EXPECT_EQ(kxtest::RunChild("full-table").output, "1 [Version 7] 1 00620061 [ab] [ABC 1]");
    EXPECT_EQ(kxtest::RunChild("short-oem-string").output, "1 [V] 0 00000000 [] [abC]");
    EXPECT_EQ(kxtest::RunChild("other-oem-string").output, "1 [V] 0 00000000 [] [C]");
    EXPECT_EQ(kxtest::RunChild("no-table").output, "0 [] 0 00000000 [] []");
}

// Version of the machine's own system record, found by walking the table.
std::string OwnSystemVersion() {
    constexpr DWORD kRawTable = 0x52534D42;
    std::string table(GetSystemFirmwareTable(kRawTable, 0, nullptr, 0), '\0');
    table.resize(GetSystemFirmwareTable(kRawTable, 0, table.data(), static_cast<DWORD>(table.size())));
    for (std::size_t record = 8; record + 8 <= table.size();) {
        std::size_t text = record + static_cast<unsigned char>(table[record + 1]);
        if (table[record] == 1) {
            for (int skipped = 1; skipped < table[record + 6]; ++skipped) {
                text = table.find('\0', text) + 1;
            }
            return table[record + 6] == 0 ? "" : std::string(table.c_str() + text);
        }
        record = table.find(std::string(2, '\0'), text) + 2;
    }
    return "";
}

TEST_F(IdentityIntegrationTest, OwnTable_GivesItsSystemVersion) {
    const std::string expected = OwnSystemVersion();
    std::string version = "before";
    EXPECT_EQ(SystemEnvironment::GetBIOSSysVersion(version), !expected.empty());
    EXPECT_EQ(version, expected);
}

// --- product profile

struct Feature {
    bool (*ask)();
    const char* name;
};
const Feature kFeatures[] = {
    {&SystemEnvironment::IsSupportFingerPrint, "Fingerprint"},
    {&SystemEnvironment::IsSupportTrifingerSnipper, "TriFingerSnipper"},
    {&SystemEnvironment::IsSupportWifiGpio, "WifiGpio"},
    {&SystemEnvironment::IsSupportWifiBiosRepair, "WifiBiosRepair"},
    {&SystemEnvironment::IsSupportBtGpio, "BtGpio"},
    {&SystemEnvironment::IsSupportCPUPower, "CpuPower"},
    {&SystemEnvironment::IsSupportKeyboardLight, "KeyboardLight"},
    {&SystemEnvironment::IsSupportEnergyStar, "EnergyStar"},
    {&SystemEnvironment::IsSupportSQGData, "SQGData"},
    {&SystemEnvironment::IsSupportTimeBack, "TimeBack"},
    {&SystemEnvironment::IsSupportVrAssisant, "VrAssisant"},
    {&SystemEnvironment::IsSupportLiveBroadcast, "LiveBroadcast"},
    {&SystemEnvironment::IsSupportOfficeCheck, "OfficeCheck"},
    {&SystemEnvironment::IsSupportIntegratedGraphics, "IntegratedGraphics"},
    {&SystemEnvironment::IsSupportNpsPop, "NpsPop"},
};

TEST_F(IdentityIntegrationTest, ProfilesFeatures_DecideEachAlone) {
    for (const Feature& present : kFeatures) {
        std::string features;
        for (const Feature& feature : kFeatures) {
            features += std::string("<Feature name=\"") + feature.name + "\" present=\"" +
                        (feature.name == present.name ? "true" : "false") + "\"/>";
        }
        WriteProfile("<Features>" + features + "</Features><Plugins><Plugin name=\"SynergyPYP\"/></Plugins>");
        for (const Feature& feature : kFeatures) {
            EXPECT_EQ(feature.ask(), feature.name == present.name) << feature.name << " with " << present.name;
        }
    }
}

TEST_F(IdentityIntegrationTest, TimeBackWithoutItsPlugin_IsNotSupported) {
    WriteProfile("<Features><Feature name=\"TimeBack\" present=\"true\"/></Features>");
    EXPECT_FALSE(SystemEnvironment::IsSupportTimeBack());
}

TEST_F(IdentityIntegrationTest, NoProfile_FeaturesAreUnknownAndReported) {
    EXPECT_FALSE(SystemEnvironment::IsSupportFingerPrint());
    EXPECT_FALSE(SystemEnvironment::IsSupportSQGData());
    EXPECT_FALSE(SystemEnvironment::IsSupportTimeBack());
    EXPECT_THAT(TakeLines(),
                ElementsAre(L"result=1IsSupportFingerPrint=0(SystemEnvironment::IsSupportFingerPrint)\n",
                            L"result = 1; IsSupportLocalManual =0(SystemEnvironment::IsSupportSQGData)\n",
                            L"result=1,GetSupportTimeBackStatus=0(SystemEnvironment::IsSupportTimeBack)\n"));
}

TEST_F(IdentityIntegrationTest, FeatureThatIsNotListed_IsReported) {
    WriteProfile("<Features/>");
    EXPECT_FALSE(SystemEnvironment::IsSupportNpsPop());
    EXPECT_THAT(TakeLines(), ElementsAre(L"result=2,GetSupportNpsPopStatus=0(SystemEnvironment::IsSupportNpsPop)\n"));
}

TEST_F(IdentityIntegrationTest, ProfilesNames_AreGiven) {
    WriteProfile("<Product name=\"Book \xc3\xa9 14\" index=\"4\"/><PromoteParams>"
                 "<PromoteParam key=\"default\" id=\"1\" productName=\"B\xc3\xa9\" channel=\"c\" flags=\"0\"/>"
                 "</PromoteParams>");
    EXPECT_EQ(SystemEnvironment::GetDeviceTypeEx(), "Book \xc3\xa9 14");
    EXPECT_EQ(SystemEnvironment::GetProductNameForKxshare(), L"B\u00e9");
}

TEST_F(IdentityIntegrationTest, NoProfile_NamesAreEmptyAndReported) {
    EXPECT_EQ(SystemEnvironment::GetDeviceTypeEx(), "");
    EXPECT_EQ(SystemEnvironment::GetProductNameForKxshare(), L"");
    EXPECT_THAT(TakeLines(), ElementsAre(L"fail to get product name. result:1(SystemEnvironment::GetDeviceTypeEx)\n",
                                         L"fail to get product promote param info. result:1"
                                         L"(SystemEnvironment::GetProductNameForKxshare)\n"));
}

// --- settings, locale and log types

TEST_F(IdentityIntegrationTest, SettingsOfAnyType_AreReadAsTheyAreStored) {
    StoreRegistryBytes(HKEY_USERS, OfUser(kUserSettings), L"Raw", REG_MULTI_SZ, "12345");
    StoreRegistryNumber(HKEY_USERS, OfUser(kUserSettings), L"Number", 0xFFFFFFFE);
    std::array<char, 6> buffer{'.', '.', '.', '.', '.', '.'};
    EXPECT_FALSE(SystemEnvironment::ReadValue(L"Raw", buffer.data(), 4));
    EXPECT_TRUE(SystemEnvironment::ReadValue(L"Raw", buffer.data(), 5));
    EXPECT_EQ(std::string(buffer.begin(), buffer.end()), "12345.");
    EXPECT_TRUE(SystemEnvironment::ReadValue(L"Number", buffer.data(), 6));
    EXPECT_EQ(std::string(buffer.begin(), buffer.end()), "\xfe\xff\xff\xff"
                                                         "5.");
    EXPECT_EQ(SystemEnvironment::ReadValue(L"Number"), -2);
    EXPECT_EQ(SystemEnvironment::ReadValue(L"Raw"), -1);
    EXPECT_EQ(SystemEnvironment::ReadValue(L"Missing"), -1);
}

TEST_F(IdentityIntegrationTest, Locale_IsTheUsersOrTheDefault) {
    ASSERT_NE(Sid(), L"S-1-5-18");
    EXPECT_EQ(SystemEnvironment::GetUserLocaleName(), "en-US");
    EXPECT_EQ(SystemEnvironment::GetUserLocaleNameCN(), "zh-CN");
    StoreRegistryText(HKEY_USERS, OfUser(kInternational), L"LocaleName", L"de-DE");
    EXPECT_EQ(SystemEnvironment::GetUserLocaleName(), "de-DE");
    EXPECT_EQ(SystemEnvironment::GetUserLocaleNameCN(), "de-DE");
}

TEST_F(IdentityIntegrationTest, LogPackage_HasTheFactsOfTheRegistryAndTheTable) {
    StoreRegistryText(HKEY_LOCAL_MACHINE, kProduct, L"Version", L"V1.05_2021");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kBios, L"BIOSVersion", L"1.23.45");
    // Too long to be used and to be kept.
    StoreRegistryText(HKEY_LOCAL_MACHINE, kBios, L"BIOSSerialNumber", std::wstring(64, L'x'));
    kxtest::WriteFileBytes(LogTypeFile(), "<T><Item ID=\"07\" Value=\"crash log\"/></T>");
    EXPECT_THAT(
        SystemEnvironment::GetLogPackageZipName("trailing", 7, "leading"),
        testing::MatchesRegex("PC_leading_V1.05_1.23_21111111111111111111_\\d\\d\\d\\d\\d\\d\\d\\d\\d\\d\\d\\d\\d"
                              "\\d_trailing-crash log_\\w\\w\\w\\w\\w\\.zip"));
    EXPECT_THAT(TakeLines(), ElementsAre(L"strcpy_s fail(SystemEnvironment::GetDeviceId)\n"));
}

// --- power and processor

TEST_F(IdentityIntegrationTest, PowerAndProcessor_AreAsWindowsSays) {
    SYSTEM_POWER_STATUS power{};
    const bool isKnown = GetSystemPowerStatus(&power) != FALSE;
    EXPECT_EQ(SystemEnvironment::IsOnAcPower(), isKnown && power.ACLineStatus == 1);
    EXPECT_TRUE(SystemEnvironment::IsNotIa64System());
}

// --- display scaling

TEST_F(IdentityIntegrationTest, DpiRecord_IsWrittenFollowedAndRestored) {
    const OneDisplay display;
    int dpi = 0;
    int step = -7;
    StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"ReleaseId", L"1909");
    StoreRegistryNumber(HKEY_USERS, OfUser(kMonitors) + L"\\ABC", L"DpiValue", 0xFFFFFFFE);
    ASSERT_TRUE(SystemEnvironment::GetLastestSystemDpi(&dpi, &step));
    EXPECT_GE(dpi, 96);
    EXPECT_EQ(step, -2);

    EXPECT_TRUE(SystemEnvironment::RestoreSystemDpi());
    EXPECT_EQ(StoredRegistryText(HKEY_USERS, OfUser(kDpiRecord), L"LastestOSVersion"), L"1909");
    EXPECT_EQ(StoredRegistryNumber(HKEY_USERS, OfUser(kDpiRecord), L"LastestDPIIndex"), 0xFFFFFFFE);
    EXPECT_EQ(StoredRegistryNumber(HKEY_USERS, OfUser(kDpiRecord), L"LastestDPIValue"), static_cast<DWORD>(dpi));
    EXPECT_EQ(TakeLines().size(), 3u);
    EXPECT_FALSE(SystemEnvironment::RestoreSystemDpi());
    EXPECT_EQ(display.requests, 0);

    StoreRegistryNumber(HKEY_USERS, OfUser(kDpiRecord), L"LastestDPIValue", static_cast<DWORD>(dpi) + 48);
    StoreRegistryNumber(HKEY_USERS, OfUser(kDpiRecord), L"LastestDPIIndex", 2);
    struct Update {
        std::wstring release;
        std::string productIndex;
        std::int32_t step;
    };
    int updates = 0;
    for (const Update& update : {Update{L"2009", "4", 0}, Update{L"20H2", "5", 1}}) {
        StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"ReleaseId", update.release);
        WriteProfile("<Product name=\"Book\" index=\"" + update.productIndex + "\"/>");
        EXPECT_TRUE(SystemEnvironment::RestoreSystemDpi());
        EXPECT_EQ(StoredRegistryText(HKEY_USERS, OfUser(kDpiRecord), L"LastestOSVersion"), update.release);
        EXPECT_EQ(StoredRegistryNumber(HKEY_USERS, OfUser(kDpiRecord), L"LastestDPIIndex"), 2u);
        EXPECT_THAT(TakeLines(), ElementsAre(L"RestoreSystemDpi ok: sysversion changed to " + update.release +
                                             L"(SystemEnvironment::RestoreSystemDpi4Common)\n"));
        EXPECT_EQ(display.requests, ++updates);
        EXPECT_EQ(display.step, update.step);
    }
}

TEST_F(IdentityIntegrationTest, NoMonitor_DpiIsReadButNoStep) {
    int dpi = 0;
    int step = -7;
    EXPECT_FALSE(SystemEnvironment::GetLastestSystemDpi(&dpi, &step));
    EXPECT_GE(dpi, 96);
    EXPECT_EQ(step, -7);
    EXPECT_THAT(TakeLines(),
                ElementsAre(L"GetLastestSystemDpi error: no-sub-keys(SystemEnvironment::GetLastestSystemDpi)\n"));
}

} // namespace

} // namespace integrationtest
