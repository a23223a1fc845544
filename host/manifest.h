/**
 * @file
 * Writes the suite's integrity manifest, "config\CheckFileIntergrity.xml" beside kxrecord.exe.
 */
#pragma once

#include "host/exitcode.h"

#include <string>
#include <vector>

namespace kxrecord {

struct ManifestOptions {
    std::vector<std::wstring> files; ///< paths relative to kxrecord.exe's folder; entered exactly as given
    bool json = false;               ///< one JSON object instead of lines
};

/**
 * Enters the SHA-256 digests of files into the manifest. Entries of other files stay; an entry with the same path
 * gets the new digest. The manifest is replaced in one step: on failure the old one is untouched.
 * @return how the process ends; a failure has been reported
 */
Exit WriteManifest(const ManifestOptions& options);

} // namespace kxrecord
