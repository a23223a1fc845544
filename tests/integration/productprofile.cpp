// Writes the product profile where Util.dll looks for it.
#include "productprofile.h"

#include "support/hostfolder.h"

namespace profiletest {

std::filesystem::path ProfileFile() {
    return kxtest::OwnFolder() / "config" / "ProductProfile.xml";
}

void WriteProfile(const std::string& content) {
    kxtest::WriteFileBytes(ProfileFile(), "<ProductProfile>" + content + "</ProductProfile>");
}

} // namespace profiletest
