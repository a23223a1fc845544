// Per-user settings, the OEM file's text, the user's locale and the names of log types.
#include "systemenvironment.h"

#include "queryfixture.h"
#include "support/childprocess.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <optional>
#include <ostream>

namespace querytest {

namespace {

const std::wstring kSettings = std::wstring(fakeutil::kDefaultSid) + L"\\SOFTWARE\\Orvane\\Calvora\\setting";
const Call kSidCall{"KXPROCESS::GetCurrentUserSidstr", ""};

// --- per-user settings

class ReadValueTest : public QueryTest {
protected:
    using Bytes = std::vector<unsigned char>;

    static void Store(RegistryData data) {
        fakeutil::SetRegistryValue(HKEY_USERS, kSettings, L"Name", std::move(data));
    }
    static constexpr wchar_t kBadArgumentLine[] =
        L"key name is empty or out value ptr is null(SystemEnvironment::ReadValue)\n";
};

TEST_F(ReadValueTest, StoredBytes_FillTheBeginningOfTheBuffer) {
    Store(Bytes{1, 0, 0xFF});
    Bytes buffer(5, 0xAA);
    EXPECT_TRUE(SystemEnvironment::ReadValue(L"Name", buffer.data(), 5));
    EXPECT_EQ(buffer, (Bytes{1, 0, 0xFF, 0xAA, 0xAA}));
    EXPECT_THAT(fakeutil::Calls(),
                ElementsAre(kSidCall, call::ReadBytes(HKEY_USERS, kSettings, L"Name", 5, kFullAccess)));
}

TEST_F(ReadValueTest, BufferOfTheExactSize_IsEnoughAndOneByteLessIsNot) {
    Store(Bytes{1, 2, 3});
    Bytes buffer(3, 0xAA);
    EXPECT_FALSE(SystemEnvironment::ReadValue(L"Name", buffer.data(), 2));
    EXPECT_EQ(buffer, Bytes(3, 0xAA));
    EXPECT_TRUE(SystemEnvironment::ReadValue(L"Name", buffer.data(), 3));
    EXPECT_EQ(buffer, (Bytes{1, 2, 3}));
}

TEST_F(ReadValueTest, SizeOfZeroOrLess_IsPassedThrough) {
    Store(Bytes{1});
    unsigned char byte = 0xAA;
    EXPECT_FALSE(SystemEnvironment::ReadValue(L"Name", &byte, 0));
    EXPECT_FALSE(SystemEnvironment::ReadValue(L"Name", &byte, -1));
    EXPECT_EQ(byte, 0xAA);
    EXPECT_THAT(fakeutil::RegistryCalls(),
                ElementsAre(call::ReadBytes(HKEY_USERS, kSettings, L"Name", 0, kFullAccess),
                            call::ReadBytes(HKEY_USERS, kSettings, L"Name", -1, kFullAccess)));
}

TEST_F(ReadValueTest, EmptyName_IsReportedAndTheRegistryIsNotTouched) {
    unsigned char byte = 0xAA;
    EXPECT_FALSE(SystemEnvironment::ReadValue(L"", &byte, 1));
    EXPECT_EQ(byte, 0xAA);
    EXPECT_THAT(fakeutil::Calls(), IsEmpty());
    EXPECT_THAT(TakeLines(), ElementsAre(kBadArgumentLine));
}

TEST_F(ReadValueTest, NullBuffer_IsReportedAndTheRegistryIsNotTouched) {
    EXPECT_FALSE(SystemEnvironment::ReadValue(L"Name", nullptr, 1));
    EXPECT_THAT(fakeutil::Calls(), IsEmpty());
    EXPECT_THAT(TakeLines(), ElementsAre(kBadArgumentLine));
}

TEST_F(ReadValueTest, EmptyNameAndNullBuffer_AreReportedOnce) {
    EXPECT_FALSE(SystemEnvironment::ReadValue(L"", nullptr, 1));
    EXPECT_THAT(TakeLines(), ElementsAre(kBadArgumentLine));
}

TEST_F(ReadValueTest, MissingOrRefused_FalseAndTheBufferIsUntouched) {
    unsigned char byte = 0xAA;
    EXPECT_FALSE(SystemEnvironment::ReadValue(L"Name", &byte, 1));
    Store(Bytes{1});
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    EXPECT_FALSE(SystemEnvironment::ReadValue(L"Name", &byte, 1));
    EXPECT_EQ(byte, 0xAA);
}

TEST_F(ReadValueTest, AnyCallThrows_FalseAndTheNextWorks) {
    Store(Bytes{1});
    unsigned char byte = 0xAA;
    for (const char* function : {"KXPROCESS::GetCurrentUserSidstr", "DE::Registry::GetValue"}) {
        SCOPED_TRACE(function);
        fakeutil::ThrowFrom(function);
        EXPECT_NO_THROW(EXPECT_FALSE(SystemEnvironment::ReadValue(L"Name", &byte, 1)));
        EXPECT_FALSE(fakeutil::IsThrowPending());
    }
    EXPECT_TRUE(SystemEnvironment::ReadValue(L"Name", &byte, 1));
    EXPECT_EQ(byte, 1);
}

struct NumberCase {
    unsigned long stored;
    int expected;
};
class ReadNumberTest : public ReadValueTest, public testing::WithParamInterface<NumberCase> {};

INSTANTIATE_TEST_SUITE_P(Numbers, ReadNumberTest,
                         testing::Values(NumberCase{0, 0}, NumberCase{7, 7}, NumberCase{0x7FFFFFFF, 2147483647},
                                         NumberCase{0x80000000, -2147483647 - 1}, NumberCase{0xFFFFFFFE, -2},
                                         NumberCase{0xFFFFFFFF, -1}));

TEST_P(ReadNumberTest, StoredNumber_IsGiven) {
    Store(GetParam().stored);
    EXPECT_EQ(SystemEnvironment::ReadValue(L"Name"), GetParam().expected);
    EXPECT_THAT(fakeutil::Calls(), ElementsAre(kSidCall, call::ReadInt(HKEY_USERS, kSettings, L"Name", kFullAccess)));
}

TEST_F(ReadValueTest, NumberMissingOrNoNumber_MinusOne) {
    EXPECT_EQ(SystemEnvironment::ReadValue(L"Name"), -1);
    Store(std::wstring(L"7"));
    EXPECT_EQ(SystemEnvironment::ReadValue(L"Name"), -1);
    Store(7ul);
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    EXPECT_EQ(SystemEnvironment::ReadValue(L"Name"), -1);
}

TEST_F(ReadValueTest, NumberWithAnEmptyName_IsTheKeysOwnValue) {
    fakeutil::SetRegistryValue(HKEY_USERS, kSettings, L"", 4ul);
    EXPECT_EQ(SystemEnvironment::ReadValue(L""), 4);
}

TEST_F(ReadValueTest, AnyCallThrowsForANumber_MinusOneAndTheNextWorks) {
    Store(7ul);
    for (const char* function : {"KXPROCESS::GetCurrentUserSidstr", "DE::Registry::GetValue"}) {
        SCOPED_TRACE(function);
        fakeutil::ThrowFrom(function);
        EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::ReadValue(L"Name"), -1));
        EXPECT_FALSE(fakeutil::IsThrowPending());
    }
    EXPECT_EQ(SystemEnvironment::ReadValue(L"Name"), 7);
}

