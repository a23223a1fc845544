// The channel's pipe: name, access and the check of the other process.
#include "channel.h"

#include "common/win/modulepath.h"
#include "common/win/usersid.h"

#include <sddl.h>
#include <winternl.h>

#include <cstdint>
#include <cstring>
#include <exception>
#include <optional>
#include <utility>

namespace ipcmessage {
namespace {

constexpr DWORD kPipeBufferSize = 64 * 1024; // bytes in each direction
constexpr DWORD kPeerAccess = PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE;

// winternl.h names the member with the parent's process id Reserved3 or InheritedFromUniqueProcessId, by compiler.
struct ProcessBasicFacts {
    NTSTATUS exitStatus;
    void* environmentBlock;
    ULONG_PTR affinity;
    LONG_PTR basePriority;
    ULONG_PTR processId;
    ULONG_PTR parentProcessId;
};

// 0 when the system does not tell.
DWORD ParentIdOf(HANDLE process) noexcept {
    ProcessBasicFacts facts{};
    const NTSTATUS status = NtQueryInformationProcess(process, ProcessBasicInformation, &facts, sizeof facts, nullptr);
    return status < 0 ? 0 : static_cast<DWORD>(facts.parentProcessId);
}

std::uint64_t StartTimeOf(HANDLE process) noexcept {
    FILETIME created{};
    FILETIME exited{};
    FILETIME kernel{};
    FILETIME user{};
    if (!GetProcessTimes(process, &created, &exited, &kernel, &user)) {
        return 0;
    }
    return (std::uint64_t{created.dwHighDateTime} << 32) | created.dwLowDateTime;
}

bool IsRunning(HANDLE process) noexcept {
    return WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
}

// Parent numbers outlive their processes: a child is younger than its parent or the number was used again. A time that
// the system does not tell, 0, is earlier than any other.
bool IsChildOf(HANDLE child, HANDLE parent, DWORD parentId) noexcept {
    const std::uint64_t childStart = StartTimeOf(child);
    const std::uint64_t parentStart = StartTimeOf(parent);
    return ParentIdOf(child) == parentId && parentStart != 0 && childStart >= parentStart;
}

// The folder of the process's program, without a separator at its end. Nothing when the system does not tell.
std::optional<std::wstring> ProgramFolder(HANDLE process) {
    std::wstring path(kx::kLongestPath, L'\0');
    auto length = static_cast<DWORD>(path.size());
    if (!QueryFullProcessImageNameW(process, 0, path.data(), &length)) {
        return std::nullopt;
    }
    const std::size_t separator = path.rfind(L'\\', length);
    if (separator == std::wstring::npos) {
        return std::nullopt;
    }
    path.resize(separator);
    return path;
}

std::optional<FILE_ID_INFO> IdentityOf(const std::wstring& folder) noexcept {
    const FileHandle opened(CreateFileW(folder.c_str(), FILE_READ_ATTRIBUTES,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                        FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    FILE_ID_INFO identity{};
    if (!opened || !GetFileInformationByHandleEx(opened.Get(), FileIdInfo, &identity, sizeof identity)) {
        return std::nullopt;
    }
    return identity;
}

// One folder can have several names: short ones, letters of another case, links.
bool IsSameFolder(const std::wstring& one, const std::wstring& other) noexcept {
    if (one == other) {
        return true;
    }
    const std::optional<FILE_ID_INFO> first = IdentityOf(one);
    const std::optional<FILE_ID_INFO> second = IdentityOf(other);
    return first && second && first->VolumeSerialNumber == second->VolumeSerialNumber &&
           std::memcmp(&first->FileId, &second->FileId, sizeof first->FileId) == 0;
}

// False also when there is no memory to find out.
bool IsBesideOwnProgram(HANDLE process) noexcept {
    try {
        const std::optional<std::wstring> own = ProgramFolder(GetCurrentProcess());
        const std::optional<std::wstring> others = ProgramFolder(process);
        return own && others && IsSameFolder(*own, *others);
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace

std::wstring ChannelName(DWORD hostProcessId, int moduleId) {
    return L"\\\\.\\pipe\\KxIPCMessage." + std::to_wstring(hostProcessId) + L"." +
           std::to_wstring(static_cast<unsigned int>(moduleId));
}

FileHandle CreateChannelPipe(const std::wstring& name) {
    const std::wstring user = kx::CurrentUserSid();
    if (user.empty()) {
        return {};
    }
    kx::LocalBlock<void> descriptor;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW((L"D:P(A;;GA;;;" + user + L")").c_str(), SDDL_REVISION_1,
                                                              descriptor.Receive(), nullptr)) {
        return {};
    }
    SECURITY_ATTRIBUTES security{sizeof security, descriptor.Get(), FALSE};
    return FileHandle(CreateNamedPipeW(name.c_str(),
                                       PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
                                       PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1,
                                       kPipeBufferSize, kPipeBufferSize, 0, &security));
}

bool IsPeerOwnWorker(HANDLE pipe) noexcept {
    ULONG peerId = 0;
    if (!GetNamedPipeClientProcessId(pipe, &peerId)) {
        return false;
    }
    const KernelHandle peer(OpenProcess(kPeerAccess, FALSE, peerId));
    return peer && IsRunning(peer.Get()) && IsChildOf(peer.Get(), GetCurrentProcess(), GetCurrentProcessId()) &&
           IsBesideOwnProgram(peer.Get());
}

DWORD ParentProcess::Open() noexcept {
    m_id = ParentIdOf(GetCurrentProcess());
    if (m_id == 0) {
        return ERROR_NOT_FOUND;
    }
    m_process = KernelHandle(OpenProcess(kPeerAccess, FALSE, m_id));
    if (!m_process) {
        const DWORD error = GetLastError();
        return error == ERROR_INVALID_PARAMETER ? ERROR_NOT_FOUND : error;
    }
    if (!IsRunning(m_process.Get()) || !IsChildOf(GetCurrentProcess(), m_process.Get(), m_id)) {
        return ERROR_NOT_FOUND;
    }
    return ERROR_SUCCESS;
}

DWORD OpenChannelPipe(const std::wstring& name, DWORD hostProcessId, FileHandle& pipe) noexcept {
    FileHandle opened(CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    if (!opened) {
        return GetLastError();
    }
    ULONG serverId = 0;
    if (!GetNamedPipeServerProcessId(opened.Get(), &serverId)) {
        return GetLastError();
    }
    if (serverId != hostProcessId) {
        return ERROR_ACCESS_DENIED;
    }
    pipe = std::move(opened);
    return ERROR_SUCCESS;
}

} // namespace ipcmessage
