/**
 * @file
 * Queries to Windows Management Instrumentation (Util.dll).
 */
#pragma once

#include "sdk/util/utilexport.h"

#include <memory>
#include <string>

/**
 * A connection to one WMI namespace. It works on a thread of any apartment, or of none: it joins the multithreaded
 * apartment only where the thread has not entered one, and leaves what it entered. An object is made, used and
 * destroyed on one thread. Nothing is thrown but std::bad_alloc; calls wait for WMI's answer, at most 30 seconds for a
 * query's first row.
 */
class KXUTIL_API WMI {
public:
    /** Connects to a namespace of this machine, such as "ROOT\CIMV2". A failure shows in SelectStr. */
    explicit WMI(const std::wstring& nameSpace);
    ~WMI();

    WMI(const WMI&) = delete;
    WMI& operator=(const WMI&) = delete;

    /**
     * A property of a query's first row, as text.
     * @param query    in WQL, such as "SELECT * FROM Win32_BIOS"
     * @param property the property's name
     * @return an empty string when there is no connection, no row or no such property, or when the property is null
     *         or has no text form
     */
    std::wstring SelectStr(const std::wstring& query, const std::wstring& property) const;

private:
    struct Connection;
    std::unique_ptr<Connection> m_connection;
};
