/**
 * @file
 * Windows registry access of Util.dll.
 */
#pragma once

#include "sdk/util/utilexport.h"

#include <windows.h>

#include <string>
#include <vector>

namespace DE {

/**
 * The registry, as an object that holds one open key and as static calls that open what they need.
 *
 * - Every key path may begin with one backslash, which is dropped; the registry itself refuses such a path.
 * - A function that fails returns false and leaves its outputs as they were. Nothing is thrown but std::bad_alloc.
 * - @c access is the mask that the key is opened with, exactly as given. A mask that the user is not granted makes
 *   the call fail.
 * - A text is read from REG_SZ and from REG_EXPAND_SZ (not expanded), whatever its length. It ends at the first zero
 *   character or at the end of the stored bytes, which need no terminating zero; half a character left over by an
 *   odd number of bytes is dropped. Any other type is a failure.
 * - A number is read from a REG_DWORD of four bytes alone. Any other type or size is a failure.
 * - A key that has to be made is kept on disk; below one that is not, such as "HARDWARE\DESCRIPTION", it lasts until
 *   the machine is shut down, as everything there.
 * - A value that another process makes longer while it is read is read again.
 * - A path or a name that holds a zero character is refused.
 * - The static functions may be called from any thread; one object belongs to one thread at a time.
 */
class KXUTIL_API Registry {
public:
    /** No key is open; the root is HKEY_USERS, under which the suite addresses its per-user keys by SID. */
    Registry();

    /** Closes the open key. */
    ~Registry();

    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;

    /** Sets the root that KeyExists looks under. */
    void SetRootKey(HKEY root);

    /** Whether @p subKey exists under the root and may be read by the user. */
    bool KeyExists(const std::wstring& subKey) const;

    /**
     * Opens a key with KEY_ALL_ACCESS, after closing the one that was open.
     * @param create make the key, and those above it, when it does not exist
     * @return false when the key cannot be opened; no key is open then
     */
    bool OpenKey(HKEY root, const std::wstring& subKey, bool create);

    /** Deletes a value of the open key; false when there is no such value or no open key. */
    bool DeleteValue(const std::wstring& name);

    /** The names of the open key's direct subkeys, in the registry's order. */
    bool EnumKeys(std::vector<std::wstring>& subKeys) const;

    /** Reads a text. */
    static bool GetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, std::wstring& value,
                         DWORD access);

    /** Reads a number, its 32 bits taken as signed. */
    static bool GetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, int& value, DWORD access);

    /** Reads a number. */
    static bool GetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, unsigned long& value,
                         DWORD access);

    /**
     * Reads a value's bytes as they are stored, of any type.
     * @param buffer       receives the bytes
     * @param size         bytes that fit into @p buffer; a value that is longer is a failure
     * @param returnedSize receives the number of bytes stored into @p buffer
     */
    static bool GetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, void* buffer, int size,
                         int& returnedSize, DWORD access);

    /** Writes a text as REG_SZ, making the key when it does not exist. */
    static bool SetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, const std::wstring& value,
                         DWORD access);

    /** Writes a number as REG_DWORD, making the key when it does not exist. */
    static bool SetValue(HKEY root, const std::wstring& subKey, const std::wstring& name, const int& value,
                         DWORD access);

    /** The names of a key's direct subkeys, in the registry's order; a key without subkeys gives an empty list. */
    static bool GetKeys(HKEY root, const std::wstring& subKey, std::vector<std::wstring>& subKeys, DWORD access);

private:
    void Close();

    HKEY m_root;
    HKEY m_key = nullptr;
};

} // namespace DE
