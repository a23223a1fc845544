// An in-memory registry behind DE::Registry and AccountUtil.
#include "fakes/fakeutil_registry.h"

#include "fakes/fakeutil_fault_internal.h"
#include "fakes/fakeutil_services.h"

#include "sdk/util/account.h"
#include "sdk/util/registry.h"
#include "sdk/util/text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <sstream>
#include <utility>

namespace fakeutil {

namespace {

using Address = std::pair<HKEY, std::wstring>;

struct State {
    std::mutex mutex;
    std::map<Address, std::map<std::wstring, RegistryData>> keys;
    DWORD refusedRights = 0;
    int writesUntilFailure = 0;
    int liveObjects = 0;
    std::vector<Address> openKeys;
};

State& TheState() {
    static State s_state;
    return s_state;
}

const OnReset kForgetRegistry([] {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    state.keys.clear();
    state.refusedRights = 0;
    state.writesUntilFailure = 0;
});

Address AddressOf(HKEY root, const std::wstring& key) {
    return {root, key.starts_with(L'\\') ? key.substr(1) : key};
}

// A key makes those above it.
void MakeKey(State& state, const Address& address) {
    const std::wstring& path = address.second;
    for (std::size_t end = path.find(L'\\'); end != std::wstring::npos; end = path.find(L'\\', end + 1)) {
        state.keys[{address.first, path.substr(0, end)}];
    }
    state.keys[address];
}

std::optional<RegistryData> Find(State& state, const Address& address, const std::wstring& name) {
    const auto key = state.keys.find(address);
    if (key == state.keys.end()) {
        return std::nullopt;
    }
    const auto value = key->second.find(name);
    return value == key->second.end() ? std::nullopt : std::optional(value->second);
}

template <class T>
std::optional<T> Read(HKEY root, const std::wstring& key, const std::wstring& name, DWORD access) {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    if ((access & state.refusedRights) != 0) {
        return std::nullopt;
    }
    const std::optional<RegistryData> data = Find(state, AddressOf(root, key), name);
    const T* value = data ? std::get_if<T>(&*data) : nullptr;
    return value != nullptr ? std::optional(*value) : std::nullopt;
}

bool Write(HKEY root, const std::wstring& key, const std::wstring& name, RegistryData data, DWORD access) {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    const bool fails = state.writesUntilFailure > 0 && --state.writesUntilFailure == 0;
    if (fails || (access & state.refusedRights) != 0) {
        return false;
    }
    MakeKey(state, AddressOf(root, key));
    state.keys[AddressOf(root, key)][name] = std::move(data);
    return true;
}

std::optional<std::vector<std::wstring>> SubKeysOf(const Address& address) {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    if (!state.keys.contains(address)) {
        return std::nullopt;
    }
    const std::wstring above = address.second + L'\\';
    std::set<std::wstring> names;
    for (const auto& [found, values] : state.keys) {
        if (found.first == address.first && found.second.starts_with(above)) {
            names.insert(found.second.substr(above.size(), found.second.find(L'\\', above.size()) - above.size()));
        }
    }
    return std::vector<std::wstring>(names.begin(), names.end());
}

bool IsRefused(DWORD access) {
    const std::lock_guard guard(TheState().mutex);
    return (access & TheState().refusedRights) != 0;
}

// An open key's handle is its place in the list, counted from one.
HKEY OpenHandle(const Address& address) {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    state.openKeys.push_back(address);
    return reinterpret_cast<HKEY>(state.openKeys.size());
}

Address AddressOfHandle(HKEY handle) {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    return state.openKeys.at(reinterpret_cast<std::size_t>(handle) - 1);
}

std::string Hex(std::uintptr_t number) {
    std::ostringstream text;
    text << "0x" << std::hex << std::uppercase << number;
    return text.str();
}

std::string RootName(HKEY root) {
    static const std::array<std::pair<HKEY, const char*>, 4> kNames{{{HKEY_LOCAL_MACHINE, "HKEY_LOCAL_MACHINE"},
                                                                     {HKEY_USERS, "HKEY_USERS"},
                                                                     {HKEY_CURRENT_USER, "HKEY_CURRENT_USER"},
                                                                     {nullptr, "(no root)"}}};
    const auto found = std::ranges::find(kNames, root, &std::pair<HKEY, const char*>::first);
    return found == kNames.end() ? Hex(reinterpret_cast<std::uintptr_t>(root)) : found->second;
}

std::string Place(HKEY root, const std::wstring& key, const std::wstring& name, const std::string& type, DWORD access) {
    return RootName(root) + ", " + Utf8(key) + ", " + Utf8(name) + ", " + type + ", " + Hex(access);
}

constexpr const char* kText = "text";
constexpr const char* kInt = "int";
constexpr const char* kUnsigned = "unsigned long";

} // namespace

namespace call {

Call SetRootKey(HKEY root) {
    return {"DE::Registry::SetRootKey", RootName(root)};
}
Call KeyExists(HKEY root, const std::wstring& key) {
    return {"DE::Registry::KeyExists", RootName(root) + ", " + Utf8(key)};
}
Call OpenKey(HKEY root, const std::wstring& key, bool create) {
    return {"DE::Registry::OpenKey", RootName(root) + ", " + Utf8(key) + (create ? ", create" : ", do not create")};
}
Call DeleteValue(const std::wstring& name) {
    return {"DE::Registry::DeleteValue", Utf8(name)};
}
Call EnumKeys() {
    return {"DE::Registry::EnumKeys", ""};
}
Call ReadText(HKEY root, const std::wstring& key, const std::wstring& name, DWORD access) {
    return {"DE::Registry::GetValue", Place(root, key, name, kText, access)};
}
Call ReadInt(HKEY root, const std::wstring& key, const std::wstring& name, DWORD access) {
    return {"DE::Registry::GetValue", Place(root, key, name, kInt, access)};
}
Call ReadUnsigned(HKEY root, const std::wstring& key, const std::wstring& name, DWORD access) {
    return {"DE::Registry::GetValue", Place(root, key, name, kUnsigned, access)};
}
Call ReadBytes(HKEY root, const std::wstring& key, const std::wstring& name, int size, DWORD access) {
    return {"DE::Registry::GetValue", Place(root, key, name, std::to_string(size) + " bytes", access)};
}
Call WriteText(HKEY root, const std::wstring& key, const std::wstring& name, const std::wstring& text, DWORD access) {
    return {"DE::Registry::SetValue", Place(root, key, name, kText, access) + " = " + Utf8(text)};
}
Call WriteInt(HKEY root, const std::wstring& key, const std::wstring& name, int number, DWORD access) {
    return {"DE::Registry::SetValue", Place(root, key, name, kInt, access) + " = " + std::to_string(number)};
}
Call GetKeys(HKEY root, const std::wstring& key, DWORD access) {
    return {"DE::Registry::GetKeys", RootName(root) + ", " + Utf8(key) + ", " + Hex(access)};
}
Call GetFlag(const std::wstring& key, const std::string& name) {
    return {"AccountUtil::GetFlag", Utf8(key) + ", " + name};
}
Call CreateRegeditPath(const std::string& key) {
    return {"AccountUtil::CreateRegeditPath", key};
}
Call IsSupportTms() {
    return {"AccountUtil::IsSupportTms", ""};
}

} // namespace call

void SetRegistryValue(HKEY root, const std::wstring& key, const std::wstring& name, RegistryData data) {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    MakeKey(state, AddressOf(root, key));
    state.keys[AddressOf(root, key)][name] = std::move(data);
}

void AddRegistryKey(HKEY root, const std::wstring& key) {
    const std::lock_guard guard(TheState().mutex);
    MakeKey(TheState(), AddressOf(root, key));
}

bool HasRegistryKey(HKEY root, const std::wstring& key) {
    const std::lock_guard guard(TheState().mutex);
    return TheState().keys.contains(AddressOf(root, key));
}

std::optional<RegistryData> StoredValue(HKEY root, const std::wstring& key, const std::wstring& name) {
    const std::lock_guard guard(TheState().mutex);
    return Find(TheState(), AddressOf(root, key), name);
}

void RefuseRegistryAccess(DWORD rights) {
    const std::lock_guard guard(TheState().mutex);
    TheState().refusedRights = rights;
}

void FailRegistryWrite(int nth) {
    const std::lock_guard guard(TheState().mutex);
    TheState().writesUntilFailure = nth;
}

int LiveRegistryObjects() {
    const std::lock_guard guard(TheState().mutex);
    return TheState().liveObjects;
}

std::vector<Call> RegistryCalls() {
    std::vector<Call> calls = Calls();
    std::erase_if(calls, [](const Call& call) {
        return !call.function.starts_with("DE::Registry::") && !call.function.starts_with("AccountUtil::");
    });
    return calls;
}

} // namespace fakeutil

