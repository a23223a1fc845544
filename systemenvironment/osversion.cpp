// Which Windows is this, and which version of the product did the firmware record?
// The Windows values come from the registry's CurrentVersion key, the composed line from the version record of
// Windows itself. Each answer passes through a buffer of fixed size, whose limit is part of the contract.
// A query whose sources throw, for want of memory, gives its failure value.

#include "common/answeror.h"
#include "common/boundedcopy.h"
#include "sdk/util/registry.h"
#include "systemenvironment.h"
#include "systemenvironment/debugline.h"
#include "systemenvironment/narrowtext.h"
#include "systemenvironment/oemversion.h"
#include "systemenvironment/sharedqueries.h"

#include <windows.h>

#include <cwchar>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

namespace {

constexpr wchar_t kCurrentVersionKey[] = L"Software\\Microsoft\\Windows NT\\CurrentVersion";
constexpr wchar_t kProductNameName[] = L"ProductName";
constexpr wchar_t kReleaseIdName[] = L"ReleaseId";
constexpr wchar_t kBuildBranchName[] = L"BuildBranch";
constexpr wchar_t kBuildLabName[] = L"BuildLabEx";
constexpr wchar_t kRevisionName[] = L"UBR";

constexpr std::size_t kValueCapacity = 128; // with the terminating zero, as every capacity here
constexpr std::size_t kProductVersionCapacity = 64;
constexpr std::size_t kServicePackCapacity = 256;
constexpr int kOsVersionBytes = 256; // without the terminating zero

constexpr DWORD kPlatformWindowsCE = 3; // not in every Windows header

/** The narrow form of @p value, empty with a debug line when it is too long; nothing when it cannot be converted. */
std::optional<std::string> BoundedText(const std::wstring& value, const char* function) {
    const kx::NarrowText narrow(value.c_str());
    if (!narrow) {
        return std::nullopt;
    }
    char text[kValueCapacity + 1] = {};
    if (kx::CopyText(text, kValueCapacity, narrow.Get()) != 0) {
        debugline::Write(function, "strcpy_s fail");
    }
    return text;
}

bool ReadCurrentVersion(const wchar_t* name, std::wstring& value) {
    return DE::Registry::GetValue(HKEY_LOCAL_MACHINE, kCurrentVersionKey, name, value, KEY_ALL_ACCESS);
}

/** A text of the CurrentVersion key; nothing, without a debug line, when it cannot be read. */
std::optional<std::string> CurrentVersionText(const wchar_t* name, const char* function) {
    std::wstring value;
    return ReadCurrentVersion(name, value) ? BoundedText(value, function) : std::nullopt;
}

const wchar_t* PlatformName(const OSVERSIONINFOEXW& version) {
    switch (version.dwPlatformId) {
    case VER_PLATFORM_WIN32_WINDOWS: {
        const bool is95 = version.dwMajorVersion < 5 && (version.dwMajorVersion != 4 || version.dwMinorVersion == 0);
        return is95 ? L"Microsoft Windows 95" : L"Microsoft Windows 98";
    }
    case VER_PLATFORM_WIN32_NT:
        return L"Microsoft Windows NT";
    case kPlatformWindowsCE:
        return L"Microsoft Windows CE";
    default:
        return L"unknow platform"; // spelled so
    }
}

bool QueryVersion(OSVERSIONINFOEXW& version) {
    static_assert(sizeof(version) == 284);
    version.dwOSVersionInfoSize = sizeof(version);
    // Deprecated, because it answers for the version that the process is manifested for, which is what is wanted.
#if defined(_MSC_VER)
#pragma warning(push)
#pragma warning(disable : 4996)
#else
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
    return GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&version)) != FALSE;
#if defined(_MSC_VER)
#pragma warning(pop)
#else
#pragma GCC diagnostic pop
#endif
}

/** Whether the service pack's name is not empty in the process's code page. */
bool HasServicePack(const std::wstring& name) {
    char narrow[kServicePackCapacity] = {};
    WideCharToMultiByte(CP_ACP, 0, name.c_str(), -1, narrow, kServicePackCapacity, nullptr, nullptr);
    return narrow[0] != '\0';
}

