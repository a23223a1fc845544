// Registry access: every value is read whole before an output is touched.
#include "sdk/util/registry.h"

#include "common/win/handle.h"
#include "outofmemory.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <optional>
#include <utility>

namespace DE {

namespace {

constexpr size_t kMaxKeyNameCharacters = 255;
constexpr size_t kFirstValueBytes = 256;

// The registry takes names that end at the first zero: a text that goes on behind it would name something else.
bool IsName(const std::wstring& name) {
    return name.find(L'\0') == std::wstring::npos;
}

const wchar_t* WithoutLeadingBackslash(const std::wstring& subKey) {
    return subKey.c_str() + (subKey.starts_with(L'\\') ? 1 : 0);
}

kx::RegistryKey Open(HKEY root, const std::wstring& subKey, DWORD access) {
    HKEY key = nullptr;
    if (!IsName(subKey) || !kxutil::IsDone(RegOpenKeyExW(root, WithoutLeadingBackslash(subKey), 0, access, &key))) {
        return {};
    }
    return kx::RegistryKey(key);
}

kx::RegistryKey Create(HKEY root, const std::wstring& subKey, DWORD access) {
    if (!IsName(subKey)) {
        return {};
    }
    const wchar_t* const path = WithoutLeadingBackslash(subKey);
    HKEY key = nullptr;
    const auto create = [&](DWORD option) {
        return RegCreateKeyExW(root, path, 0, nullptr, option, access, nullptr, &key, nullptr);
    };
    LSTATUS status = create(REG_OPTION_NON_VOLATILE);
    if (status == ERROR_CHILD_MUST_BE_VOLATILE) {
        status = create(REG_OPTION_VOLATILE);
    }
    return kx::RegistryKey(kxutil::IsDone(status) ? key : nullptr);
}

/** A value as it is stored. */
struct StoredValue {
    DWORD type = REG_NONE;
    std::vector<unsigned char> bytes;
};

std::optional<StoredValue> Read(HKEY root, const std::wstring& subKey, const std::wstring& name, DWORD access) {
    const auto key = Open(root, subKey, access);
    if (!key || !IsName(name)) {
        return std::nullopt;
    }
    StoredValue value;
    value.bytes.resize(kFirstValueBytes);
    for (;;) {
        auto size = static_cast<DWORD>(value.bytes.size());
        const LSTATUS status =
            RegQueryValueExW(key.Get(), name.c_str(), nullptr, &value.type, value.bytes.data(), &size);
        if (kxutil::IsDone(status)) {
            value.bytes.resize(size);
            return value;
        }
        if (status != ERROR_MORE_DATA) {
            return std::nullopt;
        }
        // The size is a lower bound: the value may grow again before the next try.
        value.bytes.resize(std::max<size_t>(size, 2 * value.bytes.size()));
    }
}

std::optional<unsigned long> ReadNumber(HKEY root, const std::wstring& subKey, const std::wstring& name, DWORD access) {
    const auto stored = Read(root, subKey, name, access);
    if (!stored || stored->type != REG_DWORD || stored->bytes.size() != sizeof(DWORD)) {
        return std::nullopt;
    }
    DWORD number = 0;
    std::memcpy(&number, stored->bytes.data(), sizeof number);
    return number;
}

bool Write(HKEY root, const std::wstring& subKey, const std::wstring& name, DWORD type, const void* bytes, size_t size,
           DWORD access) {
    if (!IsName(name) || size > std::numeric_limits<DWORD>::max()) {
        return false;
    }
    const auto key = Create(root, subKey, access);
    return key && kxutil::IsDone(RegSetValueExW(key.Get(), name.c_str(), 0, type, static_cast<const BYTE*>(bytes),
                                                static_cast<DWORD>(size)));
}

std::optional<std::vector<std::wstring>> SubKeysOf(HKEY key) {
    std::vector<std::wstring> names;
    for (DWORD index = 0;; ++index) {
        std::array<wchar_t, kMaxKeyNameCharacters + 1> name{};
        auto length = static_cast<DWORD>(name.size());
        const LSTATUS status = RegEnumKeyExW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS) {
            return names;
        }
        if (!kxutil::IsDone(status)) {
            return std::nullopt;
        }
        names.emplace_back(name.data(), length);
    }
}

} // namespace

Registry::Registry() : m_root(HKEY_USERS) {}

Registry::~Registry() {
    Close();
}

void Registry::Close() {
    const kx::RegistryKey closing(std::exchange(m_key, nullptr));
}

void Registry::SetRootKey(HKEY root) {
    m_root = root;
}

bool Registry::KeyExists(const std::wstring& subKey) const {
    return static_cast<bool>(Open(m_root, subKey, KEY_READ));
}

bool Registry::OpenKey(HKEY root, const std::wstring& subKey, bool create) {
    Close();
    m_key = (create ? Create(root, subKey, KEY_ALL_ACCESS) : Open(root, subKey, KEY_ALL_ACCESS)).Release();
    return m_key != nullptr;
}

bool Registry::DeleteValue(const std::wstring& name) {
    return m_key != nullptr && IsName(name) && kxutil::IsDone(RegDeleteValueW(m_key, name.c_str()));
}

bool Registry::EnumKeys(std::vector<std::wstring>& subKeys) const {
    if (m_key == nullptr) {
        return false;
    }
    auto names = SubKeysOf(m_key);
    if (!names) {
        return false;
    }
    subKeys = std::move(*names);
    return true;
}

bool Registry::GetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, std::wstring& value,
                        DWORD access) {
    const auto stored = Read(root, subKey, name, access);
    if (!stored || (stored->type != REG_SZ && stored->type != REG_EXPAND_SZ)) {
        return false;
    }
    std::wstring text(stored->bytes.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), stored->bytes.data(), text.size() * sizeof(wchar_t));
    text.resize(std::min(text.size(), text.find(L'\0')));
    value = std::move(text);
    return true;
}

bool Registry::GetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, int& value, DWORD access) {
    const auto number = ReadNumber(root, subKey, name, access);
    if (!number) {
        return false;
    }
    value = static_cast<int>(*number);
    return true;
}

bool Registry::GetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, unsigned long& value,
                        DWORD access) {
    const auto number = ReadNumber(root, subKey, name, access);
    if (!number) {
        return false;
    }
    value = *number;
    return true;
}

bool Registry::GetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, void* buffer, int size,
                        int& returnedSize, DWORD access) {
    if (buffer == nullptr || size <= 0) {
        return false;
    }
    const auto stored = Read(root, subKey, name, access);
    if (!stored || stored->bytes.size() > static_cast<size_t>(size)) {
        return false;
    }
    std::copy(stored->bytes.begin(), stored->bytes.end(), static_cast<unsigned char*>(buffer));
    returnedSize = static_cast<int>(stored->bytes.size());
    return true;
}

bool Registry::SetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, const std::wstring& value,
                        DWORD access) {
    return Write(root, subKey, name, REG_SZ, value.c_str(), (value.size() + 1) * sizeof(wchar_t), access);
}

bool Registry::SetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, const int& value,
                        DWORD access) {
    return Write(root, subKey, name, REG_DWORD, &value, sizeof value, access);
}

bool Registry::GetKeys(HKEY root, const std::wstring& subKey, std::vector<std::wstring>& subKeys, DWORD access) {
    const auto key = Open(root, subKey, access);
    if (!key) {
        return false;
    }
    auto names = SubKeysOf(key.Get());
    if (!names) {
        return false;
    }
    subKeys = std::move(*names);
    return true;
}

} // namespace DE
