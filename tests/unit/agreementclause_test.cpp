// The agreement clause and its expiry: results, registry calls in order, and the debugger line.
#include "systemenvironment.h"

#include "queryfixture.h"

#include "sdk/util/text.h"

#include <optional>
#include <ostream>

namespace querytest {

namespace {

const std::wstring kExpiryKey = L"\\SOFTWARE\\Calvora\\setting\\expireLogin";
const std::wstring kGuideKey = std::wstring(fakeutil::kDefaultSid) + L"\\SOFTWARE\\Calvora\\KXLoginGuide";
const std::wstring kService = L"\\Software\\Calvora\\AgreementService";
const std::wstring kNoLoginRecord = L"\\SOFTWARE\\Calvora\\AgreementService\\KXRecordWithoutLogin";
const std::wstring kNoLoginLocal = L"\\Software\\Calvora\\AgreementService\\WithoutAccountLogin\\LocalVersion";
const std::wstring kExpiredLine =
    L"current agreeClause is expired S-1-5-21-11-22-33-1001(SystemEnvironment::IsAgreeClause)\n";

Call ReadMark() {
    return call::ReadText(HKEY_LOCAL_MACHINE, kExpiryKey, fakeutil::kDefaultSid, kFullAccess);
}
Call ReadProtocol() {
    return call::ReadText(HKEY_USERS, kGuideKey, L"Protocol", kFullAccess);
}
Call ReadVersion() {
    return call::ReadText(HKEY_USERS, kGuideKey, L"ProtocolVer", kReadAccess);
}
Call WriteReset() {
    return call::WriteText(HKEY_USERS, kGuideKey, L"Protocol", L"0", kFullAccess);
}

void SetMark(const std::wstring& value) {
    fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kExpiryKey, fakeutil::kDefaultSid, value);
}
void SetProtocol(const std::wstring& value) {
    fakeutil::SetRegistryValue(HKEY_USERS, kGuideKey, L"Protocol", value);
}
void SetVersion(const std::wstring& value) {
    fakeutil::SetRegistryValue(HKEY_USERS, kGuideKey, L"ProtocolVer", value);
}
void SetUserValue(const std::wstring& key, const std::wstring& name, const std::wstring& value) {
    fakeutil::SetRegistryValue(HKEY_USERS, fakeutil::kDefaultSid + key, name, value);
}
std::optional<RegistryData> StoredProtocol() {
    return fakeutil::StoredValue(HKEY_USERS, kGuideKey, L"Protocol");
}

class AgreementClauseTest : public QueryTest {};

// --- every path through IsAgreeClause

TEST_F(AgreementClauseTest, NothingInTheRegistry_ZeroAfterTwoReads) {
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadMark(), ReadProtocol()));
    EXPECT_THAT(TakeLines(), IsEmpty());
}

TEST_F(AgreementClauseTest, Expired_ResetsTheProtocolAndSaysSo) {
    SetMark(L"1");
    SetProtocol(L"1");
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadMark(), ReadProtocol(), WriteReset()));
    EXPECT_EQ(StoredProtocol(), RegistryData(std::wstring(L"0")));
    EXPECT_THAT(TakeLines(), ElementsAre(kExpiredLine));
}

TEST_F(AgreementClauseTest, ExpiredTwice_WritesAndSaysSoEachTime) {
    SetMark(L"1");
    SystemEnvironment::IsAgreeClause();
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_THAT(RegistryCalls(),
                ElementsAre(ReadMark(), ReadProtocol(), WriteReset(), ReadMark(), ReadProtocol(), WriteReset()));
    EXPECT_THAT(TakeLines(), ElementsAre(kExpiredLine, kExpiredLine));
}

TEST_F(AgreementClauseTest, ExpiredWithoutProtocol_MakesItZero) {
    SetMark(L"1");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_EQ(StoredProtocol(), RegistryData(std::wstring(L"0")));
    EXPECT_THAT(TakeLines(), ElementsAre(kExpiredLine));
}

TEST_F(AgreementClauseTest, ExpiredAndWriteFails_ZeroAndTheLineAllTheSame) {
    SetMark(L"1");
    SetProtocol(L"1");
    fakeutil::FailRegistryWrite(1);
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_EQ(StoredProtocol(), RegistryData(std::wstring(L"1")));
    EXPECT_THAT(TakeLines(), ElementsAre(kExpiredLine));
}

