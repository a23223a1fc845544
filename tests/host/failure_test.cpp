// What a user is told when the worker does not start, or ends otherwise than it should.
#include "host/failure.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <set>

namespace kxrecord {
namespace {

constexpr wchar_t kLog[] = L"C:\\Kx\\KXVCR.log";

TEST(Failure, KnownCode_HasItsSentenceAndItsOwnExitCode) {
    const Failure failure = Explain(Stage::Start, ERROR_INVALID_EXE_SIGNATURE, kLog);
    EXPECT_EQ(failure.exit, Exit::Verification);
    EXPECT_EQ(failure.code, ERROR_INVALID_EXE_SIGNATURE);
    EXPECT_EQ(failure.sentence,
              L"KXVCR.exe failed verification: it is not the file that the manifest names. Install it "
              L"again or, if you trust it, run \"kxrecord manifest KXVCR.exe\" (code 191)");
}

TEST(Failure, MissingWorker_IsSaidToBeMissing) {
    EXPECT_EQ(Explain(Stage::StartWithoutWorker, ERROR_INVALID_EXE_SIGNATURE, {}).sentence,
              L"KXVCR.exe is missing beside kxrecord.exe; install it there, then run \"kxrecord manifest KXVCR.exe\" "
              L"(code 191)");
}

TEST(Failure, TimeOut_IsTheExitCodeThatShellsKnow) {
    for (const Stage stage : {Stage::Start, Stage::Finish}) {
        EXPECT_EQ(Explain(stage, WAIT_TIMEOUT, {}).exit, Exit::TimedOut);
    }
    EXPECT_EQ(static_cast<int>(Exit::TimedOut), 124);
}

TEST(Failure, WorkerThatEndsWithZeroBeforeItIsReady_HasNotStarted) {
    const Failure failure = Explain(Stage::Start, ERROR_SUCCESS, kLog);
    EXPECT_EQ(failure.exit, Exit::NotStarted);
    EXPECT_EQ(failure.sentence, L"the worker ended before it was ready (code 0)");
}

TEST(Failure, SystemMessageWithAPlaceholder_NamesTheWorker) {
    const std::wstring sentence = Explain(Stage::Start, ERROR_BAD_EXE_FORMAT, {}).sentence;
    EXPECT_EQ(sentence.find(L"%1"), std::wstring::npos) << sentence.c_str();
    EXPECT_TRUE(sentence.ends_with(L" (code 193)"));
}

TEST(Failure, CodeOfTheWorkersOwn_IsExplainedByItsTableAndNamesTheLog) {
    EXPECT_EQ(Explain(Stage::Start, 0x20000003, kLog).sentence,
              L"the worker could not be started, or ended before it was ready: the host's channel cannot be opened, or "
              L"the ready notice cannot be sent (code 536870915); the log says more: C:\\Kx\\KXVCR.log");
}

TEST(Failure, WithoutALog_NamesNone) {
    EXPECT_EQ(Explain(Stage::Recording, 77, {}).sentence, L"the worker ended by itself while it recorded (code 77)");
}

TEST(Failure, FullDisk_IsSaidAtWhateverMomentItIsNoticed) {
    for (const Stage stage : {Stage::Recording, Stage::Finish}) {
        const Failure failure = Explain(stage, 4, kLog);
        EXPECT_EQ(failure.exit, Exit::FileCutShort);
        EXPECT_TRUE(failure.sentence.starts_with(L"the disk is full, or the file could not be written any further"));
    }
}

TEST(Failure, ClosedWindow_IsSaidAtWhateverMomentItIsNoticed) {
    for (const Stage stage : {Stage::Recording, Stage::Finish}) {
        const Failure failure = Explain(stage, 5, kLog);
        EXPECT_EQ(failure.exit, Exit::WindowClosed);
        EXPECT_EQ(failure.sentence,
                  L"the recorded window was closed: the file is finished and holds everything until then (code 5)");
    }
    const Failure failure = Explain(Stage::Serving, 5, kLog);
    EXPECT_EQ(failure.exit, Exit::WindowClosed);
    EXPECT_EQ(failure.sentence, L"the window was closed, and the live view has ended with it (code 5)");
}

TEST(Failure, UnknownEnd_IsOneOfThreeExitCodes) {
    EXPECT_EQ(Explain(Stage::Recording, 77, {}).exit, Exit::WorkerGone);
    EXPECT_EQ(Explain(Stage::Serving, 77, {}).exit, Exit::WorkerGone);
    EXPECT_EQ(Explain(Stage::Finish, 77, {}).exit, Exit::WorkerFailed);
}

TEST(ExitCodes, All_AreDifferentAndHandedOnByEveryShell) {
    std::set<int> codes;
    for (const ExitMeaning& row : kExits) {
        EXPECT_TRUE(codes.insert(static_cast<int>(row.code)).second) << row.meaning;
        EXPECT_LT(static_cast<int>(row.code), 126) << row.meaning;
    }
    EXPECT_TRUE(std::is_sorted(std::begin(kExits), std::end(kExits),
                               [](const ExitMeaning& a, const ExitMeaning& b) { return a.code < b.code; }));
}

} // namespace
} // namespace kxrecord
