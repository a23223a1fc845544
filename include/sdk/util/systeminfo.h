/**
 * @file
 * Display facts of the system (Util.dll).
 */
#pragma once

#include "sdk/util/utilexport.h"

/** Facts about the system, asked afresh by each call. Nothing throws; may be called from any thread. */
class KXUTIL_API SystemInfo {
public:
    SystemInfo();
    ~SystemInfo(); // NOLINT(performance-trivially-destructible): the library exports it, empty or not

    /** The system DPI in dots per inch, 96 for a scaling of 100 per cent; 96 when it cannot be read. */
    int GetSystemDPI() const;
};
