// Firmware version and OEM image version.
#include "systemenvironment.h"

#include "queryfixture.h"

#include <ostream>

namespace querytest {

namespace {

const std::wstring kBios = L"HARDWARE\\DESCRIPTION\\System\\BIOS";
const std::wstring kProduct = L"HARDWARE\\DESCRIPTION\\System\\Product";

// --- firmware version

struct TextCase {
    std::wstring stored;
    std::string expected;
};
std::ostream& operator<<(std::ostream& out, const TextCase& text) {
    return out << testing::PrintToString(text.stored);
}

class BiosVersionTest : public QueryTest {
protected:
    static void Store(RegistryData data) {
        fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kBios, L"BIOSVersion", std::move(data));
    }
    static void ExpectRead(const std::string& expected) {
        EXPECT_EQ(SystemEnvironment::GetBIOSVersion(), expected);
        EXPECT_THAT(fakeutil::Calls(),
                    ElementsAre(call::ReadText(HKEY_LOCAL_MACHINE, kBios, L"BIOSVersion", kFullAccess)));
    }
    static constexpr wchar_t kTooLongLine[] = L"strcpy_s byteArray fail(SystemEnvironment::GetBIOSVersion)\n";
};
class BiosVersionTableTest : public BiosVersionTest, public testing::WithParamInterface<TextCase> {};

INSTANTIATE_TEST_SUITE_P(Versions, BiosVersionTableTest,
                         testing::Values(TextCase{L"1.23.45", "1.23"}, TextCase{L"1.23", "1.23"},
                                         TextCase{L"ABC", "ABC"}, TextCase{L"2.10.0.1", "2.10"}, TextCase{L"", ""},
                                         TextCase{L".", "."}, TextCase{L"..", "."}, TextCase{L"...", "."},
                                         TextCase{L"1.", "1."}, TextCase{L"1..2", "1."}, TextCase{L".1.2", ".1"},
                                         TextCase{L" 1.2 .3", " 1.2 "},
                                         TextCase{L"\u00e91.2_x.3", "\xe9"
                                                                    "1.2_x"},
                                         TextCase{std::wstring(127, L'x'), std::string(127, 'x')},
                                         TextCase{std::wstring(125, L'x') + L"..", std::string(125, 'x') + "."}));

TEST_P(BiosVersionTableTest, Version_IsCutAtItsSecondPoint) {
    Store(GetParam().stored);
    ExpectRead(GetParam().expected);
}

TEST_F(BiosVersionTest, VersionOf128Characters_EmptyAndReported) {
    for (const std::size_t length : {std::size_t{128}, std::size_t{129}, kLongLength}) {
        Store(L"1.2.3" + std::wstring(length - 5, L'x'));
        EXPECT_EQ(SystemEnvironment::GetBIOSVersion(), "");
        EXPECT_THAT(TakeLines(), ElementsAre(kTooLongLine));
    }
}

TEST_F(BiosVersionTest, Missing_EmptyWithoutALine) {
    ExpectRead("");
}

TEST_F(BiosVersionTest, NumberOrRefused_EmptyWithoutALine) {
    Store(1ul);
    EXPECT_EQ(SystemEnvironment::GetBIOSVersion(), "");
    Store(std::wstring(L"1.2"));
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    EXPECT_EQ(SystemEnvironment::GetBIOSVersion(), "");
}

TEST_F(BiosVersionTest, NoNarrowCopy_EmptyWithoutALine) {
    Store(std::wstring(L"1.2.3"));
    fakeutil::ScriptNarrowCopyFails([](const std::wstring&) { return true; });
    ExpectRead("");
}

TEST_F(BiosVersionTest, AnyCallThrows_EmptyAndTheNextWorks) {
    Store(std::wstring(L"1.2.3"));
    for (const char* function : {"DE::Registry::GetValue", "DE::WcharToChar"}) {
        SCOPED_TRACE(function);
        fakeutil::ThrowFrom(function);
        EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetBIOSVersion(), ""));
        EXPECT_FALSE(fakeutil::IsThrowPending());
    }
    EXPECT_EQ(SystemEnvironment::GetBIOSVersion(), "1.2");
}

