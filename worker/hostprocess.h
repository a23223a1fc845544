/**
 * @file
 * Which process this worker records for.
 */
#pragma once

#include <cstdint>

namespace kxvcr {

/** The process id of the host, which started this process; 0 when the system does not tell. */
std::uint32_t HostProcessId() noexcept;

} // namespace kxvcr
