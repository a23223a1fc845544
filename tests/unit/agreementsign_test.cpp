// The agreement judgement: every path with the whole list of registry calls that it makes, in order.
#include "agreementsign.h"

#include "fakes/fakeutil_fault.h"
#include "fakes/fakeutil_registry.h"
#include "fakes/fakeutil_services.h"
#include "support/debuglines.h"
#include "support/privateaccess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace {

struct JudgeWhenLoginTag {
    using Type = int (*)(const std::wstring&, const std::string&, const std::string&);
};
struct JudgeBranchIdTag {
    using Type = int (*)(const std::wstring&);
};
struct RecordeAgreeFlagTag {
    using Type = void (*)();
};
struct DeleteAgreeFlagTag {
    using Type = void (*)();
};

} // namespace

template struct kxtest::Expose<JudgeWhenLoginTag, &AgreementSign::JudgeWhenLogin>;
template struct kxtest::Expose<JudgeBranchIdTag, &AgreementSign::JudgeBranchId>;
template struct kxtest::Expose<RecordeAgreeFlagTag, &AgreementSign::RecordeAgreeFlag>;
template struct kxtest::Expose<DeleteAgreeFlagTag, &AgreementSign::DeleteAgreeFlag>;

namespace {

using fakeutil::Call;
using fakeutil::RegistryCalls;
using fakeutil::RegistryData;
namespace call = fakeutil::call;
using testing::AnyOf;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr int kSigned = -1;
constexpr int kNoRecord = 0;
constexpr int kSignAgain = 1;
constexpr int kNotApplicable = 2;

constexpr DWORD kFullAccess = 0xF003F;

const std::wstring kService = L"\\Software\\Calvora\\AgreementService";
const std::wstring kLoginTms = L"\\Software\\Calvora\\AgreementService\\WithAccountLogin\\TMSVersion";
const std::wstring kLoginLocal = L"\\Software\\Calvora\\AgreementService\\WithAccountLogin\\LocalVersion";
const std::wstring kNoLoginTms = L"\\Software\\Calvora\\AgreementService\\WithoutAccountLogin\\TMSVersion";
const std::wstring kNoLoginLocal = L"\\Software\\Calvora\\AgreementService\\WithoutAccountLogin\\LocalVersion";
const std::wstring kLoginRecord = L"\\Software\\Calvora\\AgreementService\\KXRecordWithLogin";
const std::wstring kCacheRecord = L"\\Software\\Calvora\\AgreementService\\KXRecordWithLoginCache";
const std::wstring kNoLoginRecord = L"\\SOFTWARE\\Calvora\\AgreementService\\KXRecordWithoutLogin";
const std::wstring kUserAgreement = L"\\SOFTWARE\\Calvora\\AgreementService\\KXRecordWithoutLogin\\UserAgreement";
const std::wstring kPrivacyStatement = L"\\SOFTWARE\\Calvora\\AgreementService\\KXRecordWithoutLogin\\PrivacyStatement";

std::wstring OfUser(const std::wstring& key) {
    return fakeutil::kDefaultSid + key;
}
void SetFlag(const std::wstring& key, const std::wstring& name, const std::wstring& value) {
    fakeutil::SetRegistryValue(HKEY_USERS, OfUser(key), name, value);
}
void SetVersions(const std::wstring& key, const std::wstring& agreement, const std::wstring& privacy) {
    SetFlag(key, L"133", agreement);
    SetFlag(key, L"10021", privacy);
}
void SetNoLoginRecord(const std::wstring& agreement, const std::wstring& privacy) {
    SetFlag(kUserAgreement, L"Version", agreement);
    SetFlag(kPrivacyStatement, L"Version", privacy);
}

std::vector<Call> Joined(std::vector<Call> first, const std::vector<Call>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// The calls of the single steps.
std::vector<Call> EntryCalls() {
    return {call::IsSupportTms(), call::GetFlag(kService, "WndAgreeCache"), call::GetFlag(kService, "UserLoginFlag")};
}
std::vector<Call> VersionCalls(const std::wstring& versionsKey) {
    return {call::GetFlag(kService, "ServerUpdatedFlag"), call::GetFlag(versionsKey, "133"),
            call::GetFlag(versionsKey, "10021")};
}
std::vector<Call> MissingRecordCalls(const std::wstring& recordKey) {
    return {call::SetRootKey(HKEY_USERS), call::KeyExists(HKEY_USERS, OfUser(recordKey))};
}
std::vector<Call> RecordCalls(const std::wstring& recordKey) {
    return Joined(MissingRecordCalls(recordKey), {call::GetFlag(recordKey, "133"), call::GetFlag(recordKey, "10021")});
}
std::vector<Call> NoLoginRecordCalls() {
    return Joined(MissingRecordCalls(kNoLoginRecord),
                  {call::GetFlag(kUserAgreement, "Version"), call::GetFlag(kPrivacyStatement, "Version")});
}

class AgreementSignTest : public testing::Test {
protected:
    AgreementSignTest() { fakeutil::Reset(); }
    ~AgreementSignTest() override {
        EXPECT_EQ(fakeutil::LiveRegistryObjects(), 0);
        EXPECT_THAT(m_lines.Lines(), IsEmpty());
        fakeutil::Reset();
    }

private:
    kxtest::DebugLines m_lines;
};

// --- the entry point

TEST_F(AgreementSignTest, ServiceNotInUse_NotApplicableWithoutAnyRead) {
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), kNotApplicable);
    EXPECT_THAT(RegistryCalls(), ElementsAre(call::IsSupportTms()));
}

