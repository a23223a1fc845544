// The shared logger and the printf-style helpers of the real LogTool.dll. The log is configured once a process and
// from beside the host, so each case is a child process in a folder of its own.
#include "sdk/util/logtool.h"
#include "support/childprocess.h"
#include "support/hostfolder.h"
#include "support/importpatch.h"
#include "support/memoryfault.h"

#include <gtest/gtest.h>

#include <log4cplus/appender.h>
#include <log4cplus/loggingmacros.h>
#include <log4cplus/spi/loggingevent.h>

#include <windows.h>
// shlobj.h needs the types of windows.h.
#include <shlobj.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using kxtest::ChildScenario;
using kxtest::ReadFileBytes;
using kxtest::RunChildIn;
using kxtest::TempFolder;
using kxtest::WriteFileBytes;

std::string Narrow(const std::wstring& text) {
    std::string narrow;
    for (const wchar_t character : text) {
        narrow.push_back(static_cast<char>(character));
    }
    return narrow;
}

/** Prints each event's level, text and location. */
class PrintingAppender : public log4cplus::Appender {
public:
    ~PrintingAppender() override { destructorImpl(); }
    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        std::printf("%d|%s|%s|%s\n", event.getLogLevel(), Narrow(event.getMessage()).c_str(),
                    Narrow(event.getFile()).c_str(), Narrow(event.getFunction()).c_str());
    }
};

void PrintEvents() {
    GetLogger().removeAllAppenders();
    GetLogger().addAppender(log4cplus::SharedAppenderPtr(new PrintingAppender));
}

const ChildScenario kHelpers("helpers", [] {
    PrintEvents();
    LogWarnFun("narrow %d %s %%", -5, "text");
    LogWarnFun(L"wide %d %ls", 7, L"text");
    LogErrorFun("narrow %llu", 1ull << 40);
    LogErrorFun(L"wide %hs", "text");
});

TEST(LogTool, Helpers_LogAtTheirLevelWithTheirOwnNameAndSignature) {
    const TempFolder folder;
    EXPECT_EQ(RunChildIn(folder.Path(), "helpers").output,
              "30000|narrow -5 text %(LogWarnFun)|suite\\logtool\\logtool.cpp|"
              "void __cdecl LogWarnFun(const char *,...)\r\n"
              "30000|wide 7 text(LogWarnFun)|suite\\logtool\\logtool.cpp|"
              "void __cdecl LogWarnFun(const wchar_t *,...)\r\n"
              "40000|narrow 1099511627776(LogErrorFun)|suite\\logtool\\logtool.cpp|"
              "void __cdecl LogErrorFun(const char *,...)\r\n"
              "40000|wide text(LogErrorFun)|suite\\logtool\\logtool.cpp|"
              "void __cdecl LogErrorFun(const wchar_t *,...)\r\n");
}

/** Prints the length of each event's text and its last characters. */
class MeasuringAppender : public log4cplus::Appender {
public:
    ~MeasuringAppender() override { destructorImpl(); }
    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        const std::string text = Narrow(event.getMessage());
        std::printf("%zu %s\n", text.size(), text.substr(text.size() - 14).c_str());
    }
};

