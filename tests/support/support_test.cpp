// What the tools of the tests promise: child processes, counted handles, files that go again, private members.
#include "support/childprocess.h"
#include "support/handlecount.h"
#include "support/hostfolder.h"
#include "support/privateaccess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

class Closed {
private:
    int m_value = 5;
    int Twice(int value) { return 2 * value; }
};
struct ValueTag {
    using Type = int Closed::*;
};
struct TwiceTag {
    using Type = int (Closed::*)(int);
};

std::string EnvironmentPath() {
    std::string path(32767, '\0');
    path.resize(GetEnvironmentVariableA("PATH", path.data(), static_cast<DWORD>(path.size())));
    return path;
}

const kxtest::ChildScenario kEndsWithSeven("ends-with-seven", [] {
    std::printf("about to end\n");
    std::fflush(stdout);
    ExitProcess(7);
});

} // namespace

template struct kxtest::Expose<ValueTag, &Closed::m_value>;
template struct kxtest::Expose<TwiceTag, &Closed::Twice>;

namespace {

TEST(PrivateAccess, FieldAndFunction_AreReached) {
    Closed closed;
    closed.*kxtest::kPrivate<ValueTag> = 21;
    EXPECT_EQ((closed.*kxtest::kPrivate<TwiceTag>)(closed.*kxtest::kPrivate<ValueTag>), 42);
}

TEST(HandleCount, OpenedHandles_AreCounted) {
    constexpr std::size_t kOpened = 20;
    const std::size_t before = kxtest::OpenHandleCount();
    std::vector<HANDLE> events;
    for (std::size_t i = 0; i < kOpened; ++i) {
        events.push_back(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    }
    EXPECT_GE(kxtest::OpenHandleCount(), before + kOpened);
    EXPECT_TRUE(kxtest::HandlesLeakedSince(before, kOpened));
    for (const HANDLE event : events) {
        CloseHandle(event);
    }
    EXPECT_FALSE(kxtest::HandlesLeakedSince(before, kOpened));
}

TEST(HostFolder, WrittenFile_IsReadBackAndRemoved) {
    std::filesystem::path path;
    {
        const kxtest::TempFolder folder;
        path = folder.Path() / "deep" / "file.bin";
        kxtest::WriteFileBytes(path, std::string_view("a\0\r\nb", 5));
        EXPECT_EQ(kxtest::ReadFileBytes(path), std::string("a\0\r\nb", 5));
    }
    EXPECT_FALSE(std::filesystem::exists(path.parent_path()));
    EXPECT_THROW(kxtest::ReadFileBytes(path), std::runtime_error);
}

TEST(HostFolder, SearchFolder_IsFirstOnThePathUntilItGoes) {
    const std::string before = EnvironmentPath();
    {
        const kxtest::SearchFolder folder("Q:\\libraries");
        EXPECT_EQ(EnvironmentPath(), "Q:\\libraries;" + before);
    }
    EXPECT_EQ(EnvironmentPath(), before);
}

TEST(HostFolder, OwnProgram_ExistsInOwnFolder) {
    EXPECT_TRUE(std::filesystem::exists(kxtest::OwnFolder() / kxtest::OwnProgram().filename()));
}

TEST(ChildProcess, Scenario_GivesExitCodeAndOutput) {
    const kxtest::ChildResult result = kxtest::RunChild("ends-with-seven");
    EXPECT_EQ(result.exitCode, 7u);
    EXPECT_NE(result.output.find("about to end"), std::string::npos);
}

TEST(ChildProcess, UnknownScenario_HasItsOwnExitCode) {
    EXPECT_EQ(kxtest::RunChild("no-such-scenario").exitCode, 98u);
}

const kxtest::ChildScenario kTellsItsProgram("tells-its-program",
                                             [] { std::printf("%s", kxtest::OwnProgram().string().c_str()); });

TEST(ChildProcess, ScenarioInAFolder_RunsFromACopyThere) {
    const kxtest::TempFolder folder;
    const kxtest::ChildResult result = kxtest::RunChildIn(folder.Path(), "tells-its-program");
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_TRUE(std::filesystem::equivalent(result.output, folder.Path() / "child.exe")) << result.output;
}

TEST(TestMain, ProgramInWhichNoTestRuns_FailsAndSaysSo) {
    const kxtest::ChildResult result = kxtest::RunProgram(kxtest::OwnProgram(), "--gtest_filter=-*");
    EXPECT_EQ(result.exitCode, 1u);
    EXPECT_THAT(result.output, testing::EndsWith("\nno test ran\r\n"));
}

TEST(TestMain, ProgramInWhichATestRuns_Passes) {
    const kxtest::ChildResult result =
        kxtest::RunProgram(kxtest::OwnProgram(), "--gtest_filter=HostFolder.OwnProgram_*");
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_THAT(result.output, testing::Not(testing::HasSubstr("no test ran")));
}

TEST(TestMain, TestsAreOnlyListed_Passes) {
    EXPECT_EQ(kxtest::RunProgram(kxtest::OwnProgram(), "--gtest_list_tests").exitCode, 0u);
}

} // namespace
