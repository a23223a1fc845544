// The settings readers and writers: values, defaults, and the one registry call that each makes.
#include "systemenvironment.h"

#include "queryfixture.h"

#include "sdk/util/text.h"

#include <climits>
#include <functional>
#include <ostream>

namespace querytest {

namespace {

const std::wstring kCrashControl = L"SYSTEM\\CurrentControlSet\\Control\\CrashControl";
const std::wstring kSessionPower = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Power";
const std::wstring kGuideOfUser = std::wstring(fakeutil::kDefaultSid) + L"\\SOFTWARE\\Calvora\\KXLoginGuide";
const std::wstring kGuideOfMachine = L"SOFTWARE\\Calvora\\KXLoginGuide";

class SuiteSettingsTest : public QueryTest {};

// --- readers of texts

struct TextReader {
    const char* function;
    std::function<std::string()> read; // in UTF-8
    HKEY root;
    std::wstring key;
    std::wstring name;
    std::string defaultText;
};
std::ostream& operator<<(std::ostream& out, const TextReader& reader) {
    return out << reader.function;
}

std::string Utf8OfCaptureSwitch() {
    const std::wstring wide = SystemEnvironment::GetCaptureSwitch();
    std::string narrow;
    // Enough for the texts of these tests: the Basic Multilingual Plane and one pair of surrogates.
    for (std::size_t i = 0; i < wide.size(); ++i) {
        const unsigned unit = wide[i];
        if (unit < 0x80) {
            narrow += static_cast<char>(unit);
        } else if (unit < 0x800) {
            narrow += static_cast<char>(0xC0 | (unit >> 6));
            narrow += static_cast<char>(0x80 | (unit & 0x3F));
        } else {
            const unsigned point = 0x10000 + ((unit - 0xD800) << 10) + (wide.at(++i) - 0xDC00u);
            narrow += static_cast<char>(0xF0 | (point >> 18));
            narrow += static_cast<char>(0x80 | ((point >> 12) & 0x3F));
            narrow += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
            narrow += static_cast<char>(0x80 | (point & 0x3F));
        }
    }
    return narrow;
}

class TextReaderTest : public SuiteSettingsTest, public testing::WithParamInterface<TextReader> {
protected:
    static void Store(RegistryData data) {
        fakeutil::SetRegistryValue(GetParam().root, GetParam().key, GetParam().name, std::move(data));
    }
    static void ExpectText(const std::string& expected) {
        EXPECT_EQ(GetParam().read(), expected);
        EXPECT_THAT(RegistryCalls(),
                    ElementsAre(call::ReadText(GetParam().root, GetParam().key, GetParam().name, kFullAccess)));
    }
};

INSTANTIATE_TEST_SUITE_P(
    Readers, TextReaderTest,
    testing::Values(TextReader{"GetPowerManagerIntellMode",
                               [] { return SystemEnvironment::GetPowerManagerIntellMode(); }, HKEY_LOCAL_MACHINE,
                               L"Software\\Calvora\\ZLKPowerManager", L"PowerManagerIntellMode", "1"},
                    TextReader{"GetCaptureSwitch", &Utf8OfCaptureSwitch, HKEY_USERS, kGuideOfUser, L"Capture", "0"},
                    TextReader{"GetLogSwitch", [] { return SystemEnvironment::GetLogSwitch(); }, HKEY_LOCAL_MACHINE,
                               kGuideOfMachine, L"LogSwitch", "0"},
                    TextReader{"GetFirewareValue", [] { return SystemEnvironment::GetFirewareValue(); },
                               HKEY_LOCAL_MACHINE, kGuideOfMachine, L"Fireware", "0"}));

TEST_P(TextReaderTest, MissingKey_Default) {
    ExpectText(GetParam().defaultText);
}

TEST_P(TextReaderTest, MissingValue_Default) {
    fakeutil::AddRegistryKey(GetParam().root, GetParam().key);
    ExpectText(GetParam().defaultText);
}

TEST_P(TextReaderTest, EmptyValue_Default) {
    Store(std::wstring());
    ExpectText(GetParam().defaultText);
}

TEST_P(TextReaderTest, NumberWhereATextBelongs_Default) {
    Store(1ul);
    ExpectText(GetParam().defaultText);
}

TEST_P(TextReaderTest, BytesWhereATextBelongs_Default) {
    Store(std::vector<unsigned char>{'7', 0});
    ExpectText(GetParam().defaultText);
}

TEST_P(TextReaderTest, FullAccessRefused_Default) {
    Store(std::wstring(L"7"));
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    ExpectText(GetParam().defaultText);
}

TEST_P(TextReaderTest, StoredText_IsGivenAsItIs) {
    Store(std::wstring(L" On 2 "));
    ExpectText(" On 2 ");
}

TEST_P(TextReaderTest, TextOutsideAscii_IsUtf8) {
    Store(std::wstring(L"\u00e9\U0001F600"));
    ExpectText("\xc3\xa9\xf0\x9f\x98\x80");
}

TEST_P(TextReaderTest, LongText_IsWhole) {
    Store(std::wstring(kLongLength, L'x'));
    ExpectText(std::string(kLongLength, 'x'));
}

TEST_P(TextReaderTest, ReadThrows_DefaultAndWorksAgain) {
    Store(std::wstring(L"7"));
    fakeutil::ThrowFrom("DE::Registry::GetValue");
    EXPECT_NO_THROW(EXPECT_EQ(GetParam().read(), GetParam().defaultText));
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_EQ(GetParam().read(), "7");
}

TEST_P(TextReaderTest, ValueChanges_IsReadAfresh) {
    Store(std::wstring(L"7"));
    EXPECT_EQ(GetParam().read(), "7");
    Store(std::wstring(L"8"));
    EXPECT_EQ(GetParam().read(), "8");
}

TEST_F(SuiteSettingsTest, CaptureSwitchWithoutSid_DefaultWhenTheSidThrows) {
    fakeutil::SetRegistryValue(HKEY_USERS, kGuideOfUser, L"Capture", std::wstring(L"7"));
    fakeutil::ThrowFrom("KXPROCESS::GetCurrentUserSidstr");
    EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetCaptureSwitch(), L"0"));
    EXPECT_EQ(SystemEnvironment::GetCaptureSwitch(), L"7");
}