// --- padding

struct PadCase {
    std::string version;
    std::string padded;
    std::string left; // the caller's buffer afterwards
};
std::ostream& operator<<(std::ostream& out, const PadCase& pad) {
    return out << testing::PrintToString(pad.version);
}
PadCase Unchanged(const std::string& version, const std::string& padded) {
    return {version, padded, version};
}

class PadTest : public QueryTest {
protected:
    static constexpr wchar_t kTooLongLine[] = L"strcpy_s fail(ParseBIOSVersionOfPadLeft)\n";
};
class PadTableTest : public PadTest, public testing::WithParamInterface<PadCase> {};

INSTANTIATE_TEST_SUITE_P(
    Versions, PadTableTest,
    testing::Values(Unchanged("", ""), Unchanged("7", "7"), Unchanged("abc", "abc"),
                    Unchanged(std::string(kLongLength, 'x'), std::string(kLongLength, 'x')), Unchanged("1.5", "01.05"),
                    Unchanged("1.25", "01.25"), Unchanged("12.5", "12.505"), Unchanged("12.34", "12.34"),
                    Unchanged("123.4", "123.404"), Unchanged("1.", "01."), Unchanged("12.", "12."), Unchanged(".", "."),
                    Unchanged(".5", ".505"), Unchanged(".25", ".25"), Unchanged(" .b", "0 .0b"),
                    Unchanged("1.234", "01.234"),
                    PadCase{"12.34.56", "12.34",
                            std::string("12.34\0"
                                        "56",
                                        8)},
                    PadCase{"1.5.9", "01.05",
                            std::string("1.5\0"
                                        "9",
                                        5)},
                    PadCase{"12.5.", "12.505", std::string("12.5\0", 5)}, PadCase{"..", ".", std::string(".\0", 2)},
                    PadCase{"1..5", "01.",
                            std::string("1.\0"
                                        "5",
                                        4)},
                    PadCase{"1.2.3.4", "01.02",
                            std::string("1.2\0"
                                        "3.4",
                                        7)},
                    // The right side is padded up to 125 characters.
                    Unchanged(std::string(123, 'x') + ".5", std::string(123, 'x') + ".505"),
                    Unchanged(std::string(124, 'x') + ".5", std::string(124, 'x') + ".5"),
                    Unchanged(std::string(125, 'x') + ".5", std::string(125, 'x') + ".5"),
                    // The longest texts that are copied.
                    Unchanged("1." + std::string(124, 'x'), "01." + std::string(124, 'x')),
                    Unchanged("12." + std::string(124, 'x'), "12." + std::string(124, 'x')),
                    PadCase{"12." + std::string(124, 'x') + "." + std::string(kLongLength, 'y'),
                            "12." + std::string(124, 'x'),
                            "12." + std::string(124, 'x') + '\0' + std::string(kLongLength, 'y')}));

TEST_P(PadTableTest, Version_IsPaddedAndCutInTheCallersBuffer) {
    std::string buffer = GetParam().version;
    EXPECT_EQ(ParseBIOSVersionOfPadLeft(buffer.data()), GetParam().padded);
    EXPECT_EQ(buffer, GetParam().left);
    EXPECT_THAT(fakeutil::Calls(), IsEmpty());
}

TEST_F(PadTest, NullVersion_EmptyWithoutALine) {
    EXPECT_EQ(ParseBIOSVersionOfPadLeft(nullptr), "");
}

TEST_F(PadTest, TextThatDoesNotFitBehindTheZero_ZeroAndReported) {
    for (const std::size_t length : {std::size_t{127}, std::size_t{128}, kLongLength}) {
        std::string buffer = "1." + std::string(length - 2, 'x');
        EXPECT_EQ(ParseBIOSVersionOfPadLeft(buffer.data()), "0");
        EXPECT_THAT(TakeLines(), ElementsAre(kTooLongLine));
    }
}

