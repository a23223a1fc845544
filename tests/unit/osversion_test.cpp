// Windows edition, release and build, and the product version of the firmware.
#include "systemenvironment.h"

#include "queryfixture.h"

#include <cstdint>
#include <functional>
#include <ostream>

namespace querytest {

namespace {

const std::wstring kWindows = L"Software\\Microsoft\\Windows NT\\CurrentVersion";
const std::wstring kProduct = L"HARDWARE\\DESCRIPTION\\System\\Product";

constexpr std::size_t kLongestText = 127;

void StoreOfWindows(const std::wstring& name, RegistryData data) {
    fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kWindows, name, std::move(data));
}

// --- the texts of Windows

struct TextReader {
    const char* function;
    std::function<std::string()> read;
    std::wstring name;
    std::vector<std::wstring> linesWhenMissing;
    std::wstring lineWhenTooLong;
};
std::ostream& operator<<(std::ostream& out, const TextReader& reader) {
    return out << reader.function;
}

class WindowsTextTest : public QueryTest, public testing::WithParamInterface<TextReader> {
protected:
    static void Store(RegistryData data) { StoreOfWindows(GetParam().name, std::move(data)); }
    void ExpectRead(const std::string& expected, const std::vector<std::wstring>& lines = {}) {
        EXPECT_EQ(GetParam().read(), expected);
        EXPECT_THAT(RegistryCalls(),
                    ElementsAre(call::ReadText(HKEY_LOCAL_MACHINE, kWindows, GetParam().name, kFullAccess)));
        EXPECT_EQ(TakeLines(), lines);
    }
};

INSTANTIATE_TEST_SUITE_P(Readers, WindowsTextTest,
                         testing::Values(TextReader{"GetOSVersion",
                                                    [] { return SystemEnvironment::GetOSVersion(); },
                                                    L"ProductName",
                                                    {L"Get registry value fail(SystemEnvironment::GetOSVersion)\n"},
                                                    L"strcpy_s fail(SystemEnvironment::GetOSVersion)\n"},
                                         TextReader{"GetOSReleaseId",
                                                    [] { return SystemEnvironment::GetOSReleaseId(); },
                                                    L"ReleaseId",
                                                    {},
                                                    L"strcpy_s fail(SystemEnvironment::GetOSReleaseId)\n"},
                                         TextReader{"GetOSBuildBranch",
                                                    [] { return SystemEnvironment::GetOSBuildBranch(); },
                                                    L"BuildBranch",
                                                    {},
                                                    L"strcpy_s fail(SystemEnvironment::GetOSBuildBranch)\n"}));

TEST_P(WindowsTextTest, StoredText_IsGivenAsItIs) {
    Store(std::wstring(L" Windows 10 Pro_x "));
    ExpectRead(" Windows 10 Pro_x ");
}

TEST_P(WindowsTextTest, Missing_Empty) {
    ExpectRead("", GetParam().linesWhenMissing);
}

TEST_P(WindowsTextTest, NumberWhereATextBelongs_Empty) {
    Store(2009ul);
    ExpectRead("", GetParam().linesWhenMissing);
}

TEST_P(WindowsTextTest, FullAccessRefused_Empty) {
    Store(std::wstring(L"2009"));
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    ExpectRead("", GetParam().linesWhenMissing);
}

TEST_P(WindowsTextTest, EmptyText_EmptyWithoutALine) {
    Store(std::wstring());
    ExpectRead("");
}

TEST_P(WindowsTextTest, LongestText_IsWhole) {
    Store(std::wstring(kLongestText, L'x'));
    ExpectRead(std::string(kLongestText, 'x'));
}

TEST_P(WindowsTextTest, LongestTextOutsideAscii_IsWhole) {
    Store(std::wstring(kLongestText, L'\u00e9'));
    ExpectRead(std::string(kLongestText, '\xe9'));
}

TEST_P(WindowsTextTest, OneCharacterMore_EmptyAndReported) {
    Store(std::wstring(kLongestText + 1, L'x'));
    ExpectRead("", {GetParam().lineWhenTooLong});
}

TEST_P(WindowsTextTest, FarLongerText_EmptyAndReported) {
    for (const std::size_t length : {kLongestText + 2, kLongLength}) {
        Store(std::wstring(length, L'x'));
        EXPECT_EQ(GetParam().read(), "");
        EXPECT_THAT(TakeLines(), ElementsAre(GetParam().lineWhenTooLong));
    }
}

TEST_P(WindowsTextTest, NoNarrowCopy_EmptyWithoutALine) {
    Store(std::wstring(L"2009"));
    fakeutil::ScriptNarrowCopyFails([](const std::wstring&) { return true; });
    ExpectRead("");
}

TEST_P(WindowsTextTest, AnyCallThrows_EmptyWithoutALineAndTheNextWorks) {
    Store(std::wstring(L"2009"));
    for (const char* function : {"DE::Registry::GetValue", "DE::WcharToChar"}) {
        SCOPED_TRACE(function);
        fakeutil::ThrowFrom(function);
        EXPECT_NO_THROW(EXPECT_EQ(GetParam().read(), ""));
        EXPECT_FALSE(fakeutil::IsThrowPending());
    }
    EXPECT_EQ(GetParam().read(), "2009");
}

TEST_P(WindowsTextTest, ValueChanges_IsReadAfresh) {
    Store(std::wstring(L"2009"));
    EXPECT_EQ(GetParam().read(), "2009");
    Store(std::wstring(L"2104"));
    EXPECT_EQ(GetParam().read(), "2104");
}

// --- the build

struct BuildCase {
    std::wstring buildLab;
    unsigned long revision;
    std::string build;
};
std::ostream& operator<<(std::ostream& out, const BuildCase& build) {
    return out << testing::PrintToString(build.buildLab) << " and " << build.revision;
}

class BuildTest : public QueryTest {
protected:
    static void Store(const std::wstring& buildLab, unsigned long revision) {
        StoreOfWindows(L"BuildLabEx", buildLab);
        StoreOfWindows(L"UBR", revision);
    }
    static fakeutil::Call ReadLab() { return call::ReadText(HKEY_LOCAL_MACHINE, kWindows, L"BuildLabEx", kFullAccess); }
    static fakeutil::Call ReadRevision() {
        return call::ReadUnsigned(HKEY_LOCAL_MACHINE, kWindows, L"UBR", kFullAccess);
    }
    static constexpr wchar_t kTooLongLine[] = L"strcpy_s fail(SystemEnvironment::GetOSBuildVersion)\n";
};

class BuildTableTest : public BuildTest, public testing::WithParamInterface<BuildCase> {};

INSTANTIATE_TEST_SUITE_P(Builds, BuildTableTest,
                         testing::Values(BuildCase{L"19041.1.amd64fre.vb_release.191206-1406", 1237, "19041.1237"},
                                         BuildCase{L"19041.", 0, "19041.0"}, BuildCase{L"19041", 1237, ".1237"},
                                         BuildCase{L"", 7, ".7"}, BuildCase{L".19041", 7, ".7"},
                                         BuildCase{L" 19041 .1", 7, " 19041 .7"},
                                         BuildCase{L"19041.1", 0x80000000, "19041.2147483648"},
                                         BuildCase{L"19041.1", 0xFFFFFFFF, "19041.4294967295"},
                                         BuildCase{std::wstring(kLongestText - 1, L'9') + L".", 7,
                                                   std::string(kLongestText - 1, '9') + ".7"}));

TEST_P(BuildTableTest, BuildAndRevision_AreJoined) {
    Store(GetParam().buildLab, GetParam().revision);
    EXPECT_EQ(SystemEnvironment::GetOSBuildVersion(), GetParam().build);
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadLab(), ReadRevision()));
}