namespace DE {

using fakeutil::TheState;
namespace call = fakeutil::call;

Registry::Registry() : m_root(nullptr), m_key(nullptr) {
    const std::lock_guard guard(TheState().mutex);
    ++TheState().liveObjects;
}

Registry::~Registry() {
    const std::lock_guard guard(TheState().mutex);
    --TheState().liveObjects;
}

void Registry::Close() {
    m_key = nullptr;
}

void Registry::SetRootKey(HKEY root) {
    fakeutil::Enter(call::SetRootKey(root));
    m_root = root;
}

bool Registry::KeyExists(const std::wstring& subKey) const {
    fakeutil::Enter(call::KeyExists(m_root, subKey));
    return !fakeutil::IsRefused(KEY_READ) && fakeutil::HasRegistryKey(m_root != nullptr ? m_root : HKEY_USERS, subKey);
}

bool Registry::OpenKey(HKEY root, const std::wstring& subKey, bool create) {
    fakeutil::Enter(call::OpenKey(root, subKey, create));
    Close();
    if (fakeutil::IsRefused(KEY_ALL_ACCESS)) {
        return false;
    }
    if (create) {
        fakeutil::AddRegistryKey(root, subKey);
    }
    if (fakeutil::HasRegistryKey(root, subKey)) {
        m_key = fakeutil::OpenHandle(fakeutil::AddressOf(root, subKey));
    }
    return m_key != nullptr;
}

bool Registry::DeleteValue(const std::wstring& name) {
    fakeutil::Enter(call::DeleteValue(name));
    if (m_key == nullptr) {
        return false;
    }
    const fakeutil::Address address = fakeutil::AddressOfHandle(m_key);
    const std::lock_guard guard(TheState().mutex);
    const auto key = TheState().keys.find(address);
    return key != TheState().keys.end() && key->second.erase(name) == 1;
}

bool Registry::EnumKeys(std::vector<std::wstring>& subKeys) const {
    fakeutil::Enter(call::EnumKeys());
    const auto names = m_key != nullptr ? fakeutil::SubKeysOf(fakeutil::AddressOfHandle(m_key)) : std::nullopt;
    if (names) {
        subKeys = *names;
    }
    return names.has_value();
}

bool Registry::GetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, std::wstring& value,
                        DWORD access) {
    fakeutil::Enter(call::ReadText(root, subKey, name, access));
    const auto text = fakeutil::Read<std::wstring>(root, subKey, name, access);
    if (text) {
        value = *text;
    }
    return text.has_value();
}

