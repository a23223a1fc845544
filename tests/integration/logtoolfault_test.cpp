// The real LogTool.dll while Windows refuses what it asks for, and without memory.
#include "integration/logtoolcase.h"
#include "sdk/util/logtool.h"
#include "support/importpatch.h"
#include "support/memoryfault.h"

#include <gtest/gtest.h>

#include <windows.h>
// shlobj.h needs the types of windows.h.
#include <shlobj.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <ios>
#include <regex>
#include <string>
#include <string_view>
#include <system_error>

namespace logtooltest {

namespace {

using kxtest::ChildScenario;
using kxtest::ReadFileBytes;
using kxtest::RunChildIn;
using kxtest::TempFolder;
using kxtest::WriteFileBytes;

/** A call of LogTool.dll that fails for as long as this lives. */
template <kxtest::ImportName Function, class Fn>
class Refused {
private:
    kxtest::ImportHook<"KERNEL32.dll", Function, Fn> m_hook{[](auto&&...) {
                                                                SetLastError(ERROR_ACCESS_DENIED);
                                                                return 0;
                                                            },
                                                            GetModuleHandleW(L"LogTool.dll")};
};

/** Logs three lines, the second of them while @p Refusal lives. */
template <class Refusal>
void LogThroughAFault() {
    LogErrorFun("first");
    {
        const Refusal refusal;
        LogErrorFun("second");
    }
    LogErrorFun("third");
}

const ChildScenario kWriteFailsOnce("writefailsonce", [] {
    LogErrorFun("first");
    {
        const Refused<"WriteFile", decltype(WriteFile)> refused;
        LogErrorFun("lost");
    }
    LogErrorFun("second");
});

TEST(LogToolFault, LineThatCannotBeWritten_IsLostAloneAndTheNextIsLogged) {
    EXPECT_EQ(TextsOfRun("writefailsonce"), "ERROR first(LogErrorFun)\nERROR second(LogErrorFun)\n");
}

const ChildScenario kOldFilesStay("oldfilesstay", [] {
    const Refused<"MoveFileExW", decltype(MoveFileExW)> refused;
    const std::string text(4000, 'x');
    for (int count = 0; count < 300; ++count) {
        LogWarnFun("%s", text.c_str());
    }
});

TEST(LogToolFault, FileThatCannotBeMovedAway_IsWrittenOn) {
    const TempFolder folder;
    EXPECT_EQ(RunChildIn(folder.Path(), "oldfilesstay").exitCode, 0u);
    const std::string log = ReadFileBytes(folder.Name("child.log"));
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 300);
    EXPECT_FALSE(std::filesystem::exists(folder.Path() / "child.log.1"));
}

const ChildScenario kSizeUnknown("sizeunknown", [] {
    const Refused<"GetFileSizeEx", decltype(GetFileSizeEx)> refused;
    LogErrorFun("first");
});

TEST(LogToolFault, FileThatDoesNotTellItsSize_IsWrittenOn) {
    EXPECT_EQ(TextsOfRun("sizeunknown"), "ERROR first(LogErrorFun)\n");
}

const ChildScenario kHostWithoutAPath("hostwithoutapath", [] {
    const Refused<"GetModuleFileNameW", decltype(GetModuleFileNameW)> refused;
    LogErrorFun("first");
    std::printf("%zu appenders", GetLogger().getAllAppenders().size());
});

TEST(LogToolFault, HostWithoutAPath_LivesWithoutALogFile) {
    const TempFolder folder;
    const auto result = RunChildIn(folder.Path(), "hostwithoutapath");
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_NE(result.output.find("0 appenders"), std::string::npos) << result.output;
    EXPECT_FALSE(std::filesystem::exists(folder.Path() / "child.log"));
}

const ChildScenario kUserWithoutAFolder("userwithoutafolder", [] {
    const kxtest::ImportHook<"SHELL32.dll", "SHGetKnownFolderPath", decltype(SHGetKnownFolderPath)> refused(
        [](auto&&...) { return E_FAIL; }, GetModuleHandleW(L"LogTool.dll"));
    LogErrorFun("first");
});

TEST(LogToolFault, UserWithoutAFolder_LogsBesideTheHost) {
    EXPECT_EQ(TextsOfRun("userwithoutafolder"), "ERROR first(LogErrorFun)\n");
}

const ChildScenario kNothingIsWidened("nothingiswidened",
                                      LogThroughAFault<Refused<"MultiByteToWideChar", decltype(MultiByteToWideChar)>>);

TEST(LogToolFault, TextThatCannotBeWidened_IsAnEmptyTextAndTheNextIsLogged) {
    EXPECT_EQ(TextsOfRun("nothingiswidened"),
              "ERROR first(LogErrorFun)\nERROR (LogErrorFun)\nERROR third(LogErrorFun)\n");
}

const ChildScenario kNothingIsNarrowed("nothingisnarrowed",
                                       LogThroughAFault<Refused<"WideCharToMultiByte", decltype(WideCharToMultiByte)>>);

TEST(LogToolFault, LineThatCannotBeEncoded_IsLostAloneAndTheNextIsLogged) {
    EXPECT_EQ(TextsOfRun("nothingisnarrowed"), "ERROR first(LogErrorFun)\nERROR third(LogErrorFun)\n");
}

const ChildScenario kCannotStay("cannotstay", [] {
    const Refused<"GetModuleHandleExW", decltype(GetModuleHandleExW)> refused;
    LogErrorFun("first");
});

TEST(LogToolFault, LibraryThatCannotStayLoaded_LogsWhileItIs) {
    EXPECT_EQ(TextsOfRun("cannotstay"), "ERROR first(LogErrorFun)\n");
}

const ChildScenario kLengthUnknown("lengthunknown", [] {
    const kxtest::ImportHook<"msvcrt.dll", "_vscwprintf", int(const wchar_t*, char*)> refused(
        [](auto&&...) { return -1; }, GetModuleHandleW(L"LogTool.dll"));
    LogErrorFun(L"number %d", 1);
});

TEST(LogToolFault, FormatThatCannotBeFilled_IsLoggedAsItStands) {
    EXPECT_EQ(TextsOfRun("lengthunknown"), "ERROR number %d(LogErrorFun)\n");
}

// The C++ library's functions have this name with this compiler alone.
#if defined(__GNUC__)
void WriteConsoleConfiguration(const TempFolder& folder) {
    WriteFileBytes(folder.Path() / "config" / "log4cplus.properties",
                   "log4cplus.rootLogger=INFO, console\r\n"
                   "log4cplus.appender.console=log4cplus::ConsoleAppender\r\n");
}

void PrintAppenders() {
    LogErrorFun("first");
    std::printf("%zu appenders of the suite, %zu of the root", GetLogger().getAllAppenders().size(),
                log4cplus::Logger::getRoot().getAllAppenders().size());
}

const ChildScenario kConfigurationDoesNotOpen("configurationdoesnotopen", [] {
    using OpenHook = kxtest::ImportHook<"msvcrt.dll", "_wfopen", std::FILE*(const wchar_t*, const wchar_t*)>;
    const OpenHook refused(
        [](const wchar_t* name, const wchar_t* mode) {
            return std::wstring_view(name).ends_with(L"log4cplus.properties") ? nullptr
                                                                              : OpenHook::Original(name, mode);
        },
        GetModuleHandleW(L"libstdc++-6.dll"));
    PrintAppenders();
});

TEST(LogToolFault, ConfigurationThatCannotBeOpened_CountsAsAnEmptyOne) {
    const TempFolder folder;
    WriteConsoleConfiguration(folder);
    const auto result = RunChildIn(folder.Path(), "configurationdoesnotopen");
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_EQ(result.output, "log4cplus:ERROR No appenders could be found for logger (KxSuite).\r\n"
                             "log4cplus:ERROR Please initialize the log4cplus system properly.\r\n"
                             "0 appenders of the suite, 0 of the root");
    EXPECT_FALSE(std::filesystem::exists(folder.Path() / "child.log"));
}

const ChildScenario kConfigurationUnseen("configurationunseen", [] {
    const kxtest::ImportHook<"libstdc++-6.dll", "_ZNSt10filesystem6statusERKNS_7__cxx114pathERSt10error_code",
                             std::filesystem::file_status(const std::filesystem::path&, std::error_code&)>
        refused(
            [](const std::filesystem::path&, std::error_code& error) {
                error = std::make_error_code(std::errc::permission_denied);
                return std::filesystem::file_status(std::filesystem::file_type::none);
            },
            GetModuleHandleW(L"LogTool.dll"));
    PrintAppenders();
});

TEST(LogToolFault, ConfigurationThatCannotBeLookedAt_CountsAsMissing) {
    const TempFolder folder;
    WriteConsoleConfiguration(folder);
    const auto result = RunChildIn(folder.Path(), "configurationunseen");
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_EQ(result.output, "1 appenders of the suite, 0 of the root");
    EXPECT_EQ(TextsOf(ReadFileBytes(folder.Name("child.log"))), "ERROR first(LogErrorFun)\n");
}
#endif

// --- without memory

/** Logs with failing allocations, from the first message of the process on, until none fails; then once with memory. */
void LogUntilItWorks(kxtest::Failing (*failing)(size_t)) {
    kxtest::MemoryFault memory({"LogTool.dll", "liblog4cplus.dll"});
    for (size_t nth = 1; memory.Run(failing(nth), [] { LogErrorFun("first"); }).failures != 0; ++nth) {
    }
    LogErrorFun("second");
}

const ChildScenario kFirstMessageOnce("firstmessage-once", [] { LogUntilItWorks(&kxtest::Failing::Once); });
const ChildScenario kFirstMessageFrom("firstmessage-from", [] { LogUntilItWorks(&kxtest::Failing::From); });

TEST(LogToolFault, FirstMessageWithoutMemory_LeavesTheHostAliveAndTheNextIsLogged) {
    for (const char* const scenario : {"firstmessage-once", "firstmessage-from"}) {
        const TempFolder folder;
        EXPECT_EQ(RunChildIn(folder.Path(), scenario).exitCode, 0u) << scenario;
        const std::string texts = TextsOf(ReadFileBytes(folder.Name("child.log")));
        EXPECT_TRUE(
            std::regex_match(texts, std::regex("(ERROR first\\(LogErrorFun\\)\n)+ERROR second\\(LogErrorFun\\)\n")))
            << scenario << "\n"
            << texts;
    }
}

TEST(LogToolFault, FirstMessageWithoutMemory_ConfigurationCountsAllTheSame) {
    for (const char* const scenario : {"firstmessage-once", "firstmessage-from"}) {
        const TempFolder folder;
        WriteFileBytes(folder.Path() / "config" / "log4cplus.properties", "log4cplus.logger.KxSuite=OFF\n");
        EXPECT_EQ(RunChildIn(folder.Path(), scenario).exitCode, 0u) << scenario;
        EXPECT_FALSE(std::filesystem::exists(folder.Path() / "child.log")) << scenario;
    }
}

} // namespace

} // namespace logtooltest
