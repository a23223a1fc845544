// Files, firmware table and registry in which every function finds an answer.
#include "memorymachine.h"

#include "productprofile.h"
#include "registrykeys.h"
#include "support/hostfolder.h"

#include "sdk/util/file.h"
#include "sdk/util/process.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace integrationtest {

namespace {

using firmwaretest::Bytes;
using firmwaretest::Structure;
using kxtest::StoreRegistryNumber;
using kxtest::StoreRegistryText;

constexpr char kOemRoot[] = "c:\\recovery";

Bytes SystemFields() {
    Bytes fields{1, 2, 3, 4};
    firmwaretest::Append(fields, Bytes(16 + 1, 0xEE));
    fields.push_back(5);
    fields.push_back(0);
    return fields;
}

Bytes EnclosureFields() {
    Bytes fields(0x13 - 4, 0);
    firmwaretest::Append(fields, Bytes{0, 0, 1});
    return fields;
}

Bytes FirmwareTable() {
    return firmwaretest::Table(
        3, 2,
        {Structure(1, SystemFields(), {"Maker", "Book", "System version 1.23.45", "SN", "SKU with a C and more"}),
         Structure(3, EnclosureFields(), {"SECONDARY SKU OF THE CHASSIS"}),
         Structure(11, {1}, {"$ORV123AB and more text"}), Structure(127, {}, {})});
}

} // namespace

Machine::Machine() : m_sid(KXPROCESS::GetCurrentUserSidstr()), m_table(FirmwareTable()) {
    if (std::filesystem::exists(kOemRoot)) {
        throw std::runtime_error("the machine has an OEM folder of its own");
    }
    const std::filesystem::path host = kxtest::OwnFolder();
    kxtest::WriteFileBytes(host / kVictim, "bytes");
    const std::string digest = DE::GetFileSha256Hex((host / kVictim).string());
    kxtest::WriteFileBytes(host / "config" / "CheckFileIntergrity.xml",
                           std::string("<Files><FileAttributes Path=\"another one of the files.exe\" Sha256=\"0\"/>") +
                               "<FileAttributes Path=\"" + kVictim + "\" Sha256=\"" + digest + "\"/></Files>");
    kxtest::WriteFileBytes(host / "config" / "DeviceFuncSwitchConf.xml",
                           "<Switches><AGroupWithALongName><AFunctionWithALongName support=\"Other;Product of the "
                           "suite;\">1</AFunctionWithALongName></AGroupWithALongName></Switches>");
    kxtest::WriteFileBytes(host / "config" / "LogType.xml",
                           "<T><Item ID=\"1\" Value=\"no\"/><Item ID=\"07\" Value=\"a crash of the suite\"/></T>");
    std::string features;
    for (const char* name : {"Fingerprint", "TriFingerSnipper", "WifiGpio", "WifiBiosRepair", "BtGpio", "CpuPower",
                             "KeyboardLight", "EnergyStar", "SQGData", "TimeBack", "VrAssisant", "LiveBroadcast",
                             "OfficeCheck", "IntegratedGraphics", "NpsPop"}) {
        features += std::string("<Feature name=\"") + name + "\" present=\"true\"/>";
    }
    profiletest::WriteProfile("<Product name=\"Product of the suite\" index=\"4\"/><Features>" + features +
                              "</Features><PromoteParams><PromoteParam key=\"default\" "
                              "productName=\"Name for the sharing service\"/></PromoteParams>"
                              "<Plugins><Plugin name=\"SynergyPYP\"/></Plugins>"
                              "<AgreementService inUse=\"true\"/>");
}

Machine::~Machine() {
    std::error_code ignored;
    std::filesystem::remove_all(kOemRoot, ignored);
    std::filesystem::remove(kxtest::OwnFolder() / kVictim, ignored);
    std::filesystem::remove_all(kxtest::OwnFolder() / "config", ignored);
}

void Machine::StoreUserText(const std::wstring& path, const std::wstring& name, const std::wstring& text) const {
    StoreRegistryText(HKEY_USERS, OfUser(path), name, text);
}

