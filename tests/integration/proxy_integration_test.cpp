// The proxy with the real suite libraries and a worker process that does what a test's script says.
#include "screenrecordproxy.h"
#include "support/hostfolder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace {

using KxScreenRecord::LiveServerParam;
using KxScreenRecord::ScreenRecordParam;
using KxScreenRecord::ScreenRecordProxy;

constexpr DWORD kLimitMs = 20000;
constexpr DWORD kTooShortMs = 300;
constexpr unsigned long kTimedOut = 258;
constexpr unsigned long kBadSignature = 191;

std::string Hex(const void* data, std::size_t size) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        const unsigned char byte = static_cast<const unsigned char*>(data)[i];
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 15]);
    }
    return text;
}

class ProxyIntegration : public testing::Test {
protected:
    ProxyIntegration() : m_proxy(ScreenRecordProxy::CreateProxy()) {
        std::filesystem::remove(Log());
        WriteScript("");
    }
    ~ProxyIntegration() override {
        m_proxy->KillProcess();
        ScreenRecordProxy::ReleaseProxy(m_proxy);
    }

    static std::filesystem::path Log() { return kxtest::OwnFolder() / "scriptedworker.log"; }
    static void WriteScript(const std::string& orders) {
        kxtest::WriteFileBytes(kxtest::OwnFolder() / "scriptedworker.txt", orders);
    }
    static std::vector<std::string> Requests() {
        std::vector<std::string> lines;
        std::istringstream log(kxtest::ReadFileBytes(Log()));
        for (std::string line; std::getline(log, line);) {
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            lines.push_back(line);
        }
        return lines;
    }
    void Run(const std::string& orders = "") {
        WriteScript(orders);
        ASSERT_EQ(m_proxy->RunProcess(kLimitMs), 0u);
    }

    ScreenRecordProxy* m_proxy;
};

TEST_F(ProxyIntegration, LocalRecording_ReachesTheWorkerByteForByte) {
    ScreenRecordParam param;
    param.left = -5;
    param.width = 640;
    param.framesPerSecond = 25;
    const unsigned int timeMachine = 30;
    const std::wstring path = L"C:\\\u00E9\u4E2D.webm";
    ASSERT_NO_FATAL_FAILURE(Run());
    EXPECT_EQ(m_proxy->GetCurRecordMode(), 1);
    EXPECT_TRUE(m_proxy->PrepareTimemachine(param, timeMachine, kLimitMs));
    EXPECT_EQ(m_proxy->GetCurRecordMode(), 100);
    EXPECT_TRUE(m_proxy->StartLocalRecord(path.c_str(), 0, kLimitMs));
    EXPECT_EQ(m_proxy->GetCurRecordMode(), 1000);
    m_proxy->Stop();
    EXPECT_EQ(m_proxy->WaitLiveProcessEnd(kLimitMs), 0u);
    const std::size_t pathBytes = (path.size() + 1) * sizeof(wchar_t);
    EXPECT_EQ(Requests(),
              (std::vector<std::string>{
                  "4e0000 650000 4e0003 4e0003 1 48 " + Hex(&param, sizeof(param)) + Hex(&timeMachine, 4),
                  "4e0000 650000 4e0005 4e0005 1 " + std::to_string(pathBytes) + " " + Hex(path.c_str(), pathBytes),
                  "4e0000 650000 4e0006 ffffffff 0 0 "}));
}

TEST_F(ProxyIntegration, LiveServer_GivesTheWorkersResult) {
    LiveServerParam param;
    param.port = 8080;
    int result = 0;
    ASSERT_NO_FATAL_FAILURE(Run("result 4E0004 8081\n"));
    EXPECT_TRUE(m_proxy->Prepare(ScreenRecordParam(), kLimitMs));
    EXPECT_TRUE(m_proxy->StartLiveServer(param, kLimitMs, result));
    EXPECT_EQ(result, 8081);
    EXPECT_EQ(m_proxy->GetCurRecordMode(), 1001);
    EXPECT_EQ(Requests().at(1), "4e0000 650000 4e0004 4e0004 1 40 " + Hex(&param, sizeof(param)));
}