TEST_F(BuildTest, BuildLabOf128Characters_RevisionAloneAndReported) {
    Store(L"19041." + std::wstring(kLongestText - 5, L'x'), 1237);
    EXPECT_EQ(SystemEnvironment::GetOSBuildVersion(), ".1237");
    EXPECT_THAT(TakeLines(), ElementsAre(kTooLongLine));
}

TEST_F(BuildTest, BuildLabMissing_EmptyAndTheRevisionIsNotRead) {
    StoreOfWindows(L"UBR", 1237ul);
    EXPECT_EQ(SystemEnvironment::GetOSBuildVersion(), "");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadLab()));
}

TEST_F(BuildTest, NoNarrowCopy_EmptyAndTheRevisionIsNotRead) {
    Store(L"19041.1", 1237);
    fakeutil::ScriptNarrowCopyFails([](const std::wstring&) { return true; });
    EXPECT_EQ(SystemEnvironment::GetOSBuildVersion(), "");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadLab()));
}

TEST_F(BuildTest, RevisionMissingOrNoNumber_Empty) {
    StoreOfWindows(L"BuildLabEx", std::wstring(L"19041.1"));
    EXPECT_EQ(SystemEnvironment::GetOSBuildVersion(), "");
    StoreOfWindows(L"UBR", std::wstring(L"1237"));
    EXPECT_EQ(SystemEnvironment::GetOSBuildVersion(), "");
    EXPECT_THAT(RegistryCalls(), ElementsAre(ReadLab(), ReadRevision(), ReadLab(), ReadRevision()));
}

