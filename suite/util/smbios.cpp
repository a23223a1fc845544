// The firmware's SMBIOS table, kept for the process once it has been read.
#include "sdk/util/smbios.h"

#include "outofmemory.h"
#include "smbiostable.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <iterator>
#include <memory>
#include <vector>

namespace {

constexpr DWORD kSmBiosProvider = 0x52534D42; // 'RSMB'

/** The table's bytes; none when the firmware does not give it. */
std::vector<std::uint8_t> ReadFirmwareTable() {
    std::vector<std::uint8_t> table;
    for (;;) {
        const UINT size = GetSystemFirmwareTable(kSmBiosProvider, 0, table.data(), static_cast<DWORD>(table.size()));
        if (size <= table.size()) {
            if (size == 0) {
                kxutil::ThrowIfOutOfMemory(GetLastError());
            }
            table.resize(size);
            return table;
        }
        table.resize(size);
    }
}

/** The table, which belongs to the process; null when it cannot be read now, so that the next query tries again. */
const kxutil::SmBiosTable* FirmwareTable() {
    static std::atomic<const kxutil::SmBiosTable*> s_table{nullptr};
    if (const auto* const known = s_table.load()) {
        return known;
    }
    const std::vector<std::uint8_t> bytes = ReadFirmwareTable();
    if (bytes.empty()) {
        return nullptr;
    }
    auto table = std::make_unique<const kxutil::SmBiosTable>(bytes);
    const kxutil::SmBiosTable* other = nullptr;
    return s_table.compare_exchange_strong(other, table.get()) ? table.release() : other;
}

using Query = std::string (kxutil::SmBiosTable::*)() const;

std::wstring Ask(Query query) {
    const kxutil::SmBiosTable* const table = FirmwareTable();
    const std::string text = table != nullptr ? (table->*query)() : std::string();
    std::wstring wide;
    wide.reserve(text.size());
    std::transform(text.begin(), text.end(), std::back_inserter(wide),
                   [](char character) { return static_cast<wchar_t>(static_cast<unsigned char>(character)); });
    return wide;
}

} // namespace

SmBiosHelper* SmBiosHelper::GetInstance() {
    static SmBiosHelper instance;
    return &instance;
}

std::wstring SmBiosHelper::GetSysSKU() const {
    return Ask(&kxutil::SmBiosTable::SystemSku);
}

std::wstring SmBiosHelper::GetSecSKU() const {
    return Ask(&kxutil::SmBiosTable::ChassisSku);
}

std::wstring SmBiosHelper::GetOemString1() const {
    return Ask(&kxutil::SmBiosTable::FirstOemString);
}

std::wstring SmBiosHelper::GetBIOSSysVersion() const {
    return Ask(&kxutil::SmBiosTable::SystemVersion);
}
