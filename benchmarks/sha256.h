/**
 * @file
 * The fastest SHA-256 of a file that the machine has, as the floor of whatever computes one.
 */
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/** The digest of a file; empty when it cannot be read. By the processor's own instructions where it has them. */
std::vector<std::uint8_t> Sha256OfFile(const std::wstring& path);

/** The same by Windows' own library. */
std::vector<std::uint8_t> Sha256OfFileByWindows(const std::wstring& path);

} // namespace bench
