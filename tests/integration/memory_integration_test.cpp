// Every exported function of SystemEnvironment and AgreementSign without memory: each allocation that it reaches fails,
// in this library and in the real Util.dll, once and from there on.
#include "agreementsign.h"
#include "systemenvironment.h"

#include "firmwaretable.h"
#include "memorymatrix.h"
#include "productprofile.h"
#include "support/childprocess.h"
#include "support/hostfolder.h"
#include "support/privateaccess.h"
#include "support/scratchregistry.h"

#include "sdk/util/file.h"
#include "sdk/util/process.h"
#include "sdk/util/xml.h"

#include <cxxabi.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

struct JudgeWhenLoginTag {
    using Type = int (*)(const std::wstring&, const std::string&, const std::string&) noexcept;
};
struct JudgeBranchIdTag {
    using Type = int (*)(const std::wstring&) noexcept;
};
struct RecordeAgreeFlagTag {
    using Type = void (*)() noexcept;
};
struct DeleteAgreeFlagTag {
    using Type = void (*)() noexcept;
};

} // namespace

template struct kxtest::Expose<JudgeWhenLoginTag, &AgreementSign::JudgeWhenLogin>;
template struct kxtest::Expose<JudgeBranchIdTag, &AgreementSign::JudgeBranchId>;
template struct kxtest::Expose<RecordeAgreeFlagTag, &AgreementSign::RecordeAgreeFlag>;
template struct kxtest::Expose<DeleteAgreeFlagTag, &AgreementSign::DeleteAgreeFlag>;

namespace {

using firmwaretest::Bytes;
using firmwaretest::Structure;
using kxtest::Failing;
using kxtest::kPrivate;
using kxtest::StoreRegistryNumber;
using kxtest::StoreRegistryText;
using memorymatrix::Function;
using memorymatrix::Judged;
using memorymatrix::Outcome;

// Every text is longer than what a string holds without asking for memory, where its source allows that.
const std::wstring kService = L"Software\\Calvora\\AgreementService";
const std::wstring kGuide = L"SOFTWARE\\Calvora\\KXLoginGuide";
const std::wstring kSetting = L"SOFTWARE\\Calvora\\setting";
const std::wstring kExpiry = L"SOFTWARE\\Calvora\\setting\\expireLogin";
const std::wstring kPowerManager = L"Software\\Calvora\\ZLKPowerManager";
const std::wstring kCrashControl = L"SYSTEM\\CurrentControlSet\\Control\\CrashControl";
const std::wstring kSessionPower = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Power";
const std::wstring kWindows = L"Software\\Microsoft\\Windows NT\\CurrentVersion";
const std::wstring kBios = L"HARDWARE\\DESCRIPTION\\System\\BIOS";
const std::wstring kProduct = L"HARDWARE\\DESCRIPTION\\System\\Product";
const std::wstring kUserSettings = L"SOFTWARE\\Orvane\\Calvora\\setting";
const std::wstring kInternational = L"Control Panel\\International";
const std::wstring kMonitors = L"Control Panel\\Desktop\\PerMonitorSettings";
const std::wstring kDpiRecord = L"Software\\Calvora\\LastestSetting";

constexpr char kSerialNumber[] = "SN-0123456789-ABCDEF";
constexpr char kDefaultDeviceId[] = "21111111111111111111";
constexpr char kOemRoot[] = "c:\\recovery";
constexpr char kOemFile[] = "c:\\recovery\\OEM\\version.txt";
constexpr wchar_t kNoModesLine[] = L"calloc  display_modes fail:(SystemEnvironment::ApplyDpiSetting)\n";
constexpr wchar_t kNotAppliedLine[] =
    L"RestoreSystemDpi error: ApplyDpiSetting fail:8(SystemEnvironment::RestoreSystemDpi4Common)\n";
constexpr char kVictim[] = "a file of the suite that is long.bin";

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

std::string Utf16File(std::wstring_view text) {
    std::string bytes(text.size() * sizeof(wchar_t), '\0');
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return "\xff\xfe" + bytes;
}

/** A machine with one display, which takes every step and counts the requests. */
struct OneDisplay {
    int requests = 0;
    std::int32_t step = 0;

