// Which process this worker records for, from the system's list of processes.
#include "worker/hostprocess.h"

#include "common/win/handle.h"

#include <windows.h>

#include <tlhelp32.h>

namespace kxvcr {

std::uint32_t HostProcessId() noexcept {
    const kx::FileHandle processes(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!processes) {
        return 0;
    }
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL found = Process32FirstW(processes.Get(), &entry); found;
         found = Process32NextW(processes.Get(), &entry)) {
        if (entry.th32ProcessID == GetCurrentProcessId()) {
            return entry.th32ParentProcessID;
        }
    }
    return 0;
}

} // namespace kxvcr