TEST_F(PadTest, TextThatDoesNotFit_EmptyAndReported) {
    for (const std::size_t length : {std::size_t{128}, std::size_t{129}, kLongLength}) {
        std::string buffer = "12." + std::string(length - 3, 'x');
        EXPECT_EQ(ParseBIOSVersionOfPadLeft(buffer.data()), "");
        EXPECT_THAT(TakeLines(), ElementsAre(kTooLongLine));
    }
    std::string oneBehindThePoint = std::string(126, 'x') + ".5";
    EXPECT_EQ(ParseBIOSVersionOfPadLeft(oneBehindThePoint.data()), "");
    EXPECT_THAT(TakeLines(), ElementsAre(kTooLongLine));
}

// --- SMBIOS system version

class SystemVersionTest : public QueryTest {
protected:
    static void Set(const std::wstring& version) {
        fakeutil::SmBiosTexts texts;
        texts.sysVersion = version;
        texts.sysSku = L"sku";
        fakeutil::SetSmBios(texts);
    }
};

TEST_F(SystemVersionTest, Version_ReplacesWhatWasThere) {
    Set(L" Version \u00e9_1 ");
    std::string version = "before";
    EXPECT_TRUE(SystemEnvironment::GetBIOSSysVersion(version));
    EXPECT_EQ(version, " Version \xe9_1 ");
    EXPECT_THAT(fakeutil::Calls(), ElementsAre(Call{"SmBiosHelper::GetBIOSSysVersion", ""}));
}

TEST_F(SystemVersionTest, NoVersion_FalseAndCleared) {
    std::string version = "before";
    EXPECT_FALSE(SystemEnvironment::GetBIOSSysVersion(version));
    EXPECT_EQ(version, "");
}

TEST_F(SystemVersionTest, NoNarrowCopy_FalseAndCleared) {
    Set(L"Version");
    fakeutil::ScriptNarrowCopyFails([](const std::wstring&) { return true; });
    std::string version = "before";
    EXPECT_FALSE(SystemEnvironment::GetBIOSSysVersion(version));
    EXPECT_EQ(version, "");
}

TEST_F(SystemVersionTest, LongVersion_IsWhole) {
    Set(std::wstring(kLongLength, L'x'));
    std::string version;
    EXPECT_TRUE(SystemEnvironment::GetBIOSSysVersion(version));
    EXPECT_EQ(version, std::string(kLongLength, 'x'));
}

TEST_F(SystemVersionTest, AnyCallThrows_FalseAndClearedAndTheNextWorks) {
    Set(L"Version");
    for (const char* function : {"SmBiosHelper::GetBIOSSysVersion", "DE::WcharToChar"}) {
        SCOPED_TRACE(function);
        std::string version = "before";
        fakeutil::ThrowFrom(function);
        EXPECT_NO_THROW(EXPECT_FALSE(SystemEnvironment::GetBIOSSysVersion(version)));
        EXPECT_EQ(version, "");
        EXPECT_FALSE(fakeutil::IsThrowPending());
    }
    std::string version;
    EXPECT_TRUE(SystemEnvironment::GetBIOSSysVersion(version));
}

// --- cleaning

struct TrimCase {
    std::string version;
    std::string trimmed;
};
std::ostream& operator<<(std::ostream& out, const TrimCase& trim) {
    return out << testing::PrintToString(trim.version);
}
class TrimTest : public QueryTest {};
class TrimTableTest : public TrimTest, public testing::WithParamInterface<TrimCase> {};

INSTANTIATE_TEST_SUITE_P(
    Versions, TrimTableTest,
    testing::Values(TrimCase{"  V1.05_2021 \r\n", "V1.05"}, TrimCase{"V1.05", "V1.05"}, TrimCase{"", ""},
                    TrimCase{"   ", ""}, TrimCase{"\t\r\n", ""}, TrimCase{"_", ""}, TrimCase{"_V1", ""},
                    TrimCase{"  _V1", ""}, TrimCase{"V1_2_3", "V1"}, TrimCase{"V_", "V"},
                    // Blanks are trimmed before the cut, control characters go before the blanks.
                    TrimCase{" V1 _2 ", "V1 "}, TrimCase{"\t V1\t2 \n", "V12"}, TrimCase{" \r V1", "V1"},
                    TrimCase{"V 1", "V 1"}, TrimCase{"a_\x01", "a"}, TrimCase{"\xe9 \xff", "\xe9 \xff"},
                    TrimCase{std::string(kLongLength, 'x') + "_y", std::string(kLongLength, 'x')}));