TEST_F(BuildTest, FullAccessRefused_Empty) {
    Store(L"19041.1", 1237);
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    EXPECT_EQ(SystemEnvironment::GetOSBuildVersion(), "");
}

TEST_F(BuildTest, AnyCallThrows_EmptyAndTheNextWorks) {
    Store(L"19041.1", 1237);
    for (const auto& [function, nth] : {std::pair("DE::Registry::GetValue", 1), std::pair("DE::Registry::GetValue", 2),
                                        std::pair("DE::WcharToChar", 1)}) {
        SCOPED_TRACE(function);
        fakeutil::ThrowFrom(function, nth);
        EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetOSBuildVersion(), ""));
        EXPECT_FALSE(fakeutil::IsThrowPending());
    }
    EXPECT_EQ(SystemEnvironment::GetOSBuildVersion(), "19041.1237");
}

// --- the product's version

class ProductVersionTest : public QueryTest {
protected:
    static constexpr std::size_t kLongestVersion = 62;

    static void Store(RegistryData data) {
        fakeutil::SetRegistryValue(HKEY_LOCAL_MACHINE, kProduct, L"Version", std::move(data));
    }
    void ExpectRead(const std::string& expected, const std::vector<std::wstring>& lines = {}) {
        EXPECT_EQ(SystemEnvironment::GetVersionFromRegistry(), expected);
        EXPECT_THAT(fakeutil::Calls(),
                    ElementsAre(call::ReadText(HKEY_LOCAL_MACHINE, kProduct, L"Version", kFullAccess)));
        EXPECT_EQ(TakeLines(), lines);
    }
    static constexpr wchar_t kReadFailedLine[] = L"Registry GetValue fail(SystemEnvironment::GetVersionFromRegistry)\n";
};

TEST_F(ProductVersionTest, StoredVersion_IsCleaned) {
    Store(std::wstring(L"  V1.05_2021 "));
    ExpectRead("V1.05");
}

TEST_F(ProductVersionTest, ControlCharacters_AreRemoved) {
    Store(std::wstring(L"\t V1\r\n.05 \u00e9\r\n"));
    ExpectRead("V1.05 \xe9");
}

TEST_F(ProductVersionTest, Missing_EmptyAndReported) {
    ExpectRead("", {kReadFailedLine});
}

TEST_F(ProductVersionTest, NumberWhereATextBelongs_EmptyAndReported) {
    Store(105ul);
    ExpectRead("", {kReadFailedLine});
}

TEST_F(ProductVersionTest, FullAccessRefused_EmptyAndReported) {
    Store(std::wstring(L"V1.05"));
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    ExpectRead("", {kReadFailedLine});
}

TEST_F(ProductVersionTest, EmptyVersion_EmptyWithoutALine) {
    Store(std::wstring());
    ExpectRead("");
}

TEST_F(ProductVersionTest, LongestVersion_IsWhole) {
    Store(std::wstring(kLongestVersion, L'x'));
    ExpectRead(std::string(kLongestVersion, 'x'));
}

