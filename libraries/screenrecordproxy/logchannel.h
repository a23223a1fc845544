/**
 * @file
 * The log channel: the proxy's messages on the suite's shared log4cplus logger.
 */
#pragma once

#include "common/messagetext.h"
#include "sdk/util/logtool.h"

#include <log4cplus/loggingmacros.h>

#include <source_location>
#include <string_view>

namespace logchannel {

/**
 * A function as the log names it: its signature in the Microsoft compiler's form, the same on every compiler,
 * and the qualified name cut out of it.
 */
struct LogFunction {
    const char* signature;
    std::string_view name;

    consteval explicit LogFunction(const char* text) : signature(text), name(QualifiedName(text)) {}

private:
    static consteval std::string_view QualifiedName(std::string_view text) {
        constexpr std::string_view kConvention = "__cdecl ";
        const auto start = text.find(kConvention) + kConvention.size();
        return text.substr(start, text.find('(') - start);
    }
};

/** Where a message is logged: the function, and the line of the call that names it. */
struct LogSite {
    const LogFunction& function;
    unsigned line;

    // Implicit, so that a message names its function only and the line is the message's own.
    constexpr LogSite(const LogFunction& where, std::source_location location = std::source_location::current())
        : function(where),
          line(location.line()) {}
};

/**
 * Logs @p values and the site's function at @p level. Nothing is formatted while the level is off, and a message
 * that cannot be built for want of memory is dropped.
 * @param file the source file's path as the log shows it
 */
template <class... Values>
void Write(log4cplus::LogLevel level, const char* file, LogSite site, const Values&... values) noexcept {
    try {
        const log4cplus::Logger logger = GetLogger();
        if (!logger.isEnabledFor(level)) {
            return;
        }
        log4cplus::tostringstream& text = log4cplus::detail::get_macro_body_oss();
        kx::messagetext::AppendMessage(text, site.function.name, values...);
        log4cplus::detail::macro_forced_log(logger, level, text.str(), file, static_cast<int>(site.line),
                                            site.function.signature);
    } catch (...) { // a message that cannot be logged never changes what the proxy returns
    }
}

} // namespace logchannel
