// What the firmware says about the machine: its own version, the device identifier (the firmware's serial number) and
// the version of the OEM image. Sources are tried one after the other; what was found is written to the registry, for
// later readers.
// A query whose sources throw, for want of memory, gives its failure value.

#include "common/answeror.h"
#include "common/boundedcopy.h"
#include "sdk/util/registry.h"
#include "sdk/util/smbios.h"
#include "sdk/util/text.h"
#include "sdk/util/wmi.h"
#include "systemenvironment.h"
#include "systemenvironment/debugline.h"
#include "systemenvironment/narrowtext.h"
#include "systemenvironment/oemversion.h"
#include "systemenvironment/sharedqueries.h"

#include <windows.h>

#include <atomic>
#include <cctype>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace {

constexpr wchar_t kBiosKey[] = L"HARDWARE\\DESCRIPTION\\System\\BIOS";
constexpr wchar_t kBiosVersionName[] = L"BIOSVersion";
constexpr wchar_t kSerialNumberName[] = L"BIOSSerialNumber";

constexpr wchar_t kWmiNamespace[] = L"ROOT\\CIMV2";
constexpr wchar_t kWmiQuery[] = L"SELECT * FROM Win32_BIOS";
constexpr wchar_t kWmiProperty[] = L"SerialNumber";

constexpr char kDefaultDeviceId[] = "21111111111111111111";

constexpr std::size_t kVersionCapacity = 128; // with the terminating zero, as every capacity here
constexpr std::size_t kSerialNumberCapacity = 64;

/** The device identifier, kept from the first query that found one until the process ends. */
class DeviceIdCache {
public:
    static DeviceIdCache& Instance() {
        static DeviceIdCache cache;
        return cache;
    }

    std::string Get() {
        const std::lock_guard lock(m_mutex);
        return m_id;
    }

    void Set(const std::string& id) {
        const std::lock_guard lock(m_mutex);
        m_id = id;
    }

private:
    std::mutex m_mutex;
    std::string m_id;
};

/**
 * The default identifier for a caller without memory: it is longer than what a string holds without any, so that one
 * is kept ready from the start and replaced as soon as there is memory again.
 */
class SpareDeviceId {
public:
    SpareDeviceId() noexcept { Refill(); }
    ~SpareDeviceId() { delete m_spare.load(); }
    SpareDeviceId(const SpareDeviceId&) = delete;
    SpareDeviceId& operator=(const SpareDeviceId&) = delete;

    void Refill() noexcept {
        if (m_spare.load() != nullptr) {
            return;
        }
        try {
            auto fresh = std::make_unique<std::string>(kDefaultDeviceId);
            std::string* none = nullptr;
            if (m_spare.compare_exchange_strong(none, fresh.get())) {
                static_cast<void>(fresh.release());
            }
        } catch (...) { // the next call tries again
        }
    }

    /** The spare one; empty when it was taken and there has been no memory since. */
    std::string Take() noexcept {
        const std::unique_ptr<std::string> spare(m_spare.exchange(nullptr));
        return spare ? std::move(*spare) : std::string();
    }

private:
    std::atomic<std::string*> m_spare{nullptr};
};

SpareDeviceId g_spareDeviceId;

/** The registry's serial number as identifier; empty when it is too long or cannot be converted. */
std::string DeviceIdFromRegistry(const std::wstring& serialNumber) {
    const kx::NarrowText narrow(serialNumber.c_str());
    if (!narrow) {
        return {};
    }
    char id[kSerialNumberCapacity] = {};
    if (kx::CopyText(id, kSerialNumberCapacity, narrow.Get()) != 0) {
        debugline::Write("SystemEnvironment::GetDeviceId", "strcpy_s fail");
    }
    return id;
}

/** WMI's serial number, of any length, left in the registry as well; empty when there is none. */
std::string DeviceIdFromWmi() {
    const std::wstring serialNumber = WMI(kWmiNamespace).SelectStr(kWmiQuery, kWmiProperty);
    DE::Registry::SetValue(HKEY_LOCAL_MACHINE, kBiosKey, kSerialNumberName, serialNumber, KEY_ALL_ACCESS);
    const kx::NarrowText narrow(serialNumber.c_str());
    return narrow ? narrow.Get() : std::string();
}

std::string QueryDeviceId() {
    std::wstring serialNumber;
    const bool isRecorded =
        DE::Registry::GetValue(HKEY_LOCAL_MACHINE, kBiosKey, kSerialNumberName, serialNumber, KEY_ALL_ACCESS);
    return isRecorded && !serialNumber.empty() ? DeviceIdFromRegistry(serialNumber) : DeviceIdFromWmi();
}

} // namespace