TEST_F(ReadValueTest, UserChanges_TheOtherUsersKeyIsRead) {
    Store(7ul);
    fakeutil::SetUserSid(L"S-1-5-18");
    fakeutil::SetRegistryValue(HKEY_USERS, L"S-1-5-18\\SOFTWARE\\Orvane\\Calvora\\setting", L"Name", 8ul);
    EXPECT_EQ(SystemEnvironment::ReadValue(L"Name"), 8);
}

// --- the OEM file

class OemFileTest : public QueryTest {
private:
    OemFile m_file;
};

struct MarkCase {
    std::string bytes;
    bool isUnicode;
};
std::ostream& operator<<(std::ostream& out, const MarkCase& mark) {
    return out << testing::PrintToString(mark.bytes);
}
class MarkTest : public OemFileTest, public testing::WithParamInterface<MarkCase> {};

INSTANTIATE_TEST_SUITE_P(Files, MarkTest,
                         testing::Values(MarkCase{"", false}, MarkCase{"\xff", false}, MarkCase{"\xfe", false},
                                         MarkCase{"\xff\xfe", true}, MarkCase{"\xfe\xff", true},
                                         MarkCase{"\xff\xff", false}, MarkCase{"\xfe\xfe", false},
                                         MarkCase{std::string(2, '\0'), false}, MarkCase{"V1", false},
                                         MarkCase{"\xff\xfeV", true}, MarkCase{Utf16File(L"V1.05"), true},
                                         MarkCase{"\xfe\xff\x56", true}, MarkCase{"\xef\xbb\xbfV", false},
                                         MarkCase{"V\xff\xfe", false}, MarkCase{"\x1a\xff\xfe", false},
                                         MarkCase{"\r\n\xff\xfe", false}));

