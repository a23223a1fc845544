// Replaces operator new for the whole test program; it refuses only where a test asks for it.
#include "tests/worker/scarcememory.h"

#include <cstdlib>
#include <new>

namespace {

constexpr int kNever = -1;
constexpr int kDone = -2;

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

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

void operator delete[](void* block, std::size_t) noexcept {
    std::free(block);
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