TEST_F(AgreementClauseTest, MarkRemovedAfterExpiry_ProtocolZeroIsWhatIsStored) {
    SetMark(L"1");
    SetProtocol(L"1");
    SetVersion(L"9");
    SystemEnvironment::IsAgreeClause();
    SetMark(L"");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_THAT(TakeLines(), ElementsAre(kExpiredLine));
}

TEST_F(AgreementClauseTest, MarkOfAnotherUser_DoesNotExpire) {
    fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kExpiryKey, L"S-1-5-21-99", std::wstring(L"1"));
    SetProtocol(L"1");
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "1");
}

TEST_F(AgreementClauseTest, EmptyProtocol_ZeroWithoutReadingTheVersion) {
    SetProtocol(L"");
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadMark(), ReadProtocol()));
}

TEST_F(AgreementClauseTest, OldVersion_ZeroWithoutJudgement) {
    fakeutil::SetSupportTms(true);
    SetProtocol(L"1");
    SetVersion(L"8");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadMark(), ReadProtocol(), ReadVersion()));
}

TEST_F(AgreementClauseTest, ServiceNotInUse_StoredProtocol) {
    SetProtocol(L"1");
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "1");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadMark(), ReadProtocol(), ReadVersion(), call::IsSupportTms()));
    EXPECT_THAT(TakeLines(), IsEmpty());
}

TEST_F(AgreementClauseTest, AgreementSigned_StoredProtocol) {
    fakeutil::SetSupportTms(true);
    SetUserValue(kService, L"WndAgreeCache", L"1");
    SetProtocol(L"1");
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "1");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadMark(), ReadProtocol(), ReadVersion(), call::IsSupportTms(),
                                             call::GetFlag(kService, "WndAgreeCache")));
}

TEST_F(AgreementClauseTest, NoAgreementRecord_Zero) {
    fakeutil::SetSupportTms(true);
    SetProtocol(L"1");
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadMark(), ReadProtocol(), ReadVersion(), call::IsSupportTms(),
                                             call::GetFlag(kService, "WndAgreeCache"),
                                             call::GetFlag(kService, "UserLoginFlag"), call::SetRootKey(HKEY_USERS),
                                             call::KeyExists(HKEY_USERS, fakeutil::kDefaultSid + kNoLoginRecord)));
    EXPECT_EQ(StoredProtocol(), RegistryData(std::wstring(L"1")));
}

TEST_F(AgreementClauseTest, AgreementMustBeSignedAgain_Zero) {
    fakeutil::SetSupportTms(true);
    SetUserValue(kNoLoginLocal, L"133", L"3");
    SetUserValue(kNoLoginRecord + L"\\UserAgreement", L"Version", L"2");
    SetProtocol(L"1");
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_THAT(TakeLines(), IsEmpty());
}

// --- values of the expiry mark

class ExpiryMarkTest : public AgreementClauseTest, public testing::WithParamInterface<std::wstring> {};

INSTANTIATE_TEST_SUITE_P(NotOne, ExpiryMarkTest, testing::Values(L"", L"0", L"11", L" 1", L"1 ", L"01", L"true"));

TEST_P(ExpiryMarkTest, NotExactlyOne_RemainingStepsDecide) {
    SetMark(GetParam());
    SetProtocol(L"1");
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "1");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadMark(), ReadProtocol(), ReadVersion(), call::IsSupportTms()));
    EXPECT_THAT(TakeLines(), IsEmpty());
    SetVersion(L"8");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
}

// --- values of the version

struct VersionCase {
    std::wstring stored;
    bool isCurrent;
};
std::ostream& operator<<(std::ostream& out, const VersionCase& version) {
    return out << testing::PrintToString(version.stored);
}

class ClauseVersionTest : public AgreementClauseTest, public testing::WithParamInterface<VersionCase> {};

