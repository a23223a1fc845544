// An appender on the suite's shared logger that keeps what it is given.
#include "support/logcapture.h"

#include "sdk/util/logtool.h"

#include <log4cplus/spi/loggingevent.h>

#include <mutex>

namespace kxtest {

class LogCapture::Appender : public log4cplus::Appender {
public:
    ~Appender() override { destructorImpl(); }
    void close() override { closed = true; }

    std::vector<LogEvent> Events() const {
        const std::lock_guard guard(m_mutex);
        return m_events;
    }
    void Clear() {
        const std::lock_guard guard(m_mutex);
        m_events.clear();
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        const std::lock_guard guard(m_mutex);
        m_events.push_back({event.getLogLevel(), event.getMessage(), LOG4CPLUS_TSTRING_TO_STRING(event.getFile()),
                            event.getLine(), LOG4CPLUS_TSTRING_TO_STRING(event.getFunction())});
    }

private:
    mutable std::mutex m_mutex;
    std::vector<LogEvent> m_events;
};

std::ostream& operator<<(std::ostream& out, const LogEvent& event) {
    return out << event.level << " " << LOG4CPLUS_TSTRING_TO_STRING(event.text) << " [" << event.file << ":"
               << event.line << " " << event.function << "]";
}

LogCapture::LogCapture(int level)
    : m_logger(GetLogger()),
      m_formerLevel(m_logger.getLogLevel()),
      m_appender(new Appender) {
    m_logger.addAppender(log4cplus::SharedAppenderPtr(m_appender.get()));
    m_logger.setLogLevel(level);
}

LogCapture::~LogCapture() {
    m_logger.setLogLevel(m_formerLevel);
    m_logger.removeAppender(log4cplus::SharedAppenderPtr(m_appender.get()));
}

void LogCapture::SetLevel(int level) {
    m_logger.setLogLevel(level);
}
std::vector<LogEvent> LogCapture::Events() const {
    return m_appender->Events();
}
void LogCapture::Clear() {
    m_appender->Clear();
}

} // namespace kxtest