bool Registry::GetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, int& value, DWORD access) {
    fakeutil::Enter(call::ReadInt(root, subKey, name, access));
    const auto number = fakeutil::Read<unsigned long>(root, subKey, name, access);
    if (number) {
        value = static_cast<int>(*number);
    }
    return number.has_value();
}

bool Registry::GetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, unsigned long& value,
                        DWORD access) {
    fakeutil::Enter(call::ReadUnsigned(root, subKey, name, access));
    const auto number = fakeutil::Read<unsigned long>(root, subKey, name, access);
    if (number) {
        value = *number;
    }
    return number.has_value();
}

bool Registry::GetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, void* buffer, int size,
                        int& returnedSize, DWORD access) {
    fakeutil::Enter(call::ReadBytes(root, subKey, name, size, access));
    const auto bytes = fakeutil::Read<std::vector<unsigned char>>(root, subKey, name, access);
    if (!bytes || size < 0 || bytes->size() > static_cast<std::size_t>(size)) {
        return false;
    }
    std::ranges::copy(*bytes, static_cast<unsigned char*>(buffer));
    returnedSize = static_cast<int>(bytes->size());
    return true;
}

bool Registry::SetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, const std::wstring& value,
                        DWORD access) {
    fakeutil::Enter(call::WriteText(root, subKey, name, value, access));
    return fakeutil::Write(root, subKey, name, value, access);
}

bool Registry::SetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, const int& value,
                        DWORD access) {
    fakeutil::Enter(call::WriteInt(root, subKey, name, value, access));
    return fakeutil::Write(root, subKey, name, static_cast<unsigned long>(value), access);
}

bool Registry::GetKeys(HKEY root, const std::wstring& subKey, std::vector<std::wstring>& subKeys, DWORD access) {
    fakeutil::Enter(call::GetKeys(root, subKey, access));
    const auto names =
        fakeutil::IsRefused(access) ? std::nullopt : fakeutil::SubKeysOf(fakeutil::AddressOf(root, subKey));
    if (names) {
        subKeys = *names;
    }
    return names.has_value();
}

} // namespace DE

bool AccountUtil::IsSupportTms() {
    fakeutil::Enter(fakeutil::call::IsSupportTms());
    return fakeutil::SupportsTms();
}

// As in the real library, a flag that is missing, unreadable or no text is an empty string.
std::string AccountUtil::GetFlag(const std::wstring& keyPath, const std::string& valueName) {
    fakeutil::Enter(fakeutil::call::GetFlag(keyPath, valueName));
    const std::wstring separator = keyPath.starts_with(L'\\') ? L"" : L"\\";
    const auto text = fakeutil::Read<std::wstring>(HKEY_USERS, fakeutil::UserSid() + separator + keyPath,
                                                   DE::ANSIToUnicode(valueName), KEY_READ);
    return DE::UnicodeToANSI(text.value_or(std::wstring()));
}

std::wstring AccountUtil::CreateRegeditPath(const std::string& keyPath) {
    fakeutil::Enter(fakeutil::call::CreateRegeditPath(keyPath));
    return fakeutil::UserSid() + (keyPath.starts_with('\\') ? L"" : L"\\") + DE::ANSIToUnicode(keyPath);
}
