// The firmware's SMBIOS table, read once for the process.
#include "sdk/util/smbios.h"

#include "smbiostable.h"

#include <windows.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <vector>

namespace {

constexpr DWORD kSmBiosProvider = 0x52534D42; // 'RSMB'

std::vector<std::uint8_t> ReadFirmwareTable() {
    std::vector<std::uint8_t> table;
    for (;;) {
        const UINT size = GetSystemFirmwareTable(kSmBiosProvider, 0, table.data(), static_cast<DWORD>(table.size()));
        if (size <= table.size()) {
            table.resize(size);
            return table;
        }
        table.resize(size);
    }
}

const kxutil::SmBiosTable& FirmwareTable() {
    static const kxutil::SmBiosTable table(ReadFirmwareTable());
    return table;
}

using Query = std::string (kxutil::SmBiosTable::*)() const;

std::wstring Ask(Query query) try {
    const std::string text = (FirmwareTable().*query)();
    std::wstring wide;
    wide.reserve(text.size());
    std::transform(text.begin(), text.end(), std::back_inserter(wide),
                   [](char character) { return static_cast<wchar_t>(static_cast<unsigned char>(character)); });
    return wide;
} catch (const std::exception&) {
    return {};
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
