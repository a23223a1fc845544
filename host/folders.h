/**
 * @file
 * Where things lie: the host executable's folder, and relative names made full.
 */
#pragma once

#include <string>

namespace kxrecord {

/** The folder of kxrecord.exe, without a trailing separator. @throws std::runtime_error when the system fails */
std::wstring HostFolder();

/** @p path made full against the current folder. @throws std::runtime_error when the system fails */
std::wstring FullPath(const std::wstring& path);

/** The folder of the suite's logs when the host's own cannot be written; empty when the system does not tell. */
std::wstring LocalLogFolder();

/** Whether @p path names an existing file; a folder is not a file. */
bool IsFile(const std::wstring& path);

} // namespace kxrecord
