// Text helpers of the real Util.dll, and the facts about process and display that it tells.
#include "sdk/util/process.h"
#include "sdk/util/systeminfo.h"
#include "sdk/util/text.h"
#include "sdk/util/wmi.h"
#include "support/childprocess.h"
#include "support/hostfolder.h"

#include <gtest/gtest.h>

#include <windows.h>
// These need the types of windows.h.
#include <objidl.h>
#include <sddl.h>
// combaseapi.h needs the types of objidl.h.
#include <combaseapi.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <set>
#include <thread>

namespace {

std::string NarrowCopy(const wchar_t* text) {
    const std::unique_ptr<char, decltype(&std::free)> copy(DE::WcharToChar(text), &std::free);
    return copy ? copy.get() : "(null)";
}

TEST(UtilText, WcharToCharOfPlainText_IsItsNarrowCopy) {
    EXPECT_EQ(NarrowCopy(L"KXVCR.exe"), "KXVCR.exe");
}

TEST(UtilText, WcharToCharOfEmptyText_IsAnEmptyCopy) {
    EXPECT_EQ(NarrowCopy(L""), "");
}

TEST(UtilText, WcharToCharOfNull_IsNull) {
    EXPECT_EQ(DE::WcharToChar(nullptr), nullptr);
}

TEST(UtilText, WcharToCharOfLongText_IsWhole) {
    EXPECT_EQ(NarrowCopy(std::wstring(100'000, L'x').c_str()), std::string(100'000, 'x'));
}

TEST(UtilText, AnsiRoundTrip_KeepsEveryAsciiCharacterAndEmbeddedZero) {
    std::string all;
    for (char character = 0; character < 127; ++character) {
        all.push_back(character);
    }
    EXPECT_EQ(DE::UnicodeToANSI(DE::ANSIToUnicode(all)), all);
}

TEST(UtilText, ConversionOfEmptyText_IsEmpty) {
    EXPECT_EQ(DE::UnicodeToANSI(L""), "");
    EXPECT_EQ(DE::ANSIToUnicode(""), L"");
}

TEST(UtilText, CharacterOutsideTheCodePage_BecomesTheDefaultCharacter) {
    ASSERT_NE(GetACP(), 65001u) << "the system's code page has every character";
    EXPECT_EQ(DE::UnicodeToANSI(L"a\x4E2D"
                                L"b"),
              "a?b");
}

TEST(UtilText, CharacterWithABestFit_BecomesThatCharacter) {
    ASSERT_EQ(GetACP(), 1252u) << "another code page may have the character itself";
    EXPECT_EQ(DE::UnicodeToANSI(L"\x0141\xFF21"), "LA");
    EXPECT_EQ(NarrowCopy(L"\x0141\xFF21"), "LA");
}

TEST(UtilText, TrimSP_RemovesBlanksAtBothEndsOnly) {
    EXPECT_EQ(DE::TrimSP("  a b\t "), "a b\t");
    EXPECT_EQ(DE::TrimSP("\t a"), "\t a");
    EXPECT_EQ(DE::TrimSP("   "), "");
    EXPECT_EQ(DE::TrimSP(""), "");
}

TEST(UtilText, LowerCase_ChangesAsciiLettersOnly) {
    EXPECT_EQ(DE::LowerCase("AZaz09[@`{\xC4"), "azaz09[@`{\xC4");
    EXPECT_EQ(DE::LowerCase(""), "");
}

TEST(UtilText, RandomString_HasTheLengthAndOnlyLettersAndDigits) {
    const std::string text = DE::GetRandomString(5000);
    EXPECT_EQ(text.size(), 5000u);
    EXPECT_TRUE(std::all_of(text.begin(), text.end(),
                            [](char character) { return std::isalnum(static_cast<unsigned char>(character)) != 0; }));
    EXPECT_EQ(std::set<char>(text.begin(), text.end()).size(), 62u);
}

TEST(UtilText, RandomStrings_Differ) {
    EXPECT_NE(DE::GetRandomString(20), DE::GetRandomString(20));
}

TEST(UtilText, RandomStringOfNoLength_IsEmpty) {
    EXPECT_EQ(DE::GetRandomString(0), "");
    EXPECT_EQ(DE::GetRandomString(std::numeric_limits<int>::min()), "");
}

TEST(UtilProcess, SidOfTheCurrentUser_IsAValidSidThatNamesALoadedHive) {
    const std::wstring sid = KXPROCESS::GetCurrentUserSidstr();
    PSID parsed = nullptr;
    EXPECT_TRUE(ConvertStringSidToSidW(sid.c_str(), &parsed));
    LocalFree(parsed);
    HKEY hive = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_USERS, sid.c_str(), 0, KEY_READ, &hive), ERROR_SUCCESS);
    RegCloseKey(hive);
}

