/**
 * @file
 * The suite's shared log (LogTool.dll), on log4cplus.
 *
 * The log is configured on first use from "config\log4cplus.properties" beside the host executable when that
 * file exists; otherwise WARN and above go to a rolling file beside the host executable.
 */
#pragma once

#include <log4cplus/logger.h>

#if defined(KXLOGTOOL_BUILD)
#define KXLOGTOOL_API __declspec(dllexport)
#else
#define KXLOGTOOL_API __declspec(dllimport)
#endif

/** The one logger that the suite's modules share; every call returns the same. May be called from any thread. */
KXLOGTOOL_API log4cplus::Logger& GetLogger();

#if defined(__clang__)
#define KXLOGTOOL_PRINTF __attribute__((format(printf, 1, 2)))
#elif defined(__GNUC__)
#define KXLOGTOOL_PRINTF __attribute__((format(gnu_printf, 1, 2)))
#else
#define KXLOGTOOL_PRINTF
#endif

/**
 * Logs one printf-formatted line at WARN or at ERROR, with the helper itself as its location. A line longer than
 * 4095 characters is cut there. A format that cannot be converted logs the format itself.
 */
KXLOGTOOL_API void LogWarnFun(const char* format, ...) KXLOGTOOL_PRINTF;
KXLOGTOOL_API void LogWarnFun(const wchar_t* format, ...);
KXLOGTOOL_API void LogErrorFun(const char* format, ...) KXLOGTOOL_PRINTF;
KXLOGTOOL_API void LogErrorFun(const wchar_t* format, ...);
