// Every query that the library offers, with the form in which it answers. What writes by purpose (a switch, a dump
// setting, the display scaling) is no query and is not here.
#include "host/infotable.h"

#include "agreementsign.h"
#include "common/hex.h"
#include "common/win/utf8.h"
#include "host/folders.h"
#include "systemenvironment.h"

#include "sdk/util/text.h"
#include "sdk/util/xml.h"

#include <windows.h>

#include <array>
#include <cwchar>
#include <utility>

namespace kxrecord {

namespace {

constexpr wchar_t kAgreements[] = L"agreements";
constexpr wchar_t kSettings[] = L"settings";
constexpr wchar_t kWindows[] = L"Windows";
constexpr wchar_t kFirmware[] = L"firmware";
constexpr wchar_t kProduct[] = L"product";
constexpr wchar_t kFeatures[] = L"features";
constexpr wchar_t kFiles[] = L"files";

constexpr wchar_t kSwitchFile[] = L"\\config\\DeviceFuncSwitchConf.xml";
constexpr std::size_t kSettingBytes = 1024; ///< a longer setting counts as missing
constexpr int kPercentDpi = 96;             ///< dots per inch of a scaling of 100 %

using Environment = SystemEnvironment;
using Text = std::wstring;

Answer Truth(bool value) {
    return {value, {}};
}

Answer Number(std::int64_t value, Text meaning = {}) {
    return {value, std::move(meaning)};
}

Answer NumberOrMissing(int value) {
    return Number(value, value == -1 ? L"not there, or not readable" : L"");
}

Answer Wide(Text text) {
    return {std::move(text), {}};
}

Answer Utf8(const std::string& text) {
    return Wide(kx::WideFromUtf8(text));
}

Answer Ansi(const std::string& text) {
    return Wide(DE::ANSIToUnicode(text));
}

Answer Judgement(int result) {
    switch (result) {
    case AgreementSign::kSigned:
        return Number(result, L"accepted");
    case AgreementSign::kNoRecord:
        return Number(result, L"no record of acceptance");
    case AgreementSign::kMustSignAgain:
        return Number(result, L"must be accepted again");
    case AgreementSign::kNotApplicable:
        return Number(result, L"agreement service not in use");
    default:
        return Number(result);
    }
}

Answer PaddedFirmwareVersion() {
    std::string version = Environment::GetBIOSVersion();
    return Ansi(ParseBIOSVersionOfPadLeft(version.data()));
}

Answer SystemVersion() {
    std::string version;
    Environment::GetBIOSSysVersion(version);
    return Ansi(version);
}

Answer ProductCode() {
    std::uint32_t code = 0;
    return Environment::GetOemProductCode(&code) == 1 ? Number(code) : Answer{};
}

Answer SystemDpi() {
    int systemDpi = 0;
    int step = 0;
    Environment::GetLastestSystemDpi(&systemDpi, &step);
    return Number(systemDpi, std::to_wstring(systemDpi * 100 / kPercentDpi) + L" %");
}

Answer ScalingStep() {
    int systemDpi = 0;
    int step = 0;
    return Environment::GetLastestSystemDpi(&systemDpi, &step) ? Number(step) : Answer{};
}

// The stored bytes in hexadecimal. How many were stored is not told, so that zeros at the end are left out.
Answer SettingBytes(const Text& name) {
    std::array<unsigned char, kSettingBytes> bytes = {};
    if (!Environment::ReadValue(name, bytes.data(), static_cast<int>(bytes.size()))) {
        return {};
    }
    std::size_t size = bytes.size();
    while (size > 1 && bytes[size - 1] == 0) {
        --size;
    }
    Text digits;
    for (std::size_t i = 0; i < size; ++i) {
        kx::AppendHex(digits, bytes[i]);
    }
    return Wide(digits);
}

struct SwitchName {
    std::string group;
    std::string function;
};

SwitchName SwitchNameOf(const Text& text) {
    const std::size_t slash = text.find(L'/');
    if (slash == Text::npos) {
        return {kx::Utf8FromWide(text), {}};
    }
    return {kx::Utf8FromWide(text.substr(0, slash)), kx::Utf8FromWide(text.substr(slash + 1))};
}

Answer DeviceFunction(const Text& text) {
    const SwitchName name = SwitchNameOf(text);
    return Truth(Environment::IsSupportDeviceFunc(name.group, name.function));
}

Answer SupportList(const Text& text) {
    const SwitchName name = SwitchNameOf(text);
    KxXMLDocument switches;
    switches.LoadFile(DE::UnicodeToANSI(HostFolder() + kSwitchFile));
    const KxXmlElement element = switches.RootElement().FirstNode(name.group).FirstNode(name.function);
    return element.IsElementNull() ? Answer{} : Truth(IsProductInSupportList(element));
}

int LogTypeOf(const Text& text) {
    return static_cast<int>(std::wcstol(text.c_str(), nullptr, 10));
}

Answer FileAndManifest(const Text& file) {
    std::string filePath = DE::UnicodeToANSI(HostFolder());
    std::string manifestPath = filePath;
    return Truth(CheckFileAndXmlExist(DE::UnicodeToANSI(file), filePath, manifestPath));
}

// clang-format off
constexpr Query kQueries[] = {
    {kAgreements, L"JudgeAgreementSign", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Judgement(AgreementSign::JudgeAgreementSign()); }},
    {kAgreements, L"JudgeAgreementSignLogin", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Judgement(AgreementSign::JudgeAgreementSignLogin()); }},
    {kAgreements, L"JudgeAgreementSignWithoutLogin", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Judgement(AgreementSign::JudgeAgreementSignWithoutLogin()); }},
    {kAgreements, L"GetAgreeCache", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(AgreementSign::GetAgreeCache()); }},
    {kAgreements, L"GetLoginGuideProtocol", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Utf8(Environment::GetLoginGuideProtocol()); }},
    {kAgreements, L"IsAgreeClause", Effect::MayWrite, Argument::None, // takes an expired clause back
     [](const Text&) { return Ansi(Environment::IsAgreeClause()); }},

    {kSettings, L"GetUserLocaleName", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Utf8(Environment::GetUserLocaleName()); }},
    {kSettings, L"GetUserLocaleNameCN", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Utf8(Environment::GetUserLocaleNameCN()); }},
    {kSettings, L"GetCaptureSwitch", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Wide(Environment::GetCaptureSwitch()); }},
    {kSettings, L"GetLogSwitch", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Utf8(Environment::GetLogSwitch()); }},
    {kSettings, L"GetFirewareValue", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Utf8(Environment::GetFirewareValue()); }},
    {kSettings, L"GetPowerManagerIntellMode", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Utf8(Environment::GetPowerManagerIntellMode()); }},
    {kSettings, L"GetSessionPowerValue", Effect::OnlyReads, Argument::PowerValue,
     [](const Text& name) { return NumberOrMissing(Environment::GetSessionPowerValue(name)); }},
    {kSettings, L"IsKernelCrashDumpEnabled", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsKernelCrashDumpEnabled()); }},
    {kSettings, L"IsAutoRepairEnabled", Effect::MayWrite, Argument::None, // asks IsAgreeClause
     [](const Text&) { return Truth(Environment::IsAutoRepairEnabled()); }},
    {kSettings, L"ReadValue", Effect::OnlyReads, Argument::Setting,
     [](const Text& name) { return NumberOrMissing(Environment::ReadValue(name)); }},
    {kSettings, L"ReadValue as bytes", Effect::OnlyReads, Argument::Setting, SettingBytes},

    {kWindows, L"GetOSVersion", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Ansi(Environment::GetOSVersion()); }},
    {kWindows, L"GetOSReleaseId", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Ansi(Environment::GetOSReleaseId()); }},
    {kWindows, L"GetOSBuildBranch", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Ansi(Environment::GetOSBuildBranch()); }},
    {kWindows, L"GetOSBuildVersion", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Ansi(Environment::GetOSBuildVersion()); }},
    {kWindows, L"OSVersion", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Ansi(Environment::OSVersion()); }},
    {kWindows, L"IsNotIa64System", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsNotIa64System()); }},
    {kWindows, L"IsOnAcPower", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsOnAcPower()); }},

    {kFirmware, L"GetBIOSVersion", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Ansi(Environment::GetBIOSVersion()); }},
    {kFirmware, L"ParseBIOSVersionOfPadLeft", Effect::OnlyReads, Argument::None,
     [](const Text&) { return PaddedFirmwareVersion(); }},
    {kFirmware, L"GetBIOSSysVersion", Effect::OnlyReads, Argument::None,
     [](const Text&) { return SystemVersion(); }},
    {kFirmware, L"GetSecondarySku", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Ansi(Environment::GetSecondarySku()); }},
    {kFirmware, L"GetOemProductCode", Effect::OnlyReads, Argument::None,
     [](const Text&) { return ProductCode(); }},
    {kFirmware, L"GetOemProductCodeString", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Wide(Environment::GetOemProductCodeString()); }},
    {kFirmware, L"GetVersionFromRegistry", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Ansi(Environment::GetVersionFromRegistry()); }},
    {kFirmware, L"GetOEMVersion", Effect::MayWrite, Argument::None, // copies the OEM file into the registry
     [](const Text&) { return Ansi(Environment::GetOEMVersion()); }},
    {kFirmware, L"GetSystemSkuCode", Effect::MayWrite, Argument::None, // may ask GetOEMVersion
     [](const Text&) { return Ansi(Environment::GetSystemSkuCode()); }},
    {kFirmware, L"GetDeviceId", Effect::MayWrite, Argument::None, // keeps the serial number in the registry
     [](const Text&) { return Ansi(Environment::GetDeviceId()); }},

    {kProduct, L"GetDeviceTypeEx", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Utf8(Environment::GetDeviceTypeEx()); }},
    {kProduct, L"GetProductNameForKxshare", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Wide(Environment::GetProductNameForKxshare()); }},
    {kProduct, L"GetStringNameById", Effect::OnlyReads, Argument::LogType,
     [](const Text& id) { return Utf8(Environment::GetStringNameById(LogTypeOf(id))); }},
    {kProduct, L"GetProductSeries", Effect::MayWrite, Argument::None, // asks GetOEMVersion
     [](const Text&) { return Ansi(Environment::GetProductSeries()); }},
    {kProduct, L"GetLogPackageName", Effect::MayWrite, Argument::LogType, // asks GetOEMVersion and GetDeviceId
     [](const Text& id) { return Ansi(Environment::GetLogPackageName({}, LogTypeOf(id), {})); }},
    {kProduct, L"GetLogPackageZipName", Effect::MayWrite, Argument::LogType, // the same
     [](const Text& id) { return Ansi(Environment::GetLogPackageZipName({}, LogTypeOf(id), {})); }},

    {kFeatures, L"IsSupportFingerPrint", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportFingerPrint()); }},
    {kFeatures, L"IsSupportTrifingerSnipper", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportTrifingerSnipper()); }},
    {kFeatures, L"IsSupportWifiGpio", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportWifiGpio()); }},
    {kFeatures, L"IsSupportWifiBiosRepair", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportWifiBiosRepair()); }},
    {kFeatures, L"IsSupportBtGpio", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportBtGpio()); }},
    {kFeatures, L"IsSupportCPUPower", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportCPUPower()); }},
    {kFeatures, L"IsSupportKeyboardLight", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportKeyboardLight()); }},
    {kFeatures, L"IsSupportEnergyStar", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportEnergyStar()); }},
    {kFeatures, L"IsSupportSQGData", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportSQGData()); }},
    {kFeatures, L"IsSupportTimeBack", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportTimeBack()); }},
    {kFeatures, L"IsSupportVrAssisant", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportVrAssisant()); }},
    {kFeatures, L"IsSupportLiveBroadcast", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportLiveBroadcast()); }},
    {kFeatures, L"IsSupportOfficeCheck", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportOfficeCheck()); }},
    {kFeatures, L"IsSupportIntegratedGraphics", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportIntegratedGraphics()); }},
    {kFeatures, L"IsSupportNpsPop", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsSupportNpsPop()); }},
    {kFeatures, L"IsSupportDeviceFunc", Effect::OnlyReads, Argument::Function, DeviceFunction},
    {kFeatures, L"IsProductInSupportList", Effect::OnlyReads, Argument::Function, SupportList},

    {kDisplayGroup, L"GetLastestSystemDpi", Effect::OnlyReads, Argument::None,
     [](const Text&) { return SystemDpi(); }},
    {kDisplayGroup, L"GetLastestSystemDpi step", Effect::OnlyReads, Argument::None,
     [](const Text&) { return ScalingStep(); }},

    {kFiles, L"CompareFileIntergrity", Effect::OnlyReads, Argument::File,
     [](const Text& file) { return Truth(Environment::CompareFileIntergrity(DE::UnicodeToANSI(file))); }},
    {kFiles, L"CheckFileAndXmlExist", Effect::OnlyReads, Argument::File, FileAndManifest},
    {kFiles, L"IsFileUnicode", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Truth(Environment::IsFileUnicode()); }},
    {kFiles, L"GetUnicodeString", Effect::OnlyReads, Argument::None,
     [](const Text&) { return Wide(Environment::GetUnicodeString()); }},
};
// clang-format on

} // namespace

std::span<const Query> Queries() {
    return kQueries;
}

} // namespace kxrecord
