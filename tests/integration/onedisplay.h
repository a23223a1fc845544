/** @file A machine with one display, for the library under test. */
#pragma once

#include "support/importpatch.h"

#include <windows.h>

#include <cstdint>
#include <cstring>

namespace integrationtest {

/** Takes every step of the scaling, keeps the newest one and counts the requests; needs no memory for that. */
struct OneDisplay {
    int requests = 0;
    std::int32_t step = 0;

    kxtest::ImportHook<"USER32.dll", "GetDisplayConfigBufferSizes", decltype(GetDisplayConfigBufferSizes)> sizes{
        [](UINT32, UINT32* paths, UINT32* modes) -> LONG {
            *paths = 1;
            *modes = 1;
            return ERROR_SUCCESS;
        }};
    kxtest::ImportHook<"USER32.dll", "QueryDisplayConfig", decltype(QueryDisplayConfig)> query{
        [](auto...) -> LONG { return ERROR_SUCCESS; }};
    kxtest::ImportHook<"USER32.dll", "DisplayConfigSetDeviceInfo", decltype(DisplayConfigSetDeviceInfo)> set{
        [this](DISPLAYCONFIG_DEVICE_INFO_HEADER* header) -> LONG {
            ++requests;
            std::memcpy(&step, reinterpret_cast<const char*>(header) + sizeof *header, sizeof step);
            return ERROR_SUCCESS;
        }};
};

} // namespace integrationtest
