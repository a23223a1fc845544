// The owner of a resource: when it gives the resource back, how often, and that nobody notices by the last error.
#include "common/win/handle.h"
#include "common/win/owner.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

constexpr DWORD kEarlierError = 4711;

std::vector<int>& Freed() {
    static std::vector<int> freed;
    return freed;
}

// Numbers as resources; giving one back spoils the last error, as CloseHandle may.
struct NumberPolicy {
    using Value = int;
    static Value None() noexcept { return -1; }
    static void Free(Value number) noexcept {
        Freed().push_back(number);
        SetLastError(ERROR_INVALID_HANDLE);
    }
};
using Number = kx::Owner<NumberPolicy>;

class Owner : public testing::Test {
protected:
    Owner() {
        Freed().clear();
        SetLastError(kEarlierError);
    }
};

TEST_F(Owner, WithoutAResource_IsFalseAndFreesNothing) {
    {
        const Number none;
        EXPECT_FALSE(none);
        EXPECT_EQ(none.Get(), -1);
    }
    EXPECT_EQ(Freed(), std::vector<int>{});
}

TEST_F(Owner, ScopeEnd_FreesOnceAndKeepsTheLastError) {
    {
        const Number number(0); // a value that is false by itself is a resource all the same
        EXPECT_TRUE(number);
        EXPECT_EQ(number.Get(), 0);
    }
    EXPECT_EQ(Freed(), std::vector<int>{0});
    EXPECT_EQ(GetLastError(), kEarlierError);
}

TEST_F(Owner, MoveConstruction_LeavesTheSourceEmpty) {
    {
        Number first(1);
        const Number second(std::move(first));
        EXPECT_FALSE(first); // NOLINT(bugprone-use-after-move): what a moved-from owner holds is the question
        EXPECT_EQ(second.Get(), 1);
    }
    EXPECT_EQ(Freed(), std::vector<int>{1});
}

TEST_F(Owner, MoveAssignment_FreesTheOldOneFirst) {
    {
        Number first(1);
        Number second(2);
        second = std::move(first);
        EXPECT_EQ(Freed(), std::vector<int>{2});
        EXPECT_EQ(second.Get(), 1);
        EXPECT_EQ(GetLastError(), kEarlierError);
    }
    EXPECT_EQ(Freed(), (std::vector<int>{2, 1}));
}

TEST_F(Owner, MoveAssignmentToItself_KeepsTheResource) {
    Number number(1);
    Number& same = number;
    number = std::move(same);
    EXPECT_EQ(number.Get(), 1);
    EXPECT_EQ(Freed(), std::vector<int>{});
}

TEST_F(Owner, Release_HandsTheResourceOver) {
    {
        Number number(1);
        EXPECT_EQ(number.Release(), 1);
        EXPECT_FALSE(number);
    }
    EXPECT_EQ(Freed(), std::vector<int>{});
}

TEST_F(Owner, Reset_FreesTheOldOneAndHoldsTheNewOne) {
    {
        Number number(1);
        number.Reset(2);
        EXPECT_EQ(number.Get(), 2);
        number.Reset();
        EXPECT_FALSE(number);
        EXPECT_EQ(GetLastError(), kEarlierError);
    }
    EXPECT_EQ(Freed(), (std::vector<int>{1, 2}));
}

TEST_F(Owner, Receive_OffersAnEmptyPlace) {
    {
        Number number(1);
        int* const place = number.Receive();
        EXPECT_EQ(*place, -1);
        EXPECT_EQ(Freed(), std::vector<int>{1});
        *place = 2;
        EXPECT_EQ(number.Get(), 2);
    }
    EXPECT_EQ(Freed(), (std::vector<int>{1, 2}));
}

// One kind of handle for each value that stands for failure.
TEST(Handles, InvalidValues_AreNoResource) {
    EXPECT_FALSE(kx::KernelHandle(nullptr));
    EXPECT_FALSE(kx::FileHandle(INVALID_HANDLE_VALUE));
    EXPECT_FALSE(kx::RegistryKey(nullptr));
    EXPECT_FALSE(kx::Module(nullptr));
    EXPECT_FALSE(kx::LocalBlock<char>(nullptr));
}

TEST(Handles, ClosedHandle_IsUnknownToTheSystem) {
    HANDLE raw = nullptr;
    {
        const kx::KernelHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        ASSERT_TRUE(event);
        raw = event.Get();
        EXPECT_TRUE(SetEvent(raw));
    }
    EXPECT_FALSE(SetEvent(raw));
}

} // namespace
