// The real Util.dll while Windows refuses what it is asked: each call works, fails with the fault, and works again.
#include "sdk/util/file.h"
#include "sdk/util/process.h"
#include "sdk/util/registry.h"
#include "sdk/util/systeminfo.h"
#include "sdk/util/text.h"
#include "sdk/util/wmi.h"
#include "support/childprocess.h"
#include "support/hostfolder.h"
#include "support/importpatch.h"

#include <gtest/gtest.h>

#include <windows.h>
// These need the types of windows.h.
#include <bcrypt.h>
#include <objbase.h>
#include <oleauto.h>
#include <sddl.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

using kxtest::ImportHook;

constexpr NTSTATUS kUnsuccessful = static_cast<NTSTATUS>(0xC0000001);

HMODULE Util() {
    return GetModuleHandleW(L"Util.dll");
}

/** A call that fails with the code of GetLastError, or with what it returns itself. */
template <class Result>
auto Fails(Result result) {
    return [result](auto&&...) {
        SetLastError(ERROR_ACCESS_DENIED);
        return result;
    };
}

/** What @p ask answers without the fault, with it, and without it again. */
template <class Hook, class Ask, class Answer>
void ExpectFault(typename Hook::Callable fault, Ask ask, const Answer& right, const Answer& failure) {
    EXPECT_EQ(ask(), right);
    {
        const Hook hook(std::move(fault), Util());
        EXPECT_EQ(ask(), failure);
        EXPECT_GT(hook.Calls(), 0);
    }
    EXPECT_EQ(ask(), right);
}

// --- random texts

TEST(UtilFault, NoRandomBytes_IsAnEmptyText) {
    ExpectFault<ImportHook<"bcrypt.dll", "BCryptGenRandom", decltype(BCryptGenRandom)>>(
        Fails(kUnsuccessful), [] { return DE::GetRandomString(20).size(); }, std::size_t{20}, std::size_t{0});
}

// --- the registry

template <kxtest::ImportName Function, class Fn>
using AdvapiHook = ImportHook<"ADVAPI32.dll", Function, Fn>;

constexpr LSTATUS kDenied = ERROR_ACCESS_DENIED;

/** A key of the current user with a number and a subkey. */
class UtilRegistryFault : public testing::Test {
protected:
    UtilRegistryFault() : m_path(KXPROCESS::GetCurrentUserSidstr() + L"\\Software\\KxUtilFaultTest") {
        DE::Registry::SetValue(HKEY_USERS, m_path + L"\\child", L"number", 1, KEY_ALL_ACCESS);
        Write(5);
    }
    ~UtilRegistryFault() override { RegDeleteTreeW(HKEY_USERS, m_path.c_str()); }

    bool Write(int number) { return DE::Registry::SetValue(HKEY_USERS, m_path, L"number", number, KEY_ALL_ACCESS); }

    /** The number; -1 when it is not read. */
    int Number() {
        int number = -1;
        DE::Registry::GetValue(HKEY_USERS, m_path, L"number", number, KEY_READ);
        return number;
    }

    std::wstring m_path;
};

TEST_F(UtilRegistryFault, KeyThatDoesNotOpen_LeavesTheOutput) {
    ExpectFault<AdvapiHook<"RegOpenKeyExW", decltype(RegOpenKeyExW)>>(
        Fails(kDenied), [this] { return Number(); }, 5, -1);
}

TEST_F(UtilRegistryFault, ValueThatIsNotRead_LeavesTheOutput) {
    ExpectFault<AdvapiHook<"RegQueryValueExW", decltype(RegQueryValueExW)>>(
        Fails(kDenied), [this] { return Number(); }, 5, -1);
}

TEST_F(UtilRegistryFault, KeyThatIsNotMade_IsNotWritten) {
    ExpectFault<AdvapiHook<"RegCreateKeyExW", decltype(RegCreateKeyExW)>>(
        Fails(kDenied), [this] { return Write(6); }, true, false);
}

TEST_F(UtilRegistryFault, ValueThatIsNotWritten_IsReported) {
    ExpectFault<AdvapiHook<"RegSetValueExW", decltype(RegSetValueExW)>>(
        Fails(kDenied), [this] { return Write(6); }, true, false);
}

