/**
 * @file
 * The library's own messages on the suite's shared log, as far as the host needs them.
 */
#pragma once

#include "host/refusal.h"

#include <log4cplus/helpers/pointer.h>
#include <log4cplus/logger.h>

#include <string>
#include <string_view>

namespace kxrecord {

/** How the exchange failed that a message of the proxy tells of; nothing known for any other message. */
Exchange ExchangeOf(std::wstring_view message);

/**
 * Listens to the shared log while it lives. A command of the proxy answers only "no"; the message that it logs says
 * why. What the log's configuration leaves out is not heard.
 */
class LibraryLog {
public:
    /** @param echo writes each message to standard error as well */
    explicit LibraryLog(bool echo);
    ~LibraryLog();
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

    /** How the last exchange failed; forgotten with the call. */
    Exchange TakeExchange();

private:
    class Listener;

    log4cplus::Logger m_logger;
    log4cplus::helpers::SharedObjectPtr<Listener> m_listener;
};

/** The log of a program beside kxrecord.exe ("KXVCR"), where the suite's log keeps it; empty when there is none. */
std::wstring LogOf(const std::wstring& program);

} // namespace kxrecord