TEST_F(AgreementSignTest, ServiceNotInUseAndCacheSaysAgreed_NotApplicable) {
    SetFlag(kService, L"WndAgreeCache", L"1");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), kNotApplicable);
    EXPECT_THAT(RegistryCalls(), ElementsAre(call::IsSupportTms()));
}

TEST_F(AgreementSignTest, CacheSaysAgreed_SignedWithoutFurtherRead) {
    fakeutil::SetSupportTms(true);
    SetFlag(kService, L"WndAgreeCache", L"1");
    SetFlag(kService, L"UserLoginFlag", L"1");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), kSigned);
    EXPECT_THAT(RegistryCalls(), ElementsAre(call::IsSupportTms(), call::GetFlag(kService, "WndAgreeCache")));
}

TEST_F(AgreementSignTest, NothingInTheRegistry_NoRecordOnTheWithoutLoginPath) {
    fakeutil::SetSupportTms(true);
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), kNoRecord);
    EXPECT_EQ(RegistryCalls(), Joined(EntryCalls(), MissingRecordCalls(kNoLoginRecord)));
}

TEST_F(AgreementSignTest, LoggedIn_LoginPathDecides) {
    fakeutil::SetSupportTms(true);
    SetFlag(kService, L"UserLoginFlag", L"1");
    SetVersions(kNoLoginLocal, L"3", L"3");
    SetVersions(kLoginRecord, L"3", L"3");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), kSigned);
    EXPECT_EQ(RegistryCalls(), Joined(Joined(EntryCalls(), VersionCalls(kNoLoginLocal)), RecordCalls(kLoginRecord)));
}

TEST_F(AgreementSignTest, NotLoggedIn_WithoutLoginPathDecides) {
    fakeutil::SetSupportTms(true);
    SetVersions(kNoLoginLocal, L"3", L"3");
    SetNoLoginRecord(L"3", L"3");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), kSigned);
    EXPECT_EQ(RegistryCalls(), Joined(Joined(EntryCalls(), NoLoginRecordCalls()), VersionCalls(kNoLoginLocal)));
}

TEST_F(AgreementSignTest, RegistryChangesBetweenCalls_EachCallReadsAfresh) {
    fakeutil::SetSupportTms(true);
    SetVersions(kNoLoginLocal, L"3", L"3");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), kNoRecord);
    SetNoLoginRecord(L"2", L"3");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), kSignAgain);
    SetNoLoginRecord(L"3", L"3");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), kSigned);
    fakeutil::SetSupportTms(false);
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), kNotApplicable);
}

// --- flags: only the single character 1 counts

struct FlagCase {
    const wchar_t* value; // null: the value does not exist
    bool isOne;
};
std::ostream& operator<<(std::ostream& out, const FlagCase& flag) {
    return out << (flag.value != nullptr ? testing::PrintToString(std::wstring(flag.value)) : "missing");
}

class AgreementSignFlagTest : public AgreementSignTest, public testing::WithParamInterface<FlagCase> {
protected:
    AgreementSignFlagTest() { fakeutil::SetSupportTms(true); }