const ChildScenario kLongLines("longlines", [] {
    GetLogger().removeAllAppenders();
    GetLogger().addAppender(log4cplus::SharedAppenderPtr(new MeasuringAppender));
    for (const size_t length : {4094u, 4095u, 4096u, 100'000u}) {
        LogWarnFun("%s!", std::string(length - 1, 'x').c_str());
        LogWarnFun(L"%ls!", std::wstring(length - 1, L'x').c_str());
    }
});

TEST(LogTool, LineLongerThan4095Characters_IsCutThere) {
    const TempFolder folder;
    EXPECT_EQ(RunChildIn(folder.Path(), "longlines").output, "4106 x!(LogWarnFun)\r\n4106 x!(LogWarnFun)\r\n"
                                                             "4107 x!(LogWarnFun)\r\n4107 x!(LogWarnFun)\r\n"
                                                             "4107 xx(LogWarnFun)\r\n4107 xx(LogWarnFun)\r\n"
                                                             "4107 xx(LogWarnFun)\r\n4107 xx(LogWarnFun)\r\n");
}

const ChildScenario kEmptyTexts("emptytexts", [] {
    PrintEvents();
    const char* const noNarrowFormat = nullptr;
    const wchar_t* const noWideFormat = nullptr;
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
    LogWarnFun(noNarrowFormat);
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
    LogWarnFun(noWideFormat);
    LogWarnFun("%s", "");
});

TEST(LogTool, NullFormat_LogsNothingAndAnEmptyTextIsLogged) {
    const TempFolder folder;
    EXPECT_EQ(RunChildIn(folder.Path(), "emptytexts").output,
              "30000|(LogWarnFun)|suite\\logtool\\logtool.cpp|void __cdecl LogWarnFun(const char *,...)\r\n");
}

const ChildScenario kLevels("levels", [] {
    PrintEvents();
    GetLogger().setLogLevel(log4cplus::ERROR_LOG_LEVEL);
    LogWarnFun("off %d", 1);
    LogErrorFun("on %d", 2);
});

TEST(LogTool, LevelThatIsOff_LogsNothing) {
    const TempFolder folder;
    EXPECT_EQ(RunChildIn(folder.Path(), "levels").output,
              "40000|on 2(LogErrorFun)|suite\\logtool\\logtool.cpp|void __cdecl LogErrorFun(const char *,...)\r\n");
}

const ChildScenario kDefaults("defaults", [] {
    LOG4CPLUS_INFO(GetLogger(), L"below the default level");
    LOG4CPLUS_WARN(GetLogger(), L"first \x4E2D\xE9");
    LogErrorFun("second %d", 2);
});

// The lines of a log without date, time, process and thread, and without the location at the end.
std::string TextsOf(const std::string& log) {
    std::istringstream lines(log);
    std::string texts;
    for (std::string line; std::getline(lines, line);) {
        std::string date;
        std::string time;
        std::string level;
        std::istringstream(line) >> date >> time >> level;
        const size_t text = line.find("] ") + 2;
        texts += level + " " + line.substr(text, line.rfind(" [") - text) + "\n";
    }
    return texts;
}

TEST(LogTool, WithoutConfiguration_WarnAndAboveGoToAFileBesideTheHostInUtf8) {
    const TempFolder folder;
    const auto result = RunChildIn(folder.Path(), "defaults");
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(TextsOf(ReadFileBytes(folder.Name("child.log"))),
              "WARN first \xE4\xB8\xAD\xC3\xA9\nERROR second 2(LogErrorFun)\n");
}

TEST(LogTool, LineOfTheFile_TellsTimeLevelProcessThreadTextAndLocation) {
    const TempFolder folder;
    RunChildIn(folder.Path(), "defaults");
    const std::string log = ReadFileBytes(folder.Name("child.log"));
    const std::regex line(
        "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} ERROR \\[\\d+:\\d+\\] second 2\\(LogErrorFun\\) "
        "\\[suite\\\\logtool\\\\logtool\\.cpp:\\d+ void __cdecl LogErrorFun\\(const char \\*,\\.\\.\\.\\)\\]\r?\n");
    EXPECT_TRUE(std::regex_match(log.substr(log.find('\n') + 1), line)) << log;
}

TEST(LogTool, SecondRun_AppendsToTheFile) {
    const TempFolder folder;
    RunChildIn(folder.Path(), "defaults");
    const std::string first = TextsOf(ReadFileBytes(folder.Name("child.log")));
    RunChildIn(folder.Path(), "defaults");
    EXPECT_EQ(TextsOf(ReadFileBytes(folder.Name("child.log"))), first + first);
}

TEST(LogTool, ConfigurationBesideTheHost_ReplacesTheDefault) {
    const TempFolder folder;
    WriteFileBytes(folder.Path() / "config" / "log4cplus.properties",
                   "log4cplus.rootLogger=INFO, console\r\n"
                   "log4cplus.appender.console=log4cplus::ConsoleAppender\r\n"
                   "log4cplus.appender.console.layout=log4cplus::PatternLayout\r\n"
                   "log4cplus.appender.console.layout.ConversionPattern=%p %c %m%n\r\n"
                   "log4cplus.logger.KxSuite=ERROR\r\n");
    EXPECT_EQ(RunChildIn(folder.Path(), "defaults").output, "ERROR KxSuite second 2(LogErrorFun)\r\n");
    EXPECT_FALSE(std::filesystem::exists(folder.Path() / "child.log"));
}

const ChildScenario kOddTexts("oddtexts", [] {
    // Halves of pairs, and pairs at every distance from the ends of what a stream hands on in one piece.
    LogErrorFun(L"%ls", L"a\xD83D\xDE00 b\xD83D c\xDE00 d\xD83D");
    for (std::size_t length = 500; length < 520; ++length) {
        LogErrorFun(L"%ls%ls", std::wstring(length, L'x').c_str(), L"\x00E9\xD83D\xDE00");
    }
});

TEST(LogTool, ConfiguredFile_HasEveryTextInUtf8) {
    const TempFolder folder;
    WriteFileBytes(folder.Path() / "config" / "log4cplus.properties",
                   "log4cplus.rootLogger=INFO, file\r\n"
                   "log4cplus.appender.file=log4cplus::FileAppender\r\n"
                   "log4cplus.appender.file.File=own.log\r\n"
                   "log4cplus.appender.file.layout=log4cplus::PatternLayout\r\n"
                   "log4cplus.appender.file.layout.ConversionPattern=%m%n\r\n");
    const kxtest::CurrentFolder current(folder.Path());
    EXPECT_EQ(RunChildIn(folder.Path(), "oddtexts").exitCode, 0u);
    std::string expected = "a\xF0\x9F\x98\x80 b\xEF\xBF\xBD c\xEF\xBF\xBD d\xEF\xBF\xBD(LogErrorFun)\r\n";
    for (std::size_t length = 500; length < 520; ++length) {
        expected += std::string(length, 'x') + "\xC3\xA9\xF0\x9F\x98\x80(LogErrorFun)\r\n";
    }
    EXPECT_EQ(ReadFileBytes(folder.Name("own.log")), expected);
}

TEST(LogTool, ConfigurationThatIsNonsense_LeavesTheHostAlive) {
    for (const std::string_view text : {std::string_view(), std::string_view("\xFF\xFE\0=\n", 5),
                                        std::string_view("log4cplus.rootLogger=, nowhere\n"),
                                        std::string_view("log4cplus.rootLogger=LOUD\nlog4cplus.logger.KxSuite=, x\n"),
                                        std::string_view("log4cplus.rootLogger=WARN, a\nlog4cplus.appender.a=No\n")}) {
        const TempFolder folder;
        WriteFileBytes(folder.Path() / "config" / "log4cplus.properties", text);
        EXPECT_EQ(RunChildIn(folder.Path(), "defaults").exitCode, 0u) << text;
    }
}

TEST(LogTool, LogFileThatCannotBeOpened_GoesToTheUsersOwnFolder) {
    const TempFolder folder;
    std::filesystem::create_directory(folder.Path() / "child.log");
    const std::filesystem::path local =
        std::filesystem::path(_wgetenv(L"LOCALAPPDATA")) / kLocalLogFolderName / "child.log";
    std::filesystem::remove(local);
    EXPECT_EQ(RunChildIn(folder.Path(), "defaults").exitCode, 0u);
    EXPECT_NE(ReadFileBytes(local).find("second 2(LogErrorFun)"), std::string::npos);
    std::filesystem::remove(local);
}

TEST(LogTool, LogFileThatCannotBeOpenedAnywhere_LeavesTheHostAlive) {
    const TempFolder folder;
    std::filesystem::create_directory(folder.Path() / "child.log");
    const std::filesystem::path local =
        std::filesystem::path(_wgetenv(L"LOCALAPPDATA")) / kLocalLogFolderName / "child.log";
    std::filesystem::create_directories(local);
    EXPECT_EQ(RunChildIn(folder.Path(), "defaults").exitCode, 0u);
    std::filesystem::remove(local);
}

const ChildScenario kManyThreads("threads", [] {
    std::vector<std::thread> threads;
    std::vector<log4cplus::Logger*> loggers(8);
    for (log4cplus::Logger*& logger : loggers) {
        threads.emplace_back([&logger] {
            logger = &GetLogger();
            for (int count = 0; count < 50; ++count) {
                LogWarnFun("%s", "line");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const bool isOne = loggers == std::vector<log4cplus::Logger*>(loggers.size(), &GetLogger());
    std::printf("%d logger, %zu appender", isOne ? 1 : 2, GetLogger().getAllAppenders().size());
});

TEST(LogTool, ManyThreadsAtOnce_ShareOneLoggerWithOneFile) {
    const TempFolder folder;
    std::string expected;
    for (int count = 0; count < 400; ++count) {
        expected += "WARN line(LogWarnFun)\n";
    }
    EXPECT_EQ(RunChildIn(folder.Path(), "threads").output, "1 logger, 1 appender");
    EXPECT_EQ(TextsOf(ReadFileBytes(folder.Name("child.log"))), expected);
}

const ChildScenario kManyLines("manylines", [] {
    const std::string text(4000, 'x');
    for (int count = 0; count < 2000; ++count) {
        LogWarnFun("%s", text.c_str());
    }
});

TEST(LogTool, LogThatGrows_KeepsThreeOldFilesOfAMebibyte) {
    const TempFolder folder;
    ASSERT_EQ(RunChildIn(folder.Path(), "manylines").exitCode, 0u);
    for (const char* const name : {"child.log.1", "child.log.2", "child.log.3"}) {
        EXPECT_GT(std::filesystem::file_size(folder.Path() / name), 1024u * 1024u) << name;
        EXPECT_LT(std::filesystem::file_size(folder.Path() / name), 1100u * 1024u) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(folder.Path() / "child.log.4"));
}

// --- while Windows refuses

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

TEST(LogTool, LineThatCannotBeWritten_IsLostAloneAndTheNextIsLogged) {
    const TempFolder folder;
    EXPECT_EQ(RunChildIn(folder.Path(), "writefailsonce").exitCode, 0u);
    EXPECT_EQ(TextsOf(ReadFileBytes(folder.Name("child.log"))),
              "ERROR first(LogErrorFun)\nERROR second(LogErrorFun)\n");
}

const ChildScenario kOldFilesStay("oldfilesstay", [] {
    const Refused<"MoveFileExW", decltype(MoveFileExW)> refused;
    const std::string text(4000, 'x');
    for (int count = 0; count < 300; ++count) {
        LogWarnFun("%s", text.c_str());
    }
});

TEST(LogTool, FileThatCannotBeMovedAway_IsWrittenOn) {
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

TEST(LogTool, FileThatDoesNotTellItsSize_IsWrittenOn) {
    const TempFolder folder;
    EXPECT_EQ(RunChildIn(folder.Path(), "sizeunknown").exitCode, 0u);
    EXPECT_EQ(TextsOf(ReadFileBytes(folder.Name("child.log"))), "ERROR first(LogErrorFun)\n");
}

const ChildScenario kHostWithoutAPath("hostwithoutapath", [] {
    const Refused<"GetModuleFileNameW", decltype(GetModuleFileNameW)> refused;
    LogErrorFun("first");
    std::printf("%zu appenders", GetLogger().getAllAppenders().size());
});

TEST(LogTool, HostWithoutAPath_LivesWithoutALogFile) {
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

TEST(LogTool, UserWithoutAFolder_LogsBesideTheHost) {
    const TempFolder folder;
    EXPECT_EQ(RunChildIn(folder.Path(), "userwithoutafolder").exitCode, 0u);
    EXPECT_EQ(TextsOf(ReadFileBytes(folder.Name("child.log"))), "ERROR first(LogErrorFun)\n");
}

const ChildScenario kNothingIsWidened("nothingiswidened",
                                      LogThroughAFault<Refused<"MultiByteToWideChar", decltype(MultiByteToWideChar)>>);

TEST(LogTool, TextThatCannotBeWidened_IsAnEmptyTextAndTheNextIsLogged) {
    const TempFolder folder;
    EXPECT_EQ(RunChildIn(folder.Path(), "nothingiswidened").exitCode, 0u);
    EXPECT_EQ(TextsOf(ReadFileBytes(folder.Name("child.log"))),
              "ERROR first(LogErrorFun)\nERROR (LogErrorFun)\nERROR third(LogErrorFun)\n");
}

const ChildScenario kNothingIsNarrowed("nothingisnarrowed",
                                       LogThroughAFault<Refused<"WideCharToMultiByte", decltype(WideCharToMultiByte)>>);

TEST(LogTool, LineThatCannotBeEncoded_IsLostAloneAndTheNextIsLogged) {
    const TempFolder folder;
    EXPECT_EQ(RunChildIn(folder.Path(), "nothingisnarrowed").exitCode, 0u);
    EXPECT_EQ(TextsOf(ReadFileBytes(folder.Name("child.log"))), "ERROR first(LogErrorFun)\nERROR third(LogErrorFun)\n");
}

const ChildScenario kCannotStay("cannotstay", [] {
    const Refused<"GetModuleHandleExW", decltype(GetModuleHandleExW)> refused;
    LogErrorFun("first");
});

TEST(LogTool, LibraryThatCannotStayLoaded_LogsWhileItIs) {
    const TempFolder folder;
    EXPECT_EQ(RunChildIn(folder.Path(), "cannotstay").exitCode, 0u);
    EXPECT_EQ(TextsOf(ReadFileBytes(folder.Name("child.log"))), "ERROR first(LogErrorFun)\n");
}

const ChildScenario kLengthUnknown("lengthunknown", [] {
    const kxtest::ImportHook<"msvcrt.dll", "_vscwprintf", int(const wchar_t*, char*)> refused(
        [](auto&&...) { return -1; }, GetModuleHandleW(L"LogTool.dll"));
    LogErrorFun(L"number %d", 1);
});

TEST(LogTool, FormatThatCannotBeFilled_IsLoggedAsItStands) {
    const TempFolder folder;
    EXPECT_EQ(RunChildIn(folder.Path(), "lengthunknown").exitCode, 0u);
    EXPECT_EQ(TextsOf(ReadFileBytes(folder.Name("child.log"))), "ERROR number %d(LogErrorFun)\n");
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

TEST(LogTool, ConfigurationThatCannotBeOpened_CountsAsAnEmptyOne) {
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

TEST(LogTool, ConfigurationThatCannotBeLookedAt_CountsAsMissing) {
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

TEST(LogTool, FirstMessageWithoutMemory_LeavesTheHostAliveAndTheNextIsLogged) {
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

TEST(LogTool, FirstMessageWithoutMemory_ConfigurationCountsAllTheSame) {
    for (const char* const scenario : {"firstmessage-once", "firstmessage-from"}) {
        const TempFolder folder;
        WriteFileBytes(folder.Path() / "config" / "log4cplus.properties", "log4cplus.logger.KxSuite=OFF\n");
        EXPECT_EQ(RunChildIn(folder.Path(), scenario).exitCode, 0u) << scenario;
        EXPECT_FALSE(std::filesystem::exists(folder.Path() / "child.log")) << scenario;
    }
}

} // namespace
