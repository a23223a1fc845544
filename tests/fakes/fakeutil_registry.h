/**
 * @file
 * Control interface of the scriptable Util.dll, registry part: an in-memory registry behind DE::Registry and
 * AccountUtil.
 *
 * Every call is recorded with root, key, value name, access mask and data, before it is carried out, so that a refused
 * or throwing call is in the list as well; the functions in `call` build the records to compare with. Keys and names
 * are compared with their letter case, and one backslash in front of a key is dropped for the look-up alone: a record
 * shows what was passed. All functions may be called from any thread.
 */
#pragma once

#include "fakes/fakeutil.h"

#include <windows.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace fakeutil {

/** What a value of the in-memory registry holds: a text, a number, or bytes of some other type. */
using RegistryData = std::variant<std::wstring, unsigned long, std::vector<unsigned char>>;

/** Stores a value and makes its key. */
FAKEUTIL_API void SetRegistryValue(HKEY root, const std::wstring& key, const std::wstring& name, RegistryData data);

/** Makes a key without values. */
FAKEUTIL_API void AddRegistryKey(HKEY root, const std::wstring& key);

FAKEUTIL_API bool HasRegistryKey(HKEY root, const std::wstring& key);

/** A stored value, if there is one. */
FAKEUTIL_API std::optional<RegistryData> StoredValue(HKEY root, const std::wstring& key, const std::wstring& name);

/** Makes every call whose access mask has a right of @p rights fail. */
FAKEUTIL_API void RefuseRegistryAccess(DWORD rights);

/** Makes the nth DE::Registry::SetValue from now on fail; 1 is the next. */
FAKEUTIL_API void FailRegistryWrite(int nth);

/** DE::Registry objects that have not been destroyed. */
FAKEUTIL_API int LiveRegistryObjects();

/** The recorded calls of DE::Registry and AccountUtil, oldest first. */
FAKEUTIL_API std::vector<Call> RegistryCalls();

/** The records of the single calls. */
namespace call {

FAKEUTIL_API Call SetRootKey(HKEY root);
FAKEUTIL_API Call KeyExists(HKEY root, const std::wstring& key); ///< a null root: none was set
FAKEUTIL_API Call OpenKey(HKEY root, const std::wstring& key, bool create);
FAKEUTIL_API Call DeleteValue(const std::wstring& name);
FAKEUTIL_API Call EnumKeys();
FAKEUTIL_API Call ReadText(HKEY root, const std::wstring& key, const std::wstring& name, DWORD access);
FAKEUTIL_API Call ReadInt(HKEY root, const std::wstring& key, const std::wstring& name, DWORD access);
FAKEUTIL_API Call ReadUnsigned(HKEY root, const std::wstring& key, const std::wstring& name, DWORD access);
FAKEUTIL_API Call ReadBytes(HKEY root, const std::wstring& key, const std::wstring& name, int size, DWORD access);
FAKEUTIL_API Call WriteText(HKEY root, const std::wstring& key, const std::wstring& name, const std::wstring& text,
                            DWORD access);
FAKEUTIL_API Call WriteInt(HKEY root, const std::wstring& key, const std::wstring& name, int number, DWORD access);
FAKEUTIL_API Call GetKeys(HKEY root, const std::wstring& key, DWORD access);
FAKEUTIL_API Call GetFlag(const std::wstring& key, const std::string& name);
FAKEUTIL_API Call CreateRegeditPath(const std::string& key);
FAKEUTIL_API Call IsSupportTms();

} // namespace call

} // namespace fakeutil