    static void SetParamFlag(const std::wstring& name) {
        if (GetParam().value != nullptr) {
            SetFlag(kService, name, GetParam().value);
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Values, AgreementSignFlagTest,
                         testing::Values(FlagCase{L"1", true}, FlagCase{nullptr, false}, FlagCase{L"", false},
                                         FlagCase{L"0", false}, FlagCase{L"11", false}, FlagCase{L" 1", false},
                                         FlagCase{L"1 ", false}, FlagCase{L"01", false}, FlagCase{L"2", false},
                                         FlagCase{L"true", false}));

TEST_P(AgreementSignFlagTest, CacheFlag_DecidesOnlyWhenExactlyOne) {
    SetParamFlag(L"WndAgreeCache");
    EXPECT_EQ(AgreementSign::GetAgreeCache(), GetParam().isOne);
    EXPECT_THAT(RegistryCalls(), ElementsAre(call::GetFlag(kService, "WndAgreeCache")));
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), GetParam().isOne ? kSigned : kNoRecord);
}

TEST_P(AgreementSignFlagTest, LoginFlag_ChoosesTheLoginPathOnlyWhenExactlyOne) {
    SetParamFlag(L"UserLoginFlag");
    SetVersions(kNoLoginLocal, L"3", L"3");
    SetVersions(kLoginRecord, L"3", L"3");
    SetNoLoginRecord(L"2", L"3");
    EXPECT_EQ(AgreementSign::JudgeAgreementSign(), GetParam().isOne ? kSigned : kSignAgain);
}

TEST_P(AgreementSignFlagTest, ServerFlagWithLogin_ChoosesServerVersionsOnlyWhenExactlyOne) {
    SetParamFlag(L"ServerUpdatedFlag");
    SetVersions(kLoginTms, L"5", L"5");
    SetVersions(kLoginLocal, L"9", L"9");
    SetVersions(kNoLoginTms, L"9", L"9");
    SetVersions(kNoLoginLocal, L"4", L"4");
    SetVersions(kLoginRecord, L"4", L"4");
    EXPECT_EQ(AgreementSign::JudgeAgreementSignLogin(), GetParam().isOne ? kSignAgain : kSigned);
    EXPECT_THAT(RegistryCalls(),
                ElementsAreArray(GetParam().isOne ? Joined(Joined(VersionCalls(kLoginTms), RecordCalls(kLoginRecord)),
                                                           MissingRecordCalls(kCacheRecord))
                                                  : Joined(VersionCalls(kNoLoginLocal), RecordCalls(kLoginRecord))));
}

TEST_P(AgreementSignFlagTest, ServerFlagWithoutLogin_ChoosesServerVersionsOnlyWhenExactlyOne) {
    SetParamFlag(L"ServerUpdatedFlag");
    SetVersions(kLoginTms, L"9", L"9");
    SetVersions(kLoginLocal, L"9", L"9");
    SetVersions(kNoLoginTms, L"5", L"5");
    SetVersions(kNoLoginLocal, L"4", L"4");
    SetNoLoginRecord(L"4", L"4");
    EXPECT_EQ(AgreementSign::JudgeAgreementSignWithoutLogin(), GetParam().isOne ? kSignAgain : kSigned);
    EXPECT_EQ(RegistryCalls(),
              Joined(NoLoginRecordCalls(), VersionCalls(GetParam().isOne ? kNoLoginTms : kNoLoginLocal)));
}

// --- versions: plain string order, on each path and for each of the two values

struct VersionCase {
    const wchar_t* recorded; // null: the value does not exist
    const wchar_t* inForce;  // null: the value does not exist
    int expected;
};
std::ostream& operator<<(std::ostream& out, const VersionCase& version) {
    const auto print = [](const wchar_t* text) {
        return text != nullptr ? testing::PrintToString(std::wstring(text)) : std::string("missing");
    };
    return out << "recorded " << print(version.recorded) << ", in force " << print(version.inForce);
}

enum class Field { kAgreement, kPrivacy };