std::wstring VersionLine(const OSVERSIONINFOEXW& version) {
    std::wstring line = PlatformName(version);
    line += L" " + std::to_wstring(version.dwMajorVersion);
    line += L"." + std::to_wstring(version.dwMinorVersion);
    line += L"." + std::to_wstring(version.dwBuildNumber);
    const std::wstring servicePack(version.szCSDVersion,
                                   wcsnlen(version.szCSDVersion, std::size(version.szCSDVersion)));
    return line +
           (HasServicePack(servicePack) ? L" " + servicePack : L"." + std::to_wstring(version.wServicePackMajor));
}

} // namespace

std::string sharedqueries::OSReleaseId() {
    return CurrentVersionText(kReleaseIdName, "SystemEnvironment::GetOSReleaseId").value_or("");
}

std::string sharedqueries::VersionFromRegistry() {
    constexpr char kFunction[] = "SystemEnvironment::GetVersionFromRegistry";
    std::wstring value;
    if (!DE::Registry::GetValue(HKEY_LOCAL_MACHINE, oemversion::kKey, oemversion::kValueName, value, KEY_ALL_ACCESS)) {
        debugline::Write(kFunction, "Registry GetValue fail");
        return {};
    }
    const kx::NarrowText narrow(value.c_str());
    if (!narrow) {
        debugline::Write(kFunction, "WcharToChar fail");
        return {};
    }
    const std::string_view version = narrow.Get();
    const bool fits = version.size() < kProductVersionCapacity - 1; // a longer one counts as empty
    return TrimmedOemVersion(fits ? std::string(version) : std::string());
}

std::string SystemEnvironment::GetOSVersion() noexcept try {
    constexpr char kFunction[] = "SystemEnvironment::GetOSVersion";
    std::wstring name;
    if (!ReadCurrentVersion(kProductNameName, name)) {
        debugline::Write(kFunction, "Get registry value fail");
        return {};
    }
    return BoundedText(name, kFunction).value_or("");
} catch (...) {
    return {};
}

std::string SystemEnvironment::GetOSReleaseId() noexcept {
    return kx::AnswerOr(std::string(), sharedqueries::OSReleaseId);
}

std::string SystemEnvironment::GetOSBuildBranch() noexcept {
    return kx::AnswerOr(std::string(), [&] {
        return CurrentVersionText(kBuildBranchName, "SystemEnvironment::GetOSBuildBranch").value_or("");
    });
}

std::string SystemEnvironment::GetOSBuildVersion() noexcept try {
    const std::optional<std::string> lab = CurrentVersionText(kBuildLabName, "SystemEnvironment::GetOSBuildVersion");
    unsigned long revision = 0;
    if (!lab ||
        !DE::Registry::GetValue(HKEY_LOCAL_MACHINE, kCurrentVersionKey, kRevisionName, revision, KEY_ALL_ACCESS)) {
        return {};
    }
    const std::size_t dot = lab->find('.');
    const std::string build = dot == std::string::npos ? std::string() : lab->substr(0, dot);
    return build + "." + std::to_string(revision);
} catch (...) {
    return {};
}

std::string SystemEnvironment::GetVersionFromRegistry() noexcept {
    return kx::AnswerOr(std::string(), sharedqueries::VersionFromRegistry);
}

std::string SystemEnvironment::OSVersion() noexcept try {
    SYSTEM_INFO system = {};
    GetSystemInfo(&system); // asked for by contract; nothing of the answer is printed
    OSVERSIONINFOEXW version = {};
    if (!QueryVersion(version)) {
        debugline::Write("SystemEnvironment::OSVersion", "GetVersionEx failed error code ", GetLastError());
        return {};
    }
    const std::wstring line = VersionLine(version);
    char text[kOsVersionBytes + 1] = {};
    WideCharToMultiByte(CP_ACP, 0, line.data(), static_cast<int>(line.size()), text, kOsVersionBytes, nullptr, nullptr);
    return text;
} catch (...) {
    return {};
}
