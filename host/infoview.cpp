// The answers as a table, as lines and as JSON.
#include "host/infoview.h"

#include "common/win/utf8.h"
#include "host/console.h"
#include "host/json.h"
#include "host/text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cwctype>
#include <string_view>
#include <utility>
#include <variant>

namespace kxrecord {

namespace {

constexpr wchar_t kNotAsked[] = L"not asked";
constexpr wchar_t kNoAnswer[] = L"not available";
constexpr std::size_t kIndent = 2;
constexpr std::size_t kGap = 2;            ///< blanks between name and answer, and between answer and note
constexpr std::size_t kNarrowestText = 20; ///< a terminal with less room is left to break the lines itself

struct AnswerText {
    std::wstring text;
    Colour colour;
};

// The name as it is shown: with the argument in parentheses.
std::wstring Title(const Fact& fact) {
    return Printable(fact.argument.empty() ? fact.name : fact.name + L"(" + fact.argument + L")");
}

bool IsAnswered(const Answer& answer) {
    const auto* const text = std::get_if<std::wstring>(&answer.value);
    return text != nullptr ? !text->empty() : !std::holds_alternative<std::monostate>(answer.value);
}

AnswerText Describe(const Fact& fact) {
    const Answer& answer = fact.answer;
    if (!fact.isAsked) {
        return {kNotAsked, Colour::Faint};
    }
    if (!IsAnswered(answer)) {
        return {kNoAnswer, Colour::Faint};
    }
    if (const auto* const truth = std::get_if<bool>(&answer.value)) {
        return *truth ? AnswerText{L"yes", Colour::Good} : AnswerText{L"no", Colour::Plain};
    }
    if (const auto* const number = std::get_if<std::int64_t>(&answer.value)) {
        return {std::to_wstring(*number) + (answer.meaning.empty() ? L"" : L" (" + answer.meaning + L")"),
                Colour::Plain};
    }
    return {Printable(std::get<std::wstring>(answer.value)), Colour::Plain};
}

/** Writes the texts of one fact behind its name, with breaks between words, so that they stay in their column. */
class Column {
public:
    Column(std::size_t left, std::size_t width) : m_left(left), m_width(width) {}

    void Add(std::wstring_view text, Colour colour) {
        std::wstring lines;
        std::size_t blanks = m_used == 0 ? 0 : kGap;
        while (!text.empty()) {
            const std::wstring_view word = text.substr(0, std::min(text.find(L' '), m_width));
            AddWord(word, blanks, lines);
            text.remove_prefix(word.size());
            blanks = text.starts_with(L' ') ? 1 : 0; // none when the word is longer than the column
            text.remove_prefix(blanks);
        }
        WriteColoured(colour, lines);
    }

private:
    void AddWord(std::wstring_view word, std::size_t blanks, std::wstring& lines) {
        if (m_used != 0 && m_used + blanks + word.size() > m_width) {
            lines += L"\n" + std::wstring(m_left, L' ');
            m_used = 0;
            blanks = 0;
        }
        lines += std::wstring(blanks, L' ');
        lines += word;
        m_used += blanks + word.size();
    }

    std::size_t m_left;
    std::size_t m_width;
    std::size_t m_used = 0;
};

void WriteHeading(std::wstring heading, bool isFirst) {
    heading[0] = static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(heading[0])));
    WriteColoured(Colour::Heading, (isFirst ? L"" : L"\n") + heading + L"\n");
}

} // namespace

void WriteTable(const std::vector<Fact>& facts) {
    std::size_t nameWidth = 0;
    for (const Fact& fact : facts) {
        nameWidth = std::max(nameWidth, Title(fact).size());
    }
    const std::size_t left = kIndent + nameWidth + kGap;
    const std::size_t terminalWidth = TerminalWidth();
    // The last cell stays free: some terminals begin a new line when it is filled.
    const std::size_t width = terminalWidth > left + kNarrowestText ? terminalWidth - left - 1 : std::wstring::npos / 2;

    std::wstring group;
    for (const Fact& fact : facts) {
        if (fact.group != group) {
            WriteHeading(fact.group, group.empty());
        }
        group = fact.group;
        std::wstring name = Title(fact);
        name.resize(nameWidth + kGap, L' ');
        Write(Stream::Output, std::wstring(kIndent, L' ') + name);
        const AnswerText answer = Describe(fact);
        Column column(left, width);
        column.Add(answer.text, answer.colour);
        if (!fact.note.empty()) {
            column.Add(Printable(fact.note), Colour::Faint);
        }
        Write(Stream::Output, L"\n");
    }
}

void WriteLines(const std::vector<Fact>& facts) {
    std::wstring lines;
    for (const Fact& fact : facts) {
        lines += Title(fact) + L": " + Describe(fact).text;
        lines += (fact.note.empty() ? L"" : L" (" + Printable(fact.note) + L")") + L"\n";
    }
    Write(Stream::Output, lines);
}

void WriteJson(const std::vector<Fact>& facts) {
    nlohmann::ordered_json document = SchemaObject();
    document["answers"] = nlohmann::ordered_json::array();
    for (const Fact& fact : facts) {
        nlohmann::ordered_json object;
        object["group"] = kx::Utf8FromWide(fact.group);
        object["function"] = kx::Utf8FromWide(fact.name);
        object["argument"] =
            fact.argument.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(kx::Utf8FromWide(fact.argument));
        object["asked"] = fact.isAsked;
        object["value"] = nullptr;
        if (const auto* const truth = std::get_if<bool>(&fact.answer.value)) {
            object["value"] = *truth;
        } else if (const auto* const number = std::get_if<std::int64_t>(&fact.answer.value)) {
            object["value"] = *number;
        } else if (IsAnswered(fact.answer)) {
            object["value"] = kx::Utf8FromWide(std::get<std::wstring>(fact.answer.value));
        }
        if (!fact.answer.meaning.empty()) {
            object["meaning"] = kx::Utf8FromWide(fact.answer.meaning);
        }
        if (!fact.note.empty()) {
            object["note"] = kx::Utf8FromWide(fact.note);
        }
        document["answers"].push_back(std::move(object));
    }
    Write(Stream::Output, kx::WideFromUtf8(document.dump(2)) + L"\n");
}

} // namespace kxrecord
