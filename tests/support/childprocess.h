/**
 * @file
 * Child processes. What ends the whole process, or needs a process or a host folder of its own, is a scenario: the
 * test program itself, started with the scenario's name.
 */
#pragma once

#include <filesystem>
#include <string>

namespace kxtest {

/** Names a scenario. Define at namespace scope: `const ChildScenario kName("name", [] { ... });` */
class ChildScenario {
public:
    ChildScenario(const char* name, void (*run)());
};

/** Runs the scenario that the command line asks for, if any, and ends the process with 0 when it returns. */
void RunChildScenarioIfAsked(int argc, char** argv);

struct ChildResult {
    unsigned long exitCode = 0;
    std::string output; ///< what the child wrote to its standard output and its standard error
};

/** Starts a program with one argument and waits for its end. Throws std::runtime_error after 30 s. */
ChildResult RunProgram(const std::filesystem::path& program, const std::string& argument);

/** Starts this program for the scenario and waits for its end, as RunProgram does. */
ChildResult RunChild(const std::string& scenario);

/** The same with a copy of this program that lies elsewhere. */
ChildResult RunChild(const std::string& scenario, const std::filesystem::path& program);

/**
 * The same with a copy of this program, "child.exe" in @p folder. The copy finds there what the folder holds, and every
 * other library beside this program.
 */
ChildResult RunChildIn(const std::filesystem::path& folder, const std::string& scenario);

} // namespace kxtest
