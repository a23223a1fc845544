/** @file Made-up firmware tables, and their way to the real Util.dll. */
#pragma once

#include "support/importpatch.h"

#include <windows.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace firmwaretest {

using Bytes = std::vector<std::uint8_t>;

/** Appends @p range to @p bytes. Byte by byte: the compiler mistakes a range inserted into a short vector for an
 * overflow.
 */
template <typename Range>
void Append(Bytes& bytes, const Range& range) {
    for (const auto value : range) {
        bytes.push_back(static_cast<std::uint8_t>(value));
    }
}

/** One structure: type, fields behind the header, strings. Its length byte is right unless another is given. */
Bytes Structure(std::uint8_t type, const Bytes& fields, const std::vector<std::string>& strings, int length = -1);

/** The block that the firmware call returns: version, length, structures. */
Bytes Table(std::uint8_t major, std::uint8_t minor, std::initializer_list<Bytes> structures);

/** Answers the firmware call of this process's Util.dll with a table until the object goes. */
class MachineTable {
public:
    explicit MachineTable(Bytes table);

private:
    kxtest::ImportHook<"KERNEL32.dll", "GetSystemFirmwareTable", decltype(GetSystemFirmwareTable)> m_hook;
};

} // namespace firmwaretest
