// Is a file beside the host executable the one that was shipped?
// The manifest "config\CheckFileIntergrity.xml" lists paths and SHA-256 digests; both it and the file lie in the
// folder of the host executable, not of this library.
// A query whose sources throw, for want of memory, gives its failure value.

#include "common/answeror.h"
#include "sdk/util/file.h"
#include "sdk/util/xml.h"
#include "systemenvironment.h"
#include "systemenvironment/debugline.h"

#include <shlwapi.h>
#include <windows.h>

#include <string>

namespace {

constexpr char kManifestPath[] = "\\config\\CheckFileIntergrity.xml"; // the file's name has the extra r
constexpr char kEntryElement[] = "FileAttributes";
constexpr char kPathAttribute[] = "Path";
constexpr char kDigestAttribute[] = "Sha256";

std::string HostFolder() {
    char path[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    PathRemoveFileSpecA(path);
    return path;
}

bool IsEntryFor(const KxXmlElement& entry, const std::string& fileName) {
    const KxXmlAttribute path = entry.FirstAttribute(kPathAttribute);
    return !path.IsAttributeNull() && path.Value() == fileName;
}

/** Whether the entry carries the file's digest, which is computed afresh; reports why not. */
bool DigestAgrees(const KxXmlElement& entry, const std::string& fileName, const std::string& filePath) {
    constexpr char kFunction[] = "SystemEnvironment::CompareFileIntergrity";
    const std::string computed = DE::GetFileSha256Hex(filePath);
    const KxXmlAttribute digest = entry.FirstAttribute(kDigestAttribute);
    std::string expected;
    if (digest.IsAttributeNull()) {
        debugline::Write(kFunction, "Sha256 Check sha node null");
    } else {
        expected = digest.Value();
        if (!computed.empty() && expected == computed) { // a file that cannot be read has an empty digest
            return true;
        }
    }
    debugline::Write(kFunction, "Sha256 Check faild ", fileName, " pluginsha256:", computed,
                     " fileNodeSha256:", expected);
    return false;
}

bool ManifestVouchesFor(const std::string& fileName) {
    constexpr char kFunction[] = "SystemEnvironment::CompareFileIntergrity";
    std::string filePath = HostFolder();
    std::string xmlPath = filePath;
    if (!CheckFileAndXmlExist(fileName, filePath, xmlPath)) {
        return false;
    }
    KxXMLDocument manifest;
    if (manifest.LoadFile(xmlPath) != 0) {
        debugline::Write(kFunction, "load xml file failed");
        return false;
    }
    const KxXmlElement root = manifest.RootElement();
    if (root.IsElementNull()) {
        debugline::Write(kFunction, "node1 is nullptr ");
        return false;
    }
    // The walk starts at the first entry by name; from there on every sibling is read, whatever its name.
    for (KxXmlElement entry = root.FirstNode(kEntryElement); !entry.IsElementNull();
         entry = entry.NextSiblingElement("")) {
        if (IsEntryFor(entry, fileName) && DigestAgrees(entry, fileName, filePath)) {
            return true;
        }
    }
    return false;
}

} // namespace

bool CheckFileAndXmlExist(const std::string& fileName, std::string& filePath, std::string& xmlPath) noexcept try {
    constexpr char kFunction[] = "CheckFileAndXmlExist";
    filePath += "\\";
    filePath += fileName;
    if (!DE::FileExists(filePath)) {
        debugline::Write(kFunction, "filePath is not exist: ", fileName);
        return false;
    }
    xmlPath += kManifestPath;
    if (!DE::FileExists(xmlPath)) {
        debugline::Write(kFunction, "CheckFileIntergrity.xml is not exist ");
        return false;
    }
    return true;
} catch (...) {
    return false;
}

bool SystemEnvironment::CompareFileIntergrity(const std::string& fileName) noexcept {
    return kx::AnswerOr(false, [&] { return ManifestVouchesFor(fileName); });
}