TEST_P(TrimTableTest, Version_IsCleaned) {
    EXPECT_EQ(TrimOemVersion(GetParam().version.c_str()), GetParam().trimmed);
}

TEST_F(TrimTest, EachCharacter_IsKeptUnlessItIsAControlCharacter) {
    for (int code = 1; code < 256; ++code) {
        const std::string character(1, static_cast<char>(code));
        const bool isControl = code < 0x20 || code == 0x7F;
        const std::string expected = code == '_' ? "a" : isControl ? "ab" : "a" + character + "b";
        EXPECT_EQ(TrimOemVersion(("a" + character + "b").c_str()), expected) << code;
    }
}

TEST_F(TrimTest, NullVersion_EmptyAndReported) {
    EXPECT_EQ(TrimOemVersion(nullptr), "");
    EXPECT_THAT(TakeLines(), ElementsAre(L"TrimOemVersion parameter: eomVersion is nullptr(TrimOemVersion)\n"));
}

TEST_F(TrimTest, TrimmingThrows_Empty) {
    fakeutil::ThrowFrom("DE::TrimSP");
    EXPECT_NO_THROW(EXPECT_EQ(TrimOemVersion("V1"), ""));
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_EQ(TrimOemVersion("V1"), "V1");
}

// --- OEM version

class OemVersionTest : public QueryTest {
protected:
    static void Store(RegistryData data) {
        fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kProduct, L"Version", std::move(data));
    }
    static Call Read() { return call::ReadText(HKEY_LOCAL_MACHINE, kProduct, L"Version", kFullAccess); }
    static Call Write(const std::wstring& text) {
        return call::WriteText(HKEY_LOCAL_MACHINE, kProduct, L"Version", text, kFullAccess);
    }
    static constexpr wchar_t kReadFailedLine[] = L"Registry GetValue fail(SystemEnvironment::GetVersionFromRegistry)\n";

private:
    OemFile m_file;
};

struct OemCase {
    std::string bytes;
    std::wstring written;
    std::string version;
};
std::ostream& operator<<(std::ostream& out, const OemCase& oem) {
    return out << testing::PrintToString(oem.bytes);
}
class OemFileTableTest : public OemVersionTest, public testing::WithParamInterface<OemCase> {};

INSTANTIATE_TEST_SUITE_P(
    Files, OemFileTableTest,
    testing::Values(
        OemCase{"V1.05_2021", L"V1.05_2021", "V1.05"}, OemCase{"  V1.05_2021 \r\n", L"  V1.05_2021 \r\n", "V1.05"},
        OemCase{"V", L"V", "V"}, OemCase{"\xff", L"\u00ff", "\xff"}, OemCase{"V1", L"V1", "V1"},
        OemCase{"\n", L"\n", ""}, OemCase{Utf16File(L" V1.05_2021 \r\n"), L" V1.05_2021 \r\n", "V1.05"},
        OemCase{Utf16File(L"\u00e9"), L"\u00e9", "\xe9"},
        // The order is as stored whatever the mark says.
        OemCase{std::string("\xfe\xff\0V", 4), L"\x5600", "?"}, OemCase{std::string("\xfe\xffV\0", 4), L"V", "V"},
        // Without a mark: every byte, in the ANSI code page.
        OemCase{"V\xe9 1", L"V\u00e9 1", "V\xe9 1"}, OemCase{"\xef\xbb\xbfV", L"\u00ef\u00bb\u00bfV", "\xef\xbb\xbfV"},
        OemCase{"V1\x1a\r\n\r2", L"V1\x1a\r\n\r2", "V12"},
        OemCase{std::string("V\0002", 3), std::wstring(L"V\0002", 3), "V"},
        OemCase{std::string(62, 'x'), std::wstring(62, L'x'), std::string(62, 'x')},
        OemCase{std::string(63, 'x'), std::wstring(63, L'x'), ""},
        OemCase{Utf16File(std::wstring(62, L'x')), std::wstring(62, L'x'), std::string(62, 'x')},
        OemCase{Utf16File(std::wstring(63, L'x')), std::wstring(63, L'x'), ""},
        OemCase{std::string(1 << 20, 'x'), std::wstring(1 << 20, L'x'), ""},
        OemCase{Utf16File(std::wstring(1 << 20, L'x')), std::wstring(1 << 20, L'x'), ""}));

