/**
 * @file
 * Control interface of the scriptable Util.dll, text part. Text conversions are the real library's and are not
 * recorded; ThrowFrom works on them ("DE::UnicodeToANSI").
 */
#pragma once

#include "fakes/fakeutil.h"

#include <string>
#include <vector>

namespace fakeutil {

/** Decides whether DE::WcharToChar has no narrow copy for a text and gives null. */
FAKEUTIL_API void ScriptNarrowCopyFails(Script<bool, const std::wstring&> script);

/** The blocks that DE::WcharToChar handed out since Reset, oldest first. */
FAKEUTIL_API std::vector<const void*> NarrowCopies();

} // namespace fakeutil
