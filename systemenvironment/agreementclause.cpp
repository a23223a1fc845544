// Does the user's acceptance of the agreement clause, as the login guide recorded it, still hold?
// The marker "Protocol" is what the login guide stored; its version, the machine-wide expiry mark and the
// agreement judgement can each take it back.
// A query whose sources throw, for want of memory or for a malformed version, gives its failure value.

#include "agreementsign.h"
#include "common/win/utf8.h"
#include "sdk/util/process.h"
#include "sdk/util/registry.h"
#include "sdk/util/text.h"
#include "systemenvironment.h"
#include "systemenvironment/debugline.h"

#include <windows.h>

#include <string>

namespace {

constexpr wchar_t kExpiryKey[] = L"\\SOFTWARE\\Calvora\\setting\\expireLogin"; // one value a user, named by the SID
constexpr wchar_t kUserLoginGuideKey[] = L"\\SOFTWARE\\Calvora\\KXLoginGuide"; // below the SID
constexpr wchar_t kProtocolName[] = L"Protocol";
constexpr wchar_t kProtocolVersionName[] = L"ProtocolVer";
constexpr wchar_t kRequiredVersion[] = L"9";
constexpr char kExpired[] = "1";
constexpr wchar_t kResetProtocol[] = L"0";
constexpr char kNotAccepted[] = "0";

bool ReadProtocolVersion(std::wstring& out) {
    const std::wstring key = KXPROCESS::GetCurrentUserSidstr() + kUserLoginGuideKey;
    return DE::Registry::GetValue(HKEY_USERS, key, kProtocolVersionName, out, KEY_READ);
}

/** Throws std::invalid_argument or std::out_of_range for a stored version that is no number. */
bool IsProtocolVersionCurrent() {
    std::wstring version;
    if (!ReadProtocolVersion(version)) {
        return false;
    }
    const unsigned long required = std::stoul(kRequiredVersion);
    const unsigned long stored = std::stoul(version);
    return required <= stored;
}

} // namespace

std::string SystemEnvironment::IsAgreeClause() noexcept try {
    const std::wstring sid = KXPROCESS::GetCurrentUserSidstr();
    std::wstring storedExpiry;
    DE::Registry::GetValue(HKEY_LOCAL_MACHINE, kExpiryKey, sid, storedExpiry, KEY_ALL_ACCESS);
    const std::wstring loginGuideKey = sid + kUserLoginGuideKey;
    std::wstring storedProtocol;
    DE::Registry::GetValue(HKEY_USERS, loginGuideKey, kProtocolName, storedProtocol, KEY_ALL_ACCESS);
    const std::string expiry = DE::UnicodeToANSI(storedExpiry);
    std::string protocol = DE::UnicodeToANSI(storedProtocol);
    if (expiry == kExpired) {
        DE::Registry::SetValue(HKEY_USERS, loginGuideKey, kProtocolName, kResetProtocol, KEY_ALL_ACCESS);
        debugline::Write("SystemEnvironment::IsAgreeClause", "current agreeClause is expired ", sid);
        return kNotAccepted;
    }
    if (protocol.empty() || !IsProtocolVersionCurrent()) {
        return kNotAccepted;
    }
    const int judgement = AgreementSign::JudgeAgreementSign();
    if (judgement == AgreementSign::kNoRecord || judgement == AgreementSign::kMustSignAgain) {
        return kNotAccepted;
    }
    return protocol;
} catch (...) {
    return kNotAccepted;
}

std::string SystemEnvironment::GetLoginGuideProtocol() noexcept try {
    const std::wstring key = KXPROCESS::GetCurrentUserSidstr() + kUserLoginGuideKey;
    std::wstring stored;
    DE::Registry::GetValue(HKEY_USERS, key, kProtocolName, stored, KEY_ALL_ACCESS);
    std::string protocol = kx::Utf8FromWide(stored);
    if (!IsProtocolVersionCurrent() || protocol.empty()) {
        return kNotAccepted;
    }
    return protocol;
} catch (...) {
    return kNotAccepted;
}
