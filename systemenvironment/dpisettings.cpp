// Remembers the display scaling per user, and puts it back after the Windows release has changed.
// The record lies under the user's key: the release and the system DPI and scaling step last seen under it.
// A query whose sources throw, for want of memory, gives its failure value.

#include "common/answeror.h"
#include "common/win/utf8.h"
#include "sdk/util/process.h"
#include "sdk/util/productadapt.h"
#include "sdk/util/registry.h"
#include "sdk/util/systeminfo.h"
#include "systemenvironment.h"
#include "systemenvironment/debugline.h"
#include "systemenvironment/sharedqueries.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

// Key paths follow the user's SID directly. "Lastest" is how the record is named everywhere.
constexpr wchar_t kRecordKey[] = L"\\Software\\Calvora\\LastestSetting";
constexpr wchar_t kReleaseName[] = L"LastestOSVersion";
constexpr wchar_t kDpiName[] = L"LastestDPIValue";
constexpr wchar_t kStepName[] = L"LastestDPIIndex";
constexpr wchar_t kMonitorsKey[] = L"\\Control Panel\\Desktop\\PerMonitorSettings";
constexpr wchar_t kMonitorStepName[] = L"DpiValue";

constexpr int kNoStep = -999;
constexpr int kNoDpi = -1;

constexpr int kOtherOffsetProduct = 4; // index of the product whose steps count from two below
constexpr int kOtherOffset = -2;
constexpr int kUsualOffset = -1;

/** The request to set a display's scaling step, which the Windows headers do not declare. */
struct ScaleRequest {
    std::int32_t type;
    std::uint32_t size;
    std::uint32_t adapterLow;
    std::int32_t adapterHigh;
    std::uint32_t sourceId;
    std::int32_t step;
};
static_assert(sizeof(ScaleRequest) == 24);
static_assert(offsetof(ScaleRequest, adapterLow) == offsetof(DISPLAYCONFIG_DEVICE_INFO_HEADER, adapterId));
static_assert(offsetof(ScaleRequest, sourceId) == offsetof(DISPLAYCONFIG_DEVICE_INFO_HEADER, id));
static_assert(offsetof(ScaleRequest, step) == sizeof(DISPLAYCONFIG_DEVICE_INFO_HEADER));
static_assert(sizeof(DISPLAYCONFIG_PATH_INFO) == 72 && sizeof(DISPLAYCONFIG_MODE_INFO) == 64);

constexpr std::int32_t kSetScaleRequest = -4;

struct FreeBlock {
    void operator()(void* block) const { std::free(block); }
};

/** A zeroed array from the C run-time; null when there is no memory. */
template <class Item>
using Block = std::unique_ptr<Item, FreeBlock>;

template <class Item>
Block<Item> AllocateBlock(UINT32 count) {
    return Block<Item>(static_cast<Item*>(std::calloc(count, sizeof(Item))));
}

/** Reports a failed display call and yields the failure's result. */
int DisplayFailure(const char* message, LONG status) {
    const DWORD error = GetLastError();
    debugline::Write("SystemEnvironment::ApplyDpiSetting", message, error, ", status= ", status);
    SetLastError(error); // the caller reports it once more
    return 0;
}

/** The failure's result for want of memory, of which the C run-time leaves no error for the caller. */
int NoMemory() noexcept {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}

int SetScale(const DISPLAYCONFIG_PATH_SOURCE_INFO& source, int step) {
    ScaleRequest request = {kSetScaleRequest,          sizeof(request), source.adapterId.LowPart,
                            source.adapterId.HighPart, source.id,       step};
    const LONG status = DisplayConfigSetDeviceInfo(reinterpret_cast<DISPLAYCONFIG_DEVICE_INFO_HEADER*>(&request));
    return status == ERROR_SUCCESS ? 1 : DisplayFailure("DisplayConfigSetDeviceInfo fail:", status);
}

std::wstring RecordKey() {
    return KXPROCESS::GetCurrentUserSidstr() + kRecordKey;
}

bool ReadRecord(const std::wstring& key, const wchar_t* name, int& value) {
    return DE::Registry::GetValue(HKEY_USERS, key, name, value, KEY_ALL_ACCESS);
}

bool WriteRecord(const std::wstring& key, const wchar_t* name, int value) {
    return DE::Registry::SetValue(HKEY_USERS, key, name, value, KEY_ALL_ACCESS);
}

// The scaling as the exported functions read and save it; here std::bad_alloc comes out, so that a scaling which could
// not be read is not saved.

bool ReadScaling(int* systemDpi, int* dpiValue) {
    constexpr char kFunction[] = "SystemEnvironment::GetLastestSystemDpi";
    *systemDpi = SystemInfo().GetSystemDPI();
    const std::wstring monitorsKey = KXPROCESS::GetCurrentUserSidstr() + kMonitorsKey;
    std::vector<std::wstring> monitors;
    if (!DE::Registry::GetKeys(HKEY_USERS, monitorsKey, monitors, KEY_ALL_ACCESS) || monitors.empty()) {
        debugline::Write(kFunction, "GetLastestSystemDpi error: no-sub-keys");
        return false;
    }
    const std::wstring monitorKey = monitorsKey + L"\\" + monitors.front();
    if (!DE::Registry::GetValue(HKEY_USERS, monitorKey, kMonitorStepName, *dpiValue, KEY_ALL_ACCESS)) {
        debugline::Write(kFunction, "GetLastestSystemDpi error: no-sub -keys"); // the blank tells it from the other
        return false;
    }
    return true;
}

