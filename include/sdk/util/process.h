/**
 * @file
 * Facts about the running process (Util.dll).
 */
#pragma once

#include "sdk/util/utilexport.h"

#include <string>

/** Static queries about the running process. Nothing is thrown but std::bad_alloc; may be called from any thread. */
class KXUTIL_API KXPROCESS {
public:
    KXPROCESS() = delete;

    /**
     * The SID of the user who owns the process, from the process token, such as "S-1-5-18". It names the user's
     * hive under HKEY_USERS. An empty string when the token cannot be read.
     */
    static std::wstring GetCurrentUserSidstr();
};
