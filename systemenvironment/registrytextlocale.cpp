// Small reads that other queries build on: the suite's per-user settings, the OEM image's version file as UTF-16,
// the user's locale name and the display names of log types. Per-user keys are addressed under HKEY_USERS by the
// user's SID.
// A query whose sources throw, for want of memory, gives its failure value.

#include "common/answeror.h"
#include "common/boundedcopy.h"
#include "common/win/utf8.h"
#include "sdk/util/process.h"
#include "sdk/util/registry.h"
#include "sdk/util/xml.h"
#include "systemenvironment.h"
#include "systemenvironment/debugline.h"
#include "systemenvironment/oemversion.h"
#include "systemenvironment/sharedqueries.h"

#include <shlwapi.h>
#include <windows.h>

#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string>

namespace {

// Key paths follow the SID directly.
constexpr wchar_t kSettingsKey[] = L"\\SOFTWARE\\Orvane\\Calvora\\setting";
constexpr wchar_t kLocaleKey[] = L"\\Control Panel\\International";
constexpr wchar_t kLocaleName[] = L"LocaleName";
constexpr wchar_t kLocalSystemSid[] = L"S-1-5-18";

constexpr char kDefaultLocale[] = "en-US";
constexpr char kDefaultLocaleCN[] = "zh-CN";

constexpr wchar_t kUtilModule[] = L"Util.dll";
constexpr char kLogTypePath[] = "\\config\\LogType.xml";
constexpr char kLogTypeElement[] = "Item";
constexpr char kIdAttribute[] = "ID";
constexpr char kValueAttribute[] = "Value";
constexpr char kUnknownLogType[] = "null";

std::wstring SettingsKey() {
    return KXPROCESS::GetCurrentUserSidstr() + kSettingsKey;
}

/** The locale name of the user with @p sid, or @p fallback when it cannot be read or is empty. */
std::string LocaleNameOf(const std::wstring& sid, const char* fallback) {
    std::wstring name;
    if (!DE::Registry::GetValue(HKEY_USERS, sid + kLocaleKey, kLocaleName, name, KEY_ALL_ACCESS)) {
        return fallback;
    }
    const std::string utf8 = kx::Utf8FromWide(name);
    return utf8.empty() ? fallback : utf8;
}

std::string UtilFolder() {
    char path[MAX_PATH + 1] = {};
    GetModuleFileNameA(GetModuleHandleW(kUtilModule), path, MAX_PATH);
    PathRemoveFileSpecA(path);
    return path;
}

bool HasId(const KxXmlElement& element, int id) {
    const KxXmlAttribute attribute = element.FirstAttribute(kIdAttribute);
    return !attribute.IsAttributeNull() && std::strtol(attribute.Value().c_str(), nullptr, 10) == id;
}

} // namespace

bool SystemEnvironment::ReadValue(const std::wstring& valueName, void* buffer, int size) noexcept try {
    if (valueName.empty() || buffer == nullptr) {
        debugline::Write("SystemEnvironment::ReadValue", "key name is empty or out value ptr is null");
        return false;
    }
    int storedSize = 0;
    return DE::Registry::GetValue(HKEY_USERS, SettingsKey(), valueName, buffer, size, storedSize, KEY_ALL_ACCESS);
} catch (...) {
    return false;
}

int SystemEnvironment::ReadValue(const std::wstring& valueName) noexcept try {
    int value = 0;
    return DE::Registry::GetValue(HKEY_USERS, SettingsKey(), valueName, value, KEY_ALL_ACCESS) ? value : -1;
} catch (...) {
    return -1;
}

bool SystemEnvironment::IsFileUnicode() noexcept try {
    const std::optional<std::string> bytes = oemversion::ReadFile();
    return bytes && oemversion::HasUtf16Mark(*bytes);
} catch (...) {
    return false;
}

std::wstring sharedqueries::OemFileText() {
    const std::string bytes = oemversion::ReadFile().value_or(std::string());
    constexpr std::size_t kMarkSize = sizeof(wchar_t);
    if (bytes.size() <= kMarkSize) {
        return {};
    }
    const std::size_t size = bytes.size() - kMarkSize;
    std::wstring text(size / sizeof(wchar_t), L'\0');
    // Half a character at the end does not fit: such a file is no UTF-16 text.
    if (const int error = kx::CopyBytes(text.data(), text.size() * sizeof(wchar_t), bytes.data() + kMarkSize, size)) {
        debugline::Write("SystemEnvironment::GetUnicodeString", "memcpy_s fail err:", error);
        return {};
    }
    return text;
}

std::wstring SystemEnvironment::GetUnicodeString() noexcept {
    return kx::AnswerOr(std::wstring(), sharedqueries::OemFileText);
}

std::string SystemEnvironment::GetUserLocaleName() noexcept try {
    const std::wstring sid = KXPROCESS::GetCurrentUserSidstr();
    return sid == kLocalSystemSid ? kDefaultLocale : LocaleNameOf(sid, kDefaultLocale);
} catch (...) {
    return kDefaultLocale;
}

std::string SystemEnvironment::GetUserLocaleNameCN() noexcept {
    return kx::AnswerOr(std::string(kDefaultLocaleCN),
                        [&] { return LocaleNameOf(KXPROCESS::GetCurrentUserSidstr(), kDefaultLocaleCN); });
}

std::string sharedqueries::LogTypeName(int id) {
    KxXMLDocument table;
    if (table.LoadFile(UtilFolder() + kLogTypePath) != 0) {
        debugline::Write("SystemEnvironment::GetStringNameById", "load xml file failed");
        return kUnknownLogType;
    }
    // A null root has no children. The walk starts at the first item by name; from there on every sibling is read.
    for (KxXmlElement item = table.RootElement().FirstNode(kLogTypeElement); !item.IsElementNull();
         item = item.NextSiblingElement("")) {
        if (HasId(item, id)) {
            return item.FirstAttribute(kValueAttribute).Value();
        }
    }
    return kUnknownLogType;
}

std::string SystemEnvironment::GetStringNameById(int id) noexcept {
    return kx::AnswerOr(std::string(kUnknownLogType), [&] { return sharedqueries::LogTypeName(id); });
}
