/**
 * @file
 * Scenarios that end the whole process, run in a child: the test program itself, started with a scenario's name.
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
    std::string output; ///< what the child wrote to its standard output
};

/** Starts this program for the scenario and waits for its end. Throws std::runtime_error after 30 s. */
ChildResult RunChild(const std::string& scenario);

/** The same with a copy of this program that lies elsewhere. */
ChildResult RunChild(const std::string& scenario, const std::filesystem::path& program);

} // namespace kxtest