// --- numbers

class CrashDumpTest : public SuiteSettingsTest {
protected:
    static void Store(RegistryData data) {
        fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled", std::move(data));
    }
    static std::optional<RegistryData> Stored() {
        return fakeutil::StoredValue(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled");
    }
    static Call ReadInt() { return call::ReadInt(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled", kFullAccess); }
    static Call ReadUnsigned() {
        return call::ReadUnsigned(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled", kFullAccess);
    }
    static Call Write() {
        return call::WriteInt(HKEY_LOCAL_MACHINE, kCrashControl, L"CrashDumpEnabled", 2, kFullAccess);
    }
};

class CrashDumpNumberTest : public CrashDumpTest, public testing::WithParamInterface<unsigned long> {};

INSTANTIATE_TEST_SUITE_P(Numbers, CrashDumpNumberTest, testing::Values(0ul, 1ul, 2ul, 3ul, 4ul, 7ul, 0xFFFFFFFFul));

TEST_P(CrashDumpNumberTest, OnlyTwo_IsAKernelDump) {
    Store(GetParam());
    EXPECT_EQ(SystemEnvironment::IsKernelCrashDumpEnabled(), GetParam() == 2);
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadInt()));
}

TEST_P(CrashDumpNumberTest, OnlyThree_IsRaisedToTwo) {
    Store(GetParam());
    SystemEnvironment::FixSmallCrashDump();
    if (GetParam() == 3) {
        EXPECT_THAT(RegistryCalls(), ElementsAre(ReadUnsigned(), Write()));
        EXPECT_EQ(Stored(), RegistryData(2ul));
    } else {
        EXPECT_THAT(RegistryCalls(), ElementsAre(ReadUnsigned()));
        EXPECT_EQ(Stored(), RegistryData(GetParam()));
    }
}

TEST_F(CrashDumpTest, Missing_NoKernelDumpAndNothingWritten) {
    EXPECT_FALSE(SystemEnvironment::IsKernelCrashDumpEnabled());
    SystemEnvironment::FixSmallCrashDump();
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadInt(), ReadUnsigned()));
    EXPECT_EQ(Stored(), std::nullopt);
}

