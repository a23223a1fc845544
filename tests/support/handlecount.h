/** @file Counts the open handles of this process. */
#pragma once

#include <cstddef>

namespace kxtest {

/** Handles that this process has open, from the system's handle list. Throws std::runtime_error when it is not given.
 */
std::size_t OpenHandleCount();

/**
 * Whether something that was done @p times left a handle each time. The C++ run-time library opens a handle of its own
 * now and then, at a lock's first contention for example; those are fewer.
 */
bool HandlesLeakedSince(std::size_t before, std::size_t times);

} // namespace kxtest
