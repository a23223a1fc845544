// Has the current user accepted the user agreement and the privacy statement in the versions in force?
// Records of acceptance and versions in force are values that the agreement service writes for each user. A path is
// below the user's SID; AccountUtil::GetFlag adds the SID itself, DE::Registry wants it in front.
// A query whose sources throw, for want of memory, gives its failure value.

#include "agreementsign.h"

#include "common/answeror.h"
#include "sdk/util/account.h"
#include "sdk/util/process.h"
#include "sdk/util/registry.h"
#include "sdk/util/text.h"

#include <windows.h>

// Macros, because these are needed both as narrow and as wide text, and the key as the beginning of longer ones.
#define AGREEMENT_SERVICE_KEY "\\Software\\Calvora\\AgreementService"
#define AGREE_CACHE_NAME "WndAgreeCache"

namespace {

constexpr char kServiceKeyNarrow[] = AGREEMENT_SERVICE_KEY;
constexpr wchar_t kServiceKey[] = L"" AGREEMENT_SERVICE_KEY;
constexpr char kUserLoginFlagName[] = "UserLoginFlag";
constexpr char kServerUpdatedFlagName[] = "ServerUpdatedFlag";
constexpr char kAgreeCacheNameNarrow[] = AGREE_CACHE_NAME;
constexpr wchar_t kAgreeCacheName[] = L"" AGREE_CACHE_NAME;
constexpr wchar_t kAgreeFlagName[] = L"AgreeFlag";

// Versions in force.
constexpr char kLoginServerKey[] = AGREEMENT_SERVICE_KEY "\\WithAccountLogin\\TMSVersion";
constexpr char kLoginLocalKey[] = AGREEMENT_SERVICE_KEY "\\WithAccountLogin\\LocalVersion";
constexpr char kNoLoginServerKey[] = AGREEMENT_SERVICE_KEY "\\WithoutAccountLogin\\TMSVersion";
constexpr char kNoLoginLocalKey[] = AGREEMENT_SERVICE_KEY "\\WithoutAccountLogin\\LocalVersion";

// Versions that the user accepted.
constexpr wchar_t kLoginRecordKey[] = L"" AGREEMENT_SERVICE_KEY "\\KXRecordWithLogin";
constexpr wchar_t kLoginCacheRecordKey[] = L"" AGREEMENT_SERVICE_KEY "\\KXRecordWithLoginCache";
constexpr wchar_t kNoLoginRecordKey[] = L"\\SOFTWARE\\Calvora\\AgreementService\\KXRecordWithoutLogin"; // upper case
constexpr wchar_t kUserAgreementSubKey[] = L"\\UserAgreement";
constexpr wchar_t kPrivacyStatementSubKey[] = L"\\PrivacyStatement";

constexpr wchar_t kAgreementName[] = L"133"; // the user agreement's number is its value's name
constexpr wchar_t kPrivacyName[] = L"10021"; // so is the privacy statement's
constexpr char kRecordVersionName[] = "Version";
constexpr char kBranchIdName[] = "BranchId";

constexpr char kFlagSet[] = "1";

struct Versions {
    std::string agreement;
    std::string privacy;
};

/** The server's versions when it has provided any, otherwise the local ones without login, logged in or not. */
Versions VersionsInForce(const char* serverKey) {
    const bool fromServer = AccountUtil::GetFlag(kServiceKey, kServerUpdatedFlagName) == kFlagSet;
    const char* key = fromServer ? serverKey : kNoLoginLocalKey;
    Versions inForce;
    inForce.agreement = AccountUtil::GetFlag(DE::ANSIToUnicode(key), DE::UnicodeToANSI(kAgreementName));
    inForce.privacy = AccountUtil::GetFlag(DE::ANSIToUnicode(key), DE::UnicodeToANSI(kPrivacyName));
    return inForce;
}

/** Versions are texts to the service: comparing them as numbers would judge other users than it does. */
int Judge(const Versions& accepted, const Versions& inForce) {
    const bool isOlder = accepted.agreement < inForce.agreement || accepted.privacy < inForce.privacy;
    return isOlder ? AgreementSign::kMustSignAgain : AgreementSign::kSigned;
}

bool UserKeyExists(const std::wstring& keyPath) {
    DE::Registry users;
    users.SetRootKey(HKEY_USERS);
    return users.KeyExists(KXPROCESS::GetCurrentUserSidstr() + keyPath);
}

// The judgements themselves may throw. Only the exported functions catch, so that a failure anywhere in a judgement
// makes the whole of it "not signed" instead of an answer from what is left.

bool IsAgreeCacheSet() {
    return AccountUtil::GetFlag(DE::ANSIToUnicode(kServiceKeyNarrow), kAgreeCacheNameNarrow) == kFlagSet;
}

int JudgeLoginRecord(const std::wstring& recordKey, const Versions& inForce) {
    if (!UserKeyExists(recordKey)) {
        return AgreementSign::kNoRecord;
    }
    Versions accepted;
    accepted.agreement = AccountUtil::GetFlag(recordKey, DE::UnicodeToANSI(kAgreementName));
    accepted.privacy = AccountUtil::GetFlag(recordKey, DE::UnicodeToANSI(kPrivacyName));
    return Judge(accepted, inForce);
}

int JudgeLogin() {
    const Versions inForce = VersionsInForce(kLoginServerKey);
    const int recorded = JudgeLoginRecord(kLoginRecordKey, inForce);
    if (recorded == AgreementSign::kSigned) {
        return AgreementSign::kSigned;
    }
    const int cached = JudgeLoginRecord(kLoginCacheRecordKey, inForce);
    return cached != AgreementSign::kNoRecord ? cached : recorded;
}

int JudgeWithoutLogin() {
    const std::wstring recordKey = kNoLoginRecordKey;
    if (!UserKeyExists(recordKey)) {
        return AgreementSign::kNoRecord;
    }
    Versions accepted;
    accepted.agreement = AccountUtil::GetFlag(recordKey + kUserAgreementSubKey, kRecordVersionName);
    accepted.privacy = AccountUtil::GetFlag(recordKey + kPrivacyStatementSubKey, kRecordVersionName);
    return Judge(accepted, VersionsInForce(kNoLoginServerKey));
}

} // namespace