TEST_F(CrashDumpTest, TextWhereANumberBelongs_NoKernelDump) {
    Store(std::wstring(L"2"));
    EXPECT_FALSE(SystemEnvironment::IsKernelCrashDumpEnabled());
}

TEST_F(CrashDumpTest, TextThree_IsLeftAlone) {
    Store(std::wstring(L"3"));
    SystemEnvironment::FixSmallCrashDump();
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadUnsigned()));
    EXPECT_EQ(Stored(), RegistryData(std::wstring(L"3")));
}

TEST_F(CrashDumpTest, FullAccessRefused_NoKernelDumpAndNothingWritten) {
    Store(2ul);
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    EXPECT_FALSE(SystemEnvironment::IsKernelCrashDumpEnabled());
    SystemEnvironment::FixSmallCrashDump();
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadInt(), ReadUnsigned()));
}

TEST_F(CrashDumpTest, WriteFails_IsIgnoredAndTheNextWorks) {
    Store(3ul);
    fakeutil::FailRegistryWrite(1);
    SystemEnvironment::FixSmallCrashDump();
    EXPECT_EQ(Stored(), RegistryData(3ul));
    SystemEnvironment::FixSmallCrashDump();
    EXPECT_EQ(Stored(), RegistryData(2ul));
}

TEST_F(CrashDumpTest, RegistryThrows_NothingGetsOut) {
    Store(3ul);
    fakeutil::ThrowFrom("DE::Registry::GetValue");
    EXPECT_NO_THROW(EXPECT_FALSE(SystemEnvironment::IsKernelCrashDumpEnabled()));
    fakeutil::ThrowFrom("DE::Registry::GetValue");
    EXPECT_NO_THROW(SystemEnvironment::FixSmallCrashDump());
    fakeutil::ThrowFrom("DE::Registry::SetValue");
    EXPECT_NO_THROW(SystemEnvironment::FixSmallCrashDump());
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_EQ(Stored(), RegistryData(3ul));
}

struct PowerCase {
    unsigned long stored;
    int expected;
};
class SessionPowerTest : public SuiteSettingsTest, public testing::WithParamInterface<PowerCase> {};

INSTANTIATE_TEST_SUITE_P(Numbers, SessionPowerTest,
                         testing::Values(PowerCase{0, 0}, PowerCase{1, 1}, PowerCase{5000, 5000},
                                         PowerCase{0x7FFFFFFF, INT_MAX}, PowerCase{0x80000000, INT_MIN},
                                         PowerCase{0xFFFFFFFF, -1}));

TEST_P(SessionPowerTest, StoredNumber_IsTakenAsSigned) {
    fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kSessionPower, L"HiberbootEnabled", GetParam().stored);
    EXPECT_EQ(SystemEnvironment::GetSessionPowerValue(L"HiberbootEnabled"), GetParam().expected);
    EXPECT_THAT(RegistryCalls(),
                ElementsAre(call::ReadUnsigned(HKEY_LOCAL_MACHINE, kSessionPower, L"HiberbootEnabled", kFullAccess)));
}

TEST_F(SuiteSettingsTest, SessionPowerValueMissing_MinusOne) {
    fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kSessionPower, L"Other", 4ul);
    EXPECT_EQ(SystemEnvironment::GetSessionPowerValue(L"HiberbootEnabled"), -1);
}

