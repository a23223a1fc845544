// What product this machine is, and the names that are built from that.
#include "systemenvironment.h"

#include KX_PRODUCT_SERIES_HEADER

#include "queryfixture.h"
#include "support/childprocess.h"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <ostream>
#include <set>

namespace querytest {

namespace {

using ProductAdapt::PromoteParamInfo;

const std::wstring kBios = L"HARDWARE\\DESCRIPTION\\System\\BIOS";
const std::wstring kProduct = L"HARDWARE\\DESCRIPTION\\System\\Product";
constexpr wchar_t kNoOemVersionLine[] = L"Registry GetValue fail(SystemEnvironment::GetVersionFromRegistry)\n";

class ProductTest : public QueryTest {
protected:
    static void SetOemVersion(const std::string& version) {
        fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kProduct, L"Version",
                                   std::wstring(version.begin(), version.end()));
    }

private:
    OemFile m_noFile;
};

// --- names

TEST_F(ProductTest, ProductName_IsAskedForWithAnEmptyOne) {
    fakeutil::SetProductName({0, " Book \xc3\xa9 14_x "});
    EXPECT_EQ(SystemEnvironment::GetDeviceTypeEx(), " Book \xc3\xa9 14_x ");
    EXPECT_THAT(fakeutil::Calls(), ElementsAre(Call{"ProductAdapt::MachineType::GetProductName", ""}));
}

TEST_F(ProductTest, NoProductName_ReportedWithTheCode) {
    for (const int code : {0, 1, 2, -7}) {
        fakeutil::SetProductName({code, std::nullopt});
        EXPECT_EQ(SystemEnvironment::GetDeviceTypeEx(), "");
        EXPECT_THAT(TakeLines(), ElementsAre(L"fail to get product name. result:" + std::to_wstring(code) +
                                             L"(SystemEnvironment::GetDeviceTypeEx)\n"));
    }
}

TEST_F(ProductTest, ProductNameWithACode_IsGivenAndReported) {
    fakeutil::SetProductName({3, "Book"});
    EXPECT_EQ(SystemEnvironment::GetDeviceTypeEx(), "Book");
    EXPECT_THAT(TakeLines(), ElementsAre(L"fail to get product name. result:3(SystemEnvironment::GetDeviceTypeEx)\n"));
}

TEST_F(ProductTest, ProductNameThrows_EmptyAndTheNextWorks) {
    fakeutil::SetProductName({0, "Book"});
    fakeutil::ThrowFrom("ProductAdapt::MachineType::GetProductName");
    EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetDeviceTypeEx(), ""));
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_EQ(SystemEnvironment::GetDeviceTypeEx(), "Book");
}

PromoteParamInfo Promote(const std::string& productName) {
    PromoteParamInfo info;
    info.id = 1;
    info.productName = productName;
    info.channel = "channel";
    info.flags = 2;
    return info;
}

TEST_F(ProductTest, ShareName_IsThePromotionsNameInUtf16) {
    fakeutil::SetPromoteParamInfo({0, Promote(" B\xc3\xa9\xe4\xb8\x80\xf0\x9f\x98\x80 ")});
    EXPECT_EQ(SystemEnvironment::GetProductNameForKxshare(), L" B\u00e9\u4e00\U0001F600 ");
    EXPECT_THAT(fakeutil::Calls(), ElementsAre(Call{"ProductAdapt::MachineType::GetPromoteParamInfo", "default"}));
}

TEST_F(ProductTest, LongShareName_IsWhole) {
    fakeutil::SetPromoteParamInfo({0, Promote(std::string(kLongLength, 'x'))});
    EXPECT_EQ(SystemEnvironment::GetProductNameForKxshare(), std::wstring(kLongLength, L'x'));
}

TEST_F(ProductTest, EmptyShareName_EmptyWithoutALine) {
    fakeutil::SetPromoteParamInfo({0, Promote("")});
    EXPECT_EQ(SystemEnvironment::GetProductNameForKxshare(), L"");
    fakeutil::SetPromoteParamInfo({0, std::nullopt});
    EXPECT_EQ(SystemEnvironment::GetProductNameForKxshare(), L"");
}

