// What was verified is what is launched. Each case has a host folder of its own, with a copy of this program as the
// host, because it tries to exchange the worker there.
#include "support/childprocess.h"
#include "support/hostfolder.h"
#include "unit/proxyfixture.h"
#include "unit/proxygate.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <string>

namespace proxytest {

namespace {

using kxtest::ChildScenario;
using kxtest::OwnFolder;
using std::filesystem::path;

constexpr char kRefused[] =
    "40000 Screen record exe file verification error(KxScreenRecord::ScreenRecordProxy::CheckEnv)";

path Worker() {
    return OwnFolder() / "KXVCR.exe";
}

/** The worker's file, open for writing; empty when it cannot be opened so. */
OwnedHandle OpenedForWriting() {
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    HANDLE const file = CreateFileW(Worker().c_str(), GENERIC_WRITE, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
    return OwnedHandle(file != INVALID_HANDLE_VALUE ? file : nullptr);
}

/** Tries every way to exchange the worker's file. @return those that worked */
std::string Exchange() {
    const path other = OwnFolder() / "other.exe";
    const path renamed = OwnFolder() / "renamed.exe";
    kxtest::WriteFileBytes(other, "another program");
    std::string done;
    if (OpenedForWriting()) {
        done += " write";
    }
    if (MoveFileExW(Worker().c_str(), renamed.c_str(), 0) != FALSE) {
        done += " rename";
        MoveFileExW(renamed.c_str(), Worker().c_str(), 0);
    }
    if (ReplaceFileW(Worker().c_str(), other.c_str(), nullptr, 0, nullptr, nullptr) != FALSE ||
        MoveFileExW(other.c_str(), Worker().c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE) {
        done += " replace";
    }
    if (DeleteFileW(Worker().c_str()) != FALSE) {
        done += " delete";
    }
    return done.empty() ? " nothing" : done;
}

/** Runs workers in the child and prints what comes of it. */
class Host {
public:
    ~Host() {
        m_plan.EndWorkers();
        ScreenRecordProxy::ReleaseProxy(m_proxy);
    }

    ScreenRecordProxy& Proxy() { return *m_proxy; }

    /** Prints the result, how many workers were launched, and the log's messages. */
    void Run() {
        unsigned long code = 0;
        int launches = 0;
        {
            const Launcher launcher;
            code = m_proxy->RunProcess(kLimitMs);
            launches = launcher.Launches();
        }
        std::cout << "RunProcess " << code << ", launches " << launches << '\n';
        for (const kxtest::LogEvent& event : m_log.Events()) {
            std::cout << event.level << ' ' << std::string(event.text.begin(), event.text.end()) << '\n';
        }
        m_log.Clear();
    }

    void EndWorker() {
        m_plan.EndWorkers();
        m_proxy->WaitLiveProcessEnd(kLimitMs);
    }

private:
    kxtest::LogCapture m_log;
    WorkerPlan m_plan;
    ScreenRecordProxy* m_proxy = ScreenRecordProxy::CreateProxy();
};

const ChildScenario kRun("run", [] { Host().Run(); });

const ChildScenario kExchangeAtTheDigest("exchange-at-the-digest", [] {
    Host host;
    fakeutil::ScriptFileSha256Hex([](const std::string&) {
        std::cout << "worked:" << Exchange() << '\n';
        return std::nullopt; // the real digest
    });
    host.Run();
});

const ChildScenario kExchangeAtTheLaunch("exchange-at-the-launch", [] {
    Host host;
    // The launch itself fails, so that nothing but the proxy holds the worker's file.
    const hooks::CreateProcessHook create([](auto&&...) {
        std::cout << "worked:" << Exchange() << '\n';
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    });
    const unsigned long code = host.Proxy().RunProcess(kLimitMs);
    std::cout << "RunProcess " << code << '\n';
    std::cout << "afterwards:" << (OpenedForWriting() ? " write" : " nothing") << '\n';
});

const ChildScenario kOpenForWriting("open-for-writing", [] {
    Host host;
    OwnedHandle writer = OpenedForWriting();
    host.Run();
    writer.reset();
    host.Run();
});

const ChildScenario kOpenForWritingAtFirst("open-for-writing-at-first", [] {
    Host host;
    OwnedHandle writer = OpenedForWriting();
    const hooks::EnterLockHook enter([&](LPCRITICAL_SECTION lock) {
        writer.reset();
        hooks::EnterLockHook::Original(lock);
    });
    host.Run();
});

/** Answers like the system for a host in a folder below this one, whose path fills the buffer. */
template <class Character>
DWORD CutModuleName(Character* buffer, DWORD size) {
    std::basic_string<Character> whole;
    for (const wchar_t character : OwnFolder().wstring()) {
        whole.push_back(static_cast<Character>(character));
    }
    whole.push_back('\\');
    whole.resize(2 * size, 'x');
    std::copy_n(whole.begin(), size - 1, buffer);
    buffer[size - 1] = 0;
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
}

const ChildScenario kNarrowPathIsCut("narrow-path-is-cut", [] {
    Host host;
    const hooks::NarrowModuleNameHook name(
        [](HMODULE, LPSTR buffer, DWORD size) { return CutModuleName(buffer, size); });
    host.Run();
});

const ChildScenario kBothPathsAreCut("both-paths-are-cut", [] {
    Host host;
    const hooks::NarrowModuleNameHook narrow(
        [](HMODULE, LPSTR buffer, DWORD size) { return CutModuleName(buffer, size); });
    const hooks::WideModuleNameHook wide(
        [](HMODULE, LPWSTR buffer, DWORD size) { return CutModuleName(buffer, size); });
    host.Run();
});

class SameWorker : public testing::Test {
protected:
    /** Puts worker and manifest into a folder. */
    static void Install(const path& folder) {
        std::filesystem::create_directories(folder / "config");
        for (const path& file : {path("KXVCR.exe"), path("config") / "CheckFileIntergrity.xml"}) {
            std::filesystem::copy_file(OwnFolder() / file, folder / file);
        }
    }
    /** What a host in a folder prints. */
    static std::string OutputIn(const path& folder, const std::string& scenario) {
        std::string output = kxtest::RunChildIn(folder, scenario).output;
        std::erase(output, '\r');
        return output;
    }
    std::string Output(const std::string& scenario) {
        Install(m_folder.Path());
        return OutputIn(m_folder.Path(), scenario);
    }

    const std::string m_runs = "RunProcess 0, launches 1\n";
    const std::string m_refusal = "RunProcess 191, launches 0\n" + std::string(kRefused) + "\n";
    kxtest::TempFolder m_folder;
};

TEST_F(SameWorker, InAFolderOfItsOwn_Runs) {
    EXPECT_EQ(Output("run"), m_runs);
}

TEST_F(SameWorker, ExchangeWhileItIsVerified_Fails) {
    EXPECT_EQ(Output("exchange-at-the-digest"), "worked: nothing\n" + m_runs);
}

TEST_F(SameWorker, ExchangeAtTheLaunch_FailsAndTheFileIsFreeAfterwards) {
    EXPECT_EQ(Output("exchange-at-the-launch"), "worked: nothing\nRunProcess 5\nafterwards: write\n");
}

TEST_F(SameWorker, OpenForWriting_IsRefusedUntilItIsClosed) {
    EXPECT_EQ(Output("open-for-writing"), m_refusal + m_runs);
}

TEST_F(SameWorker, OpenForWritingWhenTheRunBegins_IsRefused) {
    EXPECT_EQ(Output("open-for-writing-at-first"),
              "RunProcess 191, launches 0\n"
              "40000 Screen record exe file verification error(KxScreenRecord::ScreenRecordProxy::RunProcess)\n");
}

TEST_F(SameWorker, FolderThatTheCodePageOnlyNearlyHas_IsRefused) {
    const path nearly = m_folder.Path() / L"x\uFF21"; // a full-width A
    const path plain = m_folder.Path() / L"xA";
    char narrow[8] = {};
    WideCharToMultiByte(CP_ACP, 0, L"x\uFF21", -1, narrow, sizeof(narrow), nullptr, nullptr);
    ASSERT_STREQ(narrow, "xA") << "needs a code page without full-width letters";
    Install(nearly);
    Install(plain);
    EXPECT_EQ(OutputIn(plain, "run"), m_runs);
    // The log's library cannot open its file there and says so first.
    EXPECT_THAT(OutputIn(nearly, "run"), testing::EndsWith(m_refusal));
}

TEST_F(SameWorker, FolderThatTheNarrowBufferDoesNotHold_IsRefused) {
    EXPECT_EQ(Output("narrow-path-is-cut"), m_refusal);
}

TEST_F(SameWorker, FolderThatNoBufferHolds_IsRefused) {
    EXPECT_EQ(Output("both-paths-are-cut"), m_refusal);
}

} // namespace

} // namespace proxytest