TEST_F(ProxyIntegration, BadAnswers_FailTheCommand) {
    for (const char* order : {"result 4E0003 -3", "size 4E0003 5", "size 4E0003 0", "die 4E0003 9"}) {
        ASSERT_NO_FATAL_FAILURE(Run(order));
        EXPECT_FALSE(m_proxy->Prepare(ScreenRecordParam(), kLimitMs)) << order;
        EXPECT_FALSE(m_proxy->Prepare(ScreenRecordParam(), kLimitMs)) << order;
        ScreenRecordProxy::CreateProxy();
        m_proxy->KillProcess();
        ScreenRecordProxy::ReleaseProxy(m_proxy);
        ScreenRecordProxy::ReleaseProxy(m_proxy);
        m_proxy = ScreenRecordProxy::CreateProxy();
    }
}

TEST_F(ProxyIntegration, SilentWorker_CostsTheTimeOutOnly) {
    ASSERT_NO_FATAL_FAILURE(Run("silent 4E0003"));
    const ULONGLONG before = GetTickCount64();
    EXPECT_FALSE(m_proxy->Prepare(ScreenRecordParam(), kTooShortMs));
    const ULONGLONG passed = GetTickCount64() - before;
    EXPECT_GE(passed, kTooShortMs - 50);
    EXPECT_LT(passed, kLimitMs);
}

TEST_F(ProxyIntegration, WorkerThatDiesInACommand_GivesItsExitCode) {
    ASSERT_NO_FATAL_FAILURE(Run("die 4E0005 77"));
    EXPECT_TRUE(m_proxy->Prepare(ScreenRecordParam(), kLimitMs));
    EXPECT_FALSE(m_proxy->StartLocalRecord(L"a", 0, kLimitMs));
    EXPECT_EQ(m_proxy->WaitLiveProcessEnd(kLimitMs), 77u);
}

TEST_F(ProxyIntegration, WorkerThatEndsAtOnce_GivesItsExitCodeAndTheNextOneRuns) {
    WriteScript("exit 12");
    EXPECT_EQ(m_proxy->RunProcess(kLimitMs), 12u);
    EXPECT_EQ(m_proxy->GetCurRecordMode(), 0);
    ASSERT_NO_FATAL_FAILURE(Run());
    EXPECT_TRUE(m_proxy->Prepare(ScreenRecordParam(), kLimitMs));
}

TEST_F(ProxyIntegration, WorkerThatIsNeverReady_TimesOutAndTheNextOneRuns) {
    WriteScript("never-ready");
    EXPECT_EQ(m_proxy->RunProcess(kTooShortMs), kTimedOut);
    EXPECT_EQ(m_proxy->GetCurRecordMode(), 0);
    ASSERT_NO_FATAL_FAILURE(Run());
}

TEST_F(ProxyIntegration, LateWorker_IsWaitedFor) {
    ASSERT_NO_FATAL_FAILURE(Run("ready-after 500"));
    EXPECT_TRUE(m_proxy->Prepare(ScreenRecordParam(), kLimitMs));
}

TEST_F(ProxyIntegration, KilledWorker_FailsTheNextCommand) {
    ASSERT_NO_FATAL_FAILURE(Run());
    EXPECT_TRUE(m_proxy->Prepare(ScreenRecordParam(), kLimitMs));
    m_proxy->KillProcess();
    EXPECT_EQ(m_proxy->WaitLiveProcessEnd(kLimitMs), 0u);
    EXPECT_FALSE(m_proxy->StartLocalRecord(L"a", 0, kLimitMs));
}

TEST_F(ProxyIntegration, ChangedWorkerFile_IsRefused) {
    const std::filesystem::path manifest = kxtest::OwnFolder() / "config" / "CheckFileIntergrity.xml";
    const std::string good = kxtest::ReadFileBytes(manifest);
    std::string bad = good;
    const std::size_t digit = bad.find("Sha256=\"") + std::strlen("Sha256=\"");
    bad[digit] = bad[digit] == '0' ? '1' : '0';
    kxtest::WriteFileBytes(manifest, bad);
    EXPECT_EQ(m_proxy->RunProcess(kLimitMs), kBadSignature);
    kxtest::WriteFileBytes(manifest, good);
    ASSERT_NO_FATAL_FAILURE(Run());
}

} // namespace