TEST_P(MarkTest, FirstTwoBytes_Decide) {
    OemFile::Write(GetParam().bytes);
    EXPECT_EQ(SystemEnvironment::IsFileUnicode(), GetParam().isUnicode);
}

struct TextCase {
    std::string bytes;
    std::wstring text;
};
std::ostream& operator<<(std::ostream& out, const TextCase& file) {
    return out << testing::PrintToString(file.bytes);
}
class UnicodeStringTest : public OemFileTest, public testing::WithParamInterface<TextCase> {};

INSTANTIATE_TEST_SUITE_P(
    Files, UnicodeStringTest,
    testing::Values(TextCase{"", L""}, TextCase{"\xff", L""}, TextCase{"\xff\xfe", L""}, TextCase{"V1", L""},
                    TextCase{Utf16File(L"V"), L"V"}, TextCase{Utf16File(L"V1.05_2021\r\n"), L"V1.05_2021\r\n"},
                    // The units are as stored whatever the mark says, and whether there is one.
                    TextCase{std::string("\xfe\xff\0V", 4), L"\x5600"}, TextCase{std::string("\xfe\xffV\0", 4), L"V"},
                    TextCase{std::string("abV\0", 4), L"V"},
                    // Nothing ends the text before the file's end.
                    TextCase{Utf16File(std::wstring(L"a\0b", 3)), std::wstring(L"a\0b", 3)},
                    TextCase{"\xff\xfe\x1a\x1a\r\n\x0a\x0d", L"\x1a1a\x0a0d\x0d0a"},
                    TextCase{Utf16File(L"\xd83d\xde00\xd800"), L"\xd83d\xde00\xd800"},
                    TextCase{Utf16File(std::wstring(1 << 20, L'x')), std::wstring(1 << 20, L'x')}));

TEST_P(UnicodeStringTest, UnitsAfterTheFirstTwoBytes_AreTheText) {
    OemFile::Write(GetParam().bytes);
    EXPECT_EQ(SystemEnvironment::GetUnicodeString(), GetParam().text);
}

TEST_F(OemFileTest, OddLength_EmptyAndReported) {
    for (const std::string bytes : {"\xff\xfeV", "V12", "\xff\xfeV1V"}) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        OemFile::Write(bytes);
        EXPECT_EQ(SystemEnvironment::GetUnicodeString(), L"");
        EXPECT_THAT(TakeLines(), ElementsAre(L"memcpy_s fail err:34(SystemEnvironment::GetUnicodeString)\n"));
    }
}

