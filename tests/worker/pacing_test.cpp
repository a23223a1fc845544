// The frame clock's arithmetic and its wait.
#include "worker/capture/pacing.h"

#include "worker/ticks.h"

#include "common/win/handle.h"

#include <gtest/gtest.h>

namespace {

using kxvcr::FrameClock;

constexpr std::int64_t kStart = 5'000'000'123;
constexpr std::int64_t kFrequency = 10'000'000;

TEST(FrameClock, SlotBeginsExactlyWhenItIsDue) {
    for (const std::uint32_t fps : {1u, 7u, 24u, 30u, 59u, 60u}) {
        const FrameClock clock(kStart, kFrequency, fps);
        for (const std::uint64_t slot : {1ull, 2ull, 3ull, 1000ull, 5'184'000ull}) {
            EXPECT_EQ(clock.SlotAt(clock.DueTicks(slot)), slot) << fps;
            EXPECT_EQ(clock.SlotAt(clock.DueTicks(slot) - 1), slot - 1) << fps;
        }
    }
}

TEST(FrameClock, DayOfRecording_DoesNotDrift) {
    const FrameClock clock(kStart, kFrequency, 30);

    EXPECT_EQ(clock.DueTicks(30ull * 86'400), kStart + 86'400 * kFrequency);
}

TEST(FrameClock, BeforeTheStart_IsTheFirstSlot) {
    EXPECT_EQ(FrameClock(kStart, kFrequency, 30).SlotAt(kStart - 1), 0u);
}

TEST(FrameClock, TimeOnThePacketsClock_IsExactAfterADay) {
    const FrameClock clock(kStart, kFrequency, 30);

    EXPECT_EQ(clock.TimeAt(kStart), kxvcr::MediaTime(0));
    EXPECT_EQ(clock.TimeAt(kStart - kFrequency), -std::chrono::seconds(1));
    EXPECT_EQ(clock.TimeAt(kStart + 86'400 * kFrequency + 7), std::chrono::hours(24) + kxvcr::MediaTime(7));
}

TEST(TimeOf, YearOfTheFinestCounter_DoesNotOverflow) {
    constexpr std::int64_t kNanoseconds = 1'000'000'000;
    constexpr std::int64_t kSeconds = std::int64_t{366} * 86'400;

    EXPECT_EQ(kxvcr::TimeOf(kSeconds * kNanoseconds + 150, kNanoseconds),
              std::chrono::seconds(kSeconds) + kxvcr::MediaTime(1));
    EXPECT_EQ(kxvcr::TimeOf(kSeconds * kxvcr::TicksPerSecond()), std::chrono::seconds(kSeconds));
}

TEST(FrameTimer, DueMoment_IsNotReachedEarly) {
    const kx::KernelHandle stop(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const kxvcr::FrameTimer timer;
    const std::int64_t due = kxvcr::NowTicks() + kxvcr::TicksPerSecond() / 20;

    EXPECT_TRUE(timer.WaitUntil(due, stop.Get()));

    EXPECT_GE(kxvcr::NowTicks() + kxvcr::TicksPerSecond() / 1000, due);
}

TEST(FrameTimer, Stop_EndsTheWaitAtOnce) {
    const kx::KernelHandle stop(CreateEventW(nullptr, TRUE, TRUE, nullptr));
    const kxvcr::FrameTimer timer;

    EXPECT_FALSE(timer.WaitUntil(kxvcr::NowTicks() + 3600 * kxvcr::TicksPerSecond(), stop.Get()));
    EXPECT_FALSE(timer.WaitUntil(kxvcr::NowTicks() - 1, stop.Get()));
}

} // namespace