    kxtest::ImportHook<"USER32.dll", "GetDisplayConfigBufferSizes", decltype(GetDisplayConfigBufferSizes)> sizes{
        [](UINT32, UINT32* paths, UINT32* modes) -> LONG {
            *paths = 1;
            *modes = 1;
            return ERROR_SUCCESS;
        }};
    kxtest::ImportHook<"USER32.dll", "QueryDisplayConfig", decltype(QueryDisplayConfig)> query{
        [](auto...) -> LONG { return ERROR_SUCCESS; }};
    kxtest::ImportHook<"USER32.dll", "DisplayConfigSetDeviceInfo", decltype(DisplayConfigSetDeviceInfo)> set{
        [this](DISPLAYCONFIG_DEVICE_INFO_HEADER* header) -> LONG {
            ++requests;
            std::memcpy(&step, reinterpret_cast<const char*>(header) + sizeof *header, sizeof step);
            return ERROR_SUCCESS;
        }};
};

/** The machine that all functions ask: each arrangement makes it what it was, whatever a call has changed. */
class Machine {
public:
    Machine() : m_sid(KXPROCESS::GetCurrentUserSidstr()) {
        if (std::filesystem::exists(kOemRoot)) {
            throw std::runtime_error("the machine has an OEM folder of its own");
        }
        const std::filesystem::path host = kxtest::OwnFolder();
        kxtest::WriteFileBytes(host / kVictim, "bytes");
        const std::string digest = DE::GetFileSha256Hex((host / kVictim).string());
        kxtest::WriteFileBytes(
            host / "config" / "CheckFileIntergrity.xml",
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
    ~Machine() {
        std::error_code ignored;
        std::filesystem::remove_all(kOemRoot, ignored);
        std::filesystem::remove(kxtest::OwnFolder() / kVictim, ignored);
        std::filesystem::remove_all(kxtest::OwnFolder() / "config", ignored);
    }
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    std::wstring OfUser(const std::wstring& path) const { return m_sid + L"\\" + path; }
    void StoreUserText(const std::wstring& path, const std::wstring& name, const std::wstring& text) const {
        StoreRegistryText(HKEY_USERS, OfUser(path), name, text);
    }

    /** The whole registry; what calls have written is gone. */
    void Arrange() {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"HARDWARE");
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE");
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SYSTEM");
        RegDeleteTreeW(HKEY_USERS, m_sid.c_str());
        display.requests = 0;
        display.step = 0;
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
        StoreUserText(kService + L"\\KXRecordWithoutLogin\\PrivacyStatement", L"Version",
                      L"version 5 of the statement");
        StoreUserText(kGuide, L"Protocol", L"protocol with a long text");
        StoreUserText(kGuide, L"ProtocolVer", L"0000000000000000009");
        StoreUserText(kGuide, L"Capture", L"capture of the whole screen");
        StoreRegistryNumber(HKEY_USERS, OfUser(kSetting), L"AutoRepair", 1);
        StoreRegistryNumber(HKEY_USERS, OfUser(kUserSettings), L"A value with a long name", 42);
        StoreUserText(kInternational, L"LocaleName", L"sr-Cyrl-RS-and-more");
        StoreRegistryNumber(HKEY_USERS, OfUser(kMonitors) + L"\\A monitor with a long name", L"DpiValue", 3);
        StoreRegistryText(HKEY_LOCAL_MACHINE, kPowerManager, L"PowerManagerIntellMode", L"a mode with a long name");
        StoreRegistryText(HKEY_LOCAL_MACHINE, kGuide, L"LogSwitch", L"a switch with a long name");
        StoreRegistryText(HKEY_LOCAL_MACHINE, kGuide, L"Fireware", L"a firmware with a long name");
        StoreRegistryNumber(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled", 2);
        StoreRegistryNumber(HKEY_LOCAL_MACHINE, kSessionPower, L"A value with a long name", 42);
        StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"ProductName", L"Windows 10 Professional");
        StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"ReleaseId", L"a release with a long name");
        StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"BuildBranch", L"a branch with a long name");
        StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"BuildLabEx", L"19041000000000000000.1.amd64fre");
        StoreRegistryNumber(HKEY_LOCAL_MACHINE, kWindows, L"UBR", 1237);
        StoreRegistryText(HKEY_LOCAL_MACHINE, kProduct, L"Version", L" DDX-version C-01234567890_2021 ");
        StoreRegistryText(HKEY_LOCAL_MACHINE, kBios, L"BIOSVersion", L"1.23456789012345678.45");
        StoreRegistryText(HKEY_LOCAL_MACHINE, kBios, L"BIOSSerialNumber", L"SN-0123456789-ABCDEF");
    }

    /** The expiry mark of the user's clause. */
    void ExpireClause() const { StoreRegistryText(HKEY_LOCAL_MACHINE, kExpiry, m_sid, L"1"); }

    /** The display scaling that was recorded under @p release. */
    void RecordScaling(const std::wstring& release, DWORD dpi, DWORD step) const {
        StoreUserText(kDpiRecord, L"LastestOSVersion", release);
        StoreRegistryNumber(HKEY_USERS, OfUser(kDpiRecord), L"LastestDPIValue", dpi);
        StoreRegistryNumber(HKEY_USERS, OfUser(kDpiRecord), L"LastestDPIIndex", step);
    }

    OneDisplay display;

