/**
 * @file
 * A step of a writer that may find no memory.
 */
#pragma once

#include <new>

namespace kxvcr {

/** Runs @p step, which says whether it succeeded; memory that is refused is a failure like a write that is. */
template <class Step>
bool Attempt(Step step) {
    try {
        return step();
    } catch (const std::bad_alloc&) {
        return false;
    }
}

} // namespace kxvcr