TEST_F(OemFileTest, LargeFileOfOddLength_EmptyAndReported) {
    OemFile::Write(Utf16File(std::wstring(1 << 20, L'x')) + "x");
    EXPECT_EQ(SystemEnvironment::GetUnicodeString(), L"");
    EXPECT_THAT(TakeLines(), ElementsAre(L"memcpy_s fail err:34(SystemEnvironment::GetUnicodeString)\n"));
}

TEST_F(OemFileTest, Missing_NoUnicodeAndNoText) {
    EXPECT_FALSE(SystemEnvironment::IsFileUnicode());
    EXPECT_EQ(SystemEnvironment::GetUnicodeString(), L"");
}

TEST_F(OemFileTest, CannotBeOpened_NoUnicodeAndNoTextUntilItCan) {
    OemFile::Write(Utf16File(L"V"));
    {
        const LockedFile locked(OemFile::kPath);
        EXPECT_FALSE(SystemEnvironment::IsFileUnicode());
        EXPECT_EQ(SystemEnvironment::GetUnicodeString(), L"");
    }
    EXPECT_TRUE(SystemEnvironment::IsFileUnicode());
    EXPECT_EQ(SystemEnvironment::GetUnicodeString(), L"V");
}

TEST_F(OemFileTest, CannotBeReadOn_TextEndsThereUntilItCan) {
    using ReadFileHook = kxtest::ImportHook<"KERNEL32.dll", "ReadFile", decltype(ReadFile)>;
    constexpr std::size_t kBlock = 1024;
    OemFile::Write(Utf16File(std::wstring(kBlock, L'x')));
    {
        int reads = 0;
        const ReadFileHook hook([&](auto&&... arguments) -> BOOL {
            if (++reads == 2) {
                SetLastError(ERROR_READ_FAULT);
                return FALSE;
            }
            return ReadFileHook::Original(arguments...);
        });
        EXPECT_EQ(SystemEnvironment::GetUnicodeString(), std::wstring(kBlock / sizeof(wchar_t) - 1, L'x'));
    }
    EXPECT_EQ(SystemEnvironment::GetUnicodeString(), std::wstring(kBlock, L'x'));
}

TEST_F(OemFileTest, FolderInItsPlace_NoUnicodeAndNoText) {
    std::filesystem::create_directories(OemFile::kPath);
    EXPECT_FALSE(SystemEnvironment::IsFileUnicode());
    EXPECT_EQ(SystemEnvironment::GetUnicodeString(), L"");
}

TEST_F(OemFileTest, AfterReading_TheFileIsClosed) {
    OemFile::Write(Utf16File(L"V"));
    SystemEnvironment::IsFileUnicode();
    SystemEnvironment::GetUnicodeString();
    EXPECT_NO_THROW(LockedFile{OemFile::kPath});
    OemFile::Write("V12");
    SystemEnvironment::GetUnicodeString();
    EXPECT_NO_THROW(LockedFile{OemFile::kPath});
    TakeLines();
}

// --- the user's locale

constexpr wchar_t kSystemAccount[] = L"S-1-5-18";

struct LocaleReader {
    const char* function;
    std::function<std::string()> read;
    std::string defaultName;
};
std::ostream& operator<<(std::ostream& out, const LocaleReader& reader) {
    return out << reader.function;
}

class LocaleTest : public QueryTest, public testing::WithParamInterface<LocaleReader> {
protected:
    static std::wstring KeyOf(const std::wstring& sid) { return sid + L"\\Control Panel\\International"; }
    static void Store(RegistryData data, const std::wstring& sid = fakeutil::kDefaultSid) {
        fakeutil::SetRegistryValue(HKEY_USERS, KeyOf(sid), L"LocaleName", std::move(data));
    }
    static void ExpectRead(const std::string& expected, const std::wstring& sid = fakeutil::kDefaultSid) {
        EXPECT_EQ(GetParam().read(), expected);
        EXPECT_THAT(fakeutil::Calls(),
                    ElementsAre(kSidCall, call::ReadText(HKEY_USERS, KeyOf(sid), L"LocaleName", kFullAccess)));
    }
};