private:
    void StoreVersions(const std::wstring& below) const {
        StoreUserText(kService + L"\\" + below, L"133", L"version 5 of the agreement");
        StoreUserText(kService + L"\\" + below, L"10021", L"version 5 of the statement");
    }

    std::wstring m_sid;
    kxtest::MappedRoot m_machine{HKEY_LOCAL_MACHINE, L"machine"};
    kxtest::MappedRoot m_users{HKEY_USERS, L"users"};
    firmwaretest::MachineTable m_table{FirmwareTable()};
};

/** The functions that exported names stand for: what the loaded library's export table lists, without parameters. */
std::set<std::string> ExportedFunctions() {
    std::set<std::string> functions;
    const auto* base = reinterpret_cast<const char*>(kxtest::ProxyModule());
    const auto* headers =
        reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const auto* directory = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(
        base + headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress);
    const auto* names = reinterpret_cast<const DWORD*>(base + directory->AddressOfNames);
    for (DWORD index = 0; index < directory->NumberOfNames; ++index) {
        int status = -1;
        const std::unique_ptr<char, decltype(&std::free)> text(
            abi::__cxa_demangle(base + names[index], nullptr, nullptr, &status), &std::free);
        const std::string name = status == 0 ? text.get() : base + names[index];
        functions.insert(name.substr(0, name.find_first_of("([")));
    }
    return functions;
}

class MemoryMatrixTest : public testing::Test {
protected:
    /** A function that only reads. @param alsoArrange what the machine has besides */
    template <class Answer, class Call>
    void Reads(std::string name, Answer right, Answer failure, Call call, std::function<void()> alsoArrange = nullptr) {
        Add(std::move(name), Judged(std::move(right), std::move(failure), std::move(call)), std::move(alsoArrange),
            false);
    }

    /** A function that writes to the registry. */
    template <class Answer, class Call>
    void Writes(std::string name, Answer right, Answer failure, Call call,
                std::function<void()> alsoArrange = nullptr) {
        Add(std::move(name), Judged(std::move(right), std::move(failure), std::move(call)), std::move(alsoArrange),
            true);
    }

    /** A function without an answer that writes to the registry. */
    template <class Call>
    void Writes(std::string name, Call call, std::function<void()> alsoArrange = nullptr) {
        const auto judged = [call = std::move(call)] {
            call();
            return Outcome::Worked;
        };
        Add(std::move(name), judged, std::move(alsoArrange), true);
    }

    void RunAll() {
        memorymatrix::Count count;
        kxtest::MemoryFault memory({"ScreenRecordProxy.dll", "Util.dll"});
        for (const Function& function : m_functions) {
            memorymatrix::Run(function, memory, m_lines, count);
        }
        std::printf("%zu functions, %zu allocations, %zu attempts\n", count.functions, count.allocations,
                    count.attempts);
        RecordProperty("functions", static_cast<int>(count.functions));
        RecordProperty("allocations", static_cast<int>(count.allocations));
        RecordProperty("attempts", static_cast<int>(count.attempts));
    }

    Machine& Host() { return m_host; }
    const std::vector<Function>& Functions() const { return m_functions; }

private:
    void Add(std::string name, std::function<Outcome()> call, std::function<void()> alsoArrange, bool writes) {
        const auto arrange = [this, alsoArrange = std::move(alsoArrange)] {
            m_host.Arrange();
            if (alsoArrange) {
                alsoArrange();
            }
        };
        std::vector<std::wstring> lines;
        if (name.ends_with("ApplyDpiSetting") || name.find("RestoreSystemDpi") != std::string::npos) {
            lines = {kNoModesLine, kNotAppliedLine};
        }
        m_functions.push_back({std::move(name), arrange, writes, std::move(call), std::move(lines)});
    }

