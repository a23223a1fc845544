// Fuzz target: an XML file, as whoever may write it could leave it, before everybody who reads one: the XML wrapper,
// the integrity manifest, the device switches, the table of log types and the product profile.
#include "sdk/util/file.h"
#include "sdk/util/xml.h"
#include "suite/util/productprofile.h"
#include "systemenvironment.h"

#include <windows.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace {

constexpr char kDigest[] = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

void Require(bool isTrue) {
    if (!isTrue) {
        std::abort();
    }
}

void Walk(const KxXmlElement& first, int depth) {
    constexpr int kEnough = 64;
    int siblings = 0;
    for (KxXmlElement element = first; !element.IsElementNull() && siblings < kEnough;
         element = element.NextSiblingElement(""), ++siblings) {
        Require(element.Value().find('\0') == std::string::npos);
        for (const char* name : {"Path", "Sha256", "support", "ID", "", "no such attribute"}) {
            const KxXmlAttribute attribute = element.FirstAttribute(name);
            Require(!attribute.IsAttributeNull() || attribute.Value().empty());
        }
        if (depth < kEnough) {
            Walk(element.FirstNode(""), depth + 1);
        }
    }
}

// A manifest vouches for a file only when it has the digest's 64 digits in it.
void ReadManifest(std::string_view file) {
    if (SystemEnvironment::CompareFileIntergrity("KXVCR.exe")) {
        Require(file.find("FileAttributes") != std::string_view::npos);
        Require(file.size() >= sizeof kDigest);
    }
}

void ReadProfile() {
    const kxutil::ProductProfile profile = kxutil::ProductProfile::Load();
    Require(profile.IsLoaded() || !profile.ProductName());
    Require(!profile.ProductName() || !profile.ProductName()->empty());
    profile.ProductIndex();
    profile.Feature("Fingerprint");
    profile.PromoteParams("default");
    profile.ListsPlugin("SynergyPYP");
    profile.UsesAgreementService();
}

} // namespace

// What stands beside the readers: the files of the machine.
bool DE::FileExists(const std::string&) {
    return true;
}
std::string DE::GetFileSha256Hex(const std::string&) {
    return kDigest;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    native::SetFile({data, size});
    KxXMLDocument document;
    if (document.LoadFile("file.xml") == 0) {
        Walk(document.RootElement(), 0);
    } else {
        Require(document.RootElement().IsElementNull());
    }
    ReadManifest({reinterpret_cast<const char*>(data), size});
    SystemEnvironment::IsSupportDeviceFunc("Group", "Function");
    Require(SystemEnvironment::GetStringNameById(7).find('\0') == std::string::npos);
    ReadProfile();
    return 0;
}
