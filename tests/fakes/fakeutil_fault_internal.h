/** @file The entry of every function of the scriptable Util.dll that can be told to throw. */
#pragma once

#include "fakes/fakeutil_internal.h"

#include <string>

namespace fakeutil {

/** Throws std::bad_alloc when ThrowFrom asked for it. */
void ThrowIfAsked(const std::string& function);

/** Records the call; then as ThrowIfAsked. */
inline void Enter(const std::string& function, const std::string& argument) {
    Record(function, argument);
    ThrowIfAsked(function);
}

inline void Enter(const Call& call) {
    Enter(call.function, call.argument);
}

/** @p text as UTF-8, for a record. */
std::string Utf8(const std::wstring& text);

} // namespace fakeutil
