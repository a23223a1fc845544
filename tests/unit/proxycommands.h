/** @file The proxy's commands as data: how each is called, and what it does to the two state fields. */
#pragma once

#include "unit/proxyfixture.h"

#include <ostream>
#include <string>
#include <vector>

namespace proxytest {

/** One command. */
struct Command {
    const char* name;
    RunStatus from;   ///< the one status that admits it
    RunStatus during; ///< while the worker is asked
    RunStatus after;  ///< when the worker has accepted
    RecordMode mode;  ///< when the worker has accepted
    const char* function;
    std::wstring refusal;
    std::vector<proxymessages::Message> failedSend;
    std::vector<proxymessages::Message> failedAnswer; ///< what the command itself adds when the answer is bad
    bool (*call)(ScreenRecordProxy& proxy);
};

std::ostream& operator<<(std::ostream& out, const Command& command);

/** Every form of every command. */
const std::vector<Command>& AllCommands();

/** Names a test after its command. */
inline std::string NameOf(const testing::TestParamInfo<Command>& tested) {
    return tested.param.name;
}

} // namespace proxytest
