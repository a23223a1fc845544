// Starts this program once more for a scenario, and waits for it within a limit.
#include "support/childprocess.h"

#include "common/win/handle.h"
#include "support/hostfolder.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <stdexcept>

namespace kxtest {

namespace {

constexpr DWORD kChildLimitMs = 30000;
constexpr char kOption[] = "--child-scenario=";
constexpr DWORD kUnknownScenario = 98;
constexpr UINT kOverdueChild = 97;

std::map<std::string, void (*)()>& Scenarios() {
    static std::map<std::string, void (*)()> s_scenarios;
    return s_scenarios;
}

} // namespace

ChildScenario::ChildScenario(const char* name, void (*run)()) {
    Scenarios()[name] = run;
}

void RunChildScenarioIfAsked(int argc, char** argv) {
    const std::string option(kOption);
    if (argc != 2 || std::string(argv[1]).compare(0, option.size(), option) != 0) {
        return;
    }
    const auto scenario = Scenarios().find(argv[1] + option.size());
    if (scenario == Scenarios().end()) {
        std::exit(kUnknownScenario);
    }
    scenario->second();
    std::fflush(stdout);
    std::exit(0);
}

ChildResult RunProgram(const std::filesystem::path& program, const std::string& argument) {
    const TempFolder folder;
    const std::filesystem::path outputPath = folder.Path() / "output.txt";
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    kx::FileHandle output(CreateFileW(outputPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inheritable, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    std::wstring commandLine = L"\"" + program.wstring() + L"\" " + std::wstring(argument.begin(), argument.end());
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = output.Get();
    startup.hStdError = output.Get();
    PROCESS_INFORMATION process{};
    const BOOL started =
        CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
    output.Reset();
    if (started == FALSE) {
        throw std::runtime_error("cannot start the child");
    }
    const kx::KernelHandle thread(process.hThread);
    const kx::KernelHandle child(process.hProcess);
    const bool ended = WaitForSingleObject(child.Get(), kChildLimitMs) == WAIT_OBJECT_0;
    if (!ended) {
        TerminateProcess(child.Get(), kOverdueChild);
        WaitForSingleObject(child.Get(), kChildLimitMs);
    }
    ChildResult result;
    GetExitCodeProcess(child.Get(), &result.exitCode);
    result.output = ReadFileBytes(outputPath);
    if (!ended) {
        throw std::runtime_error("the child did not end: " + argument + "\n" + result.output);
    }
    return result;
}

ChildResult RunChild(const std::string& scenario) {
    return RunChild(scenario, OwnProgram());
}

ChildResult RunChild(const std::string& scenario, const std::filesystem::path& program) {
    return RunProgram(program, kOption + scenario);
}

ChildResult RunChildIn(const std::filesystem::path& folder, const std::string& scenario) {
    const std::filesystem::path program = folder / "child.exe";
    std::filesystem::copy_file(OwnProgram(), program, std::filesystem::copy_options::overwrite_existing);
    const SearchFolder libraries(OwnFolder());
    return RunChild(scenario, program);
}

} // namespace kxtest