const kxtest::ChildScenario kPrintDpi("dpi", [] { std::printf("%d", SystemInfo().GetSystemDPI()); });

void SetSystemDpi(DWORD dpi) {
    ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, L"Control Panel\\Desktop", L"LogPixels", REG_DWORD, &dpi, sizeof dpi),
              ERROR_SUCCESS);
}

TEST(UtilSystemInfo, SystemDpi_IsTheUsersScalingWhateverTheProcessIsAwareOf) {
    const kxtest::TempFolder folder;
    SetSystemDpi(144);
    EXPECT_EQ(kxtest::RunChildIn(folder.Path(), "dpi").output, "144");
    SetSystemDpi(96);
    EXPECT_EQ(kxtest::RunChildIn(folder.Path(), "dpi").output, "96");
}

TEST(UtilSystemInfo, AskingForTheDpi_LeavesTheThreadsAwarenessAsItWas) {
    const DPI_AWARENESS_CONTEXT before = SetThreadDpiAwarenessContext(DPI_AWARENESS_CONTEXT_UNAWARE);
    SystemInfo().GetSystemDPI();
    EXPECT_TRUE(AreDpiAwarenessContextsEqual(GetThreadDpiAwarenessContext(), DPI_AWARENESS_CONTEXT_UNAWARE));
    SetThreadDpiAwarenessContext(before);
}

std::wstring AskWmi(const wchar_t* query, const wchar_t* property) {
    return WMI(L"ROOT\\CIMV2").SelectStr(query, property);
}

TEST(UtilWmi, PropertyOfTheFirstRow_IsText) {
    EXPECT_NE(AskWmi(L"SELECT * FROM Win32_BIOS", L"SMBIOSBIOSVersion"), L"");
}

TEST(UtilWmi, NumberAndFlag_AreTurnedIntoText) {
    SYSTEM_INFO system{};
    GetNativeSystemInfo(&system);
    EXPECT_EQ(AskWmi(L"SELECT * FROM Win32_ComputerSystem", L"NumberOfLogicalProcessors"),
              std::to_wstring(system.dwNumberOfProcessors));
    EXPECT_EQ(AskWmi(L"SELECT * FROM Win32_OperatingSystem", L"Primary"), L"True");
}

TEST(UtilWmi, WhatDoesNotExist_IsEmpty) {
    EXPECT_EQ(AskWmi(L"SELECT * FROM Win32_BIOS", L"NoSuchProperty"), L"");
    EXPECT_EQ(AskWmi(L"SELECT * FROM Win32_NoSuchClass", L"Name"), L"");
    EXPECT_EQ(AskWmi(L"SELECT * FROM Win32_Process WHERE ProcessId = 4294967295", L"Name"), L"");
    EXPECT_EQ(AskWmi(L"this is no query", L"Name"), L"");
    EXPECT_EQ(AskWmi(L"", L""), L"");
}

TEST(UtilWmi, UnknownNamespace_IsEmpty) {
    EXPECT_EQ(WMI(L"ROOT\\NoSuchNamespace").SelectStr(L"SELECT * FROM Win32_BIOS", L"SerialNumber"), L"");
}

APTTYPE ApartmentOfThisThread() {
    APTTYPE type = APTTYPE_CURRENT;
    APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
    return SUCCEEDED(CoGetApartmentType(&type, &qualifier)) ? type : APTTYPE_CURRENT;
}

TEST(UtilWmi, ThreadWithoutApartment_AsksAndHasNoneAfterwards) {
    std::wstring answer;
    APTTYPE after = APTTYPE_STA;
    std::thread([&] {
        answer = AskWmi(L"SELECT * FROM Win32_BIOS", L"SMBIOSBIOSVersion");
        after = ApartmentOfThisThread();
    }).join();
    EXPECT_NE(answer, L"");
    EXPECT_EQ(after, APTTYPE_CURRENT);
}

TEST(UtilWmi, ThreadInASingleThreadedApartment_AsksAndStaysInIt) {
    std::wstring answer;
    APTTYPE after = APTTYPE_CURRENT;
    std::thread([&] {
        const HRESULT entered = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        answer = AskWmi(L"SELECT * FROM Win32_BIOS", L"SMBIOSBIOSVersion");
        after = ApartmentOfThisThread();
        if (SUCCEEDED(entered)) {
            CoUninitialize();
        }
    }).join();
    EXPECT_NE(answer, L"");
    EXPECT_EQ(after, APTTYPE_MAINSTA);
}

} // namespace