    Machine m_host;
    memorymatrix::FixedLines m_lines;
    std::vector<Function> m_functions;
};

class AllFunctionsTest : public MemoryMatrixTest {
protected:
    void AddAgreement();
    void AddSettings();
    void AddFeatures();
    void AddIdentity();
    void AddVersions();
    void AddTexts();
    void AddScaling();
    void AddRestoring();
};

void AllFunctionsTest::AddAgreement() {
    const auto withoutLogin = [this] { Host().StoreUserText(kService, L"UserLoginFlag", L"0"); };
    const std::wstring record = L"\\Software\\Calvora\\AgreementService\\KXRecordWithLogin";
    const std::string agreement = "version 5 of the agreement";
    const std::string privacy = "version 5 of the statement";
    Reads("AgreementSign::JudgeAgreementSign", -1, 0, [] { return AgreementSign::JudgeAgreementSign(); });
    Reads(
        "AgreementSign::JudgeAgreementSign", -1, 0, [] { return AgreementSign::JudgeAgreementSign(); }, withoutLogin);
    Reads("AgreementSign::JudgeAgreementSignLogin", -1, 0, [] { return AgreementSign::JudgeAgreementSignLogin(); });
    Reads("AgreementSign::JudgeAgreementSignWithoutLogin", -1, 0,
          [] { return AgreementSign::JudgeAgreementSignWithoutLogin(); });
    Reads(
        "AgreementSign::GetAgreeCache", true, false, [] { return AgreementSign::GetAgreeCache(); },
        [this] { Host().StoreUserText(kService, L"WndAgreeCache", L"1"); });
    Reads("AgreementSign::JudgeWhenLogin", -1, 0,
          [record, agreement, privacy] { return kPrivate<JudgeWhenLoginTag>(record, agreement, privacy); });
    Reads("AgreementSign::JudgeBranchId", -1, 1, [record] { return kPrivate<JudgeBranchIdTag>(record); });
    Writes("AgreementSign::SetAgreeCache", [] { AgreementSign::SetAgreeCache(true); });
    Writes(
        "AgreementSign::RecordeAgreeFlag", [] { kPrivate<RecordeAgreeFlagTag>(); },
        [this] { Host().StoreUserText(kService, L"AgreeFlag", L"0"); });
    Writes("AgreementSign::DeleteAgreeFlag", [] { kPrivate<DeleteAgreeFlagTag>(); });

    const std::string protocol = "protocol with a long text";
    Reads("SystemEnvironment::IsAgreeClause", protocol, std::string("0"),
          [] { return SystemEnvironment::IsAgreeClause(); });
    Writes(
        "SystemEnvironment::IsAgreeClause", std::string("0"), std::string("0"),
        [] { return SystemEnvironment::IsAgreeClause(); }, [this] { Host().ExpireClause(); });
    Reads("SystemEnvironment::GetLoginGuideProtocol", protocol, std::string("0"),
          [] { return SystemEnvironment::GetLoginGuideProtocol(); });
    Reads("SystemEnvironment::IsAutoRepairEnabled", true, false,
          [] { return SystemEnvironment::IsAutoRepairEnabled(); });
}