TEST_F(SuiteSettingsTest, SessionPowerValueWithAnEmptyName_IsTheKeysOwnValue) {
    fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kSessionPower, L"", 4ul);
    EXPECT_EQ(SystemEnvironment::GetSessionPowerValue(L""), 4);
    EXPECT_THAT(RegistryCalls(), ElementsAre(call::ReadUnsigned(HKEY_LOCAL_MACHINE, kSessionPower, L"", kFullAccess)));
}

TEST_F(SuiteSettingsTest, SessionPowerValueUnreadable_MinusOne) {
    fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kSessionPower, L"Text", std::wstring(L"4"));
    fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kSessionPower, L"Number", 4ul);
    EXPECT_EQ(SystemEnvironment::GetSessionPowerValue(L"Text"), -1);
    fakeutil::ThrowFrom("DE::Registry::GetValue");
    EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetSessionPowerValue(L"Number"), -1));
    EXPECT_EQ(SystemEnvironment::GetSessionPowerValue(L"Number"), 4);
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    EXPECT_EQ(SystemEnvironment::GetSessionPowerValue(L"Number"), -1);
}

// --- the log switch

TEST_F(SuiteSettingsTest, SetLogSwitch_WritesOneOrZero) {
    EXPECT_TRUE(SystemEnvironment::SetLogSwitch(true));
    EXPECT_EQ(SystemEnvironment::GetLogSwitch(), "1");
    EXPECT_TRUE(SystemEnvironment::SetLogSwitch(false));
    EXPECT_EQ(SystemEnvironment::GetLogSwitch(), "0");
    EXPECT_THAT(RegistryCalls(),
                ElementsAre(call::WriteText(HKEY_LOCAL_MACHINE, kGuideOfMachine, L"LogSwitch", L"1", kFullAccess),
                            call::ReadText(HKEY_LOCAL_MACHINE, kGuideOfMachine, L"LogSwitch", kFullAccess),
                            call::WriteText(HKEY_LOCAL_MACHINE, kGuideOfMachine, L"LogSwitch", L"0", kFullAccess),
                            call::ReadText(HKEY_LOCAL_MACHINE, kGuideOfMachine, L"LogSwitch", kFullAccess)));
}

TEST_F(SuiteSettingsTest, SetLogSwitchFails_FalseAndTheNextWorks) {
    fakeutil::FailRegistryWrite(1);
    EXPECT_FALSE(SystemEnvironment::SetLogSwitch(true));
    EXPECT_EQ(fakeutil::StoredValue(HKEY_LOCAL_MACHINE, kGuideOfMachine, L"LogSwitch"), std::nullopt);
    EXPECT_TRUE(SystemEnvironment::SetLogSwitch(true));
}

TEST_F(SuiteSettingsTest, SetLogSwitchThrowsInside_False) {
    fakeutil::ThrowFrom("DE::Registry::SetValue");
    EXPECT_NO_THROW(EXPECT_FALSE(SystemEnvironment::SetLogSwitch(true)));
    EXPECT_FALSE(fakeutil::IsThrowPending());
}

// --- the secondary SKU

struct SkuCase {
    std::wstring secondary;
    std::wstring system;
    std::string expected;
};
std::ostream& operator<<(std::ostream& out, const SkuCase& sku) {
    return out << testing::PrintToString(sku.secondary) << " beside " << testing::PrintToString(sku.system);
}

class SecondarySkuTest : public SuiteSettingsTest {
protected:
    static void SetSkus(const std::wstring& secondary, const std::wstring& system) {
        fakeutil::SmBiosTexts texts;
        texts.secSku = secondary;
        texts.sysSku = system;
        fakeutil::SetSmBios(texts);
    }
};

class SecondarySkuPairTest : public SecondarySkuTest, public testing::WithParamInterface<SkuCase> {};

