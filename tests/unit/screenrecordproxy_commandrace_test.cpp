// What comes between a command and its answer: the worker's end, a kill, a stop and an error, in both orders.
#include "unit/proxycommands.h"
#include "unit/proxygate.h"

#include <functional>
#include <optional>

namespace {

using namespace proxytest;

class CommandRace : public ProxyTest, public testing::WithParamInterface<Command> {
protected:
    /** Runs a worker that is ready for the command. */
    void RunWorkerForTheCommand() {
        m_worker = RunWorker();
        SetState(GetParam().from, RecordMode::WorkerStarted);
    }

    /** Calls the command; @p meanwhile is done after the worker has accepted and before the proxy learns it. */
    bool CallDuring(std::function<void()> meanwhile) {
        fakeipc::Answer answer = fakeipc::Result(1);
        answer.before = [meanwhile] { Elsewhere(meanwhile); };
        fakeipc::QueueAnswer(answer);
        return GetParam().call(Proxy());
    }

    void EndWorkerAndAwaitMonitor() {
        m_plan.EndWorkers();
        AwaitMonitor();
    }

    OwnedHandle m_worker;
};

INSTANTIATE_TEST_SUITE_P(Commands, CommandRace, testing::ValuesIn(AllCommands()), NameOf);

TEST_P(CommandRace, WorkerThatEndsDuringTheCommand_LeavesNoWorkerAndTheNextRunWorks) {
    RunWorkerForTheCommand();
    EXPECT_TRUE(CallDuring([this] { EndWorkerAndAwaitMonitor(); }));
    ExpectState(GetParam().after, RecordMode::NoWorker);
    ExpectRunWorks();
}

TEST_P(CommandRace, WorkerThatEndsWhileTheMonitorIsLate_LeavesNoWorkerAndTheNextRunWorks) {
    {
        HeldMonitor monitor;
        RunWorkerForTheCommand();
        EXPECT_TRUE(CallDuring([&] {
            m_plan.EndWorkers();
            monitor.AwaitThread();
        }));
        ExpectState(GetParam().after, GetParam().mode);
        monitor.Open();
        AwaitMonitor();
    }
    ExpectState(GetParam().after, RecordMode::NoWorker);
    ExpectRunWorks();
}

TEST_P(CommandRace, WorkerThatEndsAfterTheCommand_LeavesNoWorkerAndTheNextRunWorks) {
    RunWorkerForTheCommand();
    EXPECT_TRUE(GetParam().call(Proxy()));
    EndWorkerAndAwaitMonitor();
    ExpectState(GetParam().after, RecordMode::NoWorker);
    ExpectRunWorks();
}

TEST_P(CommandRace, CommandAfterTheWorkersEnd_LeavesNoWorkerAndTheNextRunWorks) {
    RunWorkerForTheCommand();
    EndWorkerAndAwaitMonitor();
    EXPECT_TRUE(GetParam().call(Proxy())); // the message library still had an answer
    ExpectState(GetParam().after, RecordMode::NoWorker);
    ExpectRunWorks();
}

TEST_P(CommandRace, KillDuringTheCommand_LeavesModeAndStatusZeroAndTheNextRunWorks) {
    RunWorkerForTheCommand();
    EXPECT_TRUE(CallDuring([this] {
        Proxy().KillProcess();
        AwaitMonitor();
    }));
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    ExpectRunWorks();
}

TEST_P(CommandRace, KillDuringTheCommandWhileTheMonitorIsLate_LeavesModeAndStatusZero) {
    {
        HeldMonitor monitor;
        RunWorkerForTheCommand();
        EXPECT_TRUE(CallDuring([&] {
            Proxy().KillProcess();
            monitor.AwaitThread();
        }));
        monitor.Open();
        AwaitMonitor();
    }
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    ExpectRunWorks();
}

TEST_P(CommandRace, KillAfterTheCommand_LeavesModeAndStatusZeroAndTheNextRunWorks) {
    RunWorkerForTheCommand();
    EXPECT_TRUE(GetParam().call(Proxy()));
    Proxy().KillProcess();
    AwaitMonitor();
    ExpectState(RunStatus::Idle, RecordMode::NoWorker);
    ExpectRunWorks();
}

TEST_P(CommandRace, StopDuringTheCommand_KeepsStoppingAndTheNextRunWorks) {
    RunWorkerForTheCommand();
    EXPECT_TRUE(CallDuring([this] { Proxy().Stop(); }));
    ExpectState(RunStatus::Stopping, GetParam().mode);
    EndWorkerAndAwaitMonitor();
    ExpectState(RunStatus::Stopping, RecordMode::NoWorker);
    ExpectRunWorks();
}

TEST_P(CommandRace, StopThatEndsTheWorkerDuringTheCommand_LeavesNoWorker) {
    RunWorkerForTheCommand();
    EXPECT_TRUE(CallDuring([this] {
        Proxy().Stop();
        EndWorkerAndAwaitMonitor();
    }));
    ExpectState(RunStatus::Stopping, RecordMode::NoWorker);
    ExpectRunWorks();
}

TEST_P(CommandRace, StopAfterTheCommand_KeepsStopping) {
    RunWorkerForTheCommand();
    EXPECT_TRUE(GetParam().call(Proxy()));
    Proxy().Stop();
    ExpectState(RunStatus::Stopping, GetParam().mode);
}

TEST_P(CommandRace, StopBeforeTheCommand_RefusesIt) {
    RunWorkerForTheCommand();
    Proxy().Stop();
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(RunStatus::Stopping, RecordMode::WorkerStarted);
}

TEST_P(CommandRace, ErrorDuringTheCommand_IsNotOverwrittenByItsSuccess) {
    RunWorkerForTheCommand();
    EXPECT_TRUE(CallDuring([this] { proxyprivate::OnError(Proxy()); }));
    ExpectState(RunStatus::Error, GetParam().mode);
}

// ---- A command that comes back when a later run has begun -----------------------------------------------------------

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

    /** Calls the command in a first run; by the time its answer comes, @p laterRun has been made of a second one. */
    void CallAcrossRuns(std::function<void()> laterRun) {
        const OwnedHandle worker = RunWorker();
        SetState(TheCommand().from, RecordMode::WorkerStarted);
        const LateAnswer& late = std::get<1>(GetParam());
        fakeipc::Answer answer = late.answer();
        answer.before = [this, laterRun, fail = answer.before] {
            Elsewhere([this, laterRun] {
                Proxy().KillProcess();
                AwaitMonitor();
                m_laterWorker = RunWorker();
                laterRun();
            });
            if (fail) {
                fail();
            }
        };
        fakeipc::QueueAnswer(answer);
        EXPECT_EQ(TheCommand().call(Proxy()), late.isGood);
    }

    OwnedHandle m_laterWorker;
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
    const OwnedHandle worker = RunWorker();
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
    m_laterWorker = RunWorker();
    gate.Open();
    command.join();
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
}

} // namespace