TEST_F(UtilRegistryFault, ValueThatIsNotDeleted_IsReported) {
    const auto remove = [this] {
        DE::Registry registry;
        return Write(6) && registry.OpenKey(HKEY_USERS, m_path, false) && registry.DeleteValue(L"number");
    };
    ExpectFault<AdvapiHook<"RegDeleteValueW", decltype(RegDeleteValueW)>>(Fails(kDenied), remove, true, false);
}

TEST_F(UtilRegistryFault, SubkeysThatAreNotListed_LeaveTheList) {
    const auto list = [this] {
        std::vector<std::wstring> keys{L"old"};
        DE::Registry::GetKeys(HKEY_USERS, m_path, keys, KEY_READ);
        return keys;
    };
    ExpectFault<AdvapiHook<"RegEnumKeyExW", decltype(RegEnumKeyExW)>>(
        Fails(kDenied), list, std::vector<std::wstring>{L"child"}, std::vector<std::wstring>{L"old"});
}

// --- the user

// A process asks for its user until it has been told once: each of these needs a process of its own.

/** Asks with the fault, without it, and with it again. */
template <kxtest::ImportName Function, class Fn>
void AskForSidAroundFault() {
    const auto tell = [] { std::printf("[%s]", KXPROCESS::GetCurrentUserSidstr().empty() ? "" : "SID"); };
    {
        const AdvapiHook<Function, Fn> hook(Fails(FALSE), Util());
        tell();
    }
    tell();
    const AdvapiHook<Function, Fn> hook(Fails(FALSE), Util());
    tell();
}

constexpr char kAskedUntilTold[] = "[][SID][SID]";

const kxtest::ChildScenario kNoToken("sid-token-does-not-open",
                                     &AskForSidAroundFault<"OpenProcessToken", decltype(OpenProcessToken)>);
const kxtest::ChildScenario kNoFacts("sid-token-does-not-tell",
                                     &AskForSidAroundFault<"GetTokenInformation", decltype(GetTokenInformation)>);
const kxtest::ChildScenario kNoText("sid-has-no-text",
                                    &AskForSidAroundFault<"ConvertSidToStringSidW", decltype(ConvertSidToStringSidW)>);

TEST(UtilFault, TokenThatDoesNotOpen_IsAnEmptySidUntilItDoes) {
    EXPECT_EQ(kxtest::RunChild("sid-token-does-not-open").output, kAskedUntilTold);
}

TEST(UtilFault, TokenThatDoesNotTell_IsAnEmptySidUntilItDoes) {
    EXPECT_EQ(kxtest::RunChild("sid-token-does-not-tell").output, kAskedUntilTold);
}

TEST(UtilFault, SidWithoutAText_IsAnEmptySidUntilItHasOne) {
    EXPECT_EQ(kxtest::RunChild("sid-has-no-text").output, kAskedUntilTold);
}

// --- files

TEST(UtilFault, FileThatDoesNotOpen_HasNoDigest) {
    const kxtest::TempFolder folder;
    kxtest::WriteFileBytes(folder.Name("file.bin"), "abc");
    ExpectFault<ImportHook<"KERNEL32.dll", "CreateFileA", decltype(CreateFileA)>>(
        Fails(INVALID_HANDLE_VALUE), [&] { return DE::GetFileSha256Hex(folder.Name("file.bin")).size(); },
        std::size_t{64}, std::size_t{0});
}

TEST(UtilFault, FileThatIsNotRead_HasNoDigest) {
    const kxtest::TempFolder folder;
    kxtest::WriteFileBytes(folder.Name("file.bin"), "abc");
    ExpectFault<ImportHook<"KERNEL32.dll", "ReadFile", decltype(ReadFile)>>(
        Fails(FALSE), [&] { return DE::GetFileSha256Hex(folder.Name("file.bin")).size(); }, std::size_t{64},
        std::size_t{0});
}

TEST(UtilFault, FileWhoseAttributesAreDenied_DoesNotExist) {
    const kxtest::TempFolder folder;
    kxtest::WriteFileBytes(folder.Name("file.bin"), "abc");
    ExpectFault<ImportHook<"KERNEL32.dll", "GetFileAttributesA", decltype(GetFileAttributesA)>>(
        Fails(INVALID_FILE_ATTRIBUTES), [&] { return DE::FileExists(folder.Name("file.bin")); }, true, false);
}

