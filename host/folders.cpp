// Folders and full paths, of any length.
#include "host/folders.h"

#include "sdk/util/logtool.h"

#include <shlobj.h>
#include <windows.h>

#include <memory>
#include <stdexcept>

namespace kxrecord {

namespace {

struct TaskMemoryFree {
    void operator()(void* block) const noexcept { CoTaskMemFree(block); }
};

} // namespace

std::wstring HostFolder() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) {
            throw std::runtime_error("the system does not tell where kxrecord.exe lies");
        }
        if (length < path.size()) {
            path.resize(path.find_last_of(L'\\', length));
            return path;
        }
        path.resize(path.size() * 2);
    }
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
    PWSTR text = nullptr;
    const HRESULT found = SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, &text);
    const std::unique_ptr<wchar_t, TaskMemoryFree> owner(text);
    return SUCCEEDED(found) ? std::wstring(text) + L"\\" + kLocalLogFolderName : std::wstring();
}

bool IsFile(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

} // namespace kxrecord
