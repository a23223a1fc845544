/**
 * @file
 * Export macro of the suite's utility library, Util.dll.
 */
#pragma once

/** Marks what the library exports. */
#if defined(KXUTIL_BUILD)
#define KXUTIL_API __declspec(dllexport)
#else
#define KXUTIL_API __declspec(dllimport)
#endif
