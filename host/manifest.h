/**
 * @file
 * Writes the suite's integrity manifest, "config\CheckFileIntergrity.xml" beside kxrecord.exe.
 */
#pragma once

#include <string>
#include <vector>

/**
 * Enters the SHA-256 digests of files into the manifest. Entries of other files stay; an entry with the same path
 * gets the new digest. The manifest is replaced in one step: on failure the old one is untouched.
 * @param files paths relative to kxrecord.exe's folder; entered exactly as given
 * @return the process's exit code; a failure has been reported on standard error
 */
unsigned long WriteManifest(const std::vector<std::wstring>& files);
