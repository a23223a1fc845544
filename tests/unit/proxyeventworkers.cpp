// Events take the place of worker processes: a signalled one has ended.
#include "unit/proxyeventworkers.h"

#include <algorithm>

namespace proxytest {

EventWorkers::EventWorkers(std::function<void(HANDLE)> onLaunch)
    : m_onLaunch(std::move(onLaunch)),
      m_create([this](LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID, LPCWSTR,
                      LPSTARTUPINFOW, LPPROCESS_INFORMATION information) {
          OwnedHandle worker = NewEvent();
          information->hProcess = Duplicate(worker.get()).release();
          information->hThread = NewEvent().release(); // closed at once
          {
              const std::lock_guard guard(m_mutex);
              std::erase_if(m_workers, [](const OwnedHandle& ended) {
                  return WaitForSingleObject(ended.get(), 0) == WAIT_OBJECT_0;
              });
              m_workers.push_back(std::move(worker));
          }
          m_onLaunch(information->hProcess); // open until the proxy has it; the other one is whoever's to end
          return TRUE;
      }) {}

void EventWorkers::DeliverReadyNotice(HANDLE) {
    EXPECT_TRUE(fakeipc::Deliver(kxvcr::kMessageReady));
}

void EventWorkers::EndAll() {
    const std::lock_guard guard(m_mutex);
    for (const OwnedHandle& worker : m_workers) {
        SetEvent(worker.get());
    }
    m_workers.clear();
}

} // namespace proxytest
