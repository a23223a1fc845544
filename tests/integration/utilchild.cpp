#include "utilchild.h"

#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace utiltest {

namespace {

constexpr DWORD kChildTimeoutMs = 30'000;
constexpr UINT kChildHung = 125;

std::map<std::string, ChildScenario::Entry>& Scenarios() {
    static std::map<std::string, ChildScenario::Entry> scenarios;
    return scenarios;
}

std::filesystem::path OwnProgram() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return path;
}

struct Handle {
    explicit Handle(HANDLE handle) : value(handle) {}
    ~Handle() { CloseHandle(value); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    HANDLE value;
};

// The child finds the libraries of the build through the path, unless its own folder holds a copy.
void OfferOwnFolderOnPath() {
    std::wstring path(32767, L'\0');
    path.resize(GetEnvironmentVariableW(L"PATH", path.data(), static_cast<DWORD>(path.size())));
    SetEnvironmentVariableW(L"PATH", (OwnFolder().wstring() + L";" + path).c_str());
}

} // namespace

std::filesystem::path OwnFolder() {
    return OwnProgram().parent_path();
}

void WriteBytes(const std::filesystem::path& file, std::string_view bytes) {
    std::ofstream stream(file, std::ios::binary);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!stream.flush()) {
        throw std::runtime_error("cannot write " + file.string());
    }
}

std::string ReadBytes(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream bytes;
    bytes << stream.rdbuf();
    return bytes.str();
}

TemporaryFolder::TemporaryFolder() {
    static int count = 0;
    m_path = std::filesystem::temp_directory_path() /
             ("kxutil-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++count));
    std::filesystem::create_directories(m_path);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

ChildScenario::ChildScenario(const char* name, Entry entry) {
    Scenarios().emplace(name, entry);
}

std::optional<int> RunRequestedScenario(int argc, char** argv) {
    if (argc != 3 || std::string_view(argv[1]) != "--child") {
        return std::nullopt;
    }
    return Scenarios().at(argv[2])();
}

ChildResult RunChild(const std::string& scenario, const std::filesystem::path& folder) {
    const std::filesystem::path program = folder / "child.exe";
    std::filesystem::copy_file(OwnProgram(), program, std::filesystem::copy_options::overwrite_existing);
    OfferOwnFolderOnPath();

    const std::filesystem::path outputFile = folder / "child.out";
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    {
        const Handle output(CreateFileW(outputFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inheritable, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = output.value;
        startup.hStdError = output.value;
        std::wstring commandLine =
            L"\"" + program.wstring() + L"\" --child " + std::wstring(scenario.begin(), scenario.end());
        if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                            &started)) {
            throw std::runtime_error("cannot start the child, error " + std::to_string(GetLastError()));
        }
    }
    const Handle process(started.hProcess);
    const Handle thread(started.hThread);
    if (WaitForSingleObject(process.value, kChildTimeoutMs) != WAIT_OBJECT_0) {
        TerminateProcess(process.value, kChildHung);
        WaitForSingleObject(process.value, kChildTimeoutMs);
    }
    ChildResult result;
    GetExitCodeProcess(process.value, &result.exitCode);
    result.output = ReadBytes(outputFile);
    return result;
}

} // namespace utiltest
