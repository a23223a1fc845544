// The agreement judgement: every path with the whole list of registry calls that it makes, in order.
#include "agreementsign.h"

#include "agreementsignfixture.h"
#include "fakes/fakeutil_fault.h"

#include "sdk/util/text.h"

#include <ostream>
#include <tuple>
#include <type_traits>

namespace agreementtest {

namespace {

using fakeutil::RegistryCalls;
using testing::AnyOf;
using testing::ElementsAre;
using testing::ElementsAreArray;

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

    // The versions in force: 5 of the server on the judged path, 4 of this machine, 9 wherever nobody may look.
    static void SetEveryVersion(const std::wstring& judgedTms) {
        for (const std::wstring& key : {kLoginTms, kLoginLocal, kNoLoginTms}) {
            SetVersions(key, L"9", L"9");
        }
        SetVersions(judgedTms, L"5", L"5");
        SetVersions(kNoLoginLocal, L"4", L"4");
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
    SetEveryVersion(kLoginTms);
    SetVersions(kLoginRecord, L"4", L"4");
    EXPECT_EQ(AgreementSign::JudgeAgreementSignLogin(), GetParam().isOne ? kSignAgain : kSigned);
    EXPECT_THAT(RegistryCalls(),
                ElementsAreArray(GetParam().isOne ? Joined(Joined(VersionCalls(kLoginTms), RecordCalls(kLoginRecord)),
                                                           MissingRecordCalls(kCacheRecord))
                                                  : Joined(VersionCalls(kNoLoginLocal), RecordCalls(kLoginRecord))));
}

TEST_P(AgreementSignFlagTest, ServerFlagWithoutLogin_ChoosesServerVersionsOnlyWhenExactlyOne) {
    SetParamFlag(L"ServerUpdatedFlag");
    SetEveryVersion(kNoLoginTms);
    SetNoLoginRecord(L"4", L"4");
    EXPECT_EQ(AgreementSign::JudgeAgreementSignWithoutLogin(), GetParam().isOne ? kSignAgain : kSigned);
    EXPECT_EQ(RegistryCalls(),
              Joined(NoLoginRecordCalls(), VersionCalls(GetParam().isOne ? kNoLoginTms : kNoLoginLocal)));
}

// --- versions: plain string order, on each path and for each of the two values

// A text whose first byte in the ANSI code page is 0x80 or more, for the code pages of Europe and of East Asia.
const wchar_t* HighByteText() {
    const wchar_t* const european = L"\u20ac";
    return static_cast<unsigned char>(DE::UnicodeToANSI(european).at(0)) >= 0x80 ? european : L"\u3042";
}

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

enum class Field { Agreement, Privacy };

class AgreementSignVersionTest : public AgreementSignTest,
                                 public testing::WithParamInterface<std::tuple<VersionCase, Field, bool>> {
protected:
    static const VersionCase& Versions() { return std::get<0>(GetParam()); }
    static bool FromServer() { return std::get<2>(GetParam()); }
    static bool IsAgreement() { return std::get<1>(GetParam()) == Field::Agreement; }
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
                                     // Bytes are compared without a sign.
                                     VersionCase{HighByteText(), L"z", kSigned},
                                     VersionCase{L"z", HighByteText(), kSignAgain}),
                     testing::Values(Field::Agreement, Field::Privacy), testing::Bool()));

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

// --- nothing throws, and a judgement that could not be made never counts as consent

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

class SinglePathThrowTest : public AgreementSignTest, public testing::WithParamInterface<ThrowingCall> {
protected:
    static void ExpectNotSignedOnce(int (*judge)()) {
        EXPECT_EQ(judge(), kSigned);
        fakeutil::ThrowFrom(GetParam().function, GetParam().nth);
        int result = kSigned;
        EXPECT_NO_THROW(result = judge());
        EXPECT_FALSE(fakeutil::IsThrowPending());
        EXPECT_THAT(result, AnyOf(kNoRecord, kSignAgain));
        EXPECT_EQ(judge(), kSigned);
    }
};

INSTANTIATE_TEST_SUITE_P(
    Calls, SinglePathThrowTest,
    testing::Values(ThrowingCall{"AccountUtil::GetFlag", 1}, ThrowingCall{"AccountUtil::GetFlag", 2},
                    ThrowingCall{"AccountUtil::GetFlag", 5}, ThrowingCall{"KXPROCESS::GetCurrentUserSidstr", 1},
                    ThrowingCall{"DE::Registry::SetRootKey", 1}, ThrowingCall{"DE::Registry::KeyExists", 1}));

TEST_P(SinglePathThrowTest, Login_NotSignedAndWorksAgain) {
    SetVersions(kNoLoginLocal, L"3", L"3");
    SetVersions(kLoginRecord, L"3", L"3");
    ExpectNotSignedOnce(&AgreementSign::JudgeAgreementSignLogin);
}

TEST_P(SinglePathThrowTest, CacheRecordWithLogin_NotSignedAndWorksAgain) {
    SetVersions(kNoLoginLocal, L"3", L"3");
    SetVersions(kCacheRecord, L"3", L"3");
    ExpectNotSignedOnce(&AgreementSign::JudgeAgreementSignLogin);
}

TEST_P(SinglePathThrowTest, WithoutLogin_NotSignedAndWorksAgain) {
    SetVersions(kNoLoginLocal, L"3", L"3");
    SetNoLoginRecord(L"3", L"3");
    ExpectNotSignedOnce(&AgreementSign::JudgeAgreementSignWithoutLogin);
}

static_assert(std::is_trivially_copy_assignable_v<AgreementSign>);
static_assert(std::is_trivially_move_assignable_v<AgreementSign>);

} // namespace

} // namespace agreementtest
