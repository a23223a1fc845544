/**
 * @file
 * A real registry that tests may write to: roots mapped onto scratch keys, values of any type, keys without write
 * access. Functions that prepare something throw std::runtime_error when they cannot.
 */
#pragma once

#include <windows.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace scratchregistry {

struct CloseKey {
    void operator()(HKEY key) const { RegCloseKey(key); }
};
using Key = std::unique_ptr<std::remove_pointer_t<HKEY>, CloseKey>;

/**
 * Maps a root of this process onto a new empty key below HKEY_CURRENT_USER until the object goes, so that every call
 * works on real keys and leaves the machine's own settings alone.
 */
class MappedRoot {
public:
    /** @param name tells the keys of one process apart */
    MappedRoot(HKEY root, const std::wstring& name);
    ~MappedRoot();
    MappedRoot(const MappedRoot&) = delete;
    MappedRoot& operator=(const MappedRoot&) = delete;

private:
    HKEY m_root;
    std::wstring m_path;
    Key m_key;
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

/** Stores a value and makes its key. */
void StoreBytes(HKEY root, const std::wstring& path, const std::wstring& name, DWORD type, std::string_view bytes);
void StoreText(HKEY root, const std::wstring& path, const std::wstring& name, const std::wstring& text);
void StoreNumber(HKEY root, const std::wstring& path, const std::wstring& name, DWORD number);

/** A stored value; nothing when it is missing or of another type. A text has fewer than 64 characters. */
std::optional<std::wstring> StoredText(HKEY root, const std::wstring& path, const std::wstring& name);
std::optional<DWORD> StoredNumber(HKEY root, const std::wstring& path, const std::wstring& name);

} // namespace scratchregistry
