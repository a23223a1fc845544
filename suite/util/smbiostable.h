// Reads texts out of an SMBIOS table, whose bytes nobody vouches for. Needs no Windows header, so that it can be
// fuzzed natively.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace kxutil {

/**
 * One firmware table, as GetSystemFirmwareTable('RSMB') returns it: an eight-byte header and the structures.
 *
 * Each query looks at the first structure of its type. A text is empty when there is no such structure, when the
 * structure is too short to have the field, or when the field names no string. What a damaged table holds before the
 * damage can still be read.
 */
class SmBiosTable {
public:
    explicit SmBiosTable(std::span<const std::uint8_t> rawTable);

    /** Version of the system record (type 1). */
    std::string SystemVersion() const;

    /** SKU number of the system record (type 1; tables of version 2.4 and later). */
    std::string SystemSku() const;

    /** SKU number of the enclosure record (type 3; tables of version 2.7 and later). */
    std::string ChassisSku() const;

    /** First string of the OEM strings record (type 11). */
    std::string FirstOemString() const;

private:
    struct Structure {
        std::span<const std::uint8_t> formatted; /**< the header and the fields */
        std::span<const std::uint8_t> strings;   /**< zero-terminated strings, the last terminator included */
    };

    std::optional<Structure> Find(std::uint8_t type) const;
    static std::string StringOf(const Structure& structure, size_t number);
    static std::string StringNamedAt(const std::optional<Structure>& structure, size_t offset);

    std::vector<std::uint8_t> m_structures;
};

} // namespace kxutil
