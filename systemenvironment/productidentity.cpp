// Which product is this machine? Names from the machine-type service, codes from the SMBIOS texts and the OEM version,
// the name of a diagnostic log package built from them, and two plain facts about the system.
// A query whose sources throw, for want of memory, gives its failure value.

#include "common/answeror.h"
#include "common/win/utf8.h"
#include "sdk/util/productadapt.h"
#include "sdk/util/smbios.h"
#include "sdk/util/text.h"
#include "systemenvironment.h"
#include "systemenvironment/debugline.h"
#include "systemenvironment/narrowtext.h"
#include "systemenvironment/sharedqueries.h"

#include KX_PRODUCT_SERIES_HEADER

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace {

constexpr char kPromoteKey[] = "default";
constexpr char kOtherSeries[] = "other";

constexpr char kSkuMark = 'C';
constexpr std::size_t kSkuLength = 4;

constexpr wchar_t kOemStringMark[] = L"$ORV";
constexpr std::size_t kOemCodeAt = 7; // of OEM string 1, counted from 0
constexpr std::size_t kOemCodeLength = 2;

constexpr int kRandomLength = 5;

constexpr BYTE kAcOnline = 1;

/** The two characters of OEM string 1; empty when the string has no mark or is too short to hold them. */
std::wstring OemCode() {
    const std::wstring text = SmBiosHelper::GetInstance()->GetOemString1();
    if (text.size() < kOemCodeAt + kOemCodeLength || !text.starts_with(kOemStringMark)) {
        return {};
    }
    return text.substr(kOemCodeAt, kOemCodeLength);
}

/** Local time as YYYYMMDDhhmmss. */
std::string LocalTimeStamp() {
    SYSTEMTIME time = {};
    GetLocalTime(&time);
    char text[32] = {};
    const int length = std::snprintf(text, sizeof(text), "%04u%02u%02u%02u%02u%02u", time.wYear, time.wMonth, time.wDay,
                                     time.wHour, time.wMinute, time.wSecond);
    return length > 0 ? text : "";
}

std::string LogPackageName(const std::string& trailingText, int logTypeId, const std::string& leadingText) {
    const std::string parts[] = {
        leadingText,
        sharedqueries::OEMVersion(),
        sharedqueries::BIOSVersion(),
        sharedqueries::DeviceId(),
        LocalTimeStamp(),
        trailingText + "-" + sharedqueries::LogTypeName(logTypeId), // the one joint that is no "_"
        DE::GetRandomString(kRandomLength),
    };
    std::string name = "PC";
    for (const std::string& part : parts) {
        name += "_";
        name += part;
    }
    return name;
}

} // namespace

std::string SystemEnvironment::GetDeviceTypeEx() noexcept try {
    std::string name;
    const int code = ProductAdapt::MachineType::GetInstance().GetProductName(name);
    if (code != 0 || name.empty()) {
        debugline::Write("SystemEnvironment::GetDeviceTypeEx", "fail to get product name. result:", code);
    }
    return name;
} catch (...) {
    return {};
}

std::wstring SystemEnvironment::GetProductNameForKxshare() noexcept try {
    ProductAdapt::PromoteParamInfo info;
    const int code = ProductAdapt::MachineType::GetInstance().GetPromoteParamInfo(kPromoteKey, info);
    if (code != 0) {
        debugline::Write("SystemEnvironment::GetProductNameForKxshare",
                         "fail to get product promote param info. result:", code);
        return {};
    }
    return kx::WideFromUtf8(info.productName);
} catch (...) {
    return {};
}

std::string SystemEnvironment::GetProductSeries() noexcept try {
    const std::string version = sharedqueries::OEMVersion();
    const std::size_t dash = version.find('-');
    if (dash == std::string::npos) {
        return kOtherSeries;
    }
    const std::string_view prefix(version.data(), dash);
    for (const productseries::Row& row : productseries::kRows) {
        if (row.prefix == prefix) {
            return std::string(row.series);
        }
    }
    return kOtherSeries;
} catch (...) {
    return kOtherSeries;
}

std::string SystemEnvironment::GetSystemSkuCode() noexcept try {
    const kx::NarrowText narrow(SmBiosHelper::GetInstance()->GetSysSKU().c_str());
    std::string sku = narrow ? narrow.Get() : "";
    if (sku.find(kSkuMark) != std::string::npos) {
        return sku;
    }
    const std::string version = DE::TrimSP(sharedqueries::OEMVersion());
    const std::size_t mark = version.find(kSkuMark);
    return mark == std::string::npos ? std::string() : version.substr(mark, kSkuLength);
} catch (...) {
    return {};
}

int SystemEnvironment::GetOemProductCode(std::uint32_t* code) noexcept try {
    const std::wstring characters = OemCode();
    if (characters.empty()) {
        return 0;
    }
    static_assert(sizeof(wchar_t) == 2);
    *code = static_cast<std::uint32_t>(characters[0]) | static_cast<std::uint32_t>(characters[1]) << 16;
    return 1;
} catch (...) {
    return 0;
}

std::wstring SystemEnvironment::GetOemProductCodeString() noexcept {
    return kx::AnswerOr(std::wstring(), OemCode);
}

std::string SystemEnvironment::GetLogPackageName(const std::string& trailingText, int logTypeId,
                                                 const std::string& leadingText) noexcept {
    return kx::AnswerOr(std::string(), [&] { return LogPackageName(trailingText, logTypeId, leadingText); });
}

std::string SystemEnvironment::GetLogPackageZipName(const std::string& trailingText, int logTypeId,
                                                    const std::string& leadingText) noexcept {
    return kx::AnswerOr(std::string(), [&] { return LogPackageName(trailingText, logTypeId, leadingText) + ".zip"; });
}

bool SystemEnvironment::IsOnAcPower() noexcept {
    SYSTEM_POWER_STATUS status = {};
    return GetSystemPowerStatus(&status) && status.ACLineStatus == kAcOnline;
}

bool SystemEnvironment::IsNotIa64System() noexcept {
    SYSTEM_INFO system = {};
    GetNativeSystemInfo(&system);
    return system.wProcessorArchitecture != PROCESSOR_ARCHITECTURE_IA64;
}