class AgreementSignVersionTest : public AgreementSignTest,
                                 public testing::WithParamInterface<std::tuple<VersionCase, Field, bool>> {
protected:
    static const VersionCase& Versions() { return std::get<0>(GetParam()); }
    static bool FromServer() { return std::get<2>(GetParam()); }
    static bool IsAgreement() { return std::get<1>(GetParam()) == Field::kAgreement; }
    static const wchar_t* ValueName() { return IsAgreement() ? L"133" : L"10021"; }
    static const wchar_t* OtherValueName() { return IsAgreement() ? L"10021" : L"133"; }

    static void SetIfThere(const std::wstring& key, const std::wstring& name, const wchar_t* value) {
        fakeutil::AddRegistryKey(HKEY_USERS, OfUser(key));
        if (value != nullptr) {
            SetFlag(key, name, value);
        }
    }
    static void SetInForce(const std::wstring& serverKey) {
        SetFlag(kService, L"ServerUpdatedFlag", FromServer() ? L"1" : L"0");
        const std::wstring& key = FromServer() ? serverKey : kNoLoginLocal;
        SetIfThere(key, ValueName(), Versions().inForce);
        SetFlag(key, OtherValueName(), L"7");
    }
    static void SetRecord(const std::wstring& key) {
        SetIfThere(key, ValueName(), Versions().recorded);
        SetFlag(key, OtherValueName(), L"7");
    }
};

INSTANTIATE_TEST_SUITE_P(
    Order, AgreementSignVersionTest,
    testing::Combine(testing::Values(VersionCase{L"8", L"9", kSignAgain}, VersionCase{L"9", L"9", kSigned},
                                     VersionCase{L"9", L"8", kSigned}, VersionCase{L"9", L"10", kSigned},
                                     VersionCase{L"10", L"9", kSignAgain}, VersionCase{L"", L"9", kSignAgain},
                                     VersionCase{nullptr, L"9", kSignAgain}, VersionCase{L"9", L"", kSigned},
                                     VersionCase{L"9", nullptr, kSigned}, VersionCase{L"", L"", kSigned},
                                     VersionCase{nullptr, nullptr, kSigned}, VersionCase{L"9x", L"9", kSigned},
                                     VersionCase{L"9", L"9x", kSignAgain}, VersionCase{L"9 ", L"9", kSigned},
                                     VersionCase{L" 9", L"9", kSignAgain}, VersionCase{L"1.2.3", L"1.2.4", kSignAgain},
                                     VersionCase{L"1.2.3.1", L"1.2.3", kSigned},
                                     VersionCase{L"1.10", L"1.9", kSignAgain}, VersionCase{L"a", L"B", kSigned},
                                     VersionCase{L"B", L"a", kSignAgain},
                                     // One byte of 0x80 in the ANSI code page 1252: bytes are compared without a sign.
                                     VersionCase{L"\u20ac", L"z", kSigned}, VersionCase{L"z", L"\u20ac", kSignAgain}),
                     testing::Values(Field::kAgreement, Field::kPrivacy), testing::Bool()));

TEST_P(AgreementSignVersionTest, LoginRecord_IsComparedAsText) {
    SetInForce(kLoginTms);
    SetRecord(kLoginRecord);
    EXPECT_EQ(AgreementSign::JudgeAgreementSignLogin(), Versions().expected);
}

TEST_P(AgreementSignVersionTest, CacheRecord_IsComparedAsText) {
    SetInForce(kLoginTms);
    SetRecord(kCacheRecord);
    EXPECT_EQ(AgreementSign::JudgeAgreementSignLogin(), Versions().expected);
}

TEST_P(AgreementSignVersionTest, RecordWithoutLogin_IsComparedAsText) {
    SetInForce(kNoLoginTms);
    SetIfThere(kUserAgreement, L"Version", IsAgreement() ? Versions().recorded : L"7");
    SetIfThere(kPrivacyStatement, L"Version", IsAgreement() ? L"7" : Versions().recorded);
    EXPECT_EQ(AgreementSign::JudgeAgreementSignWithoutLogin(), Versions().expected);
}

TEST_F(AgreementSignTest, BothVersionsOlder_SignAgainOnBothPaths) {
    SetVersions(kNoLoginLocal, L"3", L"3");
    SetVersions(kLoginRecord, L"2", L"2");
    SetNoLoginRecord(L"2", L"2");
    EXPECT_EQ(AgreementSign::JudgeAgreementSignLogin(), kSignAgain);
    EXPECT_EQ(AgreementSign::JudgeAgreementSignWithoutLogin(), kSignAgain);
}