INSTANTIATE_TEST_SUITE_P(Pairs, SecondarySkuPairTest,
                         testing::Values(SkuCase{L"", L"", ""}, SkuCase{L"", L"ABC", ""}, SkuCase{L"ABC", L"ABC", ""},
                                         SkuCase{L"ABC", L"abc", "abc"}, SkuCase{L"ABC", L"", "abc"},
                                         SkuCase{L"abc", L"ABC", "abc"}, SkuCase{L"ABC", L"ABCD", "abc"},
                                         SkuCase{L"ABCD", L"ABC", "abcd"}, SkuCase{L"ABC ", L"ABC", "abc "},
                                         SkuCase{L" ", L"", " "}, SkuCase{L"X-1_y.Z", L"Q", "x-1_y.z"},
                                         SkuCase{L"\u00c9A", L"", DE::LowerCase(DE::UnicodeToANSI(L"\u00c9A"))},
                                         // The code page has neither, so the narrow copies are equal.
                                         SkuCase{L"\u0e01", L"\u0e02", ""}));

TEST_P(SecondarySkuPairTest, Skus_AreComparedAndLowered) {
    SetSkus(GetParam().secondary, GetParam().system);
    EXPECT_EQ(SystemEnvironment::GetSecondarySku(), GetParam().expected);
}

TEST_P(SecondarySkuPairTest, NarrowCopies_AreEachFreedOnce) {
    SetSkus(GetParam().secondary, GetParam().system);
    SystemEnvironment::GetSecondarySku();
    EXPECT_EQ(fakeutil::NarrowCopies().size(), GetParam().secondary.empty() ? 0u : GetParam().system.empty() ? 1u : 2u);
    ExpectCopiesFreed();
}

TEST_F(SecondarySkuTest, NoSecondarySku_SystemSkuIsNotAskedFor) {
    SetSkus(L"", L"ABC");
    EXPECT_EQ(SystemEnvironment::GetSecondarySku(), "");
    EXPECT_THAT(fakeutil::Calls(), ElementsAre(Call{"SmBiosHelper::GetSecSKU", ""}));
}

TEST_F(SecondarySkuTest, SecondarySku_IsAskedForBeforeTheSystemSku) {
    SetSkus(L"ABC", L"DEF");
    EXPECT_EQ(SystemEnvironment::GetSecondarySku(), "abc");
    EXPECT_THAT(fakeutil::Calls(),
                ElementsAre(Call{"SmBiosHelper::GetSecSKU", ""}, Call{"SmBiosHelper::GetSysSKU", ""}));
}

TEST_F(SecondarySkuTest, SecondaryHasNoNarrowCopy_EmptyAndSystemSkuIsNotAskedFor) {
    SetSkus(L"ABC", L"DEF");
    fakeutil::ScriptNarrowCopyFails([](const std::wstring& text) { return text == L"ABC"; });
    EXPECT_EQ(SystemEnvironment::GetSecondarySku(), "");
    EXPECT_THAT(fakeutil::Calls(), ElementsAre(Call{"SmBiosHelper::GetSecSKU", ""}));
}

TEST_F(SecondarySkuTest, SystemHasNoNarrowCopy_EmptyAndTheOtherCopyIsFreed) {
    SetSkus(L"ABC", L"DEF");
    fakeutil::ScriptNarrowCopyFails([](const std::wstring& text) { return text == L"DEF"; });
    EXPECT_EQ(SystemEnvironment::GetSecondarySku(), "");
    EXPECT_EQ(fakeutil::NarrowCopies().size(), 1u);
    ExpectCopiesFreed();
}

TEST_F(SecondarySkuTest, AnyCallThrows_EmptyAndTheCopiesAreFreed) {
    SetSkus(L"ABC", L"DEF");
    for (const char* function : {"SmBiosHelper::GetSecSKU", "SmBiosHelper::GetSysSKU", "DE::LowerCase"}) {
        SCOPED_TRACE(function);
        fakeutil::ThrowFrom(function);
        EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetSecondarySku(), ""));
        EXPECT_FALSE(fakeutil::IsThrowPending());
    }
    // The first call ends before a copy is made, the second after one, the third after two.
    EXPECT_EQ(fakeutil::NarrowCopies().size(), 3u);
    ExpectCopiesFreed();
    EXPECT_EQ(SystemEnvironment::GetSecondarySku(), "abc");
}

} // namespace

} // namespace querytest