std::string sharedqueries::BIOSVersion() {
    std::wstring value; // stays empty when it cannot be read
    DE::Registry::GetValue(HKEY_LOCAL_MACHINE, kBiosKey, kBiosVersionName, value, KEY_ALL_ACCESS);
    const kx::NarrowText narrow(value.c_str());
    if (!narrow) {
        return {};
    }
    char text[kVersionCapacity + 1] = {};
    if (kx::CopyText(text, kVersionCapacity, narrow.Get()) != 0) {
        debugline::Write("SystemEnvironment::GetBIOSVersion", "strcpy_s byteArray fail");
    }
    const std::string version = text;
    const std::size_t dot = version.find('.');
    return dot == std::string::npos ? version : version.substr(0, version.find('.', dot + 1));
}

std::string SystemEnvironment::GetBIOSVersion() noexcept {
    return kx::AnswerOr(std::string(), sharedqueries::BIOSVersion);
}

std::string ParseBIOSVersionOfPadLeft(char* version) noexcept try {
    if (version == nullptr) {
        return {};
    }
    const char* const dot = std::strchr(version, '.');
    if (dot == nullptr) {
        return version;
    }
    const auto dotAt = static_cast<std::size_t>(dot - version);
    if (char* const secondDot = std::strchr(version + dotAt + 1, '.')) {
        *secondDot = '\0';
    }
    char padded[kVersionCapacity + 1] = {};
    const std::size_t padding = dotAt == 1 ? 1 : 0;
    std::memset(padded, '0', padding);
    if (kx::CopyText(padded + padding, kVersionCapacity - padding, version) != 0) {
        debugline::Write("ParseBIOSVersionOfPadLeft", "strcpy_s fail");
    }
    // The position is that of the text as given, without the padding in front: 12.5 becomes 12.505.
    const std::size_t length = std::strlen(version);
    if (length - dotAt - 1 == 1 && length + 2 < kVersionCapacity) {
        padded[length] = '0';
        padded[length + 1] = version[dotAt + 1];
        padded[length + 2] = '\0';
    }
    return padded;
} catch (...) {
    return {};
}

std::string sharedqueries::DeviceId() {
    DeviceIdCache& cache = DeviceIdCache::Instance();
    if (std::string known = cache.Get(); !known.empty()) {
        return known;
    }
    std::string id = QueryDeviceId(); // outside the cache's lock: two threads may both ask
    if (id.empty()) {
        return kDefaultDeviceId;
    }
    cache.Set(id);
    return id;
}

std::string SystemEnvironment::GetDeviceId() noexcept try {
    g_spareDeviceId.Refill();
    return sharedqueries::DeviceId();
} catch (...) {
    return g_spareDeviceId.Take();
}

bool SystemEnvironment::GetBIOSSysVersion(std::string& version) noexcept try {
    version.clear();
    const std::wstring text = SmBiosHelper::GetInstance()->GetBIOSSysVersion();
    if (text.empty()) {
        return false;
    }
    const kx::NarrowText narrow(text.c_str());
    if (!narrow) {
        return false;
    }
    version = narrow.Get();
    return true;
} catch (...) {
    return false;
}

std::string sharedqueries::TrimmedOemVersion(std::string version) {
    std::erase_if(version, [](char character) { return std::iscntrl(static_cast<unsigned char>(character)) != 0; });
    const std::string trimmed = DE::TrimSP(version);
    return trimmed.substr(0, trimmed.find('_'));
}

std::string TrimOemVersion(const char* eomVersion) noexcept try {
    if (eomVersion == nullptr) {
        debugline::Write("TrimOemVersion", "TrimOemVersion parameter: eomVersion is nullptr");
        return {};
    }
    return sharedqueries::TrimmedOemVersion(eomVersion);
} catch (...) {
    return {};
}

std::string sharedqueries::OEMVersion() {
    const std::optional<std::string> bytes = oemversion::ReadFile();
    if (!bytes) {
        return VersionFromRegistry();
    }
    const std::wstring text = oemversion::HasUtf16Mark(*bytes) ? OemFileText() : DE::ANSIToUnicode(*bytes);
    if (!text.empty()) {
        DE::Registry::SetValue(HKEY_LOCAL_MACHINE, oemversion::kKey, oemversion::kValueName, text, KEY_ALL_ACCESS);
    }
    return VersionFromRegistry();
}

std::string SystemEnvironment::GetOEMVersion() noexcept {
    return kx::AnswerOr(std::string(), sharedqueries::OEMVersion);
}
