/** @file The path functions that the fuzzed code calls. */
#pragma once

#include "windows.h"

BOOL PathRemoveFileSpecA(char* path);
BOOL PathAppendA(char* path, const char* more);
BOOL PathFileExistsA(const char* path);
