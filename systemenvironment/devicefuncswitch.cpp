// Is a function of the suite switched on for this device model and for this user?
// The model's switches are elements of "config\DeviceFuncSwitchConf.xml" in the folder of the host executable; the
// user's switch for the automatic repair is a registry value.
// A query whose sources throw, for want of memory, gives its failure value.

#include "common/answeror.h"
#include "sdk/util/process.h"
#include "sdk/util/productadapt.h"
#include "sdk/util/registry.h"
#include "sdk/util/xml.h"
#include "systemenvironment.h"
#include "systemenvironment/debugline.h"

#include <shlwapi.h>
#include <windows.h>

#include <cstdlib>
#include <string>

namespace {

constexpr char kSwitchFile[] = "config\\DeviceFuncSwitchConf.xml";
constexpr char kSupportAttribute[] = "support";
constexpr char kNameEnd = ';'; // after every product name in the list, the last one included

constexpr wchar_t kSettingKey[] = L"\\SOFTWARE\\Calvora\\setting"; // below the SID
constexpr wchar_t kAutoRepairName[] = L"AutoRepair";
constexpr char kClauseNotAccepted[] = "0";

/** The path of the switch file, or an empty text when it cannot be built or the file does not exist. */
std::string SwitchFilePath() {
    char path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
    if (length == 0 || length == MAX_PATH) { // failed or cut
        return {};
    }
    if (!PathRemoveFileSpecA(path) || !PathAppendA(path, kSwitchFile) || !PathFileExistsA(path)) {
        return {};
    }
    return path;
}

/** An empty name would stand for any child, but no element is called so. */
KxXmlElement FirstChildNamed(const KxXmlElement& parent, const std::string& name) {
    return name.empty() ? KxXmlElement() : parent.FirstNode(name);
}

/** strtol is atoi with a defined result for a number that does not fit. */
bool SaysOn(const std::string& text) {
    return std::strtol(text.c_str(), nullptr, 10) == 1;
}

bool IsSwitchedOn(const std::string& groupName, const std::string& funcName) {
    constexpr char kFunction[] = "SystemEnvironment::IsSupportDeviceFunc";
    const std::string path = SwitchFilePath();
    if (path.empty()) {
        return false;
    }
    KxXMLDocument switches;
    if (switches.LoadFile(path) != 0) {
        debugline::Write(kFunction, "load xml file failed");
        return false;
    }
    const KxXmlElement root = switches.RootElement();
    if (root.IsElementNull()) {
        debugline::Write(kFunction, "root is nullptr ");
        return false;
    }
    const KxXmlElement group = FirstChildNamed(root, groupName);
    if (group.IsElementNull()) {
        return false;
    }
    const KxXmlElement function = FirstChildNamed(group, funcName);
    if (function.IsElementNull()) {
        return false;
    }
    return SaysOn(function.Value()) && IsProductInSupportList(function);
}

} // namespace

bool SystemEnvironment::IsSupportDeviceFunc(const std::string& groupName, const std::string& funcName) noexcept {
    return kx::AnswerOr(false, [&] { return IsSwitchedOn(groupName, funcName); });
}

bool IsProductInSupportList(const KxXmlElement& function) noexcept try {
    const KxXmlAttribute support = function.FirstAttribute(kSupportAttribute);
    if (support.IsAttributeNull()) {
        return true;
    }
    const std::string products = support.Value();
    if (products.empty()) {
        return true;
    }
    std::string product;
    if (ProductAdapt::MachineType::GetInstance().GetProductName(product) != 0 || product.empty()) {
        return false;
    }
    return products.find(product + kNameEnd) != std::string::npos;
} catch (...) {
    return false;
}

bool SystemEnvironment::IsAutoRepairEnabled() noexcept try {
    if (IsAgreeClause() == kClauseNotAccepted) {
        return false;
    }
    const std::wstring key = KXPROCESS::GetCurrentUserSidstr() + kSettingKey;
    unsigned long enabled = 0;
    return DE::Registry::GetValue(HKEY_USERS, key, kAutoRepairName, enabled, KEY_ALL_ACCESS) && enabled == 1;
} catch (...) {
    return false;
}