void Machine::Arrange() {
    ArrangeScaling();
    StoreUserText(kService, L"WndAgreeCache", L"0");
    StoreUserText(kService, L"UserLoginFlag", L"1");
    StoreUserText(kService, L"ServerUpdatedFlag", L"1");
    StoreUserText(kService, L"AgreeFlag", L"1");
    StoreVersions(L"WithAccountLogin\\TMSVersion");
    StoreVersions(L"WithoutAccountLogin\\TMSVersion");
    StoreUserText(kService + L"\\WithAccountLogin\\LocalVersion", L"BranchId", L"a branch with a long name");
    StoreVersions(L"KXRecordWithLogin");
    StoreUserText(kService + L"\\KXRecordWithLogin", L"BranchId", L"a branch with a long name");
    StoreUserText(kService + L"\\KXRecordWithoutLogin\\UserAgreement", L"Version", L"version 5 of the agreement");
    StoreUserText(kService + L"\\KXRecordWithoutLogin\\PrivacyStatement", L"Version", L"version 5 of the statement");
    StoreUserText(kGuide, L"Protocol", L"protocol with a long text");
    StoreUserText(kGuide, L"ProtocolVer", L"0000000000000000009");
    StoreUserText(kGuide, L"Capture", L"capture of the whole screen");
    StoreRegistryNumber(HKEY_USERS, OfUser(kSetting), L"AutoRepair", 1);
    StoreRegistryNumber(HKEY_USERS, OfUser(kUserSettings), L"A value with a long name", 42);
    StoreUserText(kInternational, L"LocaleName", L"sr-Cyrl-RS-and-more");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kPowerManager, L"PowerManagerIntellMode", L"a mode with a long name");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kGuide, L"LogSwitch", L"a switch with a long name");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kGuide, L"Fireware", L"a firmware with a long name");
    StoreRegistryNumber(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled", 2);
    StoreRegistryNumber(HKEY_LOCAL_MACHINE, kSessionPower, L"A value with a long name", 42);
    StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"ProductName", L"Windows 10 Professional");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"BuildBranch", L"a branch with a long name");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"BuildLabEx", L"19041000000000000000.1.amd64fre");
    StoreRegistryNumber(HKEY_LOCAL_MACHINE, kWindows, L"UBR", 1237);
    StoreRegistryText(HKEY_LOCAL_MACHINE, kProduct, L"Version", L" DDX-version C-01234567890_2021 ");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kBios, L"BIOSVersion", L"1.23456789012345678.45");
    StoreRegistryText(HKEY_LOCAL_MACHINE, kBios, L"BIOSSerialNumber", L"SN-0123456789-ABCDEF");
}

void Machine::ArrangeScaling() {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"HARDWARE");
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE");
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SYSTEM");
    RegDeleteTreeW(HKEY_USERS, m_sid.c_str());
    display.requests = 0;
    display.step = 0;
    StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"ReleaseId", L"a release with a long name");
    StoreRegistryNumber(HKEY_USERS, OfUser(kMonitors) + L"\\A monitor with a long name", L"DpiValue", 3);
}

void Machine::ExpireClause() const {
    StoreRegistryText(HKEY_LOCAL_MACHINE, kExpiry, m_sid, L"1");
}

void Machine::RecordScaling(const std::wstring& release, DWORD dpi, DWORD step) const {
    StoreUserText(kDpiRecord, L"LastestOSVersion", release);
    StoreRegistryNumber(HKEY_USERS, OfUser(kDpiRecord), L"LastestDPIValue", dpi);
    StoreRegistryNumber(HKEY_USERS, OfUser(kDpiRecord), L"LastestDPIIndex", step);
}

void Machine::StoreVersions(const std::wstring& below) const {
    StoreUserText(kService + L"\\" + below, L"133", L"version 5 of the agreement");
    StoreUserText(kService + L"\\" + below, L"10021", L"version 5 of the statement");
}

} // namespace integrationtest
