// Main function of the worker's tests. A watchdog ends the process when the tests hang.
#include <gtest/gtest.h>
#include <log4cplus/initializer.h>
#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

namespace {

constexpr std::chrono::seconds kLimit(170);
constexpr UINT kOverdueExitCode = 99;

class Watchdog {
public:
    Watchdog() : m_thread([this] { Watch(); }) {}
    ~Watchdog() {
        {
            const std::lock_guard lock(m_mutex);
            m_done = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    void Watch() {
        std::unique_lock lock(m_mutex);
        if (m_changed.wait_for(lock, kLimit, [this] { return m_done; })) {
            return;
        }
        std::fputs("watchdog: the tests took too long\n", stderr);
        std::fflush(stderr);
        TerminateProcess(GetCurrentProcess(), kOverdueExitCode);
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_done = false;
    std::thread m_thread;
};

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const log4cplus::Initializer logging;
    const Watchdog watchdog;
    return RUN_ALL_TESTS();
}
