// Replaces operator new for the whole test program; it refuses only where a test asks for it. What is given back is
// overwritten, so that a look at an object that is gone does not find it.
#include "tests/worker/scarcememory.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr int kUnlimited = -1;
constexpr int kGone = 0xDD; // byte of a block that was given back

thread_local int g_granted = kUnlimited;
thread_local bool g_refusesAll = false;
thread_local bool g_hasRefused = false;

std::atomic<unsigned> g_everyElsewhere = 0; // 0: nothing is refused elsewhere
std::atomic<unsigned> g_askedElsewhere = 0;
thread_local bool g_isElsewhere = true;

bool IsRefusedElsewhere() noexcept {
    const unsigned every = g_everyElsewhere;
    return every != 0 && g_isElsewhere && ++g_askedElsewhere % every == 0;
}

void* AllocateOrNull(std::size_t size) noexcept {
    if (g_granted == 0) {
        g_hasRefused = true;
        g_granted = g_refusesAll ? 0 : kUnlimited;
        return nullptr;
    }
    if (g_granted > 0) {
        --g_granted;
    }
    if (IsRefusedElsewhere()) {
        return nullptr;
    }
    return std::malloc(size != 0 ? size : 1);
}

void* Allocate(std::size_t size) {
    void* const block = AllocateOrNull(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void Free(void* block, std::size_t size) noexcept {
    if (block != nullptr) {
        std::memset(block, kGone, size);
        std::free(block);
    }
}

} // namespace

void* operator new(std::size_t size) {
    return Allocate(size);
}

void* operator new[](std::size_t size) {
    return Allocate(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return AllocateOrNull(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return AllocateOrNull(size);
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete[](void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t size) noexcept {
    Free(block, size);
}

void operator delete[](void* block, std::size_t size) noexcept {
    Free(block, size);
}

namespace kxvcr::test {

RefuseAllocations::RefuseAllocations(int granted, Refused refused) noexcept {
    g_granted = granted;
    g_refusesAll = refused == Refused::All;
    g_hasRefused = false;
}

RefuseAllocations::~RefuseAllocations() {
    g_granted = kUnlimited;
}

bool RefuseAllocations::HasRefused() const noexcept {
    return g_hasRefused;
}

RefuseElsewhere::RefuseElsewhere(unsigned every) noexcept {
    g_isElsewhere = false;
    g_askedElsewhere = 0;
    g_everyElsewhere = every;
}

RefuseElsewhere::~RefuseElsewhere() {
    g_everyElsewhere = 0;
    g_isElsewhere = true;
}

unsigned RefuseElsewhere::Refusals() const noexcept {
    return g_askedElsewhere / g_everyElsewhere;
}

} // namespace kxvcr::test
