// Maps roots of this process onto keys of a throw-away user registry.
#include "support/scratchregistry.h"

#include <sddl.h>

#include <stdexcept>

namespace kxtest {

namespace {

// Reading and deleting stay allowed, so that the key can be removed again.
const wchar_t* const kNoWriting = L"D:P(D;;0x6;;;WD)(A;;KA;;;WD)";
const wchar_t* const kEverything = L"D:P(A;;KA;;;WD)";

void Check(LSTATUS status, const char* what) {
    if (status != ERROR_SUCCESS) {
        throw std::runtime_error(std::string(what) + ": error " + std::to_string(status));
    }
}

kx::RegistryKey Created(HKEY root, const std::wstring& path, DWORD option) {
    HKEY key = nullptr;
    LSTATUS status = RegCreateKeyExW(root, path.c_str(), 0, nullptr, option, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    if (status == ERROR_CHILD_MUST_BE_VOLATILE) {
        status = RegCreateKeyExW(root, path.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &key,
                                 nullptr);
    }
    Check(status, "create key");
    return kx::RegistryKey(key);
}

LSTATUS SetSecurity(HKEY root, const std::wstring& path, const wchar_t* sddl) {
    kx::LocalBlock<void> descriptor;
    if (ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, descriptor.Receive(), nullptr) ==
        FALSE) {
        return static_cast<LSTATUS>(GetLastError());
    }
    HKEY key = nullptr;
    if (const LSTATUS status = RegOpenKeyExW(root, path.c_str(), 0, WRITE_DAC, &key); status != ERROR_SUCCESS) {
        return status;
    }
    const kx::RegistryKey closing(key);
    return RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, descriptor.Get());
}

} // namespace

MappedRoot::MappedRoot(HKEY root, const std::wstring& name, DWORD option)
    : m_root(root),
      m_path(L"Software\\kxtest-" + std::to_wstring(GetCurrentProcessId()) + L"-" + name),
      m_key(Created(HKEY_CURRENT_USER, m_path, option)) {
    Check(RegOverridePredefKey(m_root, m_key.Get()), "map root");
}

MappedRoot::~MappedRoot() {
    RegOverridePredefKey(m_root, nullptr);
    m_key.Reset();
    RegDeleteTreeW(HKEY_CURRENT_USER, m_path.c_str());
}

ReadOnlyKey::ReadOnlyKey(HKEY root, const std::wstring& path) : m_root(root), m_path(path) {
    Check(SetSecurity(root, path, kNoWriting), "set security");
    HKEY key = nullptr;
    const LSTATUS status = RegOpenKeyExW(root, path.c_str(), 0, KEY_ALL_ACCESS, &key);
    const kx::RegistryKey closing(key);
    if (status != ERROR_ACCESS_DENIED) {
        throw std::runtime_error("the registry does not enforce the key's security");
    }
}

ReadOnlyKey::~ReadOnlyKey() {
    SetSecurity(m_root, m_path, kEverything);
}

void StoreRegistryBytes(HKEY root, const std::wstring& path, const std::wstring& name, DWORD type,
                        std::string_view bytes) {
    const kx::RegistryKey key = Created(root, path, REG_OPTION_NON_VOLATILE);
    Check(RegSetValueExW(key.Get(), name.c_str(), 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                         static_cast<DWORD>(bytes.size())),
          "store value");
}

void StoreRegistryText(HKEY root, const std::wstring& path, const std::wstring& name, const std::wstring& text) {
    StoreRegistryBytes(root, path, name, REG_SZ,
                       {reinterpret_cast<const char*>(text.c_str()), (text.size() + 1) * sizeof(wchar_t)});
}

void StoreRegistryNumber(HKEY root, const std::wstring& path, const std::wstring& name, DWORD number) {
    StoreRegistryBytes(root, path, name, REG_DWORD, {reinterpret_cast<const char*>(&number), sizeof(number)});
}

std::optional<std::wstring> StoredRegistryText(HKEY root, const std::wstring& path, const std::wstring& name) {
    DWORD size = 0;
    if (RegGetValueW(root, path.c_str(), name.c_str(), RRF_RT_REG_SZ, nullptr, nullptr, &size) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    std::wstring text(size / sizeof(wchar_t) + 1, L'\0');
    size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    Check(RegGetValueW(root, path.c_str(), name.c_str(), RRF_RT_REG_SZ, nullptr, text.data(), &size), "read text");
    return std::wstring(text.c_str());
}

std::optional<DWORD> StoredRegistryNumber(HKEY root, const std::wstring& path, const std::wstring& name) {
    DWORD number = 0;
    DWORD size = sizeof(number);
    const LSTATUS status = RegGetValueW(root, path.c_str(), name.c_str(), RRF_RT_REG_DWORD, nullptr, &number, &size);
    return status == ERROR_SUCCESS ? std::optional<DWORD>(number) : std::nullopt;
}

} // namespace kxtest
