/**
 * @file
 * The agreement service's records of the current user (Util.dll).
 */
#pragma once

#include "sdk/util/utilexport.h"

#include <string>

/**
 * Static helpers over the current user's registry. Per-user keys are addressed under HKEY_USERS by the SID of the
 * user who owns the process. Nothing is thrown but std::bad_alloc; may be called from any thread.
 */
class KXUTIL_API AccountUtil {
public:
    AccountUtil() = delete;

    /** Whether this installation uses the agreement service, as the product profile says; false when it is unknown. */
    static bool IsSupportTms();

    /**
     * A text value of the current user, in the process's ANSI code page. The key is opened with KEY_READ.
     * @param keyPath   path below the user's SID; one backslash in front is accepted
     * @param valueName the value's name, in the process's ANSI code page
     * @return an empty string when the key or the value is missing or is no text
     */
    static std::string GetFlag(const std::wstring& keyPath, const std::string& valueName);

    /**
     * The current user's path under HKEY_USERS: the user's SID, a backslash and @p keyPath.
     * @param keyPath in the process's ANSI code page; a backslash in front is not doubled
     */
    static std::wstring CreateRegeditPath(const std::string& keyPath);
};
