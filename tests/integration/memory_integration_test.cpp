// Every exported function of SystemEnvironment and AgreementSign without memory: each allocation that it reaches fails,
// in this library and in the real Util.dll, once and from there on.
#include "agreementsign.h"
#include "systemenvironment.h"

#include "memorymachine.h"
#include "memorymatrix.h"
#include "registrykeys.h"
#include "support/agreementprivate.h"
#include "support/hostfolder.h"
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

namespace integrationtest {

namespace {

using kxtest::StoreRegistryNumber;
using kxtest::StoreRegistryText;
using memorymatrix::Function;
using memorymatrix::Judged;
using memorymatrix::Outcome;

constexpr wchar_t kNoModesLine[] = L"calloc  display_modes fail:(SystemEnvironment::ApplyDpiSetting)\n";
constexpr wchar_t kNotAppliedLine[] =
    L"RestoreSystemDpi error: ApplyDpiSetting fail:8(SystemEnvironment::RestoreSystemDpi4Common)\n";

std::string Utf16File(std::wstring_view text) {
    std::string bytes(text.size() * sizeof(wchar_t), '\0');
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return "\xff\xfe" + bytes;
}

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
        Add(std::move(name), Judged(std::move(right), std::move(failure), std::move(call)),
            WholeMachine(std::move(alsoArrange)), false);
    }

    /** A function that writes to the registry. */
    template <class Answer, class Call>
    void Writes(std::string name, Answer right, Answer failure, Call call,
                std::function<void()> alsoArrange = nullptr) {
        Add(std::move(name), Judged(std::move(right), std::move(failure), std::move(call)),
            WholeMachine(std::move(alsoArrange)), true);
    }

    /** A function without an answer that writes to the registry. */
    template <class Call>
    void Writes(std::string name, Call call, std::function<void()> alsoArrange = nullptr) {
        const auto judged = [call = std::move(call)] {
            call();
            return Outcome::Worked;
        };
        Add(std::move(name), judged, WholeMachine(std::move(alsoArrange)), true);
    }

    /** A function that may rescale the display; its many attempts ask for nothing but the scaling. */
    template <class Call>
    void Restores(std::string name, Call call, std::function<void()> alsoArrange) {
        const auto arrange = [this, alsoArrange = std::move(alsoArrange)] {
            m_host.ArrangeScaling();
            alsoArrange();
        };
        Add(std::move(name), Judged(1, 0, std::move(call)), arrange, true);
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
    std::function<void()> WholeMachine(std::function<void()> alsoArrange) {
        return [this, alsoArrange = std::move(alsoArrange)] {
            m_host.Arrange();
            if (alsoArrange) {
                alsoArrange();
            }
        };
    }

    void Add(std::string name, std::function<Outcome()> call, std::function<void()> arrange, bool writes) {
        std::vector<std::wstring> lines;
        if (name.ends_with("ApplyDpiSetting") || name.find("RestoreSystemDpi") != std::string::npos) {
            lines = {kNoModesLine, kNotAppliedLine};
        }
        m_functions.push_back({std::move(name), std::move(arrange), writes, std::move(call), std::move(lines)});
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
          [record, agreement, privacy] { return agreementprivate::JudgeWhenLogin(record, agreement, privacy); });
    Reads("AgreementSign::JudgeBranchId", -1, 1, [record] { return agreementprivate::JudgeBranchId(record); });
    Writes("AgreementSign::SetAgreeCache", [] { AgreementSign::SetAgreeCache(true); });
    Writes(
        "AgreementSign::RecordeAgreeFlag", [] { agreementprivate::RecordeAgreeFlag(); },
        [this] { Host().StoreUserText(kService, L"AgreeFlag", L"0"); });
    Writes("AgreementSign::DeleteAgreeFlag", [] { agreementprivate::DeleteAgreeFlag(); });

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
    Restores("SystemEnvironment::RestoreSystemDpi", restore(0, 0), [] {});
    Restores("SystemEnvironment::RestoreSystemDpi", restore(0, 0), recorded(kSameRelease, 144));
    Restores("SystemEnvironment::RestoreSystemDpi", restore(1, 0), recorded(kOtherRelease, 144));
    Restores(
        "SystemEnvironment::RestoreSystemDpi4Common",
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

} // namespace

} // namespace integrationtest