TEST_F(ProductVersionTest, OneCharacterMore_EmptyWithoutALine) {
    Store(std::wstring(kLongestVersion + 1, L'x'));
    ExpectRead("");
}

TEST_F(ProductVersionTest, FarLongerVersion_EmptyWithoutALine) {
    for (const std::size_t length : {std::size_t{64}, std::size_t{65}, kLongLength}) {
        Store(std::wstring(length, L'x'));
        EXPECT_EQ(SystemEnvironment::GetVersionFromRegistry(), "");
    }
}

TEST_F(ProductVersionTest, LengthCounts_BeforeCleaning) {
    Store(L"V1.05" + std::wstring(kLongestVersion - 5, L' '));
    EXPECT_EQ(SystemEnvironment::GetVersionFromRegistry(), "V1.05");
    Store(L"V1.05" + std::wstring(kLongestVersion - 4, L' '));
    EXPECT_EQ(SystemEnvironment::GetVersionFromRegistry(), "");
}

TEST_F(ProductVersionTest, NoNarrowCopy_EmptyAndReported) {
    Store(std::wstring(L"V1.05"));
    fakeutil::ScriptNarrowCopyFails([](const std::wstring&) { return true; });
    ExpectRead("", {L"WcharToChar fail(SystemEnvironment::GetVersionFromRegistry)\n"});
}

TEST_F(ProductVersionTest, AnyCallThrows_EmptyWithoutALineAndTheNextWorks) {
    Store(std::wstring(L"V1.05"));
    for (const char* function : {"DE::Registry::GetValue", "DE::WcharToChar", "DE::TrimSP"}) {
        SCOPED_TRACE(function);
        fakeutil::ThrowFrom(function);
        EXPECT_NO_THROW(EXPECT_EQ(SystemEnvironment::GetVersionFromRegistry(), ""));
        EXPECT_FALSE(fakeutil::IsThrowPending());
    }
    EXPECT_EQ(SystemEnvironment::GetVersionFromRegistry(), "V1.05");
}

// --- the running Windows

using VersionHook = kxtest::ImportHook<"KERNEL32.dll", "GetVersionExW", decltype(GetVersionExW)>;
using SystemInfoHook = kxtest::ImportHook<"KERNEL32.dll", "GetSystemInfo", decltype(GetSystemInfo)>;
using NarrowHook = kxtest::ImportHook<"KERNEL32.dll", "WideCharToMultiByte", decltype(WideCharToMultiByte)>;

struct VersionNumbers {
    DWORD major;
    DWORD minor;
    DWORD build;
};

struct VersionCase {
    DWORD platform;
    VersionNumbers version;
    std::wstring servicePack = {};
    WORD servicePackMajor = 0;
    std::string line;
};
std::ostream& operator<<(std::ostream& out, const VersionCase& version) {
    return out << version.line;
}

// Answers with the version of the case.
class GivenVersion {
public:
    explicit GivenVersion(VersionCase version) : m_version(std::move(version)) {}

    DWORD SizeField() const { return m_sizeField; }

private:
    VersionCase m_version;
    DWORD m_sizeField = 0;
    VersionHook m_hook{[this](LPOSVERSIONINFOW record) -> BOOL {
        m_sizeField = record->dwOSVersionInfoSize;
        auto* extended = reinterpret_cast<OSVERSIONINFOEXW*>(record);
        extended->dwPlatformId = m_version.platform;
        extended->dwMajorVersion = m_version.version.major;
        extended->dwMinorVersion = m_version.version.minor;
        extended->dwBuildNumber = m_version.version.build;
        extended->wServicePackMajor = m_version.servicePackMajor;
        extended->wServicePackMinor = 99;
        std::copy_n(m_version.servicePack.c_str(), m_version.servicePack.size() + 1, extended->szCSDVersion);
        return TRUE;
    }};
};

class OsVersionTest : public QueryTest {};
class OsVersionTableTest : public OsVersionTest, public testing::WithParamInterface<VersionCase> {};

