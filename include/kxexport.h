/**
 * @file
 * Export macro of ScreenRecordProxy.dll: dllexport while the library itself is built, dllimport for hosts.
 */
#pragma once

/** Marks what the library exports. */
#if defined(KXSCREENRECORD_BUILD)
#define KXSCREENRECORD_API __declspec(dllexport)
#else
#define KXSCREENRECORD_API __declspec(dllimport)
#endif
