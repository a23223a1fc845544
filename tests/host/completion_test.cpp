// The completion scripts name what the parser knows.
#include "host/arguments.h"

#include <gtest/gtest.h>

namespace kxrecord {
namespace {

std::string ScriptFor(const std::string& shell) {
    return std::get<Notice>(ParseArguments({"completion", shell}, "1")).output;
}

TEST(Completion, EveryCommandWithItsOptions_IsInBothScripts) {
    for (const char* const shell : {"bash", "powershell"}) {
        const std::string script = ScriptFor(shell);
        for (const char* const word :
             {"record", "live", "windows", "displays", "info", "manifest", "completion", "--seconds", "--overwrite",
              "--window", "--all-interfaces", "--dpi", "--version"}) {
            EXPECT_NE(script.find(word), std::string::npos) << shell << ": " << word;
        }
    }
}

TEST(Completion, UnknownShell_IsABadArgument) {
    const Notice notice = std::get<Notice>(ParseArguments({"completion", "fish"}, "1"));
    EXPECT_EQ(notice.exit, Exit::BadArguments);
    EXPECT_NE(notice.complaint.find("fish"), std::string::npos) << notice.complaint;
}

} // namespace
} // namespace kxrecord