// --- the logged-in path: the record, then its cache

struct RecordsCase {
    const wchar_t* login; // the recorded versions against 3 in force; null: no key
    const wchar_t* cache;
    int expected;
};
std::ostream& operator<<(std::ostream& out, const RecordsCase& records) {
    const auto print = [](const wchar_t* text) {
        return text != nullptr ? testing::PrintToString(std::wstring(text)) : std::string("missing");
    };
    return out << "login " << print(records.login) << ", cache " << print(records.cache);
}

class AgreementSignRecordsTest : public AgreementSignTest, public testing::WithParamInterface<RecordsCase> {};

INSTANTIATE_TEST_SUITE_P(Pairs, AgreementSignRecordsTest,
                         testing::Values(RecordsCase{nullptr, nullptr, kNoRecord},
                                         RecordsCase{nullptr, L"2", kSignAgain}, RecordsCase{nullptr, L"3", kSigned},
                                         RecordsCase{L"2", nullptr, kSignAgain}, RecordsCase{L"2", L"2", kSignAgain},
                                         RecordsCase{L"2", L"3", kSigned}, RecordsCase{L"3", nullptr, kSigned},
                                         RecordsCase{L"3", L"2", kSigned}, RecordsCase{L"3", L"3", kSigned}));

TEST_P(AgreementSignRecordsTest, LoginAndCacheRecord_DecideTogether) {
    SetVersions(kNoLoginLocal, L"3", L"3");
    std::vector<Call> expected = VersionCalls(kNoLoginLocal);
    const bool loginDecides = GetParam().login != nullptr && GetParam().login == std::wstring(L"3");
    if (GetParam().login != nullptr) {
        SetVersions(kLoginRecord, GetParam().login, GetParam().login);
    }
    if (GetParam().cache != nullptr) {
        SetVersions(kCacheRecord, GetParam().cache, GetParam().cache);
    }
    expected =
        Joined(expected, GetParam().login != nullptr ? RecordCalls(kLoginRecord) : MissingRecordCalls(kLoginRecord));
    if (!loginDecides) {
        expected = Joined(expected,
                          GetParam().cache != nullptr ? RecordCalls(kCacheRecord) : MissingRecordCalls(kCacheRecord));
    }

    EXPECT_EQ(AgreementSign::JudgeAgreementSignLogin(), GetParam().expected);

    EXPECT_EQ(RegistryCalls(), expected);
}

TEST_F(AgreementSignTest, EmptyRecordKeyWithLogin_ExistsAndIsOlder) {
    SetVersions(kNoLoginLocal, L"3", L"3");
    fakeutil::AddRegistryKey(HKEY_USERS, OfUser(kLoginRecord));
    EXPECT_EQ(AgreementSign::JudgeAgreementSignLogin(), kSignAgain);
}

TEST_F(AgreementSignTest, OnlyOnePartOfTheRecordWithoutLogin_SignAgain) {
    SetVersions(kNoLoginLocal, L"3", L"3");
    SetFlag(kUserAgreement, L"Version", L"3");
    EXPECT_EQ(AgreementSign::JudgeAgreementSignWithoutLogin(), kSignAgain);
    EXPECT_EQ(RegistryCalls(), Joined(NoLoginRecordCalls(), VersionCalls(kNoLoginLocal)));
}

TEST_F(AgreementSignTest, NoRecordWithoutLogin_NothingElseIsRead) {
    SetVersions(kNoLoginLocal, L"3", L"3");
    SetVersions(kLoginRecord, L"3", L"3");
    EXPECT_EQ(AgreementSign::JudgeAgreementSignWithoutLogin(), kNoRecord);
    EXPECT_EQ(RegistryCalls(), MissingRecordCalls(kNoLoginRecord));
}

TEST_F(AgreementSignTest, NoVersionsAnywhere_EmptyRecordCountsAsSigned) {
    fakeutil::AddRegistryKey(HKEY_USERS, OfUser(kLoginRecord));
    fakeutil::AddRegistryKey(HKEY_USERS, OfUser(kNoLoginRecord));
    EXPECT_EQ(AgreementSign::JudgeAgreementSignLogin(), kSigned);
    EXPECT_EQ(AgreementSign::JudgeAgreementSignWithoutLogin(), kSigned);
}

