/**
 * @file
 * Main function of every test program. A watchdog ends the process when a test hangs, and a program in which no test
 * ran fails: a source left empty or a filter gone wrong never passes.
 */
#include "support/childprocess.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

namespace {

constexpr std::chrono::seconds kTestLimit(60);
constexpr UINT kOverdueExitCode = 99;
constexpr int kNoTestExitCode = 1;

// Ends the process when one test takes longer than the limit.
class Watchdog : public testing::EmptyTestEventListener {
public:
    // The thread has made its own handles when this returns: tests count them.
    Watchdog() : m_thread([this] { Watch(); }) {
        std::unique_lock guard(m_mutex);
        m_changed.wait(guard, [this] { return m_watching; });
    }
    ~Watchdog() override {
        {
            const std::lock_guard guard(m_mutex);
            m_ending = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }

    void OnTestStart(const testing::TestInfo& test) override {
        Restart(std::string(test.test_suite_name()) + "." + test.name());
    }
    void OnTestEnd(const testing::TestInfo&) override { Restart("between tests"); }

private:
    void Restart(std::string name) {
        {
            const std::lock_guard guard(m_mutex);
            m_name = std::move(name);
            m_deadline = std::chrono::steady_clock::now() + kTestLimit;
        }
        m_changed.notify_all();
    }

    void Watch() {
        std::unique_lock guard(m_mutex);
        m_watching = true;
        m_changed.notify_all();
        while (!m_ending) {
            if (std::chrono::steady_clock::now() >= m_deadline) {
                std::fprintf(stderr, "watchdog: %s took longer than %lld s\n", m_name.c_str(),
                             static_cast<long long>(kTestLimit.count()));
                std::fflush(stderr);
                TerminateProcess(GetCurrentProcess(), kOverdueExitCode);
            }
            m_changed.wait_until(guard, m_deadline);
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::string m_name = "start";
    std::chrono::steady_clock::time_point m_deadline = std::chrono::steady_clock::now() + kTestLimit;
    bool m_watching = false;
    bool m_ending = false;
    std::thread m_thread;
};

bool HasRunATest() {
    const testing::UnitTest& program = *testing::UnitTest::GetInstance();
    return program.successful_test_count() + program.failed_test_count() > 0;
}

} // namespace

int main(int argc, char** argv) {
    kxtest::RunChildScenarioIfAsked(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new Watchdog);
    const int result = RUN_ALL_TESTS();
    if (!GTEST_FLAG_GET(list_tests) && !HasRunATest()) {
        std::fputs("no test ran\n", stderr);
        return kNoTestExitCode;
    }
    return result;
}
