// The shared logger and the printf-style helpers of the real LogTool.dll.
#include "integration/logtoolcase.h"
#include "sdk/util/logtool.h"

#include <gtest/gtest.h>

#include <log4cplus/appender.h>
#include <log4cplus/loggingmacros.h>
#include <log4cplus/spi/loggingevent.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace logtooltest {

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

} // namespace

} // namespace logtooltest
