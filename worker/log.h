/**
 * @file
 * The worker's lines in the suite's log. None throws, so that any function may write one: a line for which there is no
 * memory is left out, and what it tells of goes on as if it had been written.
 */
#pragma once

#include "sdk/util/logtool.h"

#include <log4cplus/loggingmacros.h>

#define KXVCR_LOG(log, line)                                                                                           \
    do {                                                                                                               \
        try {                                                                                                          \
            log(GetLogger(), line);                                                                                    \
        } catch (...) { /* and nobody to tell */                                                                       \
        }                                                                                                              \
    } while (false)

/** Writes a line when its level is on: KXVCR_LOG_INFO(L"Recording to " << path); */
#define KXVCR_LOG_INFO(line) KXVCR_LOG(LOG4CPLUS_INFO, line)
#define KXVCR_LOG_WARN(line) KXVCR_LOG(LOG4CPLUS_WARN, line)
#define KXVCR_LOG_ERROR(line) KXVCR_LOG(LOG4CPLUS_ERROR, line)
