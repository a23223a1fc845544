// What replacing an imported function promises: one module's calls only, restored with the object, never silently.
#include "support/importpatch.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

namespace {

using kxtest::ImportHook;
using kxtest::ImportPatch;

using TickHook = ImportHook<"kernel32.DLL", "GetTickCount", decltype(GetTickCount)>;

constexpr DWORD kTick = 4711;

// The compiler may keep an imported function's address in a register for the length of one function.
DWORD ReadTick() {
    return GetTickCount();
}
DWORD (*volatile Tick)() = &ReadTick;

HMODULE OwnModule() {
    return GetModuleHandleW(nullptr);
}
DWORD FixedTick() {
    return kTick;
}
void* NoMemory(std::size_t, const std::nothrow_t&) {
    return nullptr;
}

TEST(ImportPatch, PlainFunction_IsCalledUntilScopeEnds) {
    {
        const ImportPatch<decltype(GetTickCount)> patch(OwnModule(), "KERNEL32.dll", "GetTickCount", &FixedTick);
        EXPECT_EQ(Tick(), kTick);
        EXPECT_NE(patch.Original()(), kTick);
    }
    EXPECT_NE(Tick(), kTick);
}

TEST(ImportPatch, UnknownFunction_Throws) {
    EXPECT_THROW(ImportPatch<decltype(GetTickCount)>(OwnModule(), "KERNEL32.dll", "NoSuchFunctionAtAll", &FixedTick),
                 std::runtime_error);
}

TEST(ImportPatch, FunctionOfAnotherDll_Throws) {
    EXPECT_THROW(ImportPatch<decltype(GetTickCount)>(OwnModule(), "USER32.dll", "GetTickCount", &FixedTick),
                 std::runtime_error);
}

TEST(ImportPatch, NothrowNewOfTheRuntime_CanFail) {
    using NothrowNew = void*(std::size_t, const std::nothrow_t&);
    const ImportPatch<NothrowNew> patch(OwnModule(), "libstdc++-6.dll", "_ZnwyRKSt9nothrow_t", &NoMemory);
    EXPECT_EQ(new (std::nothrow) std::string("some text"), nullptr);
}

TEST(ImportHook, CallableWithState_CountsAndForwards) {
    DWORD lastSeen = 0;
    TickHook hook(
        [&lastSeen] {
            lastSeen = TickHook::Original();
            return kTick;
        },
        OwnModule());
    EXPECT_EQ(Tick(), kTick);
    EXPECT_EQ(Tick(), kTick);
    EXPECT_EQ(hook.Calls(), 2);
    EXPECT_NE(lastSeen, 0u);
}

TEST(ImportHook, SecondHookOfOneName_ThrowsAndLeavesTheFirst) {
    const TickHook first([] { return kTick; }, OwnModule());
    EXPECT_THROW(TickHook([] { return 1ul; }, OwnModule()), std::logic_error);
    EXPECT_EQ(Tick(), kTick);
}

TEST(ImportHook, AfterScopeEnds_CanBeHookedAgain) {
    for (DWORD tick : {1ul, 2ul}) {
        const TickHook hook([tick] { return tick; }, OwnModule());
        EXPECT_EQ(Tick(), tick);
    }
    EXPECT_NE(Tick(), 2u);
}

} // namespace
