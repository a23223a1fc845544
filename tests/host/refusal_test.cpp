// What a user is told when the worker refuses a command.
#include "host/refusal.h"

#include <gtest/gtest.h>

namespace kxrecord {
namespace {

using kxvcr::Result;

const Screen kScreen{{0, 0, 1280, 720}, {{0, 0, 1280, 720}}};
const Screen kTwoMonitors{{-800, 0, 2080, 720}, {{0, 0, 1280, 720}, {-800, 0, 800, 600}}};
constexpr wchar_t kFile[] = L"C:\\Videos\\a.mp4";

Exchange Refused(Result result) {
    return {static_cast<std::int32_t>(result), false};
}

struct Refusal : testing::Test {
    Failure Explained(Command command, const Exchange& exchange, const Screen& screen = kScreen) const {
        return ExplainRefusal(command, exchange, {picture, kFile, 8080}, screen, log);
    }

    KxScreenRecord::ScreenRecordParam picture;
    std::wstring log;
};

TEST_F(Refusal, Region_IsSaidBesideTheScreen) {
    picture.left = 100;
    picture.top = 100;
    picture.width = 4000;
    picture.height = 10;
    const Failure failure = Explained(Command::Prepare, Refused(Result::BadRectangle));
    EXPECT_EQ(failure.exit, Exit::PrepareRefused);
    EXPECT_EQ(failure.code, -5);
    EXPECT_EQ(failure.sentence,
              L"the region 100,100,4000,10 is not wholly on the screen, which is 1280x720 (result -5)");
}

TEST_F(Refusal, RegionOnAMonitor_IsSaidBesideThatMonitor) {
    picture.width = 10;
    picture.height = 10;
    picture.monitor = 2;
    EXPECT_EQ(Explained(Command::Prepare, Refused(Result::BadRectangle), kTwoMonitors).sentence,
              L"the region 0,0,10,10 is not wholly on monitor 2, which is 800x600 from -800,0 on (result -5)");
}

TEST_F(Refusal, Monitor_IsSaidWithTheNumberOfMonitors) {
    picture.monitor = 9;
    EXPECT_EQ(Explained(Command::Prepare, Refused(Result::BadMonitor)).sentence,
              L"there is no monitor 9: this machine has 1 monitor (result -9)");
    EXPECT_EQ(Explained(Command::Prepare, Refused(Result::BadMonitor), kTwoMonitors).sentence,
              L"there is no monitor 9: this machine has 2 monitors (result -9)");
}

TEST_F(Refusal, Window_IsSaidToHaveGoneSinceItWasChosen) {
    picture.window = 0x1002a;
    const Failure failure = Explained(Command::Prepare, Refused(Result::BadWindow));
    EXPECT_EQ(failure.exit, Exit::PrepareRefused);
    EXPECT_EQ(failure.sentence,
              L"the window 0x0001002a cannot be recorded any more: it was closed, hidden or minimised "
              L"meanwhile (result -24)");
}

TEST_F(Refusal, NoScreen_IsNotBlamedOnTheUsersValues) {
    for (const Result result : {Result::BadRectangle, Result::CaptureFailed, Result::OutOfResources}) {
        EXPECT_EQ(Explained(Command::Prepare, Refused(result), {}).sentence,
                  L"there is no screen to record: log on at the machine, or connect a monitor");
    }
}

TEST_F(Refusal, File_IsNamedWithWhatToSee) {
    const Failure failure = Explained(Command::StartFile, Refused(Result::CannotCreateFile));
    EXPECT_EQ(failure.exit, Exit::FileRefused);
    EXPECT_EQ(failure.sentence, L"C:\\Videos\\a.mp4 cannot be created: see that its folder exists, that you may write "
                                L"there and that no other program has the file open (result -12)");
}

TEST_F(Refusal, OtherResult_HasTheMeaningOfTheProtocol) {
    EXPECT_EQ(Explained(Command::PrepareReplay, Refused(Result::OutOfResources)).sentence,
              L"the worker refused to keep the last seconds of the screen: memory, a thread or another system resource "
              L"was refused (result -15)");
}

TEST_F(Refusal, ResultThatNoTableHas_IsSaidAllTheSame) {
    EXPECT_EQ(Explained(Command::Prepare, {-4711, false}).sentence,
              L"the worker refused what to record: for a reason that kxrecord does not know (result -4711)");
}

TEST_F(Refusal, NoAnswer_IsATimeOut) {
    const Failure failure = Explained(Command::Prepare, {std::nullopt, true});
    EXPECT_EQ(failure.exit, Exit::TimedOut);
    EXPECT_EQ(failure.sentence, L"the worker did not answer in time, or ended; try again with a longer --timeout");
}

TEST_F(Refusal, LiveServerWithoutAReason_PointsAtThePort) {
    const Failure failure = Explained(Command::StartLive, {});
    EXPECT_EQ(failure.exit, Exit::LiveRefused);
    EXPECT_EQ(failure.sentence,
              L"the worker refused to serve the live view: port 8080 may be in use; try another --port");
}

TEST_F(Refusal, Log_IsNamedWhenThereIsOne) {
    log = L"C:\\Kx\\KXVCR.log";
    EXPECT_TRUE(Explained(Command::StartFile, Refused(Result::CannotCreateFile))
                    .sentence.ends_with(L" (result -12); the log says more: C:\\Kx\\KXVCR.log"));
}

} // namespace
} // namespace kxrecord