INSTANTIATE_TEST_SUITE_P(
    Versions, OsVersionTableTest,
    testing::Values(VersionCase{.platform = 2,
                                .version = {6, 1, 7601},
                                .servicePack = L"Service Pack 1",
                                .servicePackMajor = 1,
                                .line = "Microsoft Windows NT 6.1.7601 Service Pack 1"},
                    VersionCase{.platform = 2, .version = {6, 2, 9200}, .line = "Microsoft Windows NT 6.2.9200.0"},
                    VersionCase{.platform = 2,
                                .version = {10, 0, 19041},
                                .servicePackMajor = 3,
                                .line = "Microsoft Windows NT 10.0.19041.3"},
                    VersionCase{.platform = 2,
                                .version = {10, 0, 19041},
                                .servicePack = L" ",
                                .servicePackMajor = 3,
                                .line = "Microsoft Windows NT 10.0.19041  "},
                    VersionCase{.platform = 2,
                                .version = {10, 0, 19041},
                                .servicePack = L"\u00e9",
                                .servicePackMajor = 3,
                                .line = "Microsoft Windows NT 10.0.19041 \xe9"},
                    VersionCase{.platform = 2,
                                .version = {10, 0, 19041},
                                .servicePack = L"\u4e00",
                                .servicePackMajor = 3,
                                .line = "Microsoft Windows NT 10.0.19041 ?"},
                    VersionCase{.platform = 2,
                                .version = {4294967295, 4294967295, 4294967295},
                                .servicePackMajor = 65535,
                                .line = "Microsoft Windows NT 4294967295.4294967295.4294967295.65535"},
                    VersionCase{.platform = 2,
                                .version = {10, 0, 19041},
                                .servicePack = std::wstring(127, L'x'),
                                .servicePackMajor = 3,
                                .line = "Microsoft Windows NT 10.0.19041 " + std::string(127, 'x')},
                    VersionCase{.platform = 2,
                                .version = {10, 0, 19041},
                                .servicePack = std::wstring(127, L'\u00e9'),
                                .servicePackMajor = 3,
                                .line = "Microsoft Windows NT 10.0.19041 " + std::string(127, '\xe9')},
                    VersionCase{.platform = 1, .version = {4, 0, 950}, .line = "Microsoft Windows 95 4.0.950.0"},
                    VersionCase{.platform = 1,
                                .version = {4, 0, 950},
                                .servicePack = L" B",
                                .line = "Microsoft Windows 95 4.0.950  B"},
                    VersionCase{.platform = 1, .version = {4, 1, 1998}, .line = "Microsoft Windows 98 4.1.1998.0"},
                    VersionCase{.platform = 1, .version = {4, 10, 1998}, .line = "Microsoft Windows 98 4.10.1998.0"},
                    VersionCase{.platform = 1, .version = {3, 10, 100}, .line = "Microsoft Windows 95 3.10.100.0"},
                    VersionCase{.platform = 1, .version = {3, 0, 100}, .line = "Microsoft Windows 95 3.0.100.0"},
                    VersionCase{.platform = 1, .version = {0, 1, 100}, .line = "Microsoft Windows 95 0.1.100.0"},
                    VersionCase{.platform = 1, .version = {5, 0, 100}, .line = "Microsoft Windows 98 5.0.100.0"},
                    VersionCase{.platform = 1, .version = {5, 1, 100}, .line = "Microsoft Windows 98 5.1.100.0"},
                    VersionCase{.platform = 3, .version = {5, 2, 1400}, .line = "Microsoft Windows CE 5.2.1400.0"},
                    VersionCase{.platform = 0, .version = {3, 1, 100}, .line = "unknow platform 3.1.100.0"},
                    VersionCase{.platform = 4, .version = {3, 1, 100}, .line = "unknow platform 3.1.100.0"},
                    VersionCase{.platform = 0xFFFFFFFF,
                                .version = {3, 1, 100},
                                .servicePack = L"SP",
                                .line = "unknow platform 3.1.100 SP"}));

TEST_P(OsVersionTableTest, Version_IsOneLine) {
    const GivenVersion version(GetParam());
    EXPECT_EQ(SystemEnvironment::OSVersion(), GetParam().line);
    EXPECT_EQ(version.SizeField(), 284u);
}

