/**
 * @file
 * Exceptions out of the scriptable Util.dll, as an allocation that fails inside the real one would cause them.
 */
#pragma once

#include "fakes/fakeutil.h"

#include <string>

namespace fakeutil {

/**
 * Makes one call of @p function throw std::bad_alloc, after it was recorded.
 * @param function as the library's headers name it, such as "DE::Registry::GetValue"
 * @param nth      1 is the next call
 */
FAKEUTIL_API void ThrowFrom(const std::string& function, int nth = 1);

/** Whether a call that ThrowFrom announced has not come yet. */
FAKEUTIL_API bool IsThrowPending();

} // namespace fakeutil
