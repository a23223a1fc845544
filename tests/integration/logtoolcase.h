/**
 * @file
 * What the cases of the real LogTool.dll share. The log is configured once a process and from beside the host, so each
 * case is a child process in a folder of its own.
 */
#pragma once

#include "support/childprocess.h"
#include "support/hostfolder.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <sstream>
#include <string>

namespace logtooltest {

/** The lines of a log without date, time, process and thread, and without the location at the end. */
inline std::string TextsOf(const std::string& log) {
    std::istringstream lines(log);
    std::string texts;
    for (std::string line; std::getline(lines, line);) {
        std::string date;
        std::string time;
        std::string level;
        std::istringstream(line) >> date >> time >> level;
        const size_t text = line.find("] ") + 2;
        texts += level + " " + line.substr(text, line.rfind(" [") - text) + "\n";
    }
    return texts;
}

/** Runs a scenario, which ends well, and gives the texts of its log. */
inline std::string TextsOfRun(const std::string& scenario) {
    const kxtest::TempFolder folder;
    EXPECT_EQ(kxtest::RunChildIn(folder.Path(), scenario).exitCode, 0u) << scenario;
    return TextsOf(kxtest::ReadFileBytes(folder.Name("child.log")));
}

} // namespace logtooltest
