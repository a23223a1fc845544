/** @file Captures the events of the suite's shared logger. */
#pragma once

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>

#include <ostream>
#include <string>
#include <vector>

namespace kxtest {

/** One message as it reached the logger. */
struct LogEvent {
    int level = 0;
    std::wstring text;
    std::string file;
    int line = 0;
    std::string function;
};

std::ostream& operator<<(std::ostream& out, const LogEvent& event);

/** Keeps every event of the shared logger while it lives; then the logger's own level is back. */
class LogCapture {
public:
    explicit LogCapture(int level = log4cplus::ALL_LOG_LEVEL);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    void SetLevel(int level);
    std::vector<LogEvent> Events() const;
    void Clear();

private:
    class Appender;

    log4cplus::Logger m_logger;
    int m_formerLevel;
    log4cplus::helpers::SharedObjectPtr<Appender> m_appender;
};

} // namespace kxtest
