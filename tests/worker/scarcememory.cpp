// Replaces operator new for the whole test program; it refuses only where a test asks for it. What is given back is
// overwritten, so that a look at an object that is gone does not find it.
#include "tests/worker/scarcememory.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr int kNever = -1;
constexpr int kDone = -2;
constexpr int kGone = 0xDD; // byte of a block that was given back

thread_local int g_granted = kNever;

void* Allocate(std::size_t size) {
    if (g_granted == 0) {
        g_granted = kDone;
        throw std::bad_alloc();
    }
    if (g_granted > 0) {
        --g_granted;
    }
    void* block = std::malloc(size != 0 ? size : 1);
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

RefuseOneAllocation::RefuseOneAllocation(int granted) noexcept {
    g_granted = granted;
}

RefuseOneAllocation::~RefuseOneAllocation() {
    g_granted = kNever;
}

bool RefuseOneAllocation::HasRefused() const noexcept {
    return g_granted == kDone;
}

} // namespace kxvcr::test