void AllFunctionsTest::AddSettings() {
    const std::wstring valueName = L"A value with a long name";
    Reads("SystemEnvironment::GetPowerManagerIntellMode", std::string("a mode with a long name"), std::string("1"),
          [] { return SystemEnvironment::GetPowerManagerIntellMode(); });
    Reads("SystemEnvironment::GetCaptureSwitch", std::wstring(L"capture of the whole screen"), std::wstring(L"0"),
          [] { return SystemEnvironment::GetCaptureSwitch(); });
    Reads("SystemEnvironment::IsKernelCrashDumpEnabled", true, false,
          [] { return SystemEnvironment::IsKernelCrashDumpEnabled(); });
    // The argument belongs to the caller, who makes it with memory.
    Reads("SystemEnvironment::GetSessionPowerValue", -1, -1,
          [] { return SystemEnvironment::GetSessionPowerValue({}); });
    Writes(
        "SystemEnvironment::FixSmallCrashDump", [] { SystemEnvironment::FixSmallCrashDump(); },
        [] { StoreRegistryNumber(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled", 3); });
    Reads("SystemEnvironment::GetLogSwitch", std::string("a switch with a long name"), std::string("0"),
          [] { return SystemEnvironment::GetLogSwitch(); });
    Writes("SystemEnvironment::SetLogSwitch", true, false, [] { return SystemEnvironment::SetLogSwitch(true); });
    Reads("SystemEnvironment::GetFirewareValue", std::string("a firmware with a long name"), std::string("0"),
          [] { return SystemEnvironment::GetFirewareValue(); });
    Reads("SystemEnvironment::GetSecondarySku", std::string("secondary sku of the chassis"), std::string(),
          [] { return SystemEnvironment::GetSecondarySku(); });
    Reads("SystemEnvironment::ReadValue", 42, -1, [valueName] { return SystemEnvironment::ReadValue(valueName); });
    Reads("SystemEnvironment::ReadValue", true, false, [valueName] {
        DWORD value = 0;
        return SystemEnvironment::ReadValue(valueName, &value, sizeof value) && value == 42;
    });
}

void AllFunctionsTest::AddFeatures() {
    using Environment = SystemEnvironment;
    struct Feature {
        const char* name;
        bool (*query)() noexcept;
    };
    constexpr Feature kFeatures[] = {
        {"SystemEnvironment::IsSupportFingerPrint", &Environment::IsSupportFingerPrint},
        {"SystemEnvironment::IsSupportTrifingerSnipper", &Environment::IsSupportTrifingerSnipper},
        {"SystemEnvironment::IsSupportWifiGpio", &Environment::IsSupportWifiGpio},
        {"SystemEnvironment::IsSupportWifiBiosRepair", &Environment::IsSupportWifiBiosRepair},
        {"SystemEnvironment::IsSupportBtGpio", &Environment::IsSupportBtGpio},
        {"SystemEnvironment::IsSupportCPUPower", &Environment::IsSupportCPUPower},
        {"SystemEnvironment::IsSupportKeyboardLight", &Environment::IsSupportKeyboardLight},
        {"SystemEnvironment::IsSupportEnergyStar", &Environment::IsSupportEnergyStar},
        {"SystemEnvironment::IsSupportSQGData", &Environment::IsSupportSQGData},
        {"SystemEnvironment::IsSupportTimeBack", &Environment::IsSupportTimeBack},
        {"SystemEnvironment::IsSupportVrAssisant", &Environment::IsSupportVrAssisant},
        {"SystemEnvironment::IsSupportLiveBroadcast", &Environment::IsSupportLiveBroadcast},
        {"SystemEnvironment::IsSupportOfficeCheck", &Environment::IsSupportOfficeCheck},
        {"SystemEnvironment::IsSupportIntegratedGraphics", &Environment::IsSupportIntegratedGraphics},
        {"SystemEnvironment::IsSupportNpsPop", &Environment::IsSupportNpsPop},
    };
    for (const Feature& feature : kFeatures) {
        Reads(feature.name, true, false, feature.query);
    }
    const std::string group = "AGroupWithALongName";
    const std::string function = "AFunctionWithALongName";
    Reads("SystemEnvironment::IsSupportDeviceFunc", true, false,
          [group, function] { return SystemEnvironment::IsSupportDeviceFunc(group, function); });
    KxXMLDocument switches;
    switches.LoadFile((kxtest::OwnFolder() / "config" / "DeviceFuncSwitchConf.xml").string());
    const KxXmlElement element = switches.RootElement().FirstNode(group).FirstNode(function);
    Reads("IsProductInSupportList", true, false, [element] { return IsProductInSupportList(element); });

    const std::string victim = kVictim;
    Reads("SystemEnvironment::CompareFileIntergrity", true, false,
          [victim] { return SystemEnvironment::CompareFileIntergrity(victim); });
    const std::string folder = kxtest::OwnFolder().string();
    Reads("CheckFileAndXmlExist", true, false, [victim, folder] {
        try {
            std::string filePath = folder;
            std::string xmlPath = folder;
            return CheckFileAndXmlExist(victim, filePath, xmlPath);
        } catch (const std::bad_alloc&) { // the caller's own texts
            return false;
        }
    });
}

void AllFunctionsTest::AddIdentity() {
    Reads("SystemEnvironment::GetDeviceTypeEx", std::string("Product of the suite"), std::string(),
          [] { return SystemEnvironment::GetDeviceTypeEx(); });
    Reads("SystemEnvironment::GetProductNameForKxshare", std::wstring(L"Name for the sharing service"), std::wstring(),
          [] { return SystemEnvironment::GetProductNameForKxshare(); });
    Reads("SystemEnvironment::GetProductSeries", std::string("SeriesD"), std::string("other"),
          [] { return SystemEnvironment::GetProductSeries(); });
    Reads("SystemEnvironment::GetSystemSkuCode", std::string("SKU with a C and more"), std::string(),
          [] { return SystemEnvironment::GetSystemSkuCode(); });
    Reads("SystemEnvironment::GetOemProductCode", 1, 0, [] {
        std::uint32_t code = 7;
        const int found = SystemEnvironment::GetOemProductCode(&code);
        return code == (found == 1 ? 0x00420041u : 7u) ? found : -1;
    });
    Reads("SystemEnvironment::GetOemProductCodeString", std::wstring(L"AB"), std::wstring(),
          [] { return SystemEnvironment::GetOemProductCodeString(); });
    // Time and random letters differ from call to call: what stands around them is compared.
    const std::string before = "PC_a text that stands in front_DDX-version C-01234567890_1.23456789012345678_"
                               "SN-0123456789-ABCDEF_";
    const std::string after = "_a text that stands at the end-a crash of the suite_";
    const auto package = [before, after](std::string (*query)(const std::string&, int, const std::string&) noexcept,
                                         std::size_t endLength) {
        return [=, trailing = std::string("a text that stands at the end"),
                leading = std::string("a text that stands in front")] {
            const std::string name = query(trailing, 7, leading);
            if (name.empty()) {
                return 0;
            }
            constexpr std::size_t kTimeLength = 14;
            return name.starts_with(before) && name.find(after) == before.size() + kTimeLength &&
                           name.size() == before.size() + kTimeLength + after.size() + endLength
                       ? 1
                       : -1;
        };
    };
    Reads("SystemEnvironment::GetLogPackageName", 1, 0, package(&SystemEnvironment::GetLogPackageName, 5));
    Reads("SystemEnvironment::GetLogPackageZipName", 1, 0, package(&SystemEnvironment::GetLogPackageZipName, 9));
    SYSTEM_POWER_STATUS power{};
    const bool isOnline = GetSystemPowerStatus(&power) != FALSE && power.ACLineStatus == 1;
    Reads("SystemEnvironment::IsOnAcPower", isOnline, isOnline, [] { return SystemEnvironment::IsOnAcPower(); });
    Reads("SystemEnvironment::IsNotIa64System", true, true, [] { return SystemEnvironment::IsNotIa64System(); });

    // Found before, so that it is known; the first question has a test of its own.
    Reads("SystemEnvironment::GetDeviceId", std::string(kSerialNumber), std::string(kDefaultDeviceId),
          [] { return SystemEnvironment::GetDeviceId(); });
    Reads("SystemEnvironment::GetBIOSVersion", std::string("1.23456789012345678"), std::string(),
          [] { return SystemEnvironment::GetBIOSVersion(); });
    Reads("SystemEnvironment::GetBIOSSysVersion", 1, 0, [] {
        std::string version;
        const bool found = SystemEnvironment::GetBIOSSysVersion(version);
        const char* const expected = found ? "System version 1.23.45" : "";
        return version == expected ? static_cast<int>(found) : -1;
    });
}

void AllFunctionsTest::AddVersions() {
    Reads("SystemEnvironment::GetOSVersion", std::string("Windows 10 Professional"), std::string(),
          [] { return SystemEnvironment::GetOSVersion(); });
    Reads("SystemEnvironment::GetOSReleaseId", std::string("a release with a long name"), std::string(),
          [] { return SystemEnvironment::GetOSReleaseId(); });
    Reads("SystemEnvironment::GetOSBuildBranch", std::string("a branch with a long name"), std::string(),
          [] { return SystemEnvironment::GetOSBuildBranch(); });
    Reads("SystemEnvironment::GetOSBuildVersion", std::string("19041000000000000000.1237"), std::string(),
          [] { return SystemEnvironment::GetOSBuildVersion(); });
    Reads("SystemEnvironment::GetVersionFromRegistry", std::string("DDX-version C-01234567890"), std::string(),
          [] { return SystemEnvironment::GetVersionFromRegistry(); });
    Reads("SystemEnvironment::OSVersion", SystemEnvironment::OSVersion(), std::string(),
          [] { return SystemEnvironment::OSVersion(); });

    Reads("SystemEnvironment::GetOEMVersion", std::string("DDX-version C-01234567890"), std::string(),
          [] { return SystemEnvironment::GetOEMVersion(); });
    const auto wideFile = [] { kxtest::WriteFileBytes(kOemFile, Utf16File(L"V1.05 of the image in the file_2021")); };
    const auto narrowFile = [] { kxtest::WriteFileBytes(kOemFile, "V1.06 of the image in the file_2021"); };
    Writes(
        "SystemEnvironment::GetOEMVersion", std::string("V1.05 of the image in the file"), std::string(),
        [] { return SystemEnvironment::GetOEMVersion(); }, wideFile);
    Reads("SystemEnvironment::IsFileUnicode", true, false, [] { return SystemEnvironment::IsFileUnicode(); });
    Reads("SystemEnvironment::GetUnicodeString", std::wstring(L"V1.05 of the image in the file_2021"), std::wstring(),
          [] { return SystemEnvironment::GetUnicodeString(); });
    Writes(
        "SystemEnvironment::GetOEMVersion", std::string("V1.06 of the image in the file"), std::string(),
        [] { return SystemEnvironment::GetOEMVersion(); }, narrowFile);
}

void AllFunctionsTest::AddTexts() {
    Reads("SystemEnvironment::GetUserLocaleName", std::string("sr-Cyrl-RS-and-more"), std::string("en-US"),
          [] { return SystemEnvironment::GetUserLocaleName(); });
    Reads("SystemEnvironment::GetUserLocaleNameCN", std::string("sr-Cyrl-RS-and-more"), std::string("zh-CN"),
          [] { return SystemEnvironment::GetUserLocaleNameCN(); });
    Reads("SystemEnvironment::GetStringNameById", std::string("a crash of the suite"), std::string("null"),
          [] { return SystemEnvironment::GetStringNameById(7); });
    Reads("ParseBIOSVersionOfPadLeft", std::string("01.2345678901234567890"), std::string(), [] {
        char version[] = "1.2345678901234567890.4";
        return ParseBIOSVersionOfPadLeft(version);
    });
    Reads("TrimOemVersion", std::string("version 1.05 of the image"), std::string(),
          [] { return TrimOemVersion("  version 1.05 of the image\r\n_2021 "); });
    // What is reported is whole or not sent, whatever it is.
    Reads("TrimOemVersion", std::string(), std::string(), [] { return TrimOemVersion(nullptr); });
    Reads(
        "SystemEnvironment::GetOSVersion", std::string(), std::string(),
        [] { return SystemEnvironment::GetOSVersion(); },
        [] { StoreRegistryText(HKEY_LOCAL_MACHINE, kWindows, L"ProductName", std::wstring(200, L'x')); });
}

void AllFunctionsTest::AddScaling() {
    Reads("SystemEnvironment::ApplyDpiSetting", 1, 0, [] { return SystemEnvironment::ApplyDpiSetting(3); });
    Reads("SystemEnvironment::GetLastestSystemDpi", true, false, [] {
        int systemDpi = 0;
        int step = 0;
        return SystemEnvironment::GetLastestSystemDpi(&systemDpi, &step) && systemDpi == 96 && step == 3;
    });
    Writes("SystemEnvironment::SaveLastestSystemDpi", true, false,
           [] { return SystemEnvironment::SaveLastestSystemDpi(120, 1); });
}

void AllFunctionsTest::AddRestoring() {
    const auto recorded = [this](const wchar_t* release, DWORD dpiThen) {
        return [this, release, dpiThen] { Host().RecordScaling(release, dpiThen, 2); };
    };
    const wchar_t* const kSameRelease = L"a release with a long name";
    const wchar_t* const kOtherRelease = L"another release with a long name";
    // The answer and the display: nothing is rescaled but by a call that works.
    const auto restore = [this](int requests, std::int32_t step) {
        return [this, requests, step] {
            const bool answer = SystemEnvironment::RestoreSystemDpi();
            const OneDisplay& display = Host().display;
            if (display.requests == 0 && !answer) {
                return 0;
            }
            return display.requests == requests && display.step == step && answer ? 1 : -1;
        };
    };
    Writes("SystemEnvironment::RestoreSystemDpi", 1, 0, restore(0, 0));
    Writes("SystemEnvironment::RestoreSystemDpi", 1, 0, restore(0, 0), recorded(kSameRelease, 144));
    Writes("SystemEnvironment::RestoreSystemDpi", 1, 0, restore(1, 0), recorded(kOtherRelease, 144));
    Writes(
        "SystemEnvironment::RestoreSystemDpi4Common", 1, 0,
        [this] {
            const bool answer = SystemEnvironment::RestoreSystemDpi4Common(-1);
            const int requests = Host().display.requests;
            return answer == (requests == 1) ? static_cast<int>(answer) : -1;
        },
        recorded(kOtherRelease, 144));
}

TEST_F(AllFunctionsTest, AgreementWithoutMemory_GiveFailureValuesAndNothingElse) {
    AddAgreement();
    RunAll();
}

TEST_F(AllFunctionsTest, SettingsWithoutMemory_GiveFailureValuesAndNothingElse) {
    AddSettings();
    RunAll();
}

TEST_F(AllFunctionsTest, FeaturesWithoutMemory_GiveFailureValuesAndNothingElse) {
    AddFeatures();
    RunAll();
}

TEST_F(AllFunctionsTest, IdentityWithoutMemory_GiveFailureValuesAndNothingElse) {
    AddIdentity();
    RunAll();
}

TEST_F(AllFunctionsTest, VersionsWithoutMemory_GiveFailureValuesAndNothingElse) {
    AddVersions();
    RunAll();
}

TEST_F(AllFunctionsTest, TextsWithoutMemory_GiveFailureValuesAndNothingElse) {
    AddTexts();
    RunAll();
}

TEST_F(AllFunctionsTest, ScalingWithoutMemory_GiveFailureValuesAndNothingElse) {
    AddScaling();
    RunAll();
}

TEST_F(AllFunctionsTest, RestoringWithoutMemory_GiveFailureValuesAndNothingElse) {
    AddRestoring();
    RunAll();
}

TEST_F(AllFunctionsTest, RowsOfTheMatrix_AreAllThatIsExported) {
    AddAgreement();
    AddSettings();
    AddFeatures();
    AddIdentity();
    AddVersions();
    AddTexts();
    AddScaling();
    AddRestoring();
    std::set<std::string> rows{
        "AgreementSign::operator=", // nothing to copy
        "_ZTI13AgreementSign",
    };
    for (const Function& function : Functions()) {
        rows.insert(function.name);
    }
    std::set<std::string> exported = ExportedFunctions();
    std::erase_if(exported, [](const std::string& name) {
        return name.starts_with("KxScreenRecord::") || name.starts_with("ScreenRecordProxy"); // has tests of its own
    });
    EXPECT_THAT(exported, testing::IsSubsetOf(rows));
    EXPECT_THAT(exported, testing::Contains("SystemEnvironment::GetDeviceId"));
}

// --- the first question for the device's identifier, whose answer the process keeps

/** Asks with failing allocations until the number is known; prints what is neither the number nor the default. */
void AskForTheDeviceId(Failing (*failing)(std::size_t)) {
    // Each failed call uses the default that is kept ready. The next call first asks for memory for another.
    constexpr std::size_t kAllocationsOfADefault = 2;
    Machine machine;
    machine.Arrange();
    const memorymatrix::Registry before = memorymatrix::ReadRegistry();
    memorymatrix::FixedLines lines;
    kxtest::MemoryFault memory({"ScreenRecordProxy.dll", "Util.dll"});
    bool isKnown = false;
    for (std::size_t nth = 1; !isKnown; nth += nth == 1 ? kAllocationsOfADefault : 1) {
        bool isDefault = false;
        memory.Run(failing(nth), [&] {
            const std::string id = SystemEnvironment::GetDeviceId();
            isKnown = id == kSerialNumber;
            isDefault = id == kDefaultDeviceId;
        });
        if (!isKnown && !isDefault) {
            std::printf("allocation %zu: another answer\n", nth);
            return;
        }
    }
    std::printf("%s", memorymatrix::ReadRegistry() == before ? "the number" : "the registry has changed");
}

const kxtest::ChildScenario kRecordedOnce("recorded-once", [] { AskForTheDeviceId(&Failing::Once); });
const kxtest::ChildScenario kRecordedFrom("recorded-from", [] { AskForTheDeviceId(&Failing::From); });

TEST(DeviceIdWithoutMemory, RecordedNumber_DefaultUntilThereIsMemory) {
    for (const char* const scenario : {"recorded-once", "recorded-from"}) {
        const kxtest::ChildResult result = kxtest::RunChild(scenario);
        EXPECT_EQ(result.exitCode, 0u) << scenario;
        EXPECT_EQ(result.output, "the number") << scenario;
    }
}

} // namespace
