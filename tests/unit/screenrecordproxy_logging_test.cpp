// How the proxy uses the log: nothing is built for a level that is off, nothing mixes, nothing leaks, nothing throws.
#include "unit/proxyfixture.h"

#include <log4cplus/loggingmacros.h>

#include <locale>
#include <thread>

namespace proxytest {

namespace {

using kxtest::ImportHook;
using log4cplus::Logger;

using StreamHook =
    ImportHook<"liblog4cplus.dll", "_ZN9log4cplus6detail18get_macro_body_ossB5cxx11Ev", log4cplus::tostringstream&()>;
using CopyLoggerHook = ImportHook<"liblog4cplus.dll", "_ZN9log4cplus6LoggerC1ERKS0_", void(void*, const void*)>;
using EndLoggerHook = ImportHook<"liblog4cplus.dll", "_ZN9log4cplus6LoggerD1Ev", void(void*)>;
using EnabledHook = ImportHook<"liblog4cplus.dll", "_ZNK9log4cplus6Logger12isEnabledForEi", bool(const void*, int)>;
using ForcedLogHook =
    ImportHook<"liblog4cplus.dll",
               "_ZN9log4cplus6detail16macro_forced_logERKNS_6LoggerEiRKNSt7__cxx1112basic_stringIwSt11"
               "char_traitsIwESaIwEEEPKciSD_",
               void(const Logger&, log4cplus::LogLevel, const log4cplus::tstring&, const char*, int, const char*)>;

class ProxyLogging : public ProxyTest {
protected:
    unsigned long CauseWarning() {
        SetState(RunStatus::Running, RecordMode::WorkerStarted);
        return Proxy().RunProcess(kLimitMs);
    }
    bool CauseError() {
        SetState(RunStatus::Idle, RecordMode::NoWorker);
        return Proxy().Prepare(ScreenRecordParam(), kTimeoutMs);
    }
    const proxymessages::Message m_warning = Warn("RunProcess", L"Can not run screen record process on mode ", L"1");
    const proxymessages::Message m_error = Error("PrepareTimemachine", L"Can not call prepare on status ", L"0");
};

TEST_F(ProxyLogging, LevelAboveWarn_FormatsNoWarning) {
    m_log.SetLevel(log4cplus::ERROR_LOG_LEVEL);
    const StreamHook stream([]() -> log4cplus::tostringstream& { return StreamHook::Original(); });
    EXPECT_EQ(CauseWarning(), kBusy);
    EXPECT_EQ(stream.Calls(), 0);
    EXPECT_FALSE(CauseError());
    EXPECT_EQ(stream.Calls(), 1);
    ExpectMessages({m_error});
}

TEST_F(ProxyLogging, LevelAboveError_FormatsNothing) {
    for (const int level : {log4cplus::FATAL_LOG_LEVEL, log4cplus::OFF_LOG_LEVEL}) {
        m_log.SetLevel(level);
        const StreamHook stream([]() -> log4cplus::tostringstream& { return StreamHook::Original(); });
        EXPECT_EQ(CauseWarning(), kBusy);
        EXPECT_FALSE(CauseError());
        EXPECT_EQ(stream.Calls(), 0);
    }
    ExpectMessages({});
    m_log.SetLevel(log4cplus::ALL_LOG_LEVEL);
    EXPECT_EQ(CauseWarning(), kBusy);
    EXPECT_FALSE(CauseError());
    ExpectMessages({m_warning, m_error});
}

TEST_F(ProxyLogging, LevelOfTheMessage_IsEnough) {
    m_log.SetLevel(log4cplus::WARN_LOG_LEVEL);
    CauseWarning();
    m_log.SetLevel(log4cplus::ERROR_LOG_LEVEL);
    CauseError();
    ExpectMessages({m_warning, m_error});
}

TEST_F(ProxyLogging, EachMessage_TakesAndEndsACopyOfTheLogger) {
    const void* copy = nullptr;
    const void* asked = nullptr;
    const void* logged = nullptr;
    const void* ended = nullptr;
    int level = 0;
    const CopyLoggerHook copyHook([&](void* target, const void* source) {
        copy = target;
        CopyLoggerHook::Original(target, source);
    });
    const EnabledHook enabledHook([&](const void* logger, int wanted) {
        asked = logger;
        level = wanted;
        return EnabledHook::Original(logger, wanted);
    });
    const ForcedLogHook logHook([&](const Logger& logger, log4cplus::LogLevel at, const log4cplus::tstring& text,
                                    const char* file, int line, const char* function) {
        logged = &logger;
        ForcedLogHook::Original(logger, at, text, file, line, function);
    });
    const EndLoggerHook endHook([&](void* logger) {
        ended = logger;
        EndLoggerHook::Original(logger);
    });
    CauseError();
    EXPECT_NE(copy, nullptr);
    EXPECT_EQ(asked, copy);
    EXPECT_EQ(level, log4cplus::ERROR_LOG_LEVEL);
    EXPECT_EQ(logged, copy);
    EXPECT_EQ(ended, copy);
    EXPECT_EQ(copyHook.Calls(), 1);
    EXPECT_EQ(enabledHook.Calls(), 1);
    EXPECT_EQ(logHook.Calls(), 1);
    EXPECT_EQ(endHook.Calls(), 1);
}

TEST_F(ProxyLogging, LevelThatIsOff_StillEndsTheCopy) {
    m_log.SetLevel(log4cplus::OFF_LOG_LEVEL);
    const CopyLoggerHook copyHook([](void* target, const void* source) { CopyLoggerHook::Original(target, source); });
    const EndLoggerHook endHook([](void* logger) { EndLoggerHook::Original(logger); });
    CauseError();
    CauseWarning();
    EXPECT_EQ(copyHook.Calls(), 2);
    EXPECT_EQ(endHook.Calls(), 2);
}

TEST_F(ProxyLogging, TextThatCannotBeBuilt_EndsTheCopyAndKeepsTheResult) {
    {
        const CopyLoggerHook copyHook(
            [](void* target, const void* source) { CopyLoggerHook::Original(target, source); });
        const EndLoggerHook endHook([](void* logger) { EndLoggerHook::Original(logger); });
        const StreamHook stream([]() -> log4cplus::tostringstream& { throw std::bad_alloc(); });
        EXPECT_FALSE(CauseError());
        EXPECT_EQ(CauseWarning(), kBusy);
        EXPECT_EQ(copyHook.Calls(), 2);
        EXPECT_EQ(endHook.Calls(), 2);
    }
    ExpectMessages({});
    CauseError();
    ExpectMessages({m_error});
}

TEST_F(ProxyLogging, LoggerThatThrows_KeepsTheResult) {
    const ForcedLogHook logHook([](auto&&...) { throw std::bad_alloc(); });
    EXPECT_FALSE(CauseError());
    EXPECT_EQ(CauseWarning(), kBusy);
    EXPECT_EQ(logHook.Calls(), 2);
}

TEST_F(ProxyLogging, StreamLeftInHex_DoesNotChangeNumbers) {
    log4cplus::detail::get_macro_body_oss() << std::hex << std::showbase << 255;
    EXPECT_FALSE(Proxy().StartLocalRecord(L"a", 4000000000, kTimeoutMs));
    ExpectMessages({Error("StartLocalRecord", L"Invalid path length ", L"4000000000")});
}

class Grouped : public std::numpunct<wchar_t> {
    wchar_t do_thousands_sep() const override { return L'.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(ProxyLogging, LocaleWithSeparators_DoesNotChangeNumbers) {
    const std::locale former = std::locale::global(std::locale(std::locale(), new Grouped));
    std::thread([this] { EXPECT_FALSE(Proxy().StartLocalRecord(L"a", 4000000000, kTimeoutMs)); }).join();
    std::locale::global(former);
    ExpectMessages({Error("StartLocalRecord", L"Invalid path length ", L"4000000000")});
}

TEST_F(ProxyLogging, ManyThreads_DoNotMixTheirTexts) {
    constexpr unsigned int kThreads = 6;
    constexpr unsigned int kRounds = 100;
    std::vector<std::thread> threads;
    for (unsigned int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, thread] {
            for (unsigned int round = 0; round < kRounds; ++round) {
                EXPECT_FALSE(Proxy().StartLocalRecord(L"a", 1000 + thread, kTimeoutMs));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<unsigned int> counts(kThreads, 0);
    for (const kxtest::LogEvent& event : m_log.Events()) {
        for (unsigned int thread = 0; thread < kThreads; ++thread) {
            const std::wstring expected = L"Invalid path length " + std::to_wstring(1000 + thread) +
                                          L"(KxScreenRecord::ScreenRecordProxy::StartLocalRecord)";
            counts[thread] += event.text == expected ? 1u : 0u;
        }
    }
    EXPECT_EQ(counts, std::vector<unsigned int>(kThreads, kRounds));
}

TEST_F(ProxyLogging, OtherMessages_AreNotOnTheDebugChannel) {
    // The proxy's own failures go to the log alone.
    std::vector<std::wstring> lines;
    const kxtest::ImportHook<"KERNEL32.dll", "OutputDebugStringW", decltype(OutputDebugStringW)> debug(
        [&](LPCWSTR line) { lines.emplace_back(line); });
    CauseError();
    CauseWarning();
    EXPECT_TRUE(lines.empty());
}

} // namespace

} // namespace proxytest