// --- texts and scaling

using NarrowHook = ImportHook<"KERNEL32.dll", "WideCharToMultiByte", decltype(WideCharToMultiByte)>;
using WidenHook = ImportHook<"KERNEL32.dll", "MultiByteToWideChar", decltype(MultiByteToWideChar)>;

TEST(UtilFault, TextThatIsNotNarrowed_IsEmpty) {
    ExpectFault<NarrowHook>(
        Fails(0), [] { return DE::UnicodeToANSI(L"abc"); }, std::string("abc"), std::string());
}

TEST(UtilFault, TextThatIsNotNarrowed_IsNoBlock) {
    const auto convert = [] {
        const std::unique_ptr<char, decltype(&std::free)> block(DE::WcharToChar(L"abc"), &std::free);
        return std::string(block ? block.get() : "(null)");
    };
    ExpectFault<NarrowHook>(Fails(0), convert, std::string("abc"), std::string("(null)"));
}

TEST(UtilFault, TextThatIsNotWidened_IsEmpty) {
    ExpectFault<WidenHook>(
        Fails(0), [] { return DE::ANSIToUnicode("abc"); }, std::wstring(L"abc"), std::wstring());
}

TEST(UtilFault, SystemWithoutADpi_HasTheDefault) {
    const ImportHook<"USER32.dll", "GetDpiForSystem", decltype(GetDpiForSystem)> hook(Fails(0u), Util());
    EXPECT_EQ(SystemInfo().GetSystemDPI(), USER_DEFAULT_SCREEN_DPI);
    EXPECT_EQ(hook.Calls(), 1);
}

TEST(UtilFault, ThreadWhoseAwarenessIsNotSet_IsNotSetBack) {
    const ImportHook<"USER32.dll", "SetThreadDpiAwarenessContext", decltype(SetThreadDpiAwarenessContext)> hook(
        [](DPI_AWARENESS_CONTEXT) -> DPI_AWARENESS_CONTEXT { return nullptr; }, Util());
    EXPECT_GT(SystemInfo().GetSystemDPI(), 0);
    EXPECT_EQ(hook.Calls(), 1);
}

// --- WMI

bool HasAnswer() {
    return !WMI(L"ROOT\\CIMV2").SelectStr(L"SELECT * FROM Win32_ComputerSystem", L"TotalPhysicalMemory").empty();
}

TEST(UtilFault, NoLocatorOfWmi_IsAnEmptyAnswer) {
    ExpectFault<ImportHook<"ole32.dll", "CoCreateInstance", decltype(CoCreateInstance)>>(Fails(REGDB_E_CLASSNOTREG),
                                                                                         &HasAnswer, true, false);
}

TEST(UtilFault, ThreadThatComRefuses_IsAnEmptyAnswer) {
    // Without an apartment no object is made either.
    ExpectFault<ImportHook<"ole32.dll", "CoInitializeEx", decltype(CoInitializeEx)>>(Fails(E_UNEXPECTED), &HasAnswer,
                                                                                     true, false);
}

TEST(UtilFault, ConnectionWithoutABlanket_Answers) {
    ExpectFault<ImportHook<"ole32.dll", "CoSetProxyBlanket", decltype(CoSetProxyBlanket)>>(Fails(E_ACCESSDENIED),
                                                                                           &HasAnswer, true, true);
}

TEST(UtilFault, PropertyThatIsNoText_IsAnEmptyAnswer) {
    ExpectFault<ImportHook<"OLEAUT32.dll", "VariantChangeType", decltype(VariantChangeType)>>(
        Fails(DISP_E_TYPEMISMATCH), &HasAnswer, true, false);
}

TEST(UtilFault, NoMemoryForAText_IsThrown) {
    EXPECT_TRUE(HasAnswer());
    {
        const ImportHook<"OLEAUT32.dll", "SysAllocStringLen", decltype(SysAllocStringLen)> hook(
            [](const OLECHAR*, UINT) -> BSTR { return nullptr; }, Util());
        EXPECT_THROW(HasAnswer(), std::bad_alloc);
    }
    EXPECT_TRUE(HasAnswer());
}

} // namespace
