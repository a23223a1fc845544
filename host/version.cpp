// Versions as the files themselves tell them, so that a mix of installations shows.
#include "host/version.h"

#include "host/folders.h"

#include <windows.h>

#include <cstddef>
#include <vector>

namespace kxrecord {

std::optional<std::string> FileVersion(const std::wstring& path) {
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
    std::vector<std::byte> record(size);
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT fixedSize = 0;
    if (size == 0 || !GetFileVersionInfoW(path.c_str(), 0, size, record.data()) ||
        !VerQueryValueW(record.data(), L"\\", reinterpret_cast<void**>(&fixed), &fixedSize) ||
        fixedSize < sizeof(*fixed)) {
        return std::nullopt;
    }
    return std::to_string(HIWORD(fixed->dwFileVersionMS)) + "." + std::to_string(LOWORD(fixed->dwFileVersionMS)) + "." +
           std::to_string(HIWORD(fixed->dwFileVersionLS));
}

std::string VersionsText() {
    const std::wstring folder = HostFolder();
    return "kxrecord " KXRECORD_VERSION "\nScreenRecordProxy.dll " +
           FileVersion(folder + L"\\ScreenRecordProxy.dll").value_or("of an unknown version") + "\nKXVCR.exe " +
           FileVersion(folder + L"\\KXVCR.exe").value_or("missing, or of an unknown version");
}

} // namespace kxrecord
