/** @file The imports of ScreenRecordProxy.dll that the unit tests replace. */
#pragma once

#include "support/importpatch.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace hooks {

using kxtest::ImportHook;
using kxtest::ImportName;

template <ImportName Function, class Fn>
using KernelHook = ImportHook<"KERNEL32.dll", Function, Fn>;

using CreateEventHook = KernelHook<"CreateEventW", decltype(CreateEventW)>;
using ResetEventHook = KernelHook<"ResetEvent", decltype(ResetEvent)>;
using CreateProcessHook = KernelHook<"CreateProcessW", decltype(CreateProcessW)>;
using CreateFileHook = KernelHook<"CreateFileW", decltype(CreateFileW)>;
using CreateThreadHook = KernelHook<"CreateThread", decltype(CreateThread)>;
using CloseHandleHook = KernelHook<"CloseHandle", decltype(CloseHandle)>;
using DuplicateHandleHook = KernelHook<"DuplicateHandle", decltype(DuplicateHandle)>;
using WidenHook = KernelHook<"MultiByteToWideChar", decltype(MultiByteToWideChar)>;
using GetThreadIdHook = KernelHook<"GetThreadId", decltype(GetThreadId)>;
using GetExitCodeHook = KernelHook<"GetExitCodeProcess", decltype(GetExitCodeProcess)>;
using TerminateProcessHook = KernelHook<"TerminateProcess", decltype(TerminateProcess)>;
using TerminateThreadHook = KernelHook<"TerminateThread", decltype(TerminateThread)>;
using WaitHook = KernelHook<"WaitForSingleObject", decltype(WaitForSingleObject)>;
using WaitManyHook = KernelHook<"WaitForMultipleObjects", decltype(WaitForMultipleObjects)>;
using EnterLockHook = KernelHook<"EnterCriticalSection", decltype(EnterCriticalSection)>;
using LeaveLockHook = KernelHook<"LeaveCriticalSection", decltype(LeaveCriticalSection)>;
using SleepConditionHook = KernelHook<"SleepConditionVariableCS", decltype(SleepConditionVariableCS)>;
using AcquireLockHook = KernelHook<"AcquireSRWLockExclusive", decltype(AcquireSRWLockExclusive)>;
using DeleteLockHook = KernelHook<"DeleteCriticalSection", decltype(DeleteCriticalSection)>;
using GetBinaryTypeHook = KernelHook<"GetBinaryTypeW", decltype(GetBinaryTypeW)>;
using GetTickCountHook = KernelHook<"GetTickCount", decltype(GetTickCount)>;
using ExitProcessHook = KernelHook<"ExitProcess", void(UINT)>;
using WideModuleNameHook = KernelHook<"GetModuleFileNameW", decltype(GetModuleFileNameW)>;
using NarrowModuleNameHook = KernelHook<"GetModuleFileNameA", decltype(GetModuleFileNameA)>;

using NothrowNewHook = ImportHook<"libstdc++-6.dll", "_ZnwyRKSt9nothrow_t", void*(std::size_t, const std::nothrow_t&)>;
/** pthread_mutex_lock, by which std::mutex locks; its argument is a pthread_mutex_t*. */
using LockMutexHook = ImportHook<"libwinpthread-1.dll", "pthread_mutex_lock", int(void*)>;
using FreeHook = ImportHook<"msvcrt.dll", "free", void(void*)>;

} // namespace hooks
