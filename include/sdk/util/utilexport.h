/**
 * @file
 * Export macro of the suite's utility library, Util.dll.
 *
 * No function of the library answers for want of memory: it throws std::bad_alloc then, the only exception that leaves
 * the library, and leaves its outputs as they were. A failure value always means what its function's comment says.
 */
#pragma once

/** Marks what the library exports. */
#if defined(KXUTIL_BUILD)
#define KXUTIL_API __declspec(dllexport)
#else
#define KXUTIL_API __declspec(dllimport)
#endif
