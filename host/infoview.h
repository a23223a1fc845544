/**
 * @file
 * The answers of "kxrecord info" on standard output.
 */
#pragma once

#include "infotable.h"

#include <string>
#include <vector>

/** One query with its answer. */
struct Fact {
    std::wstring group;
    std::wstring name; ///< with the argument in parentheses, when it was asked with one
    bool isAsked;
    Answer answer;
    std::wstring note; ///< why there is no answer, or what the library reported with it; may be empty
};

/** A table with a heading for each group, in colour where that is wanted. For a terminal. */
void WriteTable(const std::vector<Fact>& facts);

/** A line "name: answer" for each fact, the note in parentheses. Control characters in answers are written as \xNN. */
void WriteLines(const std::vector<Fact>& facts);

/**
 * One object with an object for each group; a fact is an object with "asked", "value" (null without an answer), and
 * "meaning" and "note" if there are any.
 */
void WriteJson(const std::vector<Fact>& facts);
