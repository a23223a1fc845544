#include "scratchregistry.h"

#include <sddl.h>

#include <array>
#include <stdexcept>

namespace scratchregistry {

namespace {

// Reading and deleting stay allowed, so that the key can be removed again.
const wchar_t* const kNoWriting = L"D:P(D;;0x6;;;WD)(A;;KA;;;WD)";
const wchar_t* const kEverything = L"D:P(A;;KA;;;WD)";

void Check(LSTATUS status, const char* what) {
    if (status != ERROR_SUCCESS) {
        throw std::runtime_error(std::string(what) + ": error " + std::to_string(status));
    }
}

Key Created(HKEY root, const std::wstring& path) {
    HKEY key = nullptr;
    Check(RegCreateKeyExW(root, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &key,
                          nullptr),
          "create key");
    return Key(key);
}

LSTATUS SetSecurity(HKEY root, const std::wstring& path, const wchar_t* sddl) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, &descriptor, nullptr) == FALSE) {
        return static_cast<LSTATUS>(GetLastError());
    }
    const std::unique_ptr<void, decltype(&LocalFree)> owned(descriptor, &LocalFree);
    HKEY key = nullptr;
    if (const LSTATUS status = RegOpenKeyExW(root, path.c_str(), 0, WRITE_DAC, &key); status != ERROR_SUCCESS) {
        return status;
    }
    const Key closing(key);
    return RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, descriptor);
}

} // namespace

MappedRoot::MappedRoot(HKEY root, const std::wstring& name)
    : m_root(root),
      m_path(L"Software\\kxtest-" + std::to_wstring(GetCurrentProcessId()) + L"-" + name),
      m_key(Created(HKEY_CURRENT_USER, m_path)) {
    Check(RegOverridePredefKey(m_root, m_key.get()), "map root");
}

MappedRoot::~MappedRoot() {
    RegOverridePredefKey(m_root, nullptr);
    m_key.reset();
    RegDeleteTreeW(HKEY_CURRENT_USER, m_path.c_str());
}

ReadOnlyKey::ReadOnlyKey(HKEY root, const std::wstring& path) : m_root(root), m_path(path) {
    Check(SetSecurity(root, path, kNoWriting), "set security");
    HKEY key = nullptr;
    const LSTATUS status = RegOpenKeyExW(root, path.c_str(), 0, KEY_ALL_ACCESS, &key);
    const Key closing(key);
    if (status != ERROR_ACCESS_DENIED) {
        throw std::runtime_error("the registry does not enforce the key's security");
    }
}

ReadOnlyKey::~ReadOnlyKey() {
    SetSecurity(m_root, m_path, kEverything);
}

void StoreBytes(HKEY root, const std::wstring& path, const std::wstring& name, DWORD type, std::string_view bytes) {
    const Key key = Created(root, path);
    Check(RegSetValueExW(key.get(), name.c_str(), 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                         static_cast<DWORD>(bytes.size())),
          "store value");
}
void StoreText(HKEY root, const std::wstring& path, const std::wstring& name, const std::wstring& text) {
    StoreBytes(root, path, name, REG_SZ,
               {reinterpret_cast<const char*>(text.c_str()), (text.size() + 1) * sizeof(wchar_t)});
}
void StoreNumber(HKEY root, const std::wstring& path, const std::wstring& name, DWORD number) {
    StoreBytes(root, path, name, REG_DWORD, {reinterpret_cast<const char*>(&number), sizeof(number)});
}

std::optional<std::wstring> StoredText(HKEY root, const std::wstring& path, const std::wstring& name) {
    std::array<wchar_t, 64> text{};
    DWORD size = sizeof(text);
    const LSTATUS status = RegGetValueW(root, path.c_str(), name.c_str(), RRF_RT_REG_SZ, nullptr, text.data(), &size);
    return status == ERROR_SUCCESS ? std::optional<std::wstring>(text.data()) : std::nullopt;
}
std::optional<DWORD> StoredNumber(HKEY root, const std::wstring& path, const std::wstring& name) {
    DWORD number = 0;
    DWORD size = sizeof(number);
    const LSTATUS status = RegGetValueW(root, path.c_str(), name.c_str(), RRF_RT_REG_DWORD, nullptr, &number, &size);
    return status == ERROR_SUCCESS ? std::optional<DWORD>(number) : std::nullopt;
}

} // namespace scratchregistry
