// Asks each query of the table, and keeps what the library wrote to the debugger output meanwhile.
#include "host/info.h"

#include "host/console.h"
#include "host/debuglines.h"
#include "host/infoview.h"

#include <cstddef>
#include <string_view>

namespace kxrecord {

namespace {

constexpr wchar_t kClassPrefix[] = L"SystemEnvironment::";
constexpr wchar_t kMayWrite[] = L"it may write the registry; ask with --all";

// What the user types to give a query its argument.
const wchar_t* OptionOf(Argument argument) {
    switch (argument) {
    case Argument::File:
        return L"--file NAME";
    case Argument::Function:
        return L"--function GROUP/NAME";
    case Argument::Setting:
        return L"--setting NAME";
    case Argument::PowerValue:
        return L"--power-value NAME";
    case Argument::LogType:
        return L"--log-type ID";
    case Argument::None:
        break;
    }
    return L"";
}

// A line of the library is a text and the function that wrote it in parentheses. The function is left out when it is
// the one that was asked.
std::wstring Reason(std::wstring_view line, const std::wstring& asked) {
    const std::size_t open = line.rfind(L'(');
    if (!line.ends_with(L')') || open == std::wstring_view::npos) {
        return {}; // of another library
    }
    std::wstring_view function = line.substr(open + 1, line.size() - open - 2);
    if (function.starts_with(kClassPrefix)) {
        function.remove_prefix(std::wstring_view(kClassPrefix).size());
    }
    std::wstring_view text = line.substr(0, open);
    while (!text.empty() && (text.back() == L' ' || text.back() == L':')) {
        text.remove_suffix(1);
    }
    if (asked.starts_with(function)) {
        return std::wstring(text);
    }
    return std::wstring(function) + L": " + std::wstring(text);
}

std::wstring Reasons(const std::vector<std::wstring>& lines, const std::wstring& asked) {
    std::wstring reasons;
    for (const std::wstring& line : lines) {
        const std::wstring reason = Reason(line, asked);
        if (!reason.empty()) {
            reasons += (reasons.empty() ? L"" : L"; ") + reason;
        }
    }
    return reasons;
}

Fact Ask(const Query& query, const std::wstring& argument, DebugLines& lines) {
    Fact fact{query.group, query.name, argument, true, {}, {}};
    fact.answer = query.ask(argument);
    fact.note = Reasons(lines.Take(), query.name);
    return fact;
}

void AskWithEach(const Query& query, const InfoOptions& options, DebugLines& lines, std::vector<Fact>& facts) {
    if (query.effect == Effect::MayWrite && !options.mayWrite) {
        facts.push_back({query.group, query.name, {}, false, {}, kMayWrite});
        return;
    }
    if (query.argument == Argument::None) {
        facts.push_back(Ask(query, {}, lines));
        return;
    }
    const auto named = options.arguments.find(query.argument);
    if (named == options.arguments.end() || named->second.empty()) {
        facts.push_back({query.group, query.name, {}, false, {}, std::wstring(L"give ") + OptionOf(query.argument)});
        return;
    }
    for (const std::wstring& argument : named->second) {
        facts.push_back(Ask(query, argument, lines));
    }
}

std::vector<Fact> Facts(const InfoOptions& options) {
    std::vector<Fact> facts;
    DebugLines lines;
    for (const Query& query : Queries()) {
        if (!options.onlyDpi || query.group == std::wstring_view(kDisplayGroup)) {
            AskWithEach(query, options, lines, facts);
        }
    }
    return facts;
}

} // namespace

void PrintInfo(const InfoOptions& options) {
    const std::vector<Fact> facts = Facts(options);
    if (options.json) {
        WriteJson(facts);
    } else if (IsTerminal(Stream::Output)) {
        WriteTable(facts);
    } else {
        WriteLines(facts);
    }
}

} // namespace kxrecord