TEST_F(AgreementSignTest, RecordOfAnotherUser_DoesNotCount) {
    SetVersions(kNoLoginLocal, L"3", L"3");
    SetVersions(kLoginRecord, L"3", L"3");
    fakeutil::SetUserSid(L"S-1-5-21-99");
    EXPECT_EQ(AgreementSign::JudgeAgreementSignLogin(), kNoRecord);
}

// --- the private judgement of one record

class JudgeWhenLoginTest : public AgreementSignTest {
protected:
    static int Judge(const std::wstring& key, const std::string& agreement, const std::string& privacy) {
        return kxtest::kPrivate<JudgeWhenLoginTag>(key, agreement, privacy);
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
    static int Judge() { return kxtest::kPrivate<JudgeBranchIdTag>(GetParam().recordKey); }
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
    static void Recorde() { kxtest::kPrivate<RecordeAgreeFlagTag>(); }
    static void Delete() { kxtest::kPrivate<DeleteAgreeFlagTag>(); }
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

// --- nothing throws, and a judgement that could not be made never counts as consent

struct ThrowingCall {
    const char* function;
    int nth;
};
std::ostream& operator<<(std::ostream& out, const ThrowingCall& throwing) {
    return out << throwing.function << " #" << throwing.nth;
}

class AgreementSignThrowTest : public AgreementSignTest, public testing::WithParamInterface<ThrowingCall> {
protected:
    AgreementSignThrowTest() {
        fakeutil::SetSupportTms(true);
        SetVersions(kNoLoginLocal, L"3", L"3");
        SetVersions(kLoginRecord, L"3", L"3");
        SetNoLoginRecord(L"3", L"3");
    }

    static void ExpectNotSignedOnce() {
        EXPECT_EQ(AgreementSign::JudgeAgreementSign(), kSigned);
        fakeutil::ThrowFrom(GetParam().function, GetParam().nth);
        int result = kSigned;
        EXPECT_NO_THROW(result = AgreementSign::JudgeAgreementSign());
        EXPECT_FALSE(fakeutil::IsThrowPending());
        EXPECT_THAT(result, AnyOf(kNoRecord, kSignAgain));
        EXPECT_EQ(AgreementSign::JudgeAgreementSign(), kSigned);
    }
};

INSTANTIATE_TEST_SUITE_P(
    Calls, AgreementSignThrowTest,
    testing::Values(ThrowingCall{"AccountUtil::IsSupportTms", 1}, ThrowingCall{"AccountUtil::GetFlag", 1},
                    ThrowingCall{"AccountUtil::GetFlag", 2}, ThrowingCall{"AccountUtil::GetFlag", 3},
                    ThrowingCall{"AccountUtil::GetFlag", 5}, ThrowingCall{"AccountUtil::GetFlag", 7},
                    ThrowingCall{"KXPROCESS::GetCurrentUserSidstr", 1}, ThrowingCall{"DE::Registry::SetRootKey", 1},
                    ThrowingCall{"DE::Registry::KeyExists", 1}, ThrowingCall{"DE::ANSIToUnicode", 1}));

TEST_P(AgreementSignThrowTest, LoginPath_NotSignedAndWorksAgain) {
    SetFlag(kService, L"UserLoginFlag", L"1");
    ExpectNotSignedOnce();
}

TEST_P(AgreementSignThrowTest, WithoutLoginPath_NotSignedAndWorksAgain) {
    ExpectNotSignedOnce();
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
    EXPECT_NO_THROW(kxtest::kPrivate<RecordeAgreeFlagTag>());
    fakeutil::ThrowFrom("DE::Registry::DeleteValue");
    EXPECT_NO_THROW(kxtest::kPrivate<DeleteAgreeFlagTag>());
    fakeutil::ThrowFrom("AccountUtil::GetFlag");
    EXPECT_NO_THROW(EXPECT_EQ(kxtest::kPrivate<JudgeBranchIdTag>(kLoginRecord), kSignAgain));
    EXPECT_FALSE(fakeutil::IsThrowPending());
}

static_assert(std::is_trivially_copy_assignable_v<AgreementSign>);
static_assert(std::is_trivially_move_assignable_v<AgreementSign>);

} // namespace
