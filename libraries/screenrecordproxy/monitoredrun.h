/**
 * @file
 * What belongs to one run from the moment that its worker is ready until its monitor thread has ended.
 */
#pragma once

#include "common/win/handle.h"
#include "libraries/screenrecordproxy/runstate.h"
#include "libraries/screenrecordproxy/sharedhandle.h"

#include <windows.h>

#include <atomic>
#include <memory>
#include <new>
#include <utility>

namespace KxScreenRecord {

/** One run and its monitor thread. Made before the thread, so that nothing depends on how soon the thread begins. */
class MonitoredRun {
public:
    MonitoredRun(RunNumber runNumber, HANDLE workerProcess) noexcept : number(runNumber), worker(workerProcess) {}

    /**
     * Decides once who ends the monitor thread: the thread itself, which then makes its last move, or the destructor,
     * for whom it stands still. A thread that is terminated is thus never in the middle of something.
     */
    bool ClaimEnd() noexcept { return !m_endIsClaimed.exchange(true); }

    const RunNumber number;
    SharedHandle worker;           ///< the monitor's own handle to wait on
    DWORD monitorId = 0;           ///< thread id of the monitor
    bool monitorHasLooked = false; ///< whether the monitor has begun and looked for its worker
    kx::KernelHandle monitor;      ///< the thread, once a later run has the class's place for it

private:
    friend class MonitoredRuns;

    std::atomic<bool> m_endIsClaimed = false;
    std::unique_ptr<MonitoredRun> m_earlier;
};

/**
 * The runs whose monitor thread may still run, the newest one first. There is more than one only when a monitor
 * outlives its run, which takes a wait that failed. Every call is made under the instance's lock.
 */
class MonitoredRuns {
public:
    MonitoredRun* Newest() const noexcept { return m_newest.get(); }

    /** The run that @p wanted picks; null when there is none. */
    template <class Predicate>
    MonitoredRun* Find(Predicate wanted) const noexcept {
        MonitoredRun* run = m_newest.get();
        while (run != nullptr && !wanted(*run)) {
            run = run->m_earlier.get();
        }
        return run;
    }

    MonitoredRun* OfThread(DWORD id) const noexcept {
        return Find([id](const MonitoredRun& run) { return run.monitorId == id; });
    }

    /** The new run; null when there is no memory. */
    MonitoredRun* Add(RunNumber number, HANDLE worker) noexcept {
        std::unique_ptr<MonitoredRun> run(new (std::nothrow) MonitoredRun(number, worker));
        if (!run) {
            return nullptr;
        }
        run->m_earlier = std::move(m_newest);
        m_newest = std::move(run);
        return m_newest.get();
    }

    /** Forgets a run whose monitor has ended. Null is none. */
    void Remove(const MonitoredRun* run) noexcept { Take(run).reset(); }

    /** Forgets a run whose monitor has not ended and may touch it at any time: it is never given back. */
    void Abandon(const MonitoredRun* run) noexcept { static_cast<void>(Take(run).release()); }

private:
    std::unique_ptr<MonitoredRun> Take(const MonitoredRun* run) noexcept {
        for (std::unique_ptr<MonitoredRun>* place = &m_newest; *place; place = &(*place)->m_earlier) {
            if (place->get() == run) {
                std::unique_ptr<MonitoredRun> taken = std::move(*place);
                *place = std::move(taken->m_earlier);
                return taken;
            }
        }
        return nullptr;
    }

    std::unique_ptr<MonitoredRun> m_newest;
};

} // namespace KxScreenRecord
