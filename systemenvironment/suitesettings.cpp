// Single settings of the suite and of Windows: each function reads or writes one registry value and has one default.
// The secondary SKU, which comes from the firmware instead, stands at the end.
// A query whose sources throw, for want of memory, gives its failure value.

#include "common/answeror.h"
#include "common/win/utf8.h"
#include "sdk/util/process.h"
#include "sdk/util/registry.h"
#include "sdk/util/smbios.h"
#include "sdk/util/text.h"
#include "systemenvironment.h"
#include "systemenvironment/narrowtext.h"

#include <windows.h>

#include <string>

namespace {

constexpr wchar_t kPowerManagerKey[] = L"Software\\Calvora\\ZLKPowerManager";
constexpr wchar_t kPowerManagerModeName[] = L"PowerManagerIntellMode";

constexpr wchar_t kLoginGuideKey[] = L"SOFTWARE\\Calvora\\KXLoginGuide"; // of the machine, and of each user
constexpr wchar_t kCaptureName[] = L"Capture";
constexpr wchar_t kLogSwitchName[] = L"LogSwitch";
constexpr wchar_t kFirmwareName[] = L"Fireware"; // spelled so in the registry

constexpr wchar_t kCrashControlKey[] = L"SYSTEM\\CurrentControlSet\\Control\\CrashControl";
constexpr wchar_t kCrashDumpName[] = L"CrashDumpEnabled";
constexpr int kKernelDump = 2;
constexpr unsigned long kSmallDump = 3;

constexpr wchar_t kSessionPowerKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Power";

/** A machine-wide text in UTF-8; @p fallback when it is missing, unreadable or empty. */
std::string ReadMachineText(const wchar_t* key, const wchar_t* name, const char* fallback) noexcept try {
    std::wstring value;
    DE::Registry::GetValue(HKEY_LOCAL_MACHINE, key, name, value, KEY_ALL_ACCESS);
    const std::string text = kx::Utf8FromWide(value);
    return text.empty() ? fallback : text;
} catch (...) {
    return fallback;
}

} // namespace

std::string SystemEnvironment::GetPowerManagerIntellMode() noexcept {
    return ReadMachineText(kPowerManagerKey, kPowerManagerModeName, "1");
}

std::wstring SystemEnvironment::GetCaptureSwitch() noexcept try {
    const std::wstring key = KXPROCESS::GetCurrentUserSidstr() + L"\\" + kLoginGuideKey;
    std::wstring value;
    DE::Registry::GetValue(HKEY_USERS, key, kCaptureName, value, KEY_ALL_ACCESS);
    return value.empty() ? L"0" : value;
} catch (...) {
    return L"0";
}

bool SystemEnvironment::IsKernelCrashDumpEnabled() noexcept try {
    int kind = 0;
    return DE::Registry::GetValue(HKEY_LOCAL_MACHINE, kCrashControlKey, kCrashDumpName, kind, KEY_ALL_ACCESS) &&
           kind == kKernelDump;
} catch (...) {
    return false;
}

// By value: callers link against it so. NOLINTNEXTLINE(performance-unnecessary-value-param)
int SystemEnvironment::GetSessionPowerValue(std::wstring name) noexcept try {
    unsigned long value = 0;
    if (!DE::Registry::GetValue(HKEY_LOCAL_MACHINE, kSessionPowerKey, name, value, KEY_ALL_ACCESS)) {
        return -1;
    }
    return static_cast<int>(value);
} catch (...) {
    return -1;
}

void SystemEnvironment::FixSmallCrashDump() noexcept try {
    unsigned long kind = 0;
    if (DE::Registry::GetValue(HKEY_LOCAL_MACHINE, kCrashControlKey, kCrashDumpName, kind, KEY_ALL_ACCESS) &&
        kind == kSmallDump) {
        DE::Registry::SetValue(HKEY_LOCAL_MACHINE, kCrashControlKey, kCrashDumpName, kKernelDump, KEY_ALL_ACCESS);
    }
} catch (...) { // nobody to tell
}

std::string SystemEnvironment::GetLogSwitch() noexcept {
    return ReadMachineText(kLoginGuideKey, kLogSwitchName, "0");
}

bool SystemEnvironment::SetLogSwitch(bool on) noexcept {
    return kx::AnswerOr(false, [&] {
        return DE::Registry::SetValue(HKEY_LOCAL_MACHINE, kLoginGuideKey, kLogSwitchName, on ? L"1" : L"0",
                                      KEY_ALL_ACCESS);
    });
}

std::string SystemEnvironment::GetFirewareValue() noexcept {
    return ReadMachineText(kLoginGuideKey, kFirmwareName, "0");
}

std::string SystemEnvironment::GetSecondarySku() noexcept try {
    const SmBiosHelper* firmware = SmBiosHelper::GetInstance();
    const std::wstring wideSecondary = firmware->GetSecSKU();
    if (wideSecondary.empty()) {
        return {};
    }
    const kx::NarrowText secondary(wideSecondary.c_str());
    if (!secondary) {
        return {};
    }
    const std::string secondarySku = secondary.Get();
    const std::wstring wideSystem = firmware->GetSysSKU();
    if (!wideSystem.empty()) {
        const kx::NarrowText system(wideSystem.c_str());
        if (!system || secondarySku == system.Get()) {
            return {};
        }
    }
    return DE::LowerCase(secondarySku);
} catch (...) {
    return {};
}
