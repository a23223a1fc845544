/**
 * @file
 * The user's own folder for the data of programs.
 */
#pragma once

#include "common/win/owner.h"

#include <windows.h>

#include <shlobj.h>

#include <new>
#include <string>

namespace kx {

/**
 * The folder of the user's local application data, without a separator at its end; empty when the system does not tell.
 * @throws std::bad_alloc
 */
inline std::wstring LocalAppDataFolder() {
    Owner<FreedBy<PWSTR, &CoTaskMemFree>> folder;
    const HRESULT found = SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, folder.Receive());
    if (found == E_OUTOFMEMORY) {
        throw std::bad_alloc();
    }
    return SUCCEEDED(found) ? std::wstring(folder.Get()) : std::wstring();
}

} // namespace kx
