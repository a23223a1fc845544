/**
 * @file
 * The debug channel: one line on the debugger output for each failure of a SystemEnvironment query.
 */
#pragma once

#include "common/messagetext.h"

#include <windows.h>

#include <ostream>
#include <sstream>
#include <string_view>

namespace debugline {

/**
 * Writes @p values, "(", @p function, ")" and a line feed to the debugger output. A line is whole or not sent: one
 * that cannot be built for want of memory is dropped.
 * @param function the emitting function's name, e.g. "SystemEnvironment::CompareFileIntergrity"
 */
template <class... Values>
void Write(std::string_view function, const Values&... values) noexcept {
    try {
        std::wostringstream line;
        kx::messagetext::AppendMessage(line, function, values...);
        const kx::messagetext::ThrowingStream throwing(line);
        line << std::endl;
        OutputDebugStringW(line.str().c_str());
    } catch (...) { // diagnostics never fail the query that they report on
    }
}

} // namespace debugline
