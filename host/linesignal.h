/**
 * @file
 * Enter on standard input, as an event to wait on.
 */
#pragma once

#include "common/win/handle.h"

#include <memory>
#include <optional>

namespace kxrecord {

/**
 * Reads standard input in a thread of its own, which goes on until the process ends: input cannot be cancelled. While
 * it lives, a terminal does not show what is typed. One at a time.
 */
class LineSignal {
public:
    /** @throws std::runtime_error when the system refuses the events, std::system_error for the thread */
    LineSignal();
    ~LineSignal();
    LineSignal(const LineSignal&) = delete;
    LineSignal& operator=(const LineSignal&) = delete;

    /** Signalled by the first end of a line that is read. */
    HANDLE Line() const;

    /** Whether the input ended, so that no line will come any more. */
    bool IsClosed() const;

private:
    struct State;
    std::shared_ptr<const State> m_state;
    std::optional<DWORD> m_terminalMode; ///< as it was before; none when the input is no terminal
};

} // namespace kxrecord