TEST_F(ProductTest, ShareNameWithACode_EmptyAndReported) {
    for (const int code : {1, 2, -7}) {
        fakeutil::SetPromoteParamInfo({code, Promote("Book")});
        EXPECT_EQ(SystemEnvironment::GetProductNameForKxshare(), L"");
        EXPECT_THAT(TakeLines(),
                    ElementsAre(L"fail to get product promote param info. result:" + std::to_wstring(code) +
                                L"(SystemEnvironment::GetProductNameForKxshare)\n"));
    }
}

TEST_F(ProductTest, ShareNameThrows_EmptyAndTheNextWorks) {
    fakeutil::SetPromoteParamInfo({0, Promote("Book")});
    fakeutil::ThrowFrom("ProductAdapt::MachineType::GetPromoteParamInfo");
    EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetProductNameForKxshare(), L""));
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_EQ(SystemEnvironment::GetProductNameForKxshare(), L"Book");
}

// --- series

TEST(SeriesTable, HasFivePrefixesOfTwoAndThreeLettersAndFourSeries) {
    std::multiset<std::size_t> lengths;
    std::set<std::string_view> prefixes;
    std::set<std::string_view> series;
    for (const productseries::Row& row : productseries::kRows) {
        lengths.insert(row.prefix.size());
        prefixes.insert(row.prefix);
        series.insert(row.series);
    }
    EXPECT_THAT(lengths, ElementsAre(2, 2, 2, 2, 3));
    EXPECT_EQ(prefixes.size(), 5u);
    EXPECT_EQ(series.size(), 4u);
}

class SeriesTest : public ProductTest, public testing::WithParamInterface<productseries::Row> {
protected:
    static std::string SeriesOf(const std::string& version) {
        SetOemVersion(version);
        return SystemEnvironment::GetProductSeries();
    }
};

INSTANTIATE_TEST_SUITE_P(Rows, SeriesTest, testing::ValuesIn(productseries::kRows));

TEST_P(SeriesTest, PrefixBeforeTheFirstDash_GivesItsSeries) {
    const std::string prefix(GetParam().prefix);
    EXPECT_EQ(SeriesOf(prefix + "-V1.05"), GetParam().series);
    EXPECT_EQ(SeriesOf(prefix + "-"), GetParam().series);
    EXPECT_EQ(SeriesOf("  " + prefix + "-1-2_x "), GetParam().series);
}

TEST_P(SeriesTest, AnythingElse_IsOther) {
    const std::string prefix(GetParam().prefix);
    std::string lower = prefix;
    std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const std::string& version : {prefix, lower + "-1", prefix + " -1", prefix + "ZZ-1", prefix.substr(1) + "?-1",
                                       "-" + prefix + "-1", "?-" + prefix, prefix + "_-1", prefix.substr(0, 1) + "-1",
                                       std::string("-"), std::string(), std::string("_")}) {
        EXPECT_EQ(SeriesOf(version), "other") << version;
    }
}

TEST_F(ProductTest, SeriesWithoutAnOemVersion_OtherAndTheReaderReports) {
    EXPECT_EQ(SystemEnvironment::GetProductSeries(), "other");
    EXPECT_THAT(TakeLines(), ElementsAre(kNoOemVersionLine));
}

TEST_F(ProductTest, SeriesFromTheOemFile_FileWinsOverTheRegistry) {
    SetOemVersion("?-1");
    OemFile::Write(std::string(productseries::kRows[0].prefix) + "-1");
    EXPECT_EQ(SystemEnvironment::GetProductSeries(), productseries::kRows[0].series);
}

TEST_F(ProductTest, SeriesThrows_NothingGetsOutAndTheNextWorks) {
    SetOemVersion(std::string(productseries::kRows[0].prefix) + "-1");
    fakeutil::ThrowFrom("DE::Registry::GetValue");
    EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetProductSeries(), "other"));
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_EQ(SystemEnvironment::GetProductSeries(), productseries::kRows[0].series);
}

