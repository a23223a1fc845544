/** @file What the tests of the display scaling share: scripted displays, the record of a user, and the request. */
#pragma once

#include "systemenvironment.h"

#include "queryfixture.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace querytest {

inline const std::wstring kSid = fakeutil::kDefaultSid;
inline const std::wstring kRecord = kSid + L"\\Software\\Calvora\\LastestSetting";
inline const std::wstring kMonitors = kSid + L"\\Control Panel\\Desktop\\PerMonitorSettings";
inline const std::wstring kWindows = L"Software\\Microsoft\\Windows NT\\CurrentVersion";

inline constexpr std::size_t kRequestSize = 24;

using SizesHook =
    kxtest::ImportHook<"USER32.dll", "GetDisplayConfigBufferSizes", decltype(GetDisplayConfigBufferSizes)>;
using QueryHook = kxtest::ImportHook<"USER32.dll", "QueryDisplayConfig", decltype(QueryDisplayConfig)>;
using SetHook = kxtest::ImportHook<"USER32.dll", "DisplayConfigSetDeviceInfo", decltype(DisplayConfigSetDeviceInfo)>;
using CallocHook = kxtest::ImportHook<"msvcrt.dll", "calloc", void*(std::size_t, std::size_t)>;

/** What the display calls answer, and what they were called with. */
class Displays {
public:
    // answers
    std::vector<DISPLAYCONFIG_PATH_INFO> paths;
    std::vector<DISPLAYCONFIG_MODE_INFO> modes;
    LONG sizesStatus = ERROR_SUCCESS;
    LONG queryStatus = ERROR_SUCCESS;
    LONG setStatus = ERROR_SUCCESS;
    DWORD lastError = 0;
    bool losesPathsInBetween = false;
    int failingAllocation = 0; ///< counted from one

    // calls
    std::vector<std::string> calls;
    std::vector<std::string> requests;
    std::vector<std::size_t> allocated; ///< bytes
    std::vector<const void*> blocks;

    void Forget() {
        calls.clear();
        requests.clear();
        allocated.clear();
        blocks.clear();
    }

    /** Times that a block of the allocation was freed. */
    std::ptrdiff_t FreesOf(std::size_t index) const { return m_freed.CountOf(blocks.at(index)); }

private:
    LONG Sizes(UINT32 flags, UINT32* pathCount, UINT32* modeCount) {
        calls.push_back("sizes " + std::to_string(flags));
        *pathCount = static_cast<UINT32>(paths.size());
        *modeCount = static_cast<UINT32>(modes.size());
        SetLastError(lastError);
        return sizesStatus;
    }
    LONG Query(UINT32 flags, UINT32* pathCount, DISPLAYCONFIG_PATH_INFO* pathArray, UINT32* modeCount,
               DISPLAYCONFIG_MODE_INFO* modeArray, DISPLAYCONFIG_TOPOLOGY_ID* topology) {
        calls.push_back("query " + std::to_string(flags) + " " + std::to_string(*pathCount) + " " +
                        std::to_string(*modeCount) + (topology == nullptr ? "" : " topology"));
        const bool isExpected = *pathCount == paths.size() && *modeCount == modes.size() && blocks.size() == 2 &&
                                pathArray == blocks[0] && modeArray == blocks[1];
        EXPECT_TRUE(isExpected);
        if (isExpected && queryStatus == ERROR_SUCCESS && losesPathsInBetween) {
            *pathCount = 0;
            *modeCount = 0;
        } else if (isExpected && queryStatus == ERROR_SUCCESS) {
            std::ranges::copy(paths, pathArray);
            std::ranges::copy(modes, modeArray);
        }
        SetLastError(lastError);
        return queryStatus;
    }
    LONG Set(DISPLAYCONFIG_DEVICE_INFO_HEADER* header) {
        calls.push_back("set");
        requests.emplace_back(reinterpret_cast<const char*>(header), kRequestSize);
        SetLastError(lastError);
        return setStatus;
    }
    void* Allocate(std::size_t count, std::size_t size) {
        allocated.push_back(count * size);
        void* block =
            static_cast<int>(allocated.size()) == failingAllocation ? nullptr : CallocHook::Original(count, size);
        blocks.push_back(block);
        return block;
    }

