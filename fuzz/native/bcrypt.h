/** @file The cryptography that the fuzzed code names and that no target reaches. */
#pragma once

#include "windows.h"

inline constexpr ULONG BCRYPT_USE_SYSTEM_PREFERRED_RNG = 2;
NTSTATUS BCryptGenRandom(void* algorithm, unsigned char* bytes, ULONG size, ULONG flags);
