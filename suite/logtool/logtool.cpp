// The one logger of the suite: configured on first use, from a file beside the host executable or by default, and
// the printf-style helpers that write to it.

#include "sdk/util/logtool.h"

#include "common/win/localappdata.h"
#include "common/win/modulepath.h"
#include "logfile.h"
#include "utf8locale.h"

#include <log4cplus/configurator.h>
#include <log4cplus/helpers/property.h>
#include <log4cplus/layout.h>

#include <windows.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <exception>
#include <filesystem>
#include <fstream>
#include <ios>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace {

constexpr wchar_t kLoggerName[] = L"KxSuite";
constexpr wchar_t kConfigFile[] = L"config\\log4cplus.properties";
// The century by itself: the first line of a thread is formatted into as much as its pattern is long, and some systems
// cut there what does not fit.
constexpr wchar_t kLinePattern[] = L"%D{20%y-%m-%d} %D{%H:%M:%S.%q} %-5p [%i:%t] %m [%F:%L %M]\r%n";
constexpr std::uint64_t kMaxFileBytes = std::uint64_t{1024} * 1024;
constexpr int kOldFilesKept = 3;

// @throws std::system_error
std::filesystem::path HostExecutable() {
    std::optional<std::wstring> path = kx::ModulePath(nullptr);
    if (!path) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
    }
    return *std::move(path);
}

// The file's appender has its code in this library, and log4cplus may outlive it where the host uses log4cplus as well:
// from the first use on, this library stays until the process ends.
void StayLoaded() {
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN, kLoggerName, &self);
}

// The same file in the user's own folder; empty when the system does not tell. @throws std::bad_alloc
std::wstring LocalLog(const std::filesystem::path& file) {
    const std::filesystem::path folder = kx::LocalAppDataFolder();
    return folder.empty() ? std::wstring() : (folder / kLocalLogFolderName / file.filename()).wstring();
}

// An appender must not be given up half way (see logfile.h): what is made is kept, and a call that ran out of memory
// later goes on with it.
void AddLogFile(log4cplus::Logger& logger, std::filesystem::path file) {
    using SharedLogFile = log4cplus::helpers::SharedObjectPtr<logtool::LogFile>;
    file.replace_extension(L".log");
    static const auto* const s_logFile =
        new SharedLogFile(new logtool::LogFile(file.wstring(), LocalLog(file), kMaxFileBytes, kOldFilesKept));
    (*s_logFile)->setLayout(std::make_unique<log4cplus::PatternLayout>(kLinePattern));
    logger.addAppender(log4cplus::SharedAppenderPtr(s_logFile->get()));
    logger.setLogLevel(log4cplus::WARN_LOG_LEVEL);
}

// Appenders write UTF-8 unless the configuration names another locale for them.
log4cplus::helpers::Properties InUtf8(log4cplus::helpers::Properties properties) {
    constexpr std::wstring_view kAppender = L"log4cplus.appender.";
    for (const std::wstring& name : properties.propertyNames()) {
        const std::wstring locale = name + L".Locale";
        const bool isAppender = name.starts_with(kAppender) && name.find(L'.', kAppender.size()) == std::wstring::npos;
        if (isAppender && !properties.exists(locale)) {
            properties.setProperty(locale, logtool::kUtf8LocaleName);
        }
    }
    return properties;
}

// Reading the file by itself first tells a lost line from a missing one: the library's own reading stops there.
// @throws std::bad_alloc
void ConfigureFrom(const std::filesystem::path& config) {
    logtool::RegisterUtf8Locale();
    std::wifstream stream(config, std::ios::binary);
    stream.exceptions(std::ios::badbit);
    try {
        log4cplus::PropertyConfigurator(InUtf8(log4cplus::helpers::Properties(stream))).configure();
    } catch (const std::ios::failure&) { // what cannot be read as text: what stands before it counts
        log4cplus::PropertyConfigurator::doConfigure(config.wstring());
    }
}

void Configure(log4cplus::Logger& logger) {
    const std::filesystem::path host = HostExecutable();
    const std::filesystem::path config = host.parent_path() / kConfigFile;
    if (std::error_code ignored; std::filesystem::is_regular_file(config, ignored)) {
        ConfigureFrom(config);
    } else {
        AddLogFile(logger, host);
    }
}

// A file whose level for the root cannot be read leaves it without one, and asking a logger below would throw.
void EnsureRootLevel() {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    if (root.getLogLevel() == log4cplus::NOT_SET_LOG_LEVEL) {
        root.setLogLevel(log4cplus::WARN_LOG_LEVEL);
    }
}

// Never destroyed: other libraries may still log while the process ends. Without memory the whole of it is done again
// by the next call.
log4cplus::Logger* MakeLogger() {
    StayLoaded();
    log4cplus::initialize();
    auto logger = std::make_unique<log4cplus::Logger>(log4cplus::Logger::getInstance(kLoggerName));
    try {
        Configure(*logger);
    } catch (const std::bad_alloc&) {
        throw;
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
