/**
 * @file
 * One live view, from the start of the worker to its end.
 */
#pragma once

#include "session.h"

struct LiveOptions {
    SessionOptions session;
    KxScreenRecord::LiveServerParam server;
    bool open = false; ///< show the page in the user's browser
};

/**
 * Serves the screen over HTTP.
 * @return the process's exit code; a failure has been reported
 */
unsigned long Live(const LiveOptions& options);
