// The copies that check the destination's size: limits to the byte, codes, and what a failed copy leaves behind.
#include "common/boundedcopy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

namespace {

using kx::CopyBytes;
using kx::CopyText;

constexpr char kSource[] = {1, 2, 3, 4};

TEST(CopyBytes, SizesUpToTheCapacity_AreCopiedAndNoByteMore) {
    for (std::size_t size = 0; size <= sizeof(kSource); ++size) {
        std::array<char, 5> destination = {9, 9, 9, 9, 9};
        EXPECT_EQ(CopyBytes(destination.data(), sizeof(kSource), kSource, size), 0);
        std::array<char, 5> expected = {9, 9, 9, 9, 9};
        std::copy_n(kSource, size, expected.begin());
        EXPECT_EQ(destination, expected) << size;
    }
}

TEST(CopyBytes, OneByteTooMany_IsOutOfRangeAndZeroesTheCapacity) {
    std::array<char, 4> destination = {9, 9, 9, 9};
    EXPECT_EQ(CopyBytes(destination.data(), 3, kSource, 4), ERANGE);
    EXPECT_EQ(destination, (std::array<char, 4>{0, 0, 0, 9}));
}

TEST(CopyBytes, NullSource_IsInvalidAndZeroesTheCapacity) {
    for (const std::size_t size : {0u, 2u, 4u}) {
        std::array<char, 4> destination = {9, 9, 9, 9};
        EXPECT_EQ(CopyBytes(destination.data(), 3, nullptr, size), EINVAL);
        EXPECT_EQ(destination, (std::array<char, 4>{0, 0, 0, 9})) << size;
    }
}

TEST(CopyBytes, NullDestination_IsInvalid) {
    EXPECT_EQ(CopyBytes(nullptr, 4, kSource, 4), EINVAL);
}

TEST(CopyText, TextsUpToOneBelowTheCapacity_AreCopiedWithTheirZero) {
    for (const std::string text : {"", "a", "abc"}) {
        std::array<char, 5> destination = {9, 9, 9, 9, 9};
        EXPECT_EQ(CopyText(destination.data(), 4, text.c_str()), 0);
        EXPECT_EQ(std::string(destination.data()), text);
        EXPECT_EQ(destination[text.size() + 1], 9) << text;
    }
}

TEST(CopyText, TextOfTheCapacityOrMore_IsOutOfRangeAndLeavesAnEmptyText) {
    for (const char* const text : {"abcd", "abcde"}) {
        std::array<char, 5> destination = {9, 9, 9, 9, 9};
        EXPECT_EQ(CopyText(destination.data(), 4, text), ERANGE);
        EXPECT_EQ(destination, (std::array<char, 5>{0, 9, 9, 9, 9})) << text;
    }
}

TEST(CopyText, NullSource_IsInvalidAndLeavesAnEmptyText) {
    std::array<char, 2> destination = {9, 9};
    EXPECT_EQ(CopyText(destination.data(), 2, nullptr), EINVAL);
    EXPECT_EQ(destination, (std::array<char, 2>{0, 9}));
}

TEST(CopyText, NoDestinationOrNoCapacity_IsInvalidAndTouchesNothing) {
    char destination = 9;
    EXPECT_EQ(CopyText(nullptr, 4, "abc"), EINVAL);
    EXPECT_EQ(CopyText(&destination, 0, ""), EINVAL);
    EXPECT_EQ(destination, 9);
}

} // namespace