int AgreementSign::JudgeAgreementSign() noexcept try {
    if (!AccountUtil::IsSupportTms()) {
        return kNotApplicable;
    }
    if (IsAgreeCacheSet()) {
        return kSigned;
    }
    const bool isLoggedIn = AccountUtil::GetFlag(kServiceKey, kUserLoginFlagName) == kFlagSet;
    return isLoggedIn ? JudgeLogin() : JudgeWithoutLogin();
} catch (...) {
    return kNoRecord;
}

int AgreementSign::JudgeAgreementSignLogin() noexcept {
    return kx::AnswerOr<int>(kNoRecord, JudgeLogin);
}

int AgreementSign::JudgeAgreementSignWithoutLogin() noexcept {
    return kx::AnswerOr<int>(kNoRecord, JudgeWithoutLogin);
}

bool AgreementSign::GetAgreeCache() noexcept {
    return kx::AnswerOr(false, IsAgreeCacheSet);
}

void AgreementSign::SetAgreeCache(bool agreed) noexcept try {
    const std::wstring key = AccountUtil::CreateRegeditPath(kServiceKeyNarrow);
    DE::Registry::SetValue(HKEY_USERS, key, kAgreeCacheName, agreed ? L"1" : L"0", KEY_ALL_ACCESS);
} catch (...) { // nobody to tell
}

int AgreementSign::JudgeWhenLogin(const std::wstring& recordKey, const std::string& agreementVersion,
                                  const std::string& privacyVersion) noexcept try {
    return JudgeLoginRecord(recordKey, {agreementVersion, privacyVersion});
} catch (...) {
    return kNoRecord;
}

int AgreementSign::JudgeBranchId(const std::wstring& recordKey) noexcept try {
    const bool isLoginRecord = recordKey == kLoginRecordKey || recordKey == kLoginCacheRecordKey;
    const std::wstring acceptedKey =
        isLoginRecord ? recordKey : std::wstring(kNoLoginRecordKey) + kPrivacyStatementSubKey;
    const char* inForceKey = isLoginRecord ? kLoginLocalKey : kNoLoginLocalKey;
    const std::string accepted = AccountUtil::GetFlag(acceptedKey, kBranchIdName);
    const std::string inForce = AccountUtil::GetFlag(DE::ANSIToUnicode(inForceKey), kBranchIdName);
    return accepted == inForce ? kSigned : kMustSignAgain;
} catch (...) {
    return kMustSignAgain;
}

void AgreementSign::RecordeAgreeFlag() noexcept try {
    const std::wstring key = KXPROCESS::GetCurrentUserSidstr() + kServiceKey;
    DE::Registry::SetValue(HKEY_USERS, key, kAgreeFlagName, L"1", KEY_ALL_ACCESS);
} catch (...) { // nobody to tell
}

void AgreementSign::DeleteAgreeFlag() noexcept try {
    const std::wstring key = KXPROCESS::GetCurrentUserSidstr() + kServiceKey;
    DE::Registry users;
    if (users.KeyExists(key) && users.OpenKey(HKEY_USERS, key, false)) {
        users.DeleteValue(kAgreeFlagName);
    }
} catch (...) { // nobody to tell
}
