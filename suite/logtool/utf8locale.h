// The locale "UTF-8" of the log's configuration: appenders that write through it put wide text into their files in
// UTF-8.
//
// The standard library's own locales cannot express what lies outside ASCII, and an appender's file that meets such a
// character fails for good: it ends the process when it is closed.
#pragma once

namespace logtool {

inline constexpr wchar_t kUtf8LocaleName[] = L"UTF-8"; ///< the value of an appender's property "Locale"

/** Makes the locale known to log4cplus; more than once does no harm. @throws std::bad_alloc */
void RegisterUtf8Locale();

} // namespace logtool
