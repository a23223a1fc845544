/**
 * @file
 * One live view, from the start of the worker to its end.
 */
#pragma once

#include "host/session.h"

namespace kxrecord {

struct LiveOptions {
    SessionOptions session;
    KxScreenRecord::LiveServerParam server;
    bool open = false;   ///< show the page in the user's browser
    bool withKey = true; ///< make a key for this run, without which nobody sees anything
};

/**
 * Serves the screen over HTTP.
 * @return how the process ends; a failure has been reported
 */
Exit Live(const LiveOptions& options);

} // namespace kxrecord
