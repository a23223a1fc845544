// The one logger of the suite: configured on first use, from a file beside the host executable or by default, and
// the printf-style helpers that write to it.

#include "sdk/util/logtool.h"

#include "common/win/modulepath.h"

#include <log4cplus/configurator.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/layout.h>

#include <windows.h>

#include <codecvt>
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <exception>
#include <filesystem>
#include <locale>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace {

constexpr wchar_t kLoggerName[] = L"KxSuite";
constexpr wchar_t kConfigFile[] = L"config\\log4cplus.properties";
constexpr wchar_t kLinePattern[] = L"%D{%Y-%m-%d} %D{%H:%M:%S.%q} %-5p [%i:%t] %m [%F:%L %M]%n";
constexpr long kMaxFileBytes = 1024 * 1024;
constexpr int kOldFilesKept = 3;

// @throws std::system_error
std::filesystem::path HostExecutable() {
    std::optional<std::wstring> path = kx::ModulePath(nullptr);
    if (!path) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
    }
    return *std::move(path);
}

// The appender's locale has its code in this library, and log4cplus may outlive it where the host uses log4cplus as
// well: from the first use on, this library stays until the process ends.
void StayLoaded() {
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN, kLoggerName, &self);
}

void AddRollingFile(log4cplus::Logger& logger, const std::filesystem::path& file) {
    const log4cplus::helpers::SharedObjectPtr<log4cplus::RollingFileAppender> appender(
        new log4cplus::RollingFileAppender(file.wstring(), kMaxFileBytes, kOldFilesKept));
    appender->setLayout(std::make_unique<log4cplus::PatternLayout>(kLinePattern));
    appender->imbue(std::locale(std::locale::classic(), new std::codecvt_utf8_utf16<wchar_t>));
    logger.addAppender(log4cplus::SharedAppenderPtr(appender.get()));
    logger.setLogLevel(log4cplus::WARN_LOG_LEVEL);
}

void Configure(log4cplus::Logger& logger) {
    const std::filesystem::path host = HostExecutable();
    const std::filesystem::path config = host.parent_path() / kConfigFile;
    if (std::error_code ignored; std::filesystem::is_regular_file(config, ignored)) {
        log4cplus::PropertyConfigurator::doConfigure(config.wstring());
        return;
    }
    std::filesystem::path file = host;
    AddRollingFile(logger, file.replace_extension(L".log"));
}

// A file whose level for the root cannot be read leaves it without one, and asking a logger below would throw.
void EnsureRootLevel() {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    if (root.getLogLevel() == log4cplus::NOT_SET_LOG_LEVEL) {
        root.setLogLevel(log4cplus::WARN_LOG_LEVEL);
    }
}

// Never destroyed: other libraries may still log while the process ends.
log4cplus::Logger* MakeLogger() {
    StayLoaded();
    log4cplus::initialize();
    auto logger = std::make_unique<log4cplus::Logger>(log4cplus::Logger::getInstance(kLoggerName));
    try {
        Configure(*logger);
    } catch (const std::exception&) {
        OutputDebugStringW(L"the suite's log could not be configured(GetLogger)\n");
    }
    EnsureRootLevel();
    return logger.release();
}

} // namespace

log4cplus::Logger& GetLogger() {
    static log4cplus::Logger* const logger = MakeLogger();
    return *logger;
}

namespace {

constexpr size_t kMaxCharacters = 4095;
constexpr char kFile[] = "suite\\logtool\\logtool.cpp";

/** Where a message is said to come from: the helper that the caller called. */
struct Location {
    const wchar_t* qualifier;
    const char* signature;
    int line;
};

std::wstring Widen(const std::string& text) {
    std::wstring wide(text.size(), L'\0');
    const int length = MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), wide.data(),
                                           static_cast<int>(wide.size()));
    wide.resize(static_cast<size_t>(length));
    return wide;
}

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif

std::wstring Format(const char* format, va_list arguments) {
    std::vector<char> buffer(kMaxCharacters + 1);
    const int length = std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
    return Widen(length < 0 ? format : buffer.data());
}

std::wstring Format(const wchar_t* format, va_list arguments) {
    va_list counted;
    va_copy(counted, arguments);
    const int length = _vscwprintf(format, counted);
    va_end(counted);
    if (length < 0) {
        return format;
    }
    std::vector<wchar_t> buffer(kMaxCharacters + 1);
    _vsnwprintf_s(buffer.data(), buffer.size(), _TRUNCATE, format, arguments);
    return buffer.data();
}

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

template <typename Character>
void Log(log4cplus::LogLevel level, const Location& location, const Character* format, va_list arguments) try {
    const log4cplus::Logger logger = GetLogger();
    if (format == nullptr || !logger.isEnabledFor(level)) {
        return;
    }
    logger.log(level, Format(format, arguments) + location.qualifier, kFile, location.line, location.signature);
} catch (const std::exception&) {
    OutputDebugStringW(L"a message could not be logged(LogTool)\n");
}

} // namespace

void LogWarnFun(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Log(log4cplus::WARN_LOG_LEVEL, {L"(LogWarnFun)", "void __cdecl LogWarnFun(const char *,...)", __LINE__}, format,
        arguments);
    va_end(arguments);
}

void LogWarnFun(const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Log(log4cplus::WARN_LOG_LEVEL, {L"(LogWarnFun)", "void __cdecl LogWarnFun(const wchar_t *,...)", __LINE__}, format,
        arguments);
    va_end(arguments);
}

void LogErrorFun(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Log(log4cplus::ERROR_LOG_LEVEL, {L"(LogErrorFun)", "void __cdecl LogErrorFun(const char *,...)", __LINE__}, format,
        arguments);
    va_end(arguments);
}

void LogErrorFun(const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Log(log4cplus::ERROR_LOG_LEVEL, {L"(LogErrorFun)", "void __cdecl LogErrorFun(const wchar_t *,...)", __LINE__},
        format, arguments);
    va_end(arguments);
}
