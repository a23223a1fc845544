/**
 * @file
 * The versions of this program, the library and the worker.
 */
#pragma once

#include <optional>
#include <string>

namespace kxrecord {

/** The version in a file's version record, "1.2.3"; none when the file or its record is missing. */
std::optional<std::string> FileVersion(const std::wstring& path);

/** A line for each of kxrecord, ScreenRecordProxy.dll and KXVCR.exe. */
std::string VersionsText();

} // namespace kxrecord
