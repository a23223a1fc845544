// The replaced allocators: they count on the thread under test only, and refuse where they are told.
#include "support/memoryfault.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace kxtest {

namespace {

constexpr char kRuntime[] = "msvcrt.dll";
constexpr char kCppLibrary[] = "libstdc++-6.dll";
constexpr std::size_t kMaxBlocks = 65536;

/** One attempt. Needs no memory itself: it works in the middle of malloc. */
struct Attempt {
    DWORD thread = 0;
    Failing failing;
    MemoryUse use;
    std::array<void*, kMaxBlocks> blocks{};
    std::size_t blockCount = 0;

    bool Fails() {
        ++use.allocations;
        const bool fails = (failing.mode == Failing::Mode::Once && use.allocations == failing.nth) ||
                           (failing.mode == Failing::Mode::FromThereOn && use.allocations >= failing.nth);
        use.failures += fails ? 1 : 0;
        return fails;
    }
    void Add(void* block) {
        if (block != nullptr && blockCount < kMaxBlocks) {
            blocks[blockCount++] = block;
        }
    }
    void Remove(const void* block) {
        const auto end = blocks.begin() + static_cast<std::ptrdiff_t>(blockCount);
        const auto found = std::find(blocks.begin(), end, block);
        if (found != end) {
            *found = blocks[--blockCount];
        } else if (block != nullptr && thread == GetCurrentThreadId()) {
            ++use.olderFreed;
        }
    }
};

Attempt g_attempt; // under the lock
SRWLOCK g_lock = SRWLOCK_INIT;
std::atomic<bool> g_isRunning{false};

class LockedAttempt {
public:
    LockedAttempt() { AcquireSRWLockExclusive(&g_lock); }
    ~LockedAttempt() { ReleaseSRWLockExclusive(&g_lock); }
    LockedAttempt(const LockedAttempt&) = delete;
    LockedAttempt& operator=(const LockedAttempt&) = delete;
    Attempt* operator->() const { return &g_attempt; }
};

bool IsOfAttempt() {
    return g_isRunning.load() && LockedAttempt()->thread == GetCurrentThreadId();
}

void* Malloc(std::size_t size) {
    if (!IsOfAttempt()) {
        return std::malloc(size);
    }
    const LockedAttempt attempt;
    if (attempt->Fails()) {
        errno = ENOMEM;
        return nullptr;
    }
    void* const block = std::malloc(size);
    attempt->Add(block);
    return block;
}

void* Calloc(std::size_t count, std::size_t size) {
    if (!IsOfAttempt()) {
        return std::calloc(count, size);
    }
    const LockedAttempt attempt;
    if (attempt->Fails()) {
        errno = ENOMEM;
        return nullptr;
    }
    void* const block = std::calloc(count, size);
    attempt->Add(block);
    return block;
}

void* Realloc(void* old, std::size_t size) {
    if (!IsOfAttempt()) {
        return std::realloc(old, size);
    }
    const LockedAttempt attempt;
    if (attempt->Fails()) {
        errno = ENOMEM;
        return nullptr;
    }
    attempt->Remove(old);
    void* const block = std::realloc(old, size);
    attempt->Add(block);
    return block;
}

// A block of the attempt may be another thread's to free.
void Free(void* block) {
    if (g_isRunning.load()) {
        LockedAttempt()->Remove(block);
    }
    std::free(block);
}

struct Replacement {
    const char* function;
    void* by;
};
const Replacement kReplacements[] = {
    {"malloc", reinterpret_cast<void*>(&Malloc)},
    {"calloc", reinterpret_cast<void*>(&Calloc)},
    {"realloc", reinterpret_cast<void*>(&Realloc)},
    {"free", reinterpret_cast<void*>(&Free)},
};

} // namespace

MemoryFault::MemoryFault(const std::vector<std::string>& modules) {
    std::vector<std::string> all = modules;
    all.emplace_back(kCppLibrary);
    for (const std::string& name : all) {
        const HMODULE module = GetModuleHandleA(name.c_str());
        if (module == nullptr) {
            throw std::runtime_error(name + " is not loaded");
        }
        for (const Replacement& replacement : kReplacements) {
            m_slots.push_back(std::make_unique<ImportSlot>(module, kRuntime, replacement.function, replacement.by));
        }
    }
}

MemoryFault::~MemoryFault() = default;

MemoryUse MemoryFault::Run(Failing failing, const std::function<void()>& attempt) {
    g_attempt.thread = GetCurrentThreadId();
    g_attempt.failing = failing;
    g_attempt.use = {};
    g_attempt.blockCount = 0;
    g_isRunning.store(true);
    attempt();
    g_isRunning.store(false);
    g_attempt.use.leftOver = g_attempt.blockCount;
    return g_attempt.use;
}

} // namespace kxtest
