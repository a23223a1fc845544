/**
 * @file
 * Enter on standard input, as an event to wait on.
 */
#pragma once

#include "handle.h"

#include <memory>

/** Reads standard input in a thread of its own, which goes on until the process ends: input cannot be cancelled. */
class LineSignal {
public:
    /** @throws std::runtime_error when the system refuses the events, std::system_error for the thread */
    LineSignal();

    /** Signalled by the first line that is read. */
    HANDLE Line() const;

    /** Whether the input ended, so that no line will come any more. */
    bool IsClosed() const;

private:
    struct State;
    std::shared_ptr<const State> m_state;
};
