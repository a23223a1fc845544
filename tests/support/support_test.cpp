#include "support/childprocess.h"
#include "support/handlecount.h"
#include "support/hostfolder.h"
#include "support/privateaccess.h"

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

} // namespace
