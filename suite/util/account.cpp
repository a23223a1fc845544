// The agreement service's per-user flags, and whether the service is in use at all.
#include "sdk/util/account.h"

#include "productprofile.h"
#include "sdk/util/process.h"
#include "sdk/util/registry.h"
#include "sdk/util/text.h"

namespace {

std::wstring PathOfCurrentUser(const std::wstring& keyPath) {
    const std::wstring sid = KXPROCESS::GetCurrentUserSidstr();
    return keyPath.starts_with(L'\\') ? sid + keyPath : sid + L'\\' + keyPath;
}

} // namespace

bool AccountUtil::IsSupportTms() {
    return kxutil::ProductProfile::Load().UsesAgreementService();
}

std::string AccountUtil::GetFlag(const std::wstring& keyPath, const std::string& valueName) {
    std::wstring value;
    DE::Registry::GetValue(HKEY_USERS, PathOfCurrentUser(keyPath), DE::ANSIToUnicode(valueName), value, KEY_READ);
    return DE::UnicodeToANSI(value);
}

std::wstring AccountUtil::CreateRegeditPath(const std::string& keyPath) {
    return PathOfCurrentUser(DE::ANSIToUnicode(keyPath));
}
