// Temporary folders, and child processes that run one scenario of the test program from a folder of their own: what
// a library reads beside itself or beside the host can only be set up that way.
#pragma once

#include <windows.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace utiltest {

/** The folder of the running test program. */
std::filesystem::path OwnFolder();

void WriteBytes(const std::filesystem::path& file, std::string_view bytes);
std::string ReadBytes(const std::filesystem::path& file);

/** A new folder that is removed with all it holds. */
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

    /** The path of a name in the folder, in the process's code page. */
    std::string Name(const std::string& name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

/** Makes a scenario known, under whose name RunChild starts it. */
class ChildScenario {
public:
    using Entry = int (*)();
    ChildScenario(const char* name, Entry entry);
};

/** Runs the scenario that the command line asks for with "--child NAME"; nothing when it asks for none. */
std::optional<int> RunRequestedScenario(int argc, char** argv);

/** What a child left behind. */
struct ChildResult {
    DWORD exitCode = 0;
    std::string output; /**< what it printed */
};

/** Copies the test program into a folder as "child.exe", runs one scenario there and waits for its end. */
ChildResult RunChild(const std::string& scenario, const std::filesystem::path& folder);

} // namespace utiltest