    const querytest::FreedBlocks& m_freed;
    SizesHook m_sizes{[this](auto... arguments) { return Sizes(arguments...); }};
    QueryHook m_query{[this](auto... arguments) { return Query(arguments...); }};
    SetHook m_set{[this](auto... arguments) { return Set(arguments...); }};
    CallocHook m_calloc{[this](std::size_t count, std::size_t size) { return Allocate(count, size); }};

public:
    explicit Displays(const querytest::FreedBlocks& freed) : m_freed(freed) {}
};

inline DISPLAYCONFIG_PATH_INFO Path(DWORD adapterLow, LONG adapterHigh, UINT32 source, UINT32 modeIndex) {
    DISPLAYCONFIG_PATH_INFO path{};
    path.sourceInfo.adapterId = {adapterLow, adapterHigh};
    path.sourceInfo.id = source;
    path.sourceInfo.modeInfoIdx = modeIndex;
    path.targetInfo.adapterId = {0x99999999, 0x77777777};
    path.targetInfo.id = 0x55555555;
    path.flags = DISPLAYCONFIG_PATH_ACTIVE;
    return path;
}

inline DISPLAYCONFIG_MODE_INFO SourceMode(LONG left) {
    DISPLAYCONFIG_MODE_INFO mode{};
    mode.infoType = DISPLAYCONFIG_MODE_INFO_TYPE_SOURCE;
    mode.sourceMode.position = {left, 0};
    return mode;
}

class DpiTest : public QueryTest {
protected:
    // Two displays; the primary one, at the origin, is on the second path.
    DpiTest() {
        displays.paths = {Path(0x04030201, 0x14131211, 0x24232221, 0), Path(5, 6, 7, 1)};
        displays.modes = {SourceMode(1920), SourceMode(0), SourceMode(0)};
    }

    void StartAgain() {
        Restart();
        displays.Forget();
    }

    void ExpectFreed(std::size_t count) {
        ASSERT_EQ(displays.blocks.size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            EXPECT_EQ(displays.FreesOf(i), 1);
        }
    }

    static void StoreRecord(const std::wstring& name, RegistryData data) {
        fakeutil::SetRegistryValue(HKEY_USERS, kRecord, name, std::move(data));
    }
    static void StoreMonitor(const std::wstring& monitor, RegistryData data) {
        fakeutil::SetRegistryValue(HKEY_USERS, kMonitors + L"\\" + monitor, L"DpiValue", std::move(data));
    }
    static void StoreRelease(const std::wstring& release) {
        fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kWindows, L"ReleaseId", release);
    }
    static Call WriteRelease(const std::wstring& release) {
        return call::WriteText(HKEY_USERS, kRecord, L"LastestOSVersion", release, kFullAccess);
    }
    static Call WriteIndex(int index) {
        return call::WriteInt(HKEY_USERS, kRecord, L"LastestDPIIndex", index, kFullAccess);
    }
    static Call WriteValue(int value) {
        return call::WriteInt(HKEY_USERS, kRecord, L"LastestDPIValue", value, kFullAccess);
    }
    static Call ReadRecordInt(const std::wstring& name) {
        return call::ReadInt(HKEY_USERS, kRecord, name, kFullAccess);
    }
    static std::vector<Call> Writes() {
        std::vector<Call> calls = fakeutil::Calls();
        std::erase_if(calls, [](const Call& call) { return call.function != "DE::Registry::SetValue"; });
        return calls;
    }

    const querytest::FreedBlocks& freed = Freed();
    Displays displays{freed};
};

inline constexpr char kFirstPathsRequest[] = "\xfc\xff\xff\xff" // the request to set the scale
                                             "\x18\x00\x00\x00"
                                             "\x01\x02\x03\x04"
                                             "\x11\x12\x13\x14"
                                             "\x21\x22\x23\x24";

inline std::string RequestWithStep(int step) {
    std::string request(kFirstPathsRequest, kRequestSize - sizeof step);
    return request.append(reinterpret_cast<const char*>(&step), sizeof step);
}

inline constexpr wchar_t kNoSubKeysLine[] =
    L"GetLastestSystemDpi error: no-sub-keys(SystemEnvironment::GetLastestSystemDpi)\n";

} // namespace querytest
