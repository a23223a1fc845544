/**
 * @file
 * The channel's pipe: its name, who may open it, and whether the process at the other end is the right one.
 */
#pragma once

#include "waiting.h"

#include <string>

namespace ipcmessage {

/** The name of the pipe between host process @p hostProcessId and its workers of one module. */
std::wstring ChannelName(DWORD hostProcessId, int moduleId);

/**
 * Creates the host's end: one instance, nobody but the current user, no remote clients, overlapped.
 * @return an invalid handle when the name is taken or the system refuses; GetLastError has the reason
 */
FileHandle CreateChannelPipe(const std::wstring& name);

/**
 * Whether the process connected to the host's end is a worker of this process: it runs, is this process's child, and
 * its program lies in the folder of this process's program. A process that merely has the number of a dead child does
 * not pass: the check holds the process open and compares the start times. Nor does one that the system tells too
 * little about.
 */
bool IsPeerOwnWorker(HANDLE pipe) noexcept;

/** The process that started this one. */
class ParentProcess {
public:
    /** @return 0 or the Windows error code; ERROR_NOT_FOUND when the parent has ended */
    DWORD Open() noexcept;

    DWORD Id() const noexcept { return m_id; }
    HANDLE Get() const noexcept { return m_process.Get(); }

private:
    KernelHandle m_process;
    DWORD m_id = 0;
};

/**
 * Opens the worker's end once; the other side may identify this process's user, but not act as it.
 * @return 0; ERROR_ACCESS_DENIED when the pipe belongs to another process than @p hostProcessId; or the error code of
 *         the system, ERROR_FILE_NOT_FOUND and ERROR_PIPE_BUSY for a channel that may come yet
 */
DWORD OpenChannelPipe(const std::wstring& name, DWORD hostProcessId, FileHandle& pipe) noexcept;

} // namespace ipcmessage
