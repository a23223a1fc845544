// How a message of the proxy looks as a whole, its line found in the source, and how lists of them are compared.
#include "unit/proxymessages.h"

#include "support/hostfolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <map>
#include <stdexcept>

namespace proxymessages {

namespace {

constexpr char kFile[] = R"(libraries\screenrecordproxy\screenrecordproxy.cpp)";
constexpr char kClass[] = "KxScreenRecord::ScreenRecordProxy";

// Result and arguments of each member, as the Microsoft compiler writes them.
struct Signature {
    const char* before;
    const char* after;
};
const std::map<std::string, Signature> kSignatures = {
    {"ScreenRecordProxy", {"__cdecl ", "(void)"}},
    {"~ScreenRecordProxy", {"__cdecl ", "(void)"}},
    {"CreateProxy", {"class KxScreenRecord::ScreenRecordProxy *__cdecl ", "(void)"}},
    {"ReleaseProxy", {"void __cdecl ", "(class KxScreenRecord::ScreenRecordProxy *)"}},
    {"RunProcess", {"unsigned long __cdecl ", "(unsigned long)"}},
    {"WaitLiveProcessEnd", {"unsigned long __cdecl ", "(unsigned long)"}},
    {"CheckEnv", {"unsigned long __cdecl ", "(void)"}},
    {"CreateRecordProcess", {"unsigned long __cdecl ", "(void *&)"}},
    {"WaitProcessRunResult", {"unsigned long __cdecl ", "(void *&,unsigned long)"}},
    {"ScrRecProcessMonitorThreadProc", {"void __cdecl ", "(void)"}},
    {"OnRecordProcessIPCReady", {"void __cdecl ", "(struct TagIPCMessageItem &)"}},
    {"SendVCRMessage", {"bool __cdecl ", "(unsigned int,struct TagIPCMessageItem &)"}},
    {"PrepareTimemachine",
     {"bool __cdecl ", "(const struct KxScreenRecord::ScreenRecordParam &,unsigned int,unsigned int)"}},
    {"StartLocalRecord", {"bool __cdecl ", "(const wchar_t *,unsigned int,unsigned int)"}},
    {"StartLiveServer", {"bool __cdecl ", "(const struct KxScreenRecord::LiveServerParam &,unsigned int,int &)"}},
    {"Stop", {"void __cdecl ", "(void)"}},
};

std::string Joined(std::initializer_list<std::string> parts) {
    std::string whole;
    for (const std::string& part : parts) {
        whole.append(part);
    }
    return whole;
}

const std::string& Source() {
    static const std::string s_source = kxtest::ReadFileBytes(kxtest::OwnFolder() / "source" / "screenrecordproxy.cpp");
    return s_source;
}

int LineOf(std::size_t position) {
    const auto end = Source().begin() + static_cast<std::ptrdiff_t>(position);
    return 1 + static_cast<int>(std::count(Source().begin(), end, '\n'));
}

struct Lines {
    int first;
    int last;
};

// The lines of the statement with the literal in a member's definition.
Lines StatementLines(const Message& message) {
    const std::string literal = Joined({"\"", std::string(message.literal.begin(), message.literal.end()), "\""});
    const std::size_t definition = Source().find(Joined({"ScreenRecordProxy::", message.function, "("}));
    const std::size_t position = definition == std::string::npos ? definition : Source().find(literal, definition);
    const std::size_t definitionEnd = Source().find("\n}", definition);
    if (position == std::string::npos || position > definitionEnd) {
        throw std::runtime_error(Joined({"no statement with ", literal, " in ", message.function}));
    }
    const std::size_t before = Source().find_last_of(";{}", position);
    const std::size_t start = Source().find_first_not_of(" \t\r\n", before + 1);
    const std::size_t end = Source().find(';', position + literal.size());
    return {LineOf(start), LineOf(end)};
}

} // namespace

Message Warn(const char* function, std::wstring literal, std::wstring values) {
    return {log4cplus::WARN_LOG_LEVEL, function, std::move(literal), std::move(values)};
}

Message Error(const char* function, std::wstring literal, std::wstring values) {
    return {log4cplus::ERROR_LOG_LEVEL, function, std::move(literal), std::move(values)};
}

void ExpectMessages(const std::vector<kxtest::LogEvent>& events, const std::vector<Message>& messages) {
    EXPECT_EQ(events.size(), messages.size()) << testing::PrintToString(events);
    for (std::size_t i = 0; i < std::min(events.size(), messages.size()); ++i) {
        const kxtest::LogEvent& event = events[i];
        const Message& message = messages[i];
        const std::string qualified = Joined({kClass, "::", message.function});
        const std::string qualifier = Joined({"(", qualified, ")"});
        EXPECT_EQ(event.level, message.level);
        EXPECT_EQ(event.text, message.literal + message.values + std::wstring(qualifier.begin(), qualifier.end()));
        EXPECT_EQ(event.file, kFile);
        const Signature& signature = kSignatures.at(message.function);
        EXPECT_EQ(event.function, Joined({signature.before, qualified, signature.after}));
        const Lines lines = StatementLines(message);
        EXPECT_GE(event.line, lines.first) << event;
        EXPECT_LE(event.line, lines.last) << event;
    }
}

} // namespace proxymessages
