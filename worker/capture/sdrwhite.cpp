// Asks the display configuration for the white of ordinary programs.
#include "worker/capture/sdrwhite.h"

#include <windows.h>

#include <vector>

namespace kxvcr {

namespace {

constexpr double kStudioWhiteNits = 203; // reference white of ITU-R BT.2408
constexpr double kNitsOfUnit = 80.0 / 1000;

bool IsSource(const DISPLAYCONFIG_PATH_INFO& path, const std::wstring& deviceName) {
    DISPLAYCONFIG_SOURCE_DEVICE_NAME name = {};
    name.header = {DISPLAYCONFIG_DEVICE_INFO_GET_SOURCE_NAME, sizeof(name), path.sourceInfo.adapterId,
                   path.sourceInfo.id};
    return DisplayConfigGetDeviceInfo(&name.header) == ERROR_SUCCESS && deviceName == name.viewGdiDeviceName;
}

} // namespace

double SdrWhiteNits(const std::wstring& deviceName) {
    UINT32 pathCount = 0;
    UINT32 modeCount = 0;
    if (GetDisplayConfigBufferSizes(QDC_ONLY_ACTIVE_PATHS, &pathCount, &modeCount) != ERROR_SUCCESS) {
        return kStudioWhiteNits;
    }
    std::vector<DISPLAYCONFIG_PATH_INFO> paths(pathCount);
    std::vector<DISPLAYCONFIG_MODE_INFO> modes(modeCount);
    if (QueryDisplayConfig(QDC_ONLY_ACTIVE_PATHS, &pathCount, paths.data(), &modeCount, modes.data(), nullptr) !=
        ERROR_SUCCESS) {
        return kStudioWhiteNits;
    }
    paths.resize(pathCount);
    for (const DISPLAYCONFIG_PATH_INFO& path : paths) {
        DISPLAYCONFIG_SDR_WHITE_LEVEL white = {};
        white.header = {DISPLAYCONFIG_DEVICE_INFO_GET_SDR_WHITE_LEVEL, sizeof(white), path.targetInfo.adapterId,
                        path.targetInfo.id};
        if (IsSource(path, deviceName) && DisplayConfigGetDeviceInfo(&white.header) == ERROR_SUCCESS &&
            white.SDRWhiteLevel != 0) {
            return white.SDRWhiteLevel * kNitsOfUnit;
        }
    }
    return kStudioWhiteNits;
}

} // namespace kxvcr
