// Counts by the system's list of all handles, because Wine does not count a process's own.
#include "support/handlecount.h"

#include <windows.h>

#include <winternl.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <stdexcept>
#include <vector>

namespace kxtest {

namespace {

constexpr int kSystemExtendedHandleInformation = 64;
constexpr NTSTATUS kInfoLengthMismatch = static_cast<NTSTATUS>(0xC0000004);
constexpr std::size_t kSmallestList = 1u << 16;
constexpr std::size_t kLargestList = 1u << 26;

struct HandleEntry {
    void* object;
    ULONG_PTR processId;
    ULONG_PTR handle;
    ULONG grantedAccess;
    USHORT creatorBackTraceIndex;
    USHORT objectTypeIndex;
    ULONG attributes;
    ULONG reserved;
};

struct HandleList {
    ULONG_PTR count;
    ULONG_PTR reserved;
};

} // namespace

std::size_t OpenHandleCount() {
    using Query = NTSTATUS(NTAPI*)(int, void*, ULONG, ULONG*);
    const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    for (std::size_t size = kSmallestList; size <= kLargestList; size *= 2) {
        std::vector<std::byte> buffer(size);
        const NTSTATUS status =
            query(kSystemExtendedHandleInformation, buffer.data(), static_cast<ULONG>(size), nullptr);
        if (status == kInfoLengthMismatch) {
            continue;
        }
        if (status != 0) {
            break;
        }
        HandleList list{};
        std::memcpy(&list, buffer.data(), sizeof(list));
        const std::span entries(reinterpret_cast<const HandleEntry*>(buffer.data() + sizeof(list)), list.count);
        const auto own = std::count_if(entries.begin(), entries.end(),
                                       [](const HandleEntry& e) { return e.processId == GetCurrentProcessId(); });
        return static_cast<std::size_t>(own);
    }
    throw std::runtime_error("the system's handle list cannot be read");
}

bool HandlesLeakedSince(std::size_t before, std::size_t times) {
    return OpenHandleCount() >= before + times;
}

} // namespace kxtest