INSTANTIATE_TEST_SUITE_P(Stored, ClauseVersionTest,
                         testing::Values(VersionCase{L"9", true}, VersionCase{L"10", true}, VersionCase{L"8", false},
                                         VersionCase{L"0", false}, VersionCase{L"09", true}, VersionCase{L"+9", true},
                                         VersionCase{L"100", true}, VersionCase{L" 12x", true},
                                         VersionCase{L"\t9", true}, VersionCase{L"\r\n 9", true},
                                         VersionCase{L"9.1", true}, VersionCase{L"8.9", false},
                                         VersionCase{L"0x10", false}, VersionCase{L"abc", false},
                                         VersionCase{L"", false}, VersionCase{L" ", false}, VersionCase{L"x9", false},
                                         VersionCase{L"-", false}, VersionCase{L"-1", true}, VersionCase{L" -1", true},
                                         VersionCase{L"4294967295", true}, VersionCase{L"4294967296", false},
                                         VersionCase{L"99999999999999999999999999", false},
                                         VersionCase{std::wstring(kLongLength, L'9'), false}));

TEST_P(ClauseVersionTest, IsAgreeClause_NeedsACurrentVersion) {
    SetProtocol(L"1");
    SetVersion(GetParam().stored);
    std::string result;
    EXPECT_NO_THROW(result = SystemEnvironment::IsAgreeClause());
    EXPECT_EQ(result, GetParam().isCurrent ? "1" : "0");
    EXPECT_THAT(TakeLines(), IsEmpty());
}

TEST_P(ClauseVersionTest, GetLoginGuideProtocol_NeedsACurrentVersion) {
    SetProtocol(L"1");
    SetVersion(GetParam().stored);
    std::string result;
    EXPECT_NO_THROW(result = SystemEnvironment::GetLoginGuideProtocol());
    EXPECT_EQ(result, GetParam().isCurrent ? "1" : "0");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadProtocol(), ReadVersion()));
    EXPECT_THAT(TakeLines(), IsEmpty());
}

TEST_F(AgreementClauseTest, NoVersion_Zero) {
    SetProtocol(L"1");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "0");
}

// --- the stored text is passed through

struct ProtocolCase {
    std::wstring stored;
    std::string ansi;
    std::string utf8;
};
std::ostream& operator<<(std::ostream& out, const ProtocolCase& protocol) {
    return out << testing::PrintToString(protocol.stored.substr(0, 20));
}

class ProtocolTextTest : public AgreementClauseTest, public testing::WithParamInterface<ProtocolCase> {};

INSTANTIATE_TEST_SUITE_P(Stored, ProtocolTextTest,
                         testing::Values(ProtocolCase{L"1", "1", "1"}, ProtocolCase{L"0", "0", "0"},
                                         ProtocolCase{L"00", "00", "00"}, ProtocolCase{L" 1 ", " 1 ", " 1 "},
                                         ProtocolCase{L"accepted", "accepted", "accepted"},
                                         ProtocolCase{L"\u00e9", DE::UnicodeToANSI(L"\u00e9"), "\xc3\xa9"},
                                         ProtocolCase{std::wstring(kLongLength, L'x'), std::string(kLongLength, 'x'),
                                                      std::string(kLongLength, 'x')}));

TEST_P(ProtocolTextTest, IsAgreeClause_GivesItInTheAnsiCodePage) {
    SetProtocol(GetParam().stored);
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), GetParam().ansi);
}

TEST_P(ProtocolTextTest, GetLoginGuideProtocol_GivesItInUtf8) {
    SetProtocol(GetParam().stored);
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), GetParam().utf8);
}

TEST_F(AgreementClauseTest, ProtocolOutsideTheBasicPlane_IsFourBytesOfUtf8) {
    SetProtocol(L"\U0001F600");
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "\xf0\x9f\x98\x80");
}

// --- GetLoginGuideProtocol

TEST_F(AgreementClauseTest, GuideProtocolMissing_ZeroAfterBothReads) {
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "0");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadProtocol(), ReadVersion()));
}

TEST_F(AgreementClauseTest, GuideProtocolEmpty_ZeroWithACurrentVersion) {
    SetProtocol(L"");
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "0");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadProtocol(), ReadVersion()));
}

TEST_F(AgreementClauseTest, GuideProtocol_IgnoresExpiryAndJudgement) {
    fakeutil::SetSupportTms(true);
    SetMark(L"1");
    SetProtocol(L"1");
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "1");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadProtocol(), ReadVersion()));
    EXPECT_EQ(StoredProtocol(), RegistryData(std::wstring(L"1")));
    EXPECT_THAT(TakeLines(), IsEmpty());
}

// --- refused access and wrong types

