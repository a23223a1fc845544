/** @file The registry keys that the queries read; of the user's the path below the SID. */
#pragma once

#include <string>

namespace integrationtest {

inline const std::wstring kService = L"Software\\Calvora\\AgreementService";
inline const std::wstring kGuide = L"SOFTWARE\\Calvora\\KXLoginGuide";
inline const std::wstring kSetting = L"SOFTWARE\\Calvora\\setting";
inline const std::wstring kExpiry = L"SOFTWARE\\Calvora\\setting\\expireLogin";
inline const std::wstring kPowerManager = L"Software\\Calvora\\ZLKPowerManager";
inline const std::wstring kCrashControl = L"SYSTEM\\CurrentControlSet\\Control\\CrashControl";
inline const std::wstring kSessionPower = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Power";
inline const std::wstring kWindows = L"Software\\Microsoft\\Windows NT\\CurrentVersion";
inline const std::wstring kBios = L"HARDWARE\\DESCRIPTION\\System\\BIOS";
inline const std::wstring kProduct = L"HARDWARE\\DESCRIPTION\\System\\Product";
inline const std::wstring kUserSettings = L"SOFTWARE\\Orvane\\Calvora\\setting";
inline const std::wstring kInternational = L"Control Panel\\International";
inline const std::wstring kMonitors = L"Control Panel\\Desktop\\PerMonitorSettings";
inline const std::wstring kDpiRecord = L"Software\\Calvora\\LastestSetting";

} // namespace integrationtest
