// What the agreement judgement has beside its entry points: single records, branch ids and the flags it writes.
#include "agreementsign.h"

#include "agreementsignfixture.h"
#include "fakes/fakeutil_fault.h"
#include "support/agreementprivate.h"

#include <optional>
#include <ostream>

namespace agreementtest {

namespace {

using fakeutil::RegistryCalls;
using fakeutil::RegistryData;
using testing::ElementsAre;

// --- the private judgement of one record

class JudgeWhenLoginTest : public AgreementSignTest {
protected:
    static int Judge(const std::wstring& key, const std::string& agreement, const std::string& privacy) {
        return agreementprivate::JudgeWhenLogin(key, agreement, privacy);
    }
};

TEST_F(JudgeWhenLoginTest, MissingKey_NoRecord) {
    EXPECT_EQ(Judge(L"\\Any\\Record", "3", "3"), kNoRecord);
    EXPECT_EQ(RegistryCalls(), MissingRecordCalls(L"\\Any\\Record"));
}

TEST_F(JudgeWhenLoginTest, OlderAgreement_SignAgainAfterBothReads) {
    SetVersions(L"\\Any\\Record", L"2", L"3");
    EXPECT_EQ(Judge(L"\\Any\\Record", "3", "3"), kSignAgain);
    EXPECT_EQ(RegistryCalls(), RecordCalls(L"\\Any\\Record"));
}

TEST_F(JudgeWhenLoginTest, OlderPrivacyStatement_SignAgain) {
    SetVersions(L"\\Any\\Record", L"3", L"2");
    EXPECT_EQ(Judge(L"\\Any\\Record", "3", "3"), kSignAgain);
    EXPECT_EQ(RegistryCalls(), RecordCalls(L"\\Any\\Record"));
}

TEST_F(JudgeWhenLoginTest, BothCurrent_Signed) {
    SetVersions(L"\\Any\\Record", L"3", L"4");
    EXPECT_EQ(Judge(L"\\Any\\Record", "3", "3"), kSigned);
    EXPECT_EQ(RegistryCalls(), RecordCalls(L"\\Any\\Record"));
}

TEST_F(JudgeWhenLoginTest, VersionsAreNotMixedUp_EachIsComparedWithItsOwn) {
    SetVersions(L"\\Any\\Record", L"5", L"3");
    EXPECT_EQ(Judge(L"\\Any\\Record", "5", "3"), kSigned);
    EXPECT_EQ(Judge(L"\\Any\\Record", "3", "5"), kSignAgain);
}

TEST_F(JudgeWhenLoginTest, LookThrowsInside_NotSignedAndWorksAgain) {
    SetVersions(L"\\Any\\Record", L"3", L"3");
    for (const char* function : {"DE::Registry::KeyExists", "AccountUtil::GetFlag"}) {
        SCOPED_TRACE(function);
        fakeutil::ThrowFrom(function);
        int result = kSigned;
        EXPECT_NO_THROW(result = Judge(L"\\Any\\Record", "3", "3"));
        EXPECT_FALSE(fakeutil::IsThrowPending());
        EXPECT_THAT(result, testing::AnyOf(kNoRecord, kSignAgain));
        EXPECT_EQ(Judge(L"\\Any\\Record", "3", "3"), kSigned);
    }
}

// --- branch ids

struct BranchPlace {
    std::wstring recordKey;
    std::wstring acceptedKey;
    std::wstring inForceKey;
};
std::ostream& operator<<(std::ostream& out, const BranchPlace& place) {
    return out << testing::PrintToString(place.recordKey);
}

class JudgeBranchIdTest : public AgreementSignTest, public testing::WithParamInterface<BranchPlace> {
protected:
    static int Judge() { return agreementprivate::JudgeBranchId(GetParam().recordKey); }
    static std::vector<Call> ExpectedCalls() {
        return {call::GetFlag(GetParam().acceptedKey, "BranchId"), call::GetFlag(GetParam().inForceKey, "BranchId")};
    }
};

INSTANTIATE_TEST_SUITE_P(
    RecordKeys, JudgeBranchIdTest,
    testing::Values(
        BranchPlace{kLoginRecord, kLoginRecord, kLoginLocal}, BranchPlace{kCacheRecord, kCacheRecord, kLoginLocal},
        BranchPlace{kNoLoginRecord, kPrivacyStatement, kNoLoginLocal},
        BranchPlace{L"", kPrivacyStatement, kNoLoginLocal},
        BranchPlace{kLoginRecord + L"x", kPrivacyStatement, kNoLoginLocal},
        BranchPlace{kLoginRecord.substr(0, kLoginRecord.size() - 1), kPrivacyStatement, kNoLoginLocal},
        BranchPlace{kLoginRecord + std::wstring(1, L'\0'), kPrivacyStatement, kNoLoginLocal},
        BranchPlace{kCacheRecord + L"\\", kPrivacyStatement, kNoLoginLocal},
        BranchPlace{L"\\SOFTWARE\\Calvora\\AgreementService\\KXRecordWithLogin", kPrivacyStatement, kNoLoginLocal},
        BranchPlace{L"Software\\Calvora\\AgreementService\\KXRecordWithLogin", kPrivacyStatement, kNoLoginLocal}));

TEST_P(JudgeBranchIdTest, EqualIds_Signed) {
    SetFlag(GetParam().acceptedKey, L"BranchId", L"b-7");
    SetFlag(GetParam().inForceKey, L"BranchId", L"b-7");
    EXPECT_EQ(Judge(), kSigned);
    EXPECT_EQ(RegistryCalls(), ExpectedCalls());
}

TEST_P(JudgeBranchIdTest, DifferentIds_SignAgain) {
    SetFlag(GetParam().acceptedKey, L"BranchId", L"b-7");
    SetFlag(GetParam().inForceKey, L"BranchId", L"b-6");
    EXPECT_EQ(Judge(), kSignAgain);
    EXPECT_EQ(RegistryCalls(), ExpectedCalls());
}

TEST_P(JudgeBranchIdTest, BothMissing_Signed) {
    EXPECT_EQ(Judge(), kSigned);
    EXPECT_EQ(RegistryCalls(), ExpectedCalls());
}

TEST_P(JudgeBranchIdTest, OneMissing_SignAgain) {
    SetFlag(GetParam().inForceKey, L"BranchId", L"b-7");
    EXPECT_EQ(Judge(), kSignAgain);
    EXPECT_EQ(RegistryCalls(), ExpectedCalls());
}

TEST_P(JudgeBranchIdTest, IdsDifferInTrailingBlank_SignAgain) {
    SetFlag(GetParam().acceptedKey, L"BranchId", L"b-7 ");
    SetFlag(GetParam().inForceKey, L"BranchId", L"b-7");
    EXPECT_EQ(Judge(), kSignAgain);
}

// --- flags that are written

TEST_F(AgreementSignTest, SetAgreeCache_WritesTheFlagAndGetReadsItBack) {
    AgreementSign::SetAgreeCache(true);
    EXPECT_THAT(RegistryCalls(),
                ElementsAre(call::CreateRegeditPath("\\Software\\Calvora\\AgreementService"),
                            call::WriteText(HKEY_USERS, OfUser(kService), L"WndAgreeCache", L"1", kFullAccess)));
    EXPECT_TRUE(AgreementSign::GetAgreeCache());
}

TEST_F(AgreementSignTest, SetAgreeCacheFalse_WritesZero) {
    SetFlag(kService, L"WndAgreeCache", L"1");
    AgreementSign::SetAgreeCache(false);
    EXPECT_THAT(RegistryCalls(),
                ElementsAre(call::CreateRegeditPath("\\Software\\Calvora\\AgreementService"),
                            call::WriteText(HKEY_USERS, OfUser(kService), L"WndAgreeCache", L"0", kFullAccess)));
    EXPECT_FALSE(AgreementSign::GetAgreeCache());
}

TEST_F(AgreementSignTest, SetAgreeCacheFails_IsIgnoredAndTheNextWorks) {
    fakeutil::FailRegistryWrite(1);
    AgreementSign::SetAgreeCache(true);
    EXPECT_FALSE(AgreementSign::GetAgreeCache());
    AgreementSign::SetAgreeCache(true);
    EXPECT_TRUE(AgreementSign::GetAgreeCache());
}

class AgreeFlagTest : public AgreementSignTest {
protected:
    static void Recorde() { agreementprivate::RecordeAgreeFlag(); }
    static void Delete() { agreementprivate::DeleteAgreeFlag(); }
    static std::optional<RegistryData> Stored() {
        return fakeutil::StoredValue(HKEY_USERS, OfUser(kService), L"AgreeFlag");
    }
};

TEST_F(AgreeFlagTest, Recorde_WritesTheTextOne) {
    Recorde();
    EXPECT_THAT(RegistryCalls(),
                ElementsAre(call::WriteText(HKEY_USERS, OfUser(kService), L"AgreeFlag", L"1", kFullAccess)));
    EXPECT_EQ(Stored(), RegistryData(std::wstring(L"1")));
}

TEST_F(AgreeFlagTest, RecordeFails_IsIgnored) {
    fakeutil::FailRegistryWrite(1);
    Recorde();
    EXPECT_EQ(Stored(), std::nullopt);
    Recorde();
    EXPECT_EQ(Stored(), RegistryData(std::wstring(L"1")));
}

TEST_F(AgreeFlagTest, DeleteWithoutKey_OnlyLooks) {
    Delete();
    EXPECT_THAT(RegistryCalls(), ElementsAre(call::KeyExists(nullptr, OfUser(kService))));
}

TEST_F(AgreeFlagTest, DeleteWhenTheKeyCannotBeOpened_LeavesTheFlag) {
    SetFlag(kService, L"AgreeFlag", L"1");
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    Delete();
    EXPECT_THAT(RegistryCalls(), ElementsAre(call::KeyExists(nullptr, OfUser(kService)),
                                             call::OpenKey(HKEY_USERS, OfUser(kService), false)));
    EXPECT_EQ(Stored(), RegistryData(std::wstring(L"1")));
}

TEST_F(AgreeFlagTest, DeleteWithFlag_RemovesTheFlagAlone) {
    SetFlag(kService, L"AgreeFlag", L"1");
    SetFlag(kService, L"WndAgreeCache", L"1");
    Delete();
    EXPECT_THAT(RegistryCalls(),
                ElementsAre(call::KeyExists(nullptr, OfUser(kService)),
                            call::OpenKey(HKEY_USERS, OfUser(kService), false), call::DeleteValue(L"AgreeFlag")));
    EXPECT_EQ(Stored(), std::nullopt);
    EXPECT_TRUE(AgreementSign::GetAgreeCache());
}

TEST_F(AgreeFlagTest, DeleteWithoutFlag_IsIgnored) {
    fakeutil::AddRegistryKey(HKEY_USERS, OfUser(kService));
    Delete();
    EXPECT_THAT(RegistryCalls(),
                ElementsAre(call::KeyExists(nullptr, OfUser(kService)),
                            call::OpenKey(HKEY_USERS, OfUser(kService), false), call::DeleteValue(L"AgreeFlag")));
}

TEST_F(AgreementSignTest, FlagOperationsThrowInside_NothingGetsOut) {
    fakeutil::AddRegistryKey(HKEY_USERS, OfUser(kService));
    fakeutil::ThrowFrom("AccountUtil::GetFlag");
    EXPECT_NO_THROW(EXPECT_FALSE(AgreementSign::GetAgreeCache()));
    fakeutil::ThrowFrom("AccountUtil::CreateRegeditPath");
    EXPECT_NO_THROW(AgreementSign::SetAgreeCache(true));
    fakeutil::ThrowFrom("DE::Registry::SetValue");
    EXPECT_NO_THROW(AgreementSign::SetAgreeCache(true));
    fakeutil::ThrowFrom("DE::Registry::SetValue");
    EXPECT_NO_THROW(agreementprivate::RecordeAgreeFlag());
    fakeutil::ThrowFrom("DE::Registry::DeleteValue");
    EXPECT_NO_THROW(agreementprivate::DeleteAgreeFlag());
    fakeutil::ThrowFrom("AccountUtil::GetFlag");
    EXPECT_NO_THROW(EXPECT_EQ(agreementprivate::JudgeBranchId(kLoginRecord), kSignAgain));
    EXPECT_FALSE(fakeutil::IsThrowPending());
}

} // namespace

} // namespace agreementtest