TEST_F(AgreementClauseTest, FullAccessRefused_ReadsAsMissing) {
    SetProtocol(L"1");
    SetVersion(L"9");
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadMark(), ReadProtocol()));
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "0");
}

TEST_F(AgreementClauseTest, FullAccessRefusedOnAnExpiredMark_NotExpired) {
    SetMark(L"1");
    SetProtocol(L"1");
    SetVersion(L"9");
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadMark(), ReadProtocol()));
    EXPECT_THAT(TakeLines(), IsEmpty());
}

TEST_F(AgreementClauseTest, NumbersWhereTextsBelong_ReadAsMissing) {
    fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kExpiryKey, fakeutil::kDefaultSid, 1ul);
    fakeutil::SetRegistryValue(HKEY_USERS, kGuideKey, L"Protocol", 1ul);
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "0");
    EXPECT_THAT(TakeLines(), IsEmpty());
}

TEST_F(AgreementClauseTest, VersionIsANumber_Zero) {
    SetProtocol(L"1");
    fakeutil::SetRegistryValue(HKEY_USERS, kGuideKey, L"ProtocolVer", 9ul);
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "0");
}

// --- exceptions: works, fails with zero, works again

class ClauseThrowTest : public AgreementClauseTest, public testing::WithParamInterface<ThrowingCall> {
protected:
    ClauseThrowTest() {
        SetProtocol(L"1");
        SetVersion(L"9");
    }
};
class GuideThrowTest : public ClauseThrowTest {};

INSTANTIATE_TEST_SUITE_P(Calls, ClauseThrowTest,
                         testing::Values(ThrowingCall{"KXPROCESS::GetCurrentUserSidstr", 1},
                                         ThrowingCall{"DE::Registry::GetValue", 1},
                                         ThrowingCall{"DE::Registry::GetValue", 2},
                                         ThrowingCall{"DE::Registry::GetValue", 3},
                                         ThrowingCall{"DE::UnicodeToANSI", 1}, ThrowingCall{"DE::UnicodeToANSI", 2},
                                         ThrowingCall{"AccountUtil::IsSupportTms", 1}));
INSTANTIATE_TEST_SUITE_P(Calls, GuideThrowTest,
                         testing::Values(ThrowingCall{"KXPROCESS::GetCurrentUserSidstr", 1},
                                         ThrowingCall{"DE::Registry::GetValue", 1},
                                         ThrowingCall{"DE::Registry::GetValue", 2}));

TEST_P(ClauseThrowTest, IsAgreeClause_ZeroAndWorksAgain) {
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "1");
    fakeutil::ThrowFrom(GetParam().function, GetParam().nth);
    std::string result;
    EXPECT_NO_THROW(result = SystemEnvironment::IsAgreeClause());
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_EQ(result, "0");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "1");
}

TEST_P(GuideThrowTest, GetLoginGuideProtocol_ZeroAndWorksAgain) {
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "1");
    fakeutil::ThrowFrom(GetParam().function, GetParam().nth);
    std::string result;
    EXPECT_NO_THROW(result = SystemEnvironment::GetLoginGuideProtocol());
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_EQ(result, "0");
    EXPECT_EQ(SystemEnvironment::GetLoginGuideProtocol(), "1");
}

TEST_F(AgreementClauseTest, ResetThrows_ZeroWithoutTheLine) {
    SetMark(L"1");
    fakeutil::ThrowFrom("DE::Registry::SetValue");
    std::string result;
    EXPECT_NO_THROW(result = SystemEnvironment::IsAgreeClause());
    EXPECT_EQ(result, "0");
    EXPECT_THAT(TakeLines(), IsEmpty());
    SystemEnvironment::IsAgreeClause();
    EXPECT_THAT(TakeLines(), ElementsAre(kExpiredLine));
}

TEST_F(AgreementClauseTest, JudgementThrowsInside_Zero) {
    fakeutil::SetSupportTms(true);
    SetUserValue(kService, L"WndAgreeCache", L"1");
    SetProtocol(L"1");
    SetVersion(L"9");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "1");
    fakeutil::ThrowFrom("AccountUtil::GetFlag");
    EXPECT_EQ(SystemEnvironment::IsAgreeClause(), "0");
    EXPECT_FALSE(fakeutil::IsThrowPending());
}

} // namespace

} // namespace querytest