// --- SKU code

struct SkuCase {
    std::wstring sku;
    std::string oemVersion;
    std::string code;
};
std::ostream& operator<<(std::ostream& out, const SkuCase& sku) {
    return out << testing::PrintToString(sku.sku) << " beside " << testing::PrintToString(sku.oemVersion);
}

class SkuTest : public ProductTest {
protected:
    static void SetSku(const std::wstring& sku) {
        fakeutil::SmBiosTexts texts;
        texts.sysSku = sku;
        texts.secSku = L"CCCC";
        fakeutil::SetSmBios(texts);
    }
};
class SkuTableTest : public SkuTest, public testing::WithParamInterface<SkuCase> {};

INSTANTIATE_TEST_SUITE_P(
    Skus, SkuTableTest,
    testing::Values(SkuCase{L"ABC123", "C999", "ABC123"}, SkuCase{L"C", "", "C"}, SkuCase{L"  xCy ", "C999", "  xCy "},
                    SkuCase{L"\u00e9C", "C999",
                            "\xe9"
                            "C"},
                    SkuCase{L"abc", "  AbC1234 ", "C123"}, SkuCase{L"", "  AbC1234 ", "C123"},
                    SkuCase{L"AB", "C1234", "C123"}, SkuCase{L"AB", "xC123", "C123"}, SkuCase{L"AB", "xC12", "C12"},
                    SkuCase{L"AB", "xC", "C"}, SkuCase{L"AB", "xCCCCC", "CCCC"}, SkuCase{L"AB", "xC  y z", "C  y"},
                    SkuCase{L"AB", "xc123", ""}, SkuCase{L"AB", "", ""}, SkuCase{L"AB", "C12_345", "C12"},
                    SkuCase{L"AB", "xC1 _y", "C1"}, SkuCase{L"", "", ""},
                    SkuCase{std::wstring(kLongLength, L'C'), "x", std::string(kLongLength, 'C')}));

TEST_P(SkuTableTest, SkuWithACOrPartOfTheOemVersion_IsTheCode) {
    SetSku(GetParam().sku);
    SetOemVersion(GetParam().oemVersion);
    EXPECT_EQ(SystemEnvironment::GetSystemSkuCode(), GetParam().code);
}

TEST_F(SkuTest, SkuWithAC_OemVersionIsNotAskedFor) {
    SetSku(L"ABC");
    EXPECT_EQ(SystemEnvironment::GetSystemSkuCode(), "ABC");
    EXPECT_THAT(fakeutil::Calls(), ElementsAre(Call{"SmBiosHelper::GetSysSKU", ""}));
}

TEST_F(SkuTest, NoNarrowCopyOfTheSku_OemVersionDecides) {
    SetSku(L"ABC");
    SetOemVersion("xC12");
    fakeutil::ScriptNarrowCopyFails([](const std::wstring& text) { return text == L"ABC"; });
    EXPECT_EQ(SystemEnvironment::GetSystemSkuCode(), "C12");
}

TEST_F(SkuTest, NoOemVersion_EmptyAndTheReaderReports) {
    SetSku(L"AB");
    EXPECT_EQ(SystemEnvironment::GetSystemSkuCode(), "");
    EXPECT_THAT(TakeLines(), ElementsAre(kNoOemVersionLine));
}

TEST_F(SkuTest, AnyCallThrows_EmptyAndTheNextWorks) {
    SetSku(L"AB");
    SetOemVersion("xC12");
    for (const char* function :
         {"SmBiosHelper::GetSysSKU", "DE::WcharToChar", "DE::Registry::GetValue", "DE::TrimSP"}) {
        SCOPED_TRACE(function);
        fakeutil::ThrowFrom(function);
        EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetSystemSkuCode(), ""));
        EXPECT_FALSE(fakeutil::IsThrowPending());
    }
    EXPECT_EQ(SystemEnvironment::GetSystemSkuCode(), "C12");
}

// --- product code

