// Walks the structures once per query; every step goes forward by at least a structure's header.
#include "smbiostable.h"

#include <algorithm>
#include <array>

namespace kxutil {

namespace {

using Bytes = std::span<const std::uint8_t>;

// Layout of the block that Windows returns: four bytes of method and version, then the structures' length.
constexpr size_t kLengthOffset = 4;
constexpr size_t kRawHeaderBytes = 8;

constexpr std::uint8_t kTypeSystem = 1;
constexpr std::uint8_t kTypeEnclosure = 3;
constexpr std::uint8_t kTypeOemStrings = 11;
constexpr std::uint8_t kTypeEndOfTable = 127;

constexpr size_t kStructureHeaderBytes = 4;
constexpr size_t kSystemVersionOffset = 0x06;
constexpr size_t kSystemSkuOffset = 0x19;
constexpr size_t kEnclosureElementCountOffset = 0x13;
constexpr size_t kEnclosureElementLengthOffset = 0x14;
constexpr size_t kEnclosureElementsOffset = 0x15;
constexpr size_t kOemStringCountOffset = 0x04;

Bytes StructuresOf(Bytes rawTable) {
    if (rawTable.size() < kRawHeaderBytes) {
        return {};
    }
    size_t length = 0;
    for (size_t index = 0; index < 4; ++index) {
        length |= size_t{rawTable[kLengthOffset + index]} << (8 * index);
    }
    const Bytes structures = rawTable.subspan(kRawHeaderBytes);
    return structures.first(std::min(length, structures.size()));
}

} // namespace

SmBiosTable::SmBiosTable(Bytes rawTable) {
    const Bytes structures = StructuresOf(rawTable);
    m_structures.assign(structures.begin(), structures.end());
}

std::optional<SmBiosTable::Structure> SmBiosTable::Find(std::uint8_t type) const {
    constexpr std::array<std::uint8_t, 2> kEndOfStrings{0, 0};

    Bytes rest(m_structures);
    while (rest.size() >= kStructureHeaderBytes) {
        const std::uint8_t found = rest[0];
        const size_t length = rest[1];
        if (length < kStructureHeaderBytes || length > rest.size()) {
            return std::nullopt;
        }
        const Bytes behind = rest.subspan(length);
        const auto end = std::search(behind.begin(), behind.end(), kEndOfStrings.begin(), kEndOfStrings.end());
        const bool isWhole = end != behind.end();
        const auto stringBytes = static_cast<size_t>(end - behind.begin()) + (isWhole ? 1 : 0);
        if (found == type) {
            return Structure{rest.first(length), behind.first(stringBytes)};
        }
        if (found == kTypeEndOfTable || !isWhole) {
            return std::nullopt;
        }
        rest = behind.subspan(stringBytes + 1);
    }
    return std::nullopt;
}

// Strings are counted from 1. One that the table's end cuts off does not count.
std::string SmBiosTable::StringOf(const Structure& structure, size_t number) {
    auto begin = structure.strings.begin();
    for (size_t current = 1;; ++current) {
        const auto end = std::find(begin, structure.strings.end(), std::uint8_t{0});
        if (end == structure.strings.end()) {
            return {};
        }
        if (current == number) {
            return {begin, end};
        }
        begin = end + 1;
    }
}

std::string SmBiosTable::StringNamedAt(const std::optional<Structure>& structure, size_t offset) {
    if (!structure || offset >= structure->formatted.size()) {
        return {};
    }
    const size_t number = structure->formatted[offset];
    return number == 0 ? std::string() : StringOf(*structure, number);
}

std::string SmBiosTable::SystemVersion() const {
    return StringNamedAt(Find(kTypeSystem), kSystemVersionOffset);
}

std::string SmBiosTable::SystemSku() const {
    return StringNamedAt(Find(kTypeSystem), kSystemSkuOffset);
}

std::string SmBiosTable::ChassisSku() const {
    const auto enclosure = Find(kTypeEnclosure);
    if (!enclosure || enclosure->formatted.size() <= kEnclosureElementLengthOffset) {
        return {};
    }
    // The SKU number stands behind a list of contained elements, whose size the record gives.
    const size_t elementBytes = size_t{enclosure->formatted[kEnclosureElementCountOffset]} *
                                enclosure->formatted[kEnclosureElementLengthOffset];
    return StringNamedAt(enclosure, kEnclosureElementsOffset + elementBytes);
}

std::string SmBiosTable::FirstOemString() const {
    const auto record = Find(kTypeOemStrings);
    if (!record || record->formatted.size() <= kOemStringCountOffset || record->formatted[kOemStringCountOffset] == 0) {
        return {};
    }
    return StringOf(*record, 1);
}

} // namespace kxutil
