/**
 * @file
 * What the library reports on the debugger output while it answers.
 */
#pragma once

#include <string>
#include <vector>

namespace kxrecord {

/** While it lives, keeps the lines that this thread writes to the debugger output. One at a time. */
class DebugLines {
public:
    /** @throws std::runtime_error when the system refuses the handler */
    DebugLines();
    ~DebugLines();
    DebugLines(const DebugLines&) = delete;
    DebugLines& operator=(const DebugLines&) = delete;

    /**
     * The lines since the last call, without line feeds. Under a debugger that takes them for itself there are none.
     */
    std::vector<std::wstring> Take();

private:
    void* m_handler;
};

} // namespace kxrecord
