/**
 * @file
 * The one place that moves the proxy's record mode and run status.
 */
#pragma once

#include "libraries/screenrecordproxy/locks.h"
#include "screenrecordproxy.h"

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <optional>

namespace KxScreenRecord {

/** Tells the runs of all instances of this process apart. */
using RunNumber = std::uint64_t;

/**
 * The state of the one instance, for the length of one move: it is locked while the object lives, and nothing waits or
 * calls out meanwhile. A move is made for a run and does nothing when a later one has begun, so that a thread that
 * comes back late changes nothing that is not its own.
 *
 * What the class has no member for, because its layout is fixed, stands here once for the process.
 */
class RunState {
public:
    RunState(std::atomic<RecordMode>& mode, std::atomic<RunStatus>& status) noexcept
        : m_lock(s_lock),
          m_mode(mode),
          m_status(status) {}

    /** The fields are a new instance's: nothing that was begun before is about them. */
    void BeginInstance() noexcept { BeginRunNumber(); }

    /** The fields are about to go: a thread that outlives the instance moves nothing. */
    void EndInstance() noexcept { BeginRunNumber(); }

    /** The run that the instance is in. */
    RunNumber Newest() const noexcept { return s_newest; }

    /**
     * Begins a run when no worker is known.
     * @param mode receives the mode that was found
     */
    std::optional<RunNumber> BeginRun(RecordMode& mode) noexcept {
        mode = RecordMode::NoWorker;
        if (!m_mode.compare_exchange_strong(mode, RecordMode::WorkerStarted)) {
            return std::nullopt;
        }
        m_status = RunStatus::Starting;
        BeginRunNumber();
        return s_newest;
    }

    /** The run has let go of the worker before it: what a Stop or a KillProcess did to that one is over. */
    void FormerWorkerIsGone(RunNumber run) noexcept {
        if (run == s_newest) {
            m_status = RunStatus::Starting;
        }
    }

    /** The run's worker is kept and watched. A Stop or a KillProcess that has come meanwhile stands. */
    void RunSucceeded(RunNumber run) noexcept { MoveStatus(run, RunStatus::Starting, RunStatus::Running); }

    /** The run ends without a worker that anybody watches. */
    void RunFailed(RunNumber run) noexcept {
        if (run == s_newest) {
            m_status = RunStatus::Idle;
            m_mode = RecordMode::NoWorker;
        }
    }

    /**
     * Begins a command, from one status only.
     * @param status the status that admits the command; receives the one that was found
     */
    std::optional<RunNumber> BeginCommand(RunStatus& status, RunStatus inProgress) noexcept {
        if (!m_status.compare_exchange_strong(status, inProgress)) {
            return std::nullopt;
        }
        return s_newest;
    }

    /**
     * The worker has done as it was told. A stop, a kill or an error that came meanwhile stands, and so does the mode
     * when the worker has ended since.
     */
    void CommandSucceeded(RunNumber run, RunStatus inProgress, RunStatus done, RecordMode mode) noexcept {
        MoveStatus(run, inProgress, done);
        if (run == s_newest && (!s_workerHasEnded || m_mode != RecordMode::NoWorker)) {
            m_mode = mode;
        }
    }

    /** An exchange with the run's worker failed. */
    void ExchangeFailed(RunNumber run) noexcept {
        if (run == s_newest && m_status != RunStatus::Stopping) {
            m_status = RunStatus::Error;
        }
    }

    /** Begins a stop; nothing when no worker is known or a stop is under way. */
    std::optional<RunNumber> BeginStop(const std::atomic<void*>& worker) noexcept {
        if (worker == nullptr || m_status.exchange(RunStatus::Stopping) == RunStatus::Stopping) {
            return std::nullopt;
        }
        return s_newest;
    }

    /** The worker that was held was told to end at once. */
    void WorkerKilled() noexcept { m_status = RunStatus::Idle; }

    /** The run's monitor has seen its worker end. From now on RunProcess can begin the next run. */
    void WorkerEnded(RunNumber run) noexcept {
        if (run == s_newest) {
            s_workerHasEnded = true;
            m_mode = RecordMode::NoWorker;
        }
    }

private:
    static void BeginRunNumber() noexcept {
        ++s_newest;
        s_workerHasEnded = false;
    }

    void MoveStatus(RunNumber run, RunStatus from, RunStatus to) noexcept {
        if (run == s_newest) {
            m_status.compare_exchange_strong(from, to);
        }
    }

    static inline SRWLOCK s_lock = SRWLOCK_INIT;
    static inline RunNumber s_newest = 0;
    static inline bool s_workerHasEnded = false; // the newest run's

    ExclusiveGuard m_lock;
    std::atomic<RecordMode>& m_mode;
    std::atomic<RunStatus>& m_status;
};

} // namespace KxScreenRecord