struct CodeCase {
    std::wstring oemString;
    int found;
    std::uint32_t code;
    std::wstring text;
};
std::ostream& operator<<(std::ostream& out, const CodeCase& code) {
    return out << testing::PrintToString(code.oemString);
}

constexpr std::uint32_t kUntouched = 0xAAAAAAAA;

class CodeTest : public ProductTest {
protected:
    static void SetOemString(const std::wstring& text) {
        fakeutil::SmBiosTexts texts;
        texts.oemString1 = text;
        fakeutil::SetSmBios(texts);
    }
};
class CodeTableTest : public CodeTest, public testing::WithParamInterface<CodeCase> {};

INSTANTIATE_TEST_SUITE_P(
    OemStrings, CodeTableTest,
    testing::Values(CodeCase{L"$ORV456ab", 1, 0x00620061, L"ab"}, CodeCase{L"$ORV456ab9", 1, 0x00620061, L"ab"},
                    CodeCase{L"$ORV    1", 1, 0x00310020, L" 1"}, CodeCase{L"$ORV$ORV$ORV", 1, 0x00240056, L"V$"},
                    CodeCase{L"$ORV456\xffff\x8000", 1, 0x8000FFFF, L"\xffff\x8000"},
                    CodeCase{L"$ORV456\u00e9\u4e00" + std::wstring(kLongLength, L'x'), 1, 0x4E0000E9, L"\u00e9\u4e00"},
                    CodeCase{std::wstring(L"$ORV\0\0\0ab", 9), 1, 0x00620061, L"ab"},
                    CodeCase{L"$ORV456a", 0, kUntouched, L""}, CodeCase{L"$ORV456", 0, kUntouched, L""},
                    CodeCase{L"$ORV", 0, kUntouched, L""}, CodeCase{L"$", 0, kUntouched, L""},
                    CodeCase{L"", 0, kUntouched, L""}, CodeCase{L"$orv456ab", 0, kUntouched, L""},
                    CodeCase{L"$ORX456ab", 0, kUntouched, L""}, CodeCase{L" $ORV456ab", 0, kUntouched, L""},
                    CodeCase{L"ORV4567ab", 0, kUntouched, L""}));

TEST_P(CodeTableTest, OemString_GivesTheCode) {
    SetOemString(GetParam().oemString);
    std::uint32_t code = kUntouched;
    EXPECT_EQ(SystemEnvironment::GetOemProductCode(&code), GetParam().found);
    EXPECT_EQ(code, GetParam().code);
    EXPECT_EQ(SystemEnvironment::GetOemProductCodeString(), GetParam().text);
    const Call ask{"SmBiosHelper::GetOemString1", ""};
    EXPECT_THAT(fakeutil::Calls(), ElementsAre(ask, ask));
}

TEST_F(CodeTest, OemStringThrows_NoCodeAndTheNextWorks) {
    SetOemString(L"$ORV456ab");
    std::uint32_t code = kUntouched;
    fakeutil::ThrowFrom("SmBiosHelper::GetOemString1");
    EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetOemProductCode(&code), 0));
    EXPECT_EQ(code, kUntouched);
    fakeutil::ThrowFrom("SmBiosHelper::GetOemString1");
    EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetOemProductCodeString(), L""));
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_EQ(SystemEnvironment::GetOemProductCode(&code), 1);
}

// --- log package

std::string LocalTime() {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    char text[32];
    std::snprintf(text, sizeof text, "%04u%02u%02u%02u%02u%02u", now.wYear, now.wMonth, now.wDay, now.wHour,
                  now.wMinute, now.wSecond);
    return text;
}

bool IsOf(const std::string& text, int (*kind)(int)) {
    return std::ranges::all_of(text, [kind](unsigned char c) { return kind(c) != 0; });
}

constexpr std::size_t kStampLength = 14;
constexpr std::size_t kRandomLength = 5;

