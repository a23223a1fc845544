/** @file Workers that are events instead of processes: cheap enough to live and die by the thousand. */
#pragma once

#include "unit/proxyfixture.h"

#include <functional>
#include <mutex>
#include <vector>

namespace proxytest {

/**
 * Launches an event where the proxy launches a process. The proxy cannot tell: it waits for it, ends it and asks for
 * its exit code. A worker ends when its event is set.
 */
class EventWorkers {
public:
    /** @p onLaunch is called with the handle of each new worker that the proxy gets thereafter. */
    explicit EventWorkers(std::function<void(HANDLE worker)> onLaunch = DeliverReadyNotice);
    ~EventWorkers() { EndAll(); }
    EventWorkers(const EventWorkers&) = delete;
    EventWorkers& operator=(const EventWorkers&) = delete;

    static void DeliverReadyNotice(HANDLE worker);

    int Launches() const { return m_create.Calls(); }
    /** Ends every worker that still lives. */
    void EndAll();

private:
    const std::function<void(HANDLE)> m_onLaunch;
    std::mutex m_mutex;
    std::vector<OwnedHandle> m_workers;
    hooks::TerminateProcessHook m_terminate{[](HANDLE worker, UINT) { return SetEvent(worker); }};
    hooks::GetExitCodeHook m_exitCode{[](HANDLE, DWORD* exitCode) {
        *exitCode = 0;
        return TRUE;
    }};
    hooks::CreateProcessHook m_create;
};

} // namespace proxytest
