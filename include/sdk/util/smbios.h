/**
 * @file
 * Texts of the machine's SMBIOS table (Util.dll).
 */
#pragma once

#include "sdk/util/utilexport.h"

#include <string>

/**
 * The texts that the suite uses from the SMBIOS table. The table is read from the firmware on first use and
 * kept while the process runs; one that could not be read is asked for again by the next call. Every text is as the
 * firmware wrote it, each byte widened to one character; it is empty when the table does not hold it. Nothing is thrown
 * but std::bad_alloc; may be called from any thread.
 */
class KXUTIL_API SmBiosHelper {
public:
    SmBiosHelper(const SmBiosHelper&) = delete;
    SmBiosHelper& operator=(const SmBiosHelper&) = delete;

    /** The one object, never null; it belongs to the library. */
    static SmBiosHelper* GetInstance();

    /** SKU number of the system record (type 1). */
    std::wstring GetSysSKU() const;

    /** Secondary SKU: the SKU number of the chassis, from the enclosure record (type 3). */
    std::wstring GetSecSKU() const;

    /** First string of the OEM strings record (type 11). */
    std::wstring GetOemString1() const;

    /** Version of the system record (type 1). */
    std::wstring GetBIOSSysVersion() const;

private:
    SmBiosHelper() = default;
    ~SmBiosHelper() = default;
};
