/** @file Captures what ScreenRecordProxy.dll writes to the debugger output. */
#pragma once

#include "support/importpatch.h"

#include <mutex>
#include <string>
#include <vector>

namespace kxtest {

/** Keeps the whole wide lines, in order, while it lives. The lines do not reach the debugger. */
class DebugLines {
public:
    DebugLines();

    std::vector<std::wstring> Lines() const;
    void Clear();

private:
    mutable std::mutex m_mutex;
    std::vector<std::wstring> m_lines;
    ImportHook<"KERNEL32.dll", "OutputDebugStringW", decltype(OutputDebugStringW)> m_hook;
};

} // namespace kxtest