// Compares the fixed parts and the local time, and returns the random part.
std::string ExpectPackage(const std::string& package, const std::string& before, const std::string& after,
                          const std::string& earliest) {
    const std::string latest = LocalTime();
    if (package.size() != before.size() + kStampLength + after.size() + kRandomLength) {
        ADD_FAILURE() << package;
        return "";
    }
    EXPECT_EQ(package.substr(0, before.size()), before);
    const std::string stamp = package.substr(before.size(), kStampLength);
    EXPECT_TRUE(IsOf(stamp, &std::isdigit)) << stamp;
    EXPECT_LE(earliest, stamp);
    EXPECT_LE(stamp, latest);
    EXPECT_EQ(package.substr(before.size() + kStampLength, after.size()), after);
    const std::string random = package.substr(package.size() - kRandomLength);
    EXPECT_TRUE(IsOf(random, &std::isalnum)) << random;
    return random;
}

class PackageTest : public ProductTest {
protected:
    PackageTest() {
        SetOemVersion(" V1.05_2021 ");
        fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kBios, L"BIOSVersion", std::wstring(L"1.23.45"));
        kxtest::WriteFileBytes(LogTypeFile(), "<T><Item ID=\"7\" Value=\"crash log\"/></T>");
    }
    ~PackageTest() override { std::filesystem::remove(LogTypeFile()); }

    static std::filesystem::path LogTypeFile() { return kxtest::OwnFolder() / "config" / "LogType.xml"; }
};

TEST_F(PackageTest, PackageName_HasItsPartsInOrder) {
    const std::string earliest = LocalTime();
    const std::string name = SystemEnvironment::GetLogPackageName("trailing", 7, "leading");
    ExpectPackage(name, "PC_leading_V1.05_1.23_21111111111111111111_", "_trailing-crash log_", earliest);
}

TEST_F(PackageTest, ZipName_HasTheExtensionBehindTheSameName) {
    const std::string earliest = LocalTime();
    const std::string name = SystemEnvironment::GetLogPackageZipName("trailing", 7, "leading");
    ASSERT_THAT(name, testing::EndsWith(".zip"));
    ExpectPackage(name.substr(0, name.size() - 4), "PC_leading_V1.05_1.23_21111111111111111111_",
                  "_trailing-crash log_", earliest);
}

TEST_F(PackageTest, EmptyTexts_KeepTheirSeparators) {
    const std::string earliest = LocalTime();
    const std::string name = SystemEnvironment::GetLogPackageName("", 7, "");
    ExpectPackage(name, "PC__V1.05_1.23_21111111111111111111_", "_-crash log_", earliest);
}

TEST_F(PackageTest, UnknownLogType_IsNull) {
    const std::string earliest = LocalTime();
    const std::string name = SystemEnvironment::GetLogPackageName("t", -1, "l");
    ExpectPackage(name, "PC_l_V1.05_1.23_21111111111111111111_", "_t-null_", earliest);
}

TEST_F(PackageTest, NothingKnown_SeparatorsStayAndTheQueriesReport) {
    Restart();
    std::filesystem::remove(LogTypeFile());
    const std::string earliest = LocalTime();
    const std::string name = SystemEnvironment::GetLogPackageName("t", 7, "l");
    ExpectPackage(name, "PC_l___21111111111111111111_", "_t-null_", earliest);
    EXPECT_THAT(TakeLines(), testing::UnorderedElementsAre(
                                 kNoOemVersionLine, L"load xml file failed(SystemEnvironment::GetStringNameById)\n"));
}

TEST_F(PackageTest, LongTexts_AreWholeAndSeparatorsInThemStay) {
    const std::string leading = "a_b-" + std::string(kLongLength, 'l');
    const std::string trailing = "\xe9 -_" + std::string(kLongLength, 't');
    const std::string earliest = LocalTime();
    const std::string name = SystemEnvironment::GetLogPackageName(trailing, 7, leading);
    ExpectPackage(name, "PC_" + leading + "_V1.05_1.23_21111111111111111111_", "_" + trailing + "-crash log_",
                  earliest);
}

