/**
 * @file
 * A registry to write to: whole roots of this process, mapped onto scratch keys below HKEY_CURRENT_USER, so that every
 * call works on real keys and leaves the machine's own settings alone. What fails throws std::runtime_error.
 */
#pragma once

#include "common/win/handle.h"

#include <windows.h>

#include <optional>
#include <string>
#include <string_view>

namespace kxtest {

/** One root of this process, mapped onto a new empty key until the object goes. */
class MappedRoot {
public:
    /**
     * @param name   tells the scratch keys of one process apart
     * @param option REG_OPTION_VOLATILE makes a root like HARDWARE, below which no key can be kept on disk
     */
    MappedRoot(HKEY root, const std::wstring& name, DWORD option = REG_OPTION_NON_VOLATILE);
    ~MappedRoot();
    MappedRoot(const MappedRoot&) = delete;
    MappedRoot& operator=(const MappedRoot&) = delete;

private:
    HKEY m_root;
    std::wstring m_path;
    kx::RegistryKey m_key;
};

/** Takes the right to write from everybody until the object goes, and makes sure that the registry obeys. */
class ReadOnlyKey {
public:
    ReadOnlyKey(HKEY root, const std::wstring& path);
    ~ReadOnlyKey();
    ReadOnlyKey(const ReadOnlyKey&) = delete;
    ReadOnlyKey& operator=(const ReadOnlyKey&) = delete;

private:
    HKEY m_root;
    std::wstring m_path;
};

/** Stores a value; its key and those above are made when they are missing. */
void StoreRegistryBytes(HKEY root, const std::wstring& path, const std::wstring& name, DWORD type,
                        std::string_view bytes);
void StoreRegistryText(HKEY root, const std::wstring& path, const std::wstring& name, const std::wstring& text);
void StoreRegistryNumber(HKEY root, const std::wstring& path, const std::wstring& name, DWORD number);

/** A stored value; nothing when it is missing or of another type. */
std::optional<std::wstring> StoredRegistryText(HKEY root, const std::wstring& path, const std::wstring& name);
std::optional<DWORD> StoredRegistryNumber(HKEY root, const std::wstring& path, const std::wstring& name);

} // namespace kxtest
