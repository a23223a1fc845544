// Feeds arbitrary bytes to the parser of the firmware's SMBIOS table.
#include "suite/util/smbiostable.h"

#include <cstdlib>

namespace {

// A text can only be a run of bytes of the table, without a zero.
void CheckText(const std::string& text, std::span<const std::uint8_t> table) {
    if (text.size() > table.size() || text.find('\0') != std::string::npos) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    const std::span<const std::uint8_t> bytes(data, size);
    const kxutil::SmBiosTable table(bytes);
    CheckText(table.SystemVersion(), bytes);
    CheckText(table.SystemSku(), bytes);
    CheckText(table.ChassisSku(), bytes);
    CheckText(table.FirstOemString(), bytes);
    return 0;
}