TEST_P(OemFileTableTest, FilesText_IsWrittenToTheRegistryAndReadBack) {
    Store(std::wstring(L"before"));
    OemFile::Write(GetParam().bytes);
    EXPECT_EQ(SystemEnvironment::GetOEMVersion(), GetParam().version);
    EXPECT_THAT(RegistryCalls(), ElementsAre(Write(GetParam().written), Read()));
    EXPECT_EQ(fakeutil::StoredValue(HKEY_LOCAL_MACHINE, kProduct, L"Version"), RegistryData(GetParam().written));
}

TEST_F(OemVersionTest, NoFile_RegistryAlone) {
    Store(std::wstring(L" V2_x "));
    EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "V2");
    EXPECT_THAT(RegistryCalls(), ElementsAre(Read()));
}

TEST_F(OemVersionTest, NoFileAndNoRegistryValue_EmptyAndReported) {
    EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "");
    EXPECT_THAT(TakeLines(), ElementsAre(kReadFailedLine));
}

TEST_F(OemVersionTest, FileWithoutText_RegistryAlone) {
    for (const char* bytes : {"", "\xff\xfe", "\xfe\xff"}) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        Restart();
        Store(std::wstring(L"V2"));
        OemFile::Write(bytes);
        EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "V2");
        EXPECT_THAT(RegistryCalls(), ElementsAre(Read()));
    }
}

TEST_F(OemVersionTest, UnicodeFileOfOddLength_RegistryAloneAndReported) {
    Store(std::wstring(L"V2"));
    OemFile::Write(Utf16File(L"V1") + "x");
    EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "V2");
    EXPECT_THAT(RegistryCalls(), ElementsAre(Read()));
    EXPECT_THAT(TakeLines(), ElementsAre(L"memcpy_s fail err:34(SystemEnvironment::GetUnicodeString)\n"));
}

TEST_F(OemVersionTest, FileCannotBeOpened_RegistryAloneUntilItCan) {
    Store(std::wstring(L"V2"));
    OemFile::Write("V1");
    {
        const LockedFile locked(OemFile::kPath);
        EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "V2");
    }
    EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "V1");
    EXPECT_THAT(RegistryCalls(), ElementsAre(Read(), Write(L"V1"), Read()));
}

TEST_F(OemVersionTest, WriteFails_IsIgnored) {
    Store(std::wstring(L"V2"));
    OemFile::Write("V1");
    fakeutil::FailRegistryWrite(1);
    EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "V2");
    EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "V1");
}

TEST_F(OemVersionTest, NoNarrowCopyOfTheVersion_EmptyAndReported) {
    OemFile::Write("V1");
    fakeutil::ScriptNarrowCopyFails([](const std::wstring&) { return true; });
    EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "");
    EXPECT_THAT(TakeLines(), ElementsAre(L"WcharToChar fail(SystemEnvironment::GetVersionFromRegistry)\n"));
}

TEST_F(OemVersionTest, AnyCallThrows_NothingGetsOutAndTheNextWorks) {
    OemFile::Write("V1");
    for (const char* function : {"DE::ANSIToUnicode", "DE::Registry::SetValue", "DE::Registry::GetValue"}) {
        SCOPED_TRACE(function);
        fakeutil::ThrowFrom(function);
        EXPECT_NO_THROW(SystemEnvironment::GetOEMVersion());
        EXPECT_FALSE(fakeutil::IsThrowPending());
    }
    EXPECT_EQ(SystemEnvironment::GetOEMVersion(), "V1");
    EXPECT_NO_THROW(LockedFile{OemFile::kPath});
}

} // namespace

} // namespace querytest
