// The library's messages on the shared log: a listener beside whatever the log's configuration has.
#include "host/librarylog.h"

#include "host/console.h"
#include "host/folders.h"

#include "sdk/util/logtool.h"

#include <log4cplus/appender.h>
#include <log4cplus/spi/loggingevent.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

namespace kxrecord {

namespace {

constexpr std::wstring_view kRefusal = L"IPC failed!err=";
constexpr std::wstring_view kUnanswered[] = {L"Send IPC msg failed!", L"Send IPC msg(StartLiveServer) failed!"};

} // namespace

Exchange ExchangeOf(std::wstring_view message) {
    for (const std::wstring_view text : kUnanswered) {
        if (message.starts_with(text)) {
            return {std::nullopt, true};
        }
    }
    if (!message.starts_with(kRefusal)) {
        return {};
    }
    message.remove_prefix(kRefusal.size());
    const std::string digits(
        message.begin(), message.begin() + static_cast<std::ptrdiff_t>(std::min(message.find(L'('), message.size())));
    std::int32_t result = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), result);
    if (error != std::errc() || end != digits.data() + digits.size()) {
        return {};
    }
    return {result, false};
}

class LibraryLog::Listener : public log4cplus::Appender {
public:
    explicit Listener(bool echo) : m_echo(echo) {}
    ~Listener() override { destructorImpl(); }
    void close() override { closed = true; }

    Exchange Take() {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_exchange, {});
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        const std::wstring& message = event.getMessage();
        if (m_echo) {
            Write(Stream::Error, L"kxrecord: log: " + message + L"\n");
        }
        const Exchange exchange = ExchangeOf(message);
        if (exchange.result || exchange.isUnanswered) {
            const std::lock_guard lock(m_mutex);
            m_exchange = exchange;
        }
    }

private:
    bool m_echo;
    std::mutex m_mutex;
    Exchange m_exchange;
};

LibraryLog::LibraryLog(bool echo) : m_logger(GetLogger()), m_listener(new Listener(echo)) {
    m_logger.addAppender(log4cplus::SharedAppenderPtr(m_listener.get()));
}

LibraryLog::~LibraryLog() {
    m_logger.removeAppender(log4cplus::SharedAppenderPtr(m_listener.get()));
}

Exchange LibraryLog::TakeExchange() {
    return m_listener->Take();
}

std::wstring LogOf(const std::wstring& program) {
    for (const std::wstring& folder : {HostFolder(), LocalLogFolder()}) {
        const std::wstring path = folder + L"\\" + program + L".log";
        if (!folder.empty() && IsFile(path)) {
            return path;
        }
    }
    return {};
}

} // namespace kxrecord
