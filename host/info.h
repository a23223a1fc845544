/**
 * @file
 * Asks the library its queries and prints the answers.
 */
#pragma once

#include "host/infotable.h"

#include <map>
#include <string>
#include <vector>

namespace kxrecord {

struct InfoOptions {
    bool json = false;                                       ///< one JSON object instead of text
    bool onlyDpi = false;                                    ///< ask about the display scaling alone
    bool mayWrite = false;                                   ///< ask also the queries that may write the registry
    std::map<Argument, std::vector<std::wstring>> arguments; ///< what the queries with an argument are asked with
};

/**
 * Prints to standard output: a table on a terminal, a line "name: answer" for each query otherwise.
 */
void PrintInfo(const InfoOptions& options);

} // namespace kxrecord
