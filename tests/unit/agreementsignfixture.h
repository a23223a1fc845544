/** @file The agreement service's keys, the registry calls of the judgement's steps, and the tests' fixture. */
#pragma once

#include "queryfixture.h"

#include <string>
#include <vector>

namespace agreementtest {

using fakeutil::Call;
using querytest::kFullAccess;
using querytest::ThrowingCall;
namespace call = fakeutil::call;

inline constexpr int kSigned = -1;
inline constexpr int kNoRecord = 0;
inline constexpr int kSignAgain = 1;
inline constexpr int kNotApplicable = 2;

inline const std::wstring kService = L"\\Software\\Calvora\\AgreementService";
inline const std::wstring kLoginTms = L"\\Software\\Calvora\\AgreementService\\WithAccountLogin\\TMSVersion";
inline const std::wstring kLoginLocal = L"\\Software\\Calvora\\AgreementService\\WithAccountLogin\\LocalVersion";
inline const std::wstring kNoLoginTms = L"\\Software\\Calvora\\AgreementService\\WithoutAccountLogin\\TMSVersion";
inline const std::wstring kNoLoginLocal = L"\\Software\\Calvora\\AgreementService\\WithoutAccountLogin\\LocalVersion";
inline const std::wstring kLoginRecord = L"\\Software\\Calvora\\AgreementService\\KXRecordWithLogin";
inline const std::wstring kCacheRecord = L"\\Software\\Calvora\\AgreementService\\KXRecordWithLoginCache";
inline const std::wstring kNoLoginRecord = L"\\SOFTWARE\\Calvora\\AgreementService\\KXRecordWithoutLogin";
inline const std::wstring kUserAgreement =
    L"\\SOFTWARE\\Calvora\\AgreementService\\KXRecordWithoutLogin\\UserAgreement";
inline const std::wstring kPrivacyStatement =
    L"\\SOFTWARE\\Calvora\\AgreementService\\KXRecordWithoutLogin\\PrivacyStatement";

inline std::wstring OfUser(const std::wstring& key) {
    return fakeutil::kDefaultSid + key;
}
inline void SetFlag(const std::wstring& key, const std::wstring& name, const std::wstring& value) {
    fakeutil::SetRegistryValue(HKEY_USERS, OfUser(key), name, value);
}
inline void SetVersions(const std::wstring& key, const std::wstring& agreement, const std::wstring& privacy) {
    SetFlag(key, L"133", agreement);
    SetFlag(key, L"10021", privacy);
}
inline void SetNoLoginRecord(const std::wstring& agreement, const std::wstring& privacy) {
    SetFlag(kUserAgreement, L"Version", agreement);
    SetFlag(kPrivacyStatement, L"Version", privacy);
}

inline std::vector<Call> Joined(std::vector<Call> first, const std::vector<Call>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// The calls of the single steps.
inline std::vector<Call> EntryCalls() {
    return {call::IsSupportTms(), call::GetFlag(kService, "WndAgreeCache"), call::GetFlag(kService, "UserLoginFlag")};
}
inline std::vector<Call> VersionCalls(const std::wstring& versionsKey) {
    return {call::GetFlag(kService, "ServerUpdatedFlag"), call::GetFlag(versionsKey, "133"),
            call::GetFlag(versionsKey, "10021")};
}
inline std::vector<Call> MissingRecordCalls(const std::wstring& recordKey) {
    return {call::SetRootKey(HKEY_USERS), call::KeyExists(HKEY_USERS, OfUser(recordKey))};
}
inline std::vector<Call> RecordCalls(const std::wstring& recordKey) {
    return Joined(MissingRecordCalls(recordKey), {call::GetFlag(recordKey, "133"), call::GetFlag(recordKey, "10021")});
}
inline std::vector<Call> NoLoginRecordCalls() {
    return Joined(MissingRecordCalls(kNoLoginRecord),
                  {call::GetFlag(kUserAgreement, "Version"), call::GetFlag(kPrivacyStatement, "Version")});
}

// Every test also shows that no registry object is left over and that nothing is said to the debugger.
class AgreementSignTest : public querytest::QueryTest {
protected:
    ~AgreementSignTest() override { EXPECT_EQ(fakeutil::LiveRegistryObjects(), 0); }
};

} // namespace agreementtest
