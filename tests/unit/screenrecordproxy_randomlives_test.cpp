// No schedule is forced here: eight threads call every member at random, workers die at random, a thousand of them in
// all. Afterwards the proxy works, and there are no more threads and handles than after its tenth worker.
#include "support/handlecount.h"
#include "unit/proxyeventworkers.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <random>
#include <thread>
#include <vector>

#include <tlhelp32.h>

namespace proxytest {

namespace {

constexpr int kThreads = 8;
constexpr int kFirstLives = 10;
constexpr int kLives = 250;                ///< of each of the four proxies
constexpr std::size_t kContendedLocks = 8; ///< of all modules: a lock keeps a handle from its first contention on
constexpr unsigned int kMostMs = 4;        ///< how long a wait or a worker's life lasts, at most

/** Threads of this process. */
std::size_t ThreadCount() {
    const OwnedHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry{};
    entry.dwSize = sizeof(entry);
    std::size_t count = 0;
    for (BOOL more = Thread32First(snapshot.get(), &entry); more != FALSE;
         more = Thread32Next(snapshot.get(), &entry)) {
        count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1u : 0u;
    }
    return count;
}

class Dice {
public:
    explicit Dice(unsigned int seed) : m_engine(seed) {}
    /** 0 to @p sides - 1. */
    unsigned int Roll(unsigned int sides) {
        return std::uniform_int_distribution<unsigned int>(0, sides - 1)(m_engine);
    }

private:
    std::mt19937 m_engine;
};

/** Dice for every thread, each from the next seed, so that a run can be repeated but for the system's schedule. */
Dice& ThreadsDice() {
    static std::atomic<unsigned int> s_seed = 1;
    thread_local Dice t_dice(s_seed.fetch_add(1));
    return t_dice;
}

/** Ends workers a moment after their launch. */
class Deaths {
public:
    Deaths() : m_thread([this] { Reap(); }) {}
    ~Deaths() {
        m_isEnding = true;
        m_thread.join();
    }
    Deaths(const Deaths&) = delete;
    Deaths& operator=(const Deaths&) = delete;

    void Doom(HANDLE worker) {
        const std::lock_guard guard(m_mutex);
        m_doomed.push_back(Duplicate(worker));
    }

private:
    void Reap() {
        for (bool isLast = false; !isLast;) {
            isLast = m_isEnding;
            Sleep(ThreadsDice().Roll(kMostMs));
            std::vector<OwnedHandle> doomed;
            {
                const std::lock_guard guard(m_mutex);
                doomed.swap(m_doomed);
            }
            for (const OwnedHandle& worker : doomed) {
                SetEvent(worker.get());
            }
        }
    }

    std::mutex m_mutex;
    std::vector<OwnedHandle> m_doomed;
    std::atomic<bool> m_isEnding = false;
    std::thread m_thread;
};

class RandomLives : public ProxyTest, public testing::WithParamInterface<int> {
protected:
    RandomLives() {
        m_log.SetLevel(log4cplus::OFF_LOG_LEVEL); // every refusal is a message
        fakeipc::SetObserver([this](const fakeipc::Call& call) {
            if (call.kind == fakeipc::CallKind::Post && ThreadsDice().Roll(2) == 0) {
                m_workers.EndAll();
            }
        });
        fakeipc::Answer answer = fakeipc::Result(1);
        answer.before = [this] {
            switch (ThreadsDice().Roll(4)) {
            case 0:
                m_workers.EndAll(); // it dies behind its answer
                break;
            case 1:
                Sleep(ThreadsDice().Roll(kMostMs));
                break;
            case 2:
                throw std::bad_alloc();
            default:
                break;
            }
        };
        fakeipc::SetDefaultAnswer(answer);
    }

    /** Lets the threads call until there have been @p lives workers, and all of them have ended. */
    void Live(int lives) {
        m_deaths.emplace();
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([this, lives] {
                while (m_workers.Launches() < lives) {
                    CallAnything();
                    Sleep(ThreadsDice().Roll(2)); // else the calls that are refused take all the time
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        m_deaths.reset();
        m_workers.EndAll();
        AwaitMode(RecordMode::NoWorker);
        if (proxyprivate::MonitorThread(Proxy()) != nullptr) {
            AwaitMonitor();
        }
    }

    void AwaitMode(RecordMode mode) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kLimitMs);
        while (Proxy().GetCurRecordMode() != static_cast<int>(mode) && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        EXPECT_EQ(Proxy().GetCurRecordMode(), static_cast<int>(mode));
    }

    EventWorkers m_workers{[this](HANDLE worker) { Launched(worker); }};

private:
    void Launched(HANDLE worker) {
        if (!m_deaths) {
            EventWorkers::DeliverReadyNotice(worker);
            return;
        }
        Dice& dice = ThreadsDice();
        if (dice.Roll(4) == 0) {
            SetEvent(worker); // dies before it is ready
            return;
        }
        if (dice.Roll(8) != 0) {
            fakeipc::Deliver(kxvcr::kMessageReady);
        }
        m_deaths->Doom(worker);
    }

    void CallAnything() {
        Dice& dice = ThreadsDice();
        int port = 0;
        switch (dice.Roll(9)) {
        case 0:
        case 1:
            Proxy().RunProcess(dice.Roll(kMostMs));
            break;
        case 2:
            Proxy().Prepare(ScreenRecordParam(), kTimeoutMs);
            break;
        case 3:
            Proxy().PrepareTimemachine(ScreenRecordParam(), dice.Roll(3), kTimeoutMs);
            break;
        case 4:
            Proxy().StartLocalRecord(L"a.mp4", 0, kTimeoutMs);
            break;
        case 5:
            Proxy().StartLiveServer(LiveServerParam(), kTimeoutMs, port);
            break;
        case 6:
            Proxy().Stop();
            break;
        case 7:
            Proxy().WaitLiveProcessEnd(dice.Roll(kMostMs));
            break;
        default:
            if (dice.Roll(4) == 0) {
                Proxy().KillProcess();
            }
            ScreenRecordProxy::ReleaseProxy(ScreenRecordProxy::CreateProxy());
            break;
        }
    }

    std::optional<Deaths> m_deaths; // while the threads call
};

INSTANTIATE_TEST_SUITE_P(Proxies, RandomLives, testing::Range(0, 4));

TEST_P(RandomLives, OfManyWorkers_LeaveAProxyThatWorksAndNothingElse) {
    Live(kFirstLives);
    const std::size_t handles = kxtest::OpenHandleCount();
    const std::size_t threads = ThreadCount();
    Live(kLives);
    EXPECT_GE(m_workers.Launches(), kLives);
    EXPECT_EQ(ThreadCount(), threads);
    EXPECT_LE(kxtest::OpenHandleCount(), handles + kContendedLocks);
    fakeipc::Reset();
    EXPECT_EQ(Proxy().RunProcess(kLimitMs), 0u);
    ExpectState(RunStatus::Running, RecordMode::WorkerStarted);
}

} // namespace

} // namespace proxytest
