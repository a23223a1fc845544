// Pictures that are turned, and those of a high dynamic range.
#include "worker/capture/turn.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

namespace kxvcr {

namespace {

constexpr std::array kTurns = {Turn::None, Turn::Quarter, Turn::Half, Turn::ThreeQuarters};
constexpr PixelSize kSize = {5, 3};

using Pixels = std::vector<std::uint32_t>;

// Turns a whole picture of kSize, whose pixels are numbered from 0.
Pixels TurnNumbers(Turn turn) {
    Pixels numbers(kSize.width * kSize.height);
    for (std::uint32_t i = 0; i < numbers.size(); ++i) {
        numbers[i] = i;
    }
    Pixels turned(numbers.size());
    const SurfaceView surface = {reinterpret_cast<const std::byte*>(numbers.data()), kSize.width * 4, nullptr};
    CopyTurned(surface, {0, 0, kSize.width, kSize.height}, turn, reinterpret_cast<std::byte*>(turned.data()),
               Turned(kSize, turn).width * 4);
    return turned;
}

TEST(Turn, None_LeavesThePicture) {
    EXPECT_EQ(TurnNumbers(Turn::None), (Pixels{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));
}

TEST(Turn, Quarter_PutsTheLeftColumnOnTop) {
    EXPECT_EQ(TurnNumbers(Turn::Quarter), (Pixels{10, 5, 0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4}));
}

TEST(Turn, Half_PutsItUpsideDown) {
    EXPECT_EQ(TurnNumbers(Turn::Half), (Pixels{14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0}));
}

TEST(Turn, ThreeQuarters_PutsTheRightColumnOnTop) {
    EXPECT_EQ(TurnNumbers(Turn::ThreeQuarters), (Pixels{4, 9, 14, 3, 8, 13, 2, 7, 12, 1, 6, 11, 0, 5, 10}));
}

TEST(Turn, PartsOfAPicture_AreWhereTheWholeHasThem) {
    const Pixels numbers = TurnNumbers(Turn::None);
    for (const Turn turn : kTurns) {
        const Pixels whole = TurnNumbers(turn);
        const PixelSize size = Turned(kSize, turn);
        const PictureRect part = {1, 1, 3, 2};
        const PictureRect there = Turned(part, kSize, turn);
        Pixels target(whole.size(), 99);
        CopyTurned({reinterpret_cast<const std::byte*>(numbers.data()), kSize.width * 4, nullptr}, part, turn,
                   reinterpret_cast<std::byte*>(target.data() + there.top * size.width + there.left), size.width * 4);
        for (std::uint32_t y = 0; y < size.height; ++y) {
            for (std::uint32_t x = 0; x < size.width; ++x) {
                const bool isIn =
                    x >= there.left && x < there.left + there.width && y >= there.top && y < there.top + there.height;
                const std::size_t i = y * size.width + x;
                EXPECT_EQ(target[i], isIn ? whole[i] : 99) << x << ", " << y;
            }
        }
    }
}

TEST(Turn, TurnedBack_IsWhatItWas) {
    const PictureRect part = {1, 0, 3, 2};
    for (const Turn turn : kTurns) {
        const PixelSize turned = Turned(kSize, turn);
        EXPECT_EQ(Turned(turned, Back(turn)), kSize);
        EXPECT_EQ(Turned(Turned(part, kSize, turn), turned, Back(turn)), part);
    }
}

// Blue, green and red of a pixel of three halves.
std::array<int, 3> Toned(double white, std::uint16_t red, std::uint16_t green, std::uint16_t blue) {
    const std::array<std::uint16_t, 4> halves = {red, green, blue, 0};
    std::array<std::byte, 4> pixel{};
    Toning(white).Pixel(reinterpret_cast<const std::byte*>(halves.data()), pixel.data());
    return {static_cast<int>(pixel[0]), static_cast<int>(pixel[1]), static_cast<int>(pixel[2])};
}

constexpr std::uint16_t kOne = 0x3C00;
constexpr std::uint16_t kTwo = 0x4000;
constexpr std::uint16_t kHalf = 0x3800;
constexpr std::uint16_t kSmallest = 0x0001;
constexpr std::uint16_t kInfinite = 0x7C00;
constexpr std::uint16_t kMinusInfinite = 0xFC00;
constexpr std::uint16_t kNoNumber = 0x7E00;

TEST(Toning, WhiteOfOrdinaryPrograms_IsWhite) {
    EXPECT_EQ(Toned(80, kOne, kOne, kOne), (std::array{255, 255, 255}));
    EXPECT_EQ(Toned(160, kTwo, kTwo, kTwo), (std::array{255, 255, 255}));
}

TEST(Toning, HalfOfTheLight_IsItsCodeInSrgb) {
    EXPECT_EQ(Toned(80, kHalf, 0, kOne), (std::array{255, 0, 188}));
    EXPECT_EQ(Toned(160, kOne, 0, kTwo), (std::array{255, 0, 188}));
}

TEST(Toning, WhatNoDisplayShows_IsTheNearestThatItShows) {
    EXPECT_EQ(Toned(80, kInfinite, kMinusInfinite, kNoNumber), (std::array{0, 0, 255}));
    EXPECT_EQ(Toned(80, kSmallest, 0x8000, kTwo), (std::array{255, 0, 0}));
}

} // namespace

} // namespace kxvcr
