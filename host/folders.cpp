// Folders and full paths, of any length.
#include "host/folders.h"

#include "common/win/localappdata.h"
#include "common/win/modulepath.h"

#include "sdk/util/logtool.h"

#include <windows.h>

#include <optional>
#include <stdexcept>
#include <utility>

namespace kxrecord {

std::wstring HostFolder() {
    std::optional<std::wstring> folder = kx::ModuleFolder(nullptr);
    if (!folder) {
        throw std::runtime_error("the system does not tell where kxrecord.exe lies");
    }
    return *std::move(folder);
}

std::wstring FullPath(const std::wstring& path) {
    const DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    std::wstring full(size, L'\0');
    const DWORD length = GetFullPathNameW(path.c_str(), size, full.data(), nullptr);
    if (length == 0 || length >= size) {
        throw std::runtime_error("the system cannot make the file name a full path");
    }
    full.resize(length);
    return full;
}

std::wstring LocalLogFolder() {
    const std::wstring local = kx::LocalAppDataFolder();
    return local.empty() ? local : local + L"\\" + kLocalLogFolderName;
}

bool IsFile(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

} // namespace kxrecord
