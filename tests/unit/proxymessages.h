/** @file Compares the proxy's log messages whole: level, text, file, line and function. */
#pragma once

#include "support/logcapture.h"

#include <string>
#include <vector>

namespace proxymessages {

/** One message that a test expects. */
struct Message {
    int level;
    const char* function;      ///< the member's name without class and signature
    std::wstring literal;      ///< the text's beginning as it stands in the source file
    std::wstring values = L""; ///< what follows the literal in the text
};

Message Warn(const char* function, std::wstring literal, std::wstring values = L"");
Message Error(const char* function, std::wstring literal, std::wstring values = L"");

/** Fails the running test unless the events are exactly the messages, in order. */
void ExpectMessages(const std::vector<kxtest::LogEvent>& events, const std::vector<Message>& messages);

} // namespace proxymessages
