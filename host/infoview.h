/**
 * @file
 * The answers of "kxrecord info" on standard output.
 */
#pragma once

#include "host/infotable.h"

#include <string>
#include <vector>

namespace kxrecord {

/** One query with its answer. */
struct Fact {
    std::wstring group;
    std::wstring name;
    std::wstring argument; ///< what it was asked with; empty for most
    bool isAsked;
    Answer answer;
    std::wstring note; ///< why there is no answer, or what the library reported with it; may be empty
};

/** A table with a heading for each group, in colour where that is wanted. For a terminal. */
void WriteTable(const std::vector<Fact>& facts);

/** A line "name: answer" for each fact, the note in parentheses. Control characters in answers are written as \xNN. */
void WriteLines(const std::vector<Fact>& facts);

/**
 * One object with an array "answers"; an answer has "group", "function", "argument" (null without one), "asked",
 * "value" (null without an answer), and "meaning" and "note" if there are any.
 */
void WriteJson(const std::vector<Fact>& facts);

} // namespace kxrecord
