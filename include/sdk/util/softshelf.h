/**
 * @file
 * The suite's software shelf (Util.dll).
 */
#pragma once

#include "sdk/util/utilexport.h"

#include <string>

/**
 * The plug-ins that this installation supports, from the product profile, which every call reads afresh. Nothing
 * is thrown but std::bad_alloc; may be called from any thread.
 */
class KXUTIL_API ZLKSoftShelf {
public:
    ZLKSoftShelf(const ZLKSoftShelf&) = delete;
    ZLKSoftShelf& operator=(const ZLKSoftShelf&) = delete;

    /** The one object, never null; it belongs to the library. */
    static ZLKSoftShelf* GetInstance();

    /** Whether the product profile lists the plug-in @p name (exact, case-sensitive); false without a profile. */
    bool IsSupportPlugin(const std::string& name) const;

private:
    ZLKSoftShelf() = default;
    ~ZLKSoftShelf() = default;
};
