/** @file Counts the open handles of this process. */
#pragma once

#include <cstddef>

namespace kxtest {

/** Handles that this process has open, from the system's handle list. Throws std::runtime_error when it is not given.
 */
std::size_t OpenHandleCount();

} // namespace kxtest
