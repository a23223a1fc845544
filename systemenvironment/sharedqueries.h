/**
 * @file
 * What one query asks of another. The exported function of the same answer catches; these let std::bad_alloc out, so
 * that no query takes an answer lost for want of memory for one that is not there.
 */
#pragma once

#include <string>

namespace sharedqueries {

/** SystemEnvironment::GetOSReleaseId */
std::string OSReleaseId();

/** SystemEnvironment::GetVersionFromRegistry */
std::string VersionFromRegistry();

/** SystemEnvironment::GetBIOSVersion */
std::string BIOSVersion();

/** SystemEnvironment::GetDeviceId */
std::string DeviceId();

/** SystemEnvironment::GetOEMVersion */
std::string OEMVersion();

/** ::TrimOemVersion of a text */
std::string TrimmedOemVersion(std::string version);

/** SystemEnvironment::GetUnicodeString */
std::wstring OemFileText();

/** SystemEnvironment::GetStringNameById */
std::string LogTypeName(int id);

} // namespace sharedqueries
