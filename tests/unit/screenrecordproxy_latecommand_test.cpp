// A command whose answer comes when a later run has begun: it changes nothing, whether it went well or badly.
#include "unit/proxycommands.h"
#include "unit/proxyeventworkers.h"
#include "unit/proxygate.h"

#include <functional>
#include <new>
#include <tuple>

namespace proxytest {

namespace {

struct LateAnswer {
    const char* name;
    bool isGood;
    std::function<fakeipc::Answer()> answer;
};

fakeipc::Answer Throwing() {
    fakeipc::Answer answer = fakeipc::SendFails();
    answer.before = [] { throw std::bad_alloc(); };
    return answer;
}

const LateAnswer kLateAnswers[] = {
    {.name = "Accepted", .isGood = true, .answer = [] { return fakeipc::Result(1); }},
    {.name = "Refused", .isGood = false, .answer = [] { return fakeipc::Result(-1); }},
    {.name = "FailedSend", .isGood = false, .answer = fakeipc::SendFails},
    {.name = "NoPayload", .isGood = false, .answer = fakeipc::NoPayload},
    {.name = "OtherSize", .isGood = false, .answer = [] { return fakeipc::Payload("12345"); }},
    {.name = "Exception", .isGood = false, .answer = Throwing},
};

using LateCase = std::tuple<Command, LateAnswer>;

class LateCommand : public ProxyTest, public testing::WithParamInterface<LateCase> {
protected:
    const Command& TheCommand() const { return std::get<0>(GetParam()); }

    /** Runs a worker without waiting for anything but its notice. */
    void Run() { EXPECT_EQ(Proxy().RunProcess(kLimitMs), 0u); }

    /** Calls the command in a first run; by the time its answer comes, @p laterRun has been made of a second one. */
    void CallAcrossRuns(std::function<void()> laterRun) {
        Run();
        SetState(TheCommand().from, RecordMode::WorkerStarted);
        const LateAnswer& late = std::get<1>(GetParam());
        fakeipc::Answer answer = late.answer();
        answer.before = [this, laterRun, fail = answer.before] {
            Elsewhere([this, laterRun] {
                Proxy().KillProcess();
                AwaitMonitor();
                Run();
                laterRun();
            });
            if (fail) {
                fail();
            }
        };
        fakeipc::QueueAnswer(answer);
        EXPECT_EQ(TheCommand().call(Proxy()), late.isGood);
    }

    EventWorkers m_workers;
};

INSTANTIATE_TEST_SUITE_P(Commands, LateCommand,
                         testing::Combine(testing::ValuesIn(AllCommands()), testing::ValuesIn(kLateAnswers)),
                         [](const testing::TestParamInfo<LateCase>& tested) {
                             return std::string(std::get<0>(tested.param).name) + std::get<1>(tested.param).name;
                         });

TEST_P(LateCommand, InALaterRun_ChangesNothing) {
    CallAcrossRuns([] {});
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
    EXPECT_TRUE(Proxy().Prepare(ScreenRecordParam(), kTimeoutMs));
    ExpectState(RunStatus::Prepared, RecordMode::Prepared);
}

TEST_P(LateCommand, WhileTheSameCommandOfALaterRunIsUnderWay_ChangesNothing) {
    CallAcrossRuns([this] { SetState(TheCommand().during, RecordMode::WorkerStarted); });
    ExpectState(TheCommand().during, RecordMode::WorkerStarted);
}

// A thread that is held between its admission and the exchange belongs to the run that admitted it, too.
TEST_P(LateCommand, HeldBeforeItsExchange_ChangesNothing) {
    Run();
    SetState(TheCommand().from, RecordMode::WorkerStarted);
    fakeipc::QueueAnswer(std::get<1>(GetParam()).answer());
    Gate gate;
    const hooks::GetTickCountHook tick([&] {
        gate.Pass();
        return DWORD{1};
    });
    std::thread command([this] { EXPECT_EQ(TheCommand().call(Proxy()), std::get<1>(GetParam()).isGood); });
    gate.AwaitThread();
    Proxy().KillProcess();
    AwaitMonitor();
    Run();
    gate.Open();
    command.join();
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
}

} // namespace

} // namespace proxytest