TEST_F(PackageTest, TwoNames_HaveDifferentRandomParts) {
    const std::string earliest = LocalTime();
    const std::string before = "PC_l_V1.05_1.23_21111111111111111111_";
    EXPECT_NE(ExpectPackage(SystemEnvironment::GetLogPackageName("t", 7, "l"), before, "_t-crash log_", earliest),
              ExpectPackage(SystemEnvironment::GetLogPackageName("t", 7, "l"), before, "_t-crash log_", earliest));
}

TEST_F(PackageTest, LocalTimeOfOneDigitFields_IsTwoDigitsWide) {
    using LocalTimeHook = kxtest::ImportHook<"KERNEL32.dll", "GetLocalTime", decltype(GetLocalTime)>;
    const LocalTimeHook hook([](LPSYSTEMTIME time) { *time = {2031, 1, 3, 2, 3, 4, 5, 678}; });
    EXPECT_THAT(SystemEnvironment::GetLogPackageName("t", 7, "l"),
                testing::StartsWith("PC_l_V1.05_1.23_21111111111111111111_20310102030405_t-crash log_"));
}

TEST_F(PackageTest, RandomTextThrows_NothingGetsOutAndTheNextWorks) {
    fakeutil::ThrowFrom("DE::GetRandomString");
    EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetLogPackageName("t", 7, "l"), ""));
    fakeutil::ThrowFrom("DE::GetRandomString");
    EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetLogPackageZipName("t", 7, "l"), ""));
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_NE(SystemEnvironment::GetLogPackageName("t", 7, "l"), "");
}

// The identifier is kept until the process ends.
const kxtest::ChildScenario kPackageScenario("package", [] {
    fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kBios, L"BIOSSerialNumber", std::wstring(L"SN_1"));
    const std::string name = SystemEnvironment::GetLogPackageName("t", 7, "l");
    std::printf("%s|%s", name.substr(0, 12).c_str(), name.substr(26, 8).c_str());
});
TEST(PackageDevice, KnownDevice_IsInTheName) {
    EXPECT_EQ(kxtest::RunChild("package").output, "PC_l___SN_1_|_t-null_");
}

// --- power and processor

using PowerHook = kxtest::ImportHook<"KERNEL32.dll", "GetSystemPowerStatus", decltype(GetSystemPowerStatus)>;
using NativeHook = kxtest::ImportHook<"KERNEL32.dll", "GetNativeSystemInfo", decltype(GetNativeSystemInfo)>;

TEST_F(ProductTest, AcLineStatus_OnlyOneIsMainsPower) {
    for (const int status : {0, 1, 2, 3, 128, 255}) {
        const PowerHook hook([status](LPSYSTEM_POWER_STATUS power) -> BOOL {
            const SYSTEM_POWER_STATUS cleared{};
            EXPECT_EQ(std::memcmp(power, &cleared, sizeof cleared), 0);
            power->ACLineStatus = static_cast<BYTE>(status);
            return TRUE;
        });
        EXPECT_EQ(SystemEnvironment::IsOnAcPower(), status == 1) << status;
        EXPECT_EQ(hook.Calls(), 1);
    }
}

TEST_F(ProductTest, PowerStatusFails_NoMainsPowerAndTheNextWorks) {
    BOOL answer = FALSE;
    const PowerHook hook([&answer](LPSYSTEM_POWER_STATUS power) {
        power->ACLineStatus = 1;
        return answer;
    });
    EXPECT_FALSE(SystemEnvironment::IsOnAcPower());
    answer = TRUE;
    EXPECT_TRUE(SystemEnvironment::IsOnAcPower());
}

TEST_F(ProductTest, ProcessorArchitecture_OnlySixIsItanium) {
    for (const int architecture : {0, 5, 6, 7, 9, 12, 0x0106, 0xFFFF}) {
        const NativeHook hook([architecture](LPSYSTEM_INFO info) {
            *info = {};
            info->wProcessorArchitecture = static_cast<WORD>(architecture);
            info->wReserved = 1;
        });
        EXPECT_EQ(SystemEnvironment::IsNotIa64System(), architecture != 6) << architecture;
        EXPECT_EQ(hook.Calls(), 1);
    }
}

} // namespace

} // namespace querytest