TEST_F(OsVersionTest, ServicePack_IsNarrowedUpToItsZero) {
    std::vector<int> asked;
    const NarrowHook hook([&](UINT page, DWORD flags, LPCWCH text, int length, LPSTR buffer, int size, auto... rest) {
        if (std::wstring_view(text) == L"Service Pack 1") {
            asked = {static_cast<int>(page), static_cast<int>(flags), length, size};
        }
        return NarrowHook::Original(page, flags, text, length, buffer, size, rest...);
    });
    const GivenVersion version({2, 6, 1, 7601, L"Service Pack 1", 1, ""});
    EXPECT_EQ(SystemEnvironment::OSVersion(), "Microsoft Windows NT 6.1.7601 Service Pack 1");
    EXPECT_THAT(asked, ElementsAre(CP_ACP, 0, -1, 256));
}

TEST_F(OsVersionTest, SystemInfo_IsAskedOnce) {
    const SystemInfoHook hook([](LPSYSTEM_INFO info) { SystemInfoHook::Original(info); });
    EXPECT_NE(SystemEnvironment::OSVersion(), "");
    EXPECT_EQ(hook.Calls(), 1);
}

TEST_F(OsVersionTest, VersionIsNotGiven_EmptyAndReportedWithTheError) {
    const std::string before = SystemEnvironment::OSVersion();
    EXPECT_THAT(before, testing::StartsWith("Microsoft Windows NT "));
    for (const DWORD error : {0ul, 87ul, 4294967295ul}) {
        const VersionHook hook([error](LPOSVERSIONINFOW) -> BOOL {
            SetLastError(error);
            return FALSE;
        });
        EXPECT_EQ(SystemEnvironment::OSVersion(), "");
        EXPECT_THAT(TakeLines(), ElementsAre(L"GetVersionEx failed error code " + std::to_wstring(error) +
                                             L"(SystemEnvironment::OSVersion)\n"));
    }
    EXPECT_EQ(SystemEnvironment::OSVersion(), before);
}

// Lets the narrow form of the composed line have as many characters as a multi-byte code page could give it, and does
// with a buffer that is too small what Windows does: fills it, and fails.
class WideLine {
public:
    explicit WideLine(int length) : m_length(length) {}

    std::vector<std::pair<UINT, int>> Offered() const { return m_offered; }

private:
    int m_length;
    std::vector<std::pair<UINT, int>> m_offered;
    NarrowHook m_hook{
        [this](UINT page, DWORD flags, LPCWCH text, int length, LPSTR buffer, int size, LPCCH unknown, LPBOOL used) {
            if (length == 0 || *text != L'M') {
                return NarrowHook::Original(page, flags, text, length, buffer, size, unknown, used);
            }
            m_offered.emplace_back(page, size);
            std::memset(buffer, 'x', static_cast<std::size_t>(std::min(size, m_length)));
            if (m_length > size) {
                SetLastError(ERROR_INSUFFICIENT_BUFFER);
                return 0;
            }
            return m_length;
        }};
};

TEST_F(OsVersionTest, LineOf255And256And257Bytes_EndsAfter256) {
    for (const auto& [length, kept] : {std::pair(255, 255), std::pair(256, 256), std::pair(257, 256)}) {
        const WideLine line(length);
        EXPECT_EQ(SystemEnvironment::OSVersion(), std::string(static_cast<std::size_t>(kept), 'x'));
        EXPECT_THAT(line.Offered(), ElementsAre(std::pair<UINT, int>(CP_ACP, 256)));
    }
}

// --- limits

TEST(BoundedCopies, CheckedCopiesOfTheRunTime_AreNotImported) {
    // They end the process when a text does not fit.
    for (const char* function : {"strcpy_s", "strncpy_s", "strcat_s", "memcpy_s", "wcscpy_s", "sprintf_s"}) {
        SCOPED_TRACE(function);
        EXPECT_THROW(kxtest::ImportSlot(kxtest::ProxyModule(), "msvcrt.dll", function, nullptr), std::runtime_error);
    }
}

} // namespace

} // namespace querytest
