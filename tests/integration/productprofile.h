/** @file The product profile beside the Util.dll of a test program that stands in its host folder. */
#pragma once

#include <filesystem>
#include <string>

namespace profiletest {

std::filesystem::path ProfileFile();

/** Writes the profile with @p content between the tags of its root. Throws std::runtime_error on failure. */
void WriteProfile(const std::string& content);

} // namespace profiletest