bool SaveScaling(int dpiValue, int dpiIndex) {
    constexpr char kFunction[] = "SystemEnvironment::SaveLastestSystemDpi";
    const std::wstring key = RecordKey();
    int storedIndex = kNoStep;
    int storedValue = kNoDpi;
    if (ReadRecord(key, kStepName, storedIndex) && ReadRecord(key, kDpiName, storedValue) && storedIndex == dpiIndex &&
        storedValue == dpiValue) {
        return false;
    }
    if (!WriteRecord(key, kStepName, dpiIndex)) {
        debugline::Write(kFunction, "SaveLastestSystemDpierror: DE::Registry::SetIndex fail.step");
        return false;
    }
    if (!WriteRecord(key, kDpiName, dpiValue)) {
        debugline::Write(kFunction, "SaveLastestSystemDpi error: DE::Registry::SetValue fail.step");
        return false;
    }
    return true;
}

/** Brings the recorded release up to date; whether it was another one than the current. */
bool ReleaseChanged(const std::wstring& key) {
    constexpr char kFunction[] = "SystemEnvironment::RestoreSystemDpi4Common";
    const std::wstring current = kx::WideFromUtf8(sharedqueries::OSReleaseId());
    std::wstring remembered;
    if (!DE::Registry::GetValue(HKEY_USERS, key, kReleaseName, remembered, KEY_ALL_ACCESS)) {
        debugline::Write(kFunction, "RestoreSystemDpi Warning: GetValue failed.");
        remembered.clear();
    }
    if (remembered == current) {
        return false;
    }
    DE::Registry::SetValue(HKEY_USERS, key, kReleaseName, current, KEY_ALL_ACCESS);
    debugline::Write(kFunction, "RestoreSystemDpi ok: sysversion changed to ", current);
    return true;
}

/** The sum, which a damaged record may carry past the ends of the range: it wraps. */
int WrappingSum(int first, int second) {
    return static_cast<int>(static_cast<unsigned>(first) + static_cast<unsigned>(second));
}

} // namespace

int SystemEnvironment::ApplyDpiSetting(int scaleStep) noexcept {
    UINT32 pathCount = 0;
    UINT32 modeCount = 0;
    LONG status = GetDisplayConfigBufferSizes(QDC_ONLY_ACTIVE_PATHS, &pathCount, &modeCount);
    if (status != ERROR_SUCCESS) {
        return DisplayFailure("GetDisplayConfigBufferSizes fail:", status);
    }
    const auto paths = AllocateBlock<DISPLAYCONFIG_PATH_INFO>(pathCount);
    if (!paths) {
        return NoMemory();
    }
    const auto modes = AllocateBlock<DISPLAYCONFIG_MODE_INFO>(modeCount);
    if (!modes) {
        debugline::Write("SystemEnvironment::ApplyDpiSetting", "calloc  display_modes fail:");
        return NoMemory();
    }
    status = QueryDisplayConfig(QDC_ONLY_ACTIVE_PATHS, &pathCount, paths.get(), &modeCount, modes.get(), nullptr);
    if (status != ERROR_SUCCESS) {
        return DisplayFailure("QueryDisplayConfig fail:", status);
    }
    return pathCount == 0 ? 0 : SetScale(paths->sourceInfo, scaleStep);
}

bool SystemEnvironment::GetLastestSystemDpi(int* systemDpi, int* dpiValue) noexcept {
    return kx::AnswerOr(false, [&] { return ReadScaling(systemDpi, dpiValue); });
}

bool SystemEnvironment::SaveLastestSystemDpi(int dpiValue, int dpiIndex) noexcept {
    return kx::AnswerOr(false, [&] { return SaveScaling(dpiValue, dpiIndex); });
}

bool SystemEnvironment::RestoreSystemDpi4Common(int stepOffset) noexcept try {
    constexpr char kFunction[] = "SystemEnvironment::RestoreSystemDpi4Common";
    const std::wstring key = RecordKey();
    const bool releaseChanged = ReleaseChanged(key);
    int rememberedDpi = 0;
    int rememberedStep = 0;
    const bool isRemembered = ReadRecord(key, kDpiName, rememberedDpi) && ReadRecord(key, kStepName, rememberedStep);

    int systemDpi = 0;
    int dpiValue = 0; // what cannot be read is saved as 0
    ReadScaling(&systemDpi, &dpiValue);
    if (!isRemembered) {
        debugline::Write(kFunction, "RestoreSystemDpi Warning: first save dpi value.");
        return SaveScaling(systemDpi, dpiValue);
    }
    if (!releaseChanged || systemDpi == rememberedDpi) {
        return SaveScaling(systemDpi, dpiValue);
    }
    if (ApplyDpiSetting(WrappingSum(rememberedStep, stepOffset)) == 0) {
        debugline::Write(kFunction, "RestoreSystemDpi error: ApplyDpiSetting fail:", GetLastError());
        return false;
    }
    return true;
} catch (...) {
    return false;
}

bool SystemEnvironment::RestoreSystemDpi() noexcept try {
    const int product = ProductAdapt::MachineType::GetInstance().GetProductIndex();
    return RestoreSystemDpi4Common(product == kOtherOffsetProduct ? kOtherOffset : kUsualOffset);
} catch (...) {
    return false;
}
