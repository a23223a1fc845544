/**
 * @file
 * The suite's shared log (LogTool.dll), on log4cplus.
 *
 * The logger is named KxSuite. It is configured once, on first use: from "config\log4cplus.properties" in the folder
 * of the host executable when that file exists; otherwise WARN and above go to a rolling file in UTF-8 beside the
 * host executable, with its name and the ending .log, which keeps three old files of a mebibyte each; where that file
 * cannot be written it lies in the folder KxSuite of the user's local application data. The library stays loaded from
 * then on.
 */
#pragma once

#include <log4cplus/logger.h>

/** Marks what the library exports; empty in a program that carries the library's code itself. */
#if defined(KXLOGTOOL_STATIC)
#define KXLOGTOOL_API
#elif defined(KXLOGTOOL_BUILD)
#define KXLOGTOOL_API __declspec(dllexport)
#else
#define KXLOGTOOL_API __declspec(dllimport)
#endif

/** The folder, below the user's local application data, of the logs of programs whose own folder cannot be written. */
inline constexpr wchar_t kLocalLogFolderName[] = L"KxSuite";

/**
 * The one logger that the suite's modules share; every call returns the same. May be called from any thread.
 * @throws std::bad_alloc when memory runs out at the first use; the next call begins afresh
 */
KXLOGTOOL_API log4cplus::Logger& GetLogger();

/** Lets the compiler check a narrow format against its arguments. */
#if defined(__clang__)
#define KXLOGTOOL_PRINTF __attribute__((format(printf, 1, 2)))
#elif defined(__GNUC__)
#define KXLOGTOOL_PRINTF __attribute__((format(gnu_printf, 1, 2)))
#else
#define KXLOGTOOL_PRINTF
#endif

/**
 * Logs one printf-formatted text at WARN, followed by the helper's name in brackets and with the helper's signature as
 * its location. Narrow text is in the process's ANSI code page. A text longer than 4095 characters is cut there. A text
 * that cannot be formatted logs the format itself; a null format logs nothing. Nothing is formatted when the level is
 * off. Nothing throws; may be called from any thread.
 */
KXLOGTOOL_API void LogWarnFun(const char* format, ...) KXLOGTOOL_PRINTF;
/** LogWarnFun for wide text. */
KXLOGTOOL_API void LogWarnFun(const wchar_t* format, ...);
/** LogWarnFun at ERROR. */
KXLOGTOOL_API void LogErrorFun(const char* format, ...) KXLOGTOOL_PRINTF;
/** LogWarnFun at ERROR and for wide text. */
KXLOGTOOL_API void LogErrorFun(const wchar_t* format, ...);