INSTANTIATE_TEST_SUITE_P(
    Readers, LocaleTest,
    testing::Values(LocaleReader{"GetUserLocaleName", [] { return SystemEnvironment::GetUserLocaleName(); }, "en-US"},
                    LocaleReader{"GetUserLocaleNameCN", [] { return SystemEnvironment::GetUserLocaleNameCN(); },
                                 "zh-CN"}));

TEST_P(LocaleTest, StoredName_IsGivenAsItIs) {
    Store(std::wstring(L"de-DE"));
    ExpectRead("de-DE");
}

TEST_P(LocaleTest, Missing_Default) {
    ExpectRead(GetParam().defaultName);
}

TEST_P(LocaleTest, EmptyName_Default) {
    Store(std::wstring());
    ExpectRead(GetParam().defaultName);
}

TEST_P(LocaleTest, NumberWhereATextBelongs_Default) {
    Store(7ul);
    ExpectRead(GetParam().defaultName);
}

TEST_P(LocaleTest, FullAccessRefused_Default) {
    Store(std::wstring(L"de-DE"));
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    ExpectRead(GetParam().defaultName);
}

TEST_P(LocaleTest, NameOutsideAscii_IsUtf8) {
    Store(std::wstring(L" \u00e9\u4e00\U0001F600 "));
    ExpectRead(" \xc3\xa9\xe4\xb8\x80\xf0\x9f\x98\x80 ");
}

TEST_P(LocaleTest, LongName_IsWhole) {
    Store(std::wstring(kLongLength, L'x'));
    ExpectRead(std::string(kLongLength, 'x'));
}

TEST_P(LocaleTest, AccountsLikeTheLocalSystem_AreReadLikeAnyOther) {
    for (const std::wstring sid : {L"S-1-5-19", L"S-1-5-180", L"S-1-5-1", L"s-1-5-18", L"S-1-5-18 ", L""}) {
        SCOPED_TRACE(testing::PrintToString(sid));
        Restart();
        fakeutil::SetUserSid(sid);
        Store(std::wstring(L"de-DE"), sid);
        ExpectRead("de-DE", sid);
    }
}

TEST_P(LocaleTest, AnyCallThrows_DefaultAndTheNextWorks) {
    Store(std::wstring(L"de-DE"));
    for (const char* function : {"KXPROCESS::GetCurrentUserSidstr", "DE::Registry::GetValue"}) {
        SCOPED_TRACE(function);
        fakeutil::ThrowFrom(function);
        EXPECT_NO_THROW(EXPECT_EQ(GetParam().read(), GetParam().defaultName));
        EXPECT_FALSE(fakeutil::IsThrowPending());
    }
    EXPECT_EQ(GetParam().read(), "de-DE");
}

TEST_F(QueryTest, LocaleInTheLocalSystemAccount_EnglishWithoutReading) {
    fakeutil::SetUserSid(kSystemAccount);
    fakeutil::SetRegistryValue(HKEY_USERS, L"S-1-5-18\\Control Panel\\International", L"LocaleName",
                               std::wstring(L"de-DE"));
    EXPECT_EQ(SystemEnvironment::GetUserLocaleName(), "en-US");
    EXPECT_THAT(fakeutil::Calls(), ElementsAre(kSidCall));
}

TEST_F(QueryTest, LocaleCnInTheLocalSystemAccount_IsItsHivesOrChinese) {
    fakeutil::SetUserSid(kSystemAccount);
    EXPECT_EQ(SystemEnvironment::GetUserLocaleNameCN(), "zh-CN");
    fakeutil::SetRegistryValue(HKEY_USERS, L"S-1-5-18\\Control Panel\\International", L"LocaleName",
                               std::wstring(L"de-DE"));
    EXPECT_EQ(SystemEnvironment::GetUserLocaleNameCN(), "de-DE");
}

} // namespace

} // namespace querytest
