// What comes between a command and its answer: the worker's end, a kill, a stop and an error, in both orders.
#include "unit/proxycommands.h"
#include "unit/proxygate.h"

#include <functional>
#include <utility>

namespace proxytest {

namespace {

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

TEST_P(CommandRace, StopBetweenTheLookAtTheStatusAndTheLock_RefusesTheCommand) {
    RunWorkerForTheCommand();
    bool isAtTheLock = false;
    const hooks::AcquireLockHook lock([&](SRWLOCK* held) {
        if (!std::exchange(isAtTheLock, true)) {
            Proxy().Stop();
        }
        hooks::AcquireLockHook::Original(held);
    });
    EXPECT_FALSE(GetParam().call(Proxy()));
    ExpectState(RunStatus::Stopping, RecordMode::WorkerStarted);
    EXPECT_TRUE(fakeipc::Calls(fakeipc::CallKind::Send).empty());
}

TEST_P(CommandRace, ErrorDuringTheCommand_IsNotOverwrittenByItsSuccess) {
    RunWorkerForTheCommand();
    EXPECT_TRUE(CallDuring([this] { proxyprivate::OnError(Proxy()); }));
    ExpectState(RunStatus::Error, GetParam().mode);
}

} // namespace

} // namespace proxytest
