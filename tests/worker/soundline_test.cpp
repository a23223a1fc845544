// A device's sound on the recording's time: rates, drift, jitter, gaps and overlaps.
#include "worker/sound/soundline.h"

#include "worker/soundsignals.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace kxvcr {

namespace {

using kxtest::Amplitude;
using kxtest::Clicks;
using kxtest::FloatSamples;
using kxtest::Level;
using kxtest::Peak;
using kxtest::Side;
using kxtest::Signal;
using kxtest::Tone;

constexpr double kPieceSeconds = 0.01;

MediaTime At(double seconds) {
    return MediaTime(std::llround(seconds * MediaTime::period::den));
}

// A device with a clock of its own, and the line that its sound is laid on.
class LineOfDevice {
public:
    /** @param rate as the device says @param drift millionths by which it is faster than that */
    LineOfDevice(std::uint32_t rate, double drift, Signal signal)
        : m_rate(rate),
          m_trueRate(rate * (1 + drift / 1e6)),
          m_signal(std::move(signal)) {
        line.Begin({rate, 2, 0, SampleType::Float32});
    }

    /** Gives what is heard in the next @p seconds; each piece's time is told @p late seconds too late. */
    void Hear(
        double seconds, const std::function<double()>& late = [] { return 0.0; }) {
        m_end += seconds;
        while (m_time < m_end - kPieceSeconds / 2) {
            const auto frames = static_cast<std::uint32_t>(std::lround(m_rate * kPieceSeconds));
            const bool isSilent = hearsClicksOnly && std::abs(m_time - std::round(m_time)) > 2 * kPieceSeconds;
            const auto bytes =
                isSilent ? std::vector<std::byte>() : FloatSamples(m_signal, m_time, m_trueRate, frames, 2);
            line.Add({bytes, frames, 0, std::exchange(followsABreak, false)}, At(m_time + late()));
            m_time += frames / m_trueRate;
        }
    }

    /** The device hears nothing of the next @p seconds. */
    void Miss(double seconds) {
        m_time += seconds;
        m_end += seconds;
    }

    /** Mixes what is known, or up to @p until. */
    std::vector<float> Mix(std::int64_t until = -1) {
        const std::int64_t end = until < 0 ? line.End() : until;
        std::vector<float> mixed(static_cast<std::size_t>(end - m_mixed) * kSoundChannels);
        line.MixInto(mixed, std::exchange(m_mixed, end));
        return mixed;
    }

    SoundLine line;
    bool followsABreak = false;   // of the next piece
    bool hearsClicksOnly = false; // makes no samples between the clicks, so that a long time passes quickly

private:
    std::uint32_t m_rate;
    double m_trueRate;
    Signal m_signal;
    double m_time = 0;
    double m_end = 0; // up to which it has been asked to hear; its last piece may reach further
    std::int64_t m_mixed = 0;
};

std::size_t Frame(double seconds) {
    return static_cast<std::size_t>(std::llround(seconds * kSoundRate));
}

std::span<const float> Part(const std::vector<float>& samples, double from, double until) {
    return std::span(samples).subspan(Frame(from), Frame(until) - Frame(from));
}

class SoundLineRates : public testing::TestWithParam<std::uint32_t> {};

TEST_P(SoundLineRates, Tone_KeepsItsFrequencyAndLevel) {
    LineOfDevice device(GetParam(), 0, Tone(1000, 0.5));
    device.Hear(2);
    const auto left = Side(device.Mix(), 0);
    ASSERT_GT(left.size(), Frame(1.9));
    const auto middle = Part(left, 0.5, 1.5);
    EXPECT_NEAR(Amplitude(middle, 1000), 0.5, 0.002);
    EXPECT_NEAR(Level(middle), 0.5 / std::numbers::sqrt2, 0.002) << "there is nothing else";
}

TEST_P(SoundLineRates, Click_StaysWhereItWasHeard) {
    LineOfDevice device(GetParam(), 0, Clicks());
    device.Hear(1.5);
    const auto left = Side(device.Mix(), 0);
    EXPECT_NEAR(static_cast<double>(Peak(Part(left, 0.5, 1.4)) + Frame(0.5)), kSoundRate, 8);
}

INSTANTIATE_TEST_SUITE_P(Devices, SoundLineRates,
                         testing::Values(8'000u, 11'025u, 22'050u, 32'000u, 44'100u, 48'000u, 88'200u, 96'000u,
                                         192'000u),
                         [](const auto& rate) { return std::to_string(rate.param); });

class SoundLineDrift : public testing::TestWithParam<double> {};

TEST_P(SoundLineDrift, TenMinutes_KeepSoundWithinTenMilliseconds) {
    std::mt19937 random(11);
    std::uniform_real_distribution<double> late(0, 0.004);
    LineOfDevice device(48'000, GetParam(), Clicks());
    device.hearsClicksOnly = true;
    device.Hear(0.5);
    device.Mix(static_cast<std::int64_t>(Frame(0.4)));
    double worst = 0;
    std::int64_t mixed = static_cast<std::int64_t>(Frame(0.4));
    for (int second = 1; second <= 600; ++second) {
        device.Hear(1, [&] { return late(random); });
        const auto side = Side(device.Mix(mixed += kSoundRate), 0);
        const double heard = 0.4 + second - 1 + static_cast<double>(Peak(side)) / kSoundRate;
        worst = std::max(worst, std::abs(heard - second));
        ASSERT_GT(side[Peak(side)], 0.9F) << "the click of second " << second << " is whole";
    }
    EXPECT_LT(worst, 0.010);
    EXPECT_NEAR(device.line.Stretch(), -GetParam(), 60) << "a slow device is made longer";
}

INSTANTIATE_TEST_SUITE_P(Clocks, SoundLineDrift, testing::Values(-300.0, 0.0, 300.0), [](const auto& drift) {
    return drift.param < 0 ? "Slow" : drift.param > 0 ? "Fast" : "Exact";
});

TEST(SoundLine, TimesThatAreToldLate_MoveNothing) {
    LineOfDevice device(48'000, 0, Tone(500, 0.5));
    device.Hear(1);
    int piece = 0;
    device.Hear(0.1, [&] { return 0.1 - 0.01 * piece++; }); // one stall: ten pieces are told at the same moment
    device.Hear(1);
    EXPECT_EQ(device.line.End() / 480, 209) << "2.1 s but for what the resampler holds";
    EXPECT_NEAR(Amplitude(Part(Side(device.Mix(), 0), 0.5, 2.0), 500), 0.5, 0.005) << "without a break";
}

TEST(SoundLine, FirstTimeThatIsToldLate_MovesNothingAsSoonAsABetterOneIsTold) {
    LineOfDevice device(48'000, 0, Clicks());
    double late = 0.038;
    device.Hear(0.5, [&] { return std::exchange(late, 0.0); });
    device.Hear(1);
    const auto left = Side(device.Mix(), 0);
    EXPECT_NEAR(static_cast<double>(Peak(Part(left, 0.5, 1.4)) + Frame(0.5)), kSoundRate, 8);
    EXPECT_EQ(device.line.Stretch(), 0) << "nothing is left to be made up for";
}

TEST(SoundLine, TimesThatAreToldLateByChance_KeepSoundWhereTheEarliestSay) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> late(0, 0.030);
    LineOfDevice device(48'000, 0, Clicks());
    device.Hear(20.5, [&] { return late(random); });
    const auto left = Side(device.Mix(), 0);
    for (int second = 1; second <= 20; ++second) {
        const double heard =
            second - 0.5 + static_cast<double>(Peak(Part(left, second - 0.5, second + 0.4))) / kSoundRate;
        EXPECT_NEAR(heard, second, 0.006);
    }
}

TEST(SoundLine, TimesThatAreToldLateForASecond_LeaveSoundInItsPlaceAfterwards) {
    LineOfDevice device(48'000, 0, Clicks());
    device.Hear(1.2);
    device.Hear(1, [] { return 0.03; });
    device.Hear(1.3);
    const auto left = Side(device.Mix(), 0);
    EXPECT_NEAR(static_cast<double>(Peak(Part(left, 2.5, 3.4)) + Frame(2.5)), 3.0 * kSoundRate, 8);
}

TEST(SoundLine, BreakThatIsTold_BecomesSilenceOfItsLength) {
    LineOfDevice device(48'000, 0, Tone(500, 0.5));
    device.Hear(1);
    device.Miss(0.03);
    device.followsABreak = true;
    device.Hear(1);
    const auto left = Side(device.Mix(), 0);
    EXPECT_LT(Level(Part(left, 1.001, 1.029)), 0.001);
    EXPECT_GT(Level(Part(left, 0.98, 0.998)), 0.3);
    EXPECT_GT(Level(Part(left, 1.031, 1.05)), 0.3);
}

TEST(SoundLine, LongBreakThatIsNotTold_BecomesSilenceOfItsLength) {
    LineOfDevice device(48'000, 0, Clicks());
    device.Hear(1.5);
    device.Miss(2);
    device.Hear(1);
    const auto left = Side(device.Mix(), 0);
    EXPECT_NEAR(static_cast<double>(Peak(Part(left, 3.5, 4.4)) + Frame(3.5)), 4.0 * kSoundRate, 8);
}

TEST(SoundLine, ShortBreakThatIsNotTold_IsMadeUpForWithinHalfASecond) {
    LineOfDevice device(48'000, 0, Clicks());
    device.Hear(1.2);
    device.Miss(0.1);
    device.Hear(1.2);
    const auto left = Side(device.Mix(), 0);
    EXPECT_NEAR(static_cast<double>(Peak(Part(left, 1.5, 2.3)) + Frame(1.5)), 2.0 * kSoundRate, 8);
}

TEST(SoundLine, SoundThatCameTwice_IsHeardOnce) {
    LineOfDevice device(48'000, 0, Clicks());
    device.Hear(1.2);
    device.Miss(-0.1);
    device.Hear(1.2);
    const auto left = Side(device.Mix(), 0);
    EXPECT_NEAR(static_cast<double>(Peak(Part(left, 1.5, 2.2)) + Frame(1.5)), 2.0 * kSoundRate, 8);
}

TEST(SoundLine, WhatIsNotKnown_IsSilenceAndWhatComesForItIsDropped) {
    LineOfDevice device(48'000, 0, Clicks());
    device.Hear(0.5);
    const auto padded = Side(device.Mix(static_cast<std::int64_t>(Frame(0.8))), 0);
    EXPECT_LT(Level(Part(padded, 0.5, 0.8)), 0.001);
    device.Hear(1);
    const auto left = Side(device.Mix(), 0);
    EXPECT_NEAR(static_cast<double>(Peak(left)) + static_cast<double>(Frame(0.8)), kSoundRate, 8);
}

TEST(SoundLine, FirstSoundThatComesLate_HasSilenceBeforeIt) {
    LineOfDevice device(48'000, 0, Clicks());
    device.Miss(3.5);
    device.Hear(1);
    const auto left = Side(device.Mix(), 0);
    EXPECT_EQ(Level(Part(left, 0, 3.4)), 0);
    EXPECT_NEAR(static_cast<double>(Peak(left)), 4.0 * kSoundRate, 8);
}

// A machine that slept: nobody has the memory for so much silence.
TEST(SoundLine, SilenceOfAnyLengthBehindSoundThatWasMixed_TakesNoMemory) {
    constexpr double kSlept = 3'600e6;
    LineOfDevice device(48'000, 0, Clicks());
    device.Hear(0.5);
    device.Mix();
    device.Miss(kSlept);

    EXPECT_NO_THROW(device.Hear(0.5));

    EXPECT_NEAR(static_cast<double>(device.line.End()), (kSlept + 1) * kSoundRate, kSoundRate / 100.0);
}

TEST(SoundLine, SoundBeforeTheBeginning_IsDropped) {
    LineOfDevice device(48'000, 0, Clicks());
    device.Miss(-2.5);
    device.Hear(4);
    const auto left = Side(device.Mix(), 0);
    EXPECT_NEAR(static_cast<double>(Peak(Part(left, 0.5, 1.4)) + Frame(0.5)), kSoundRate, 8);
}

TEST(SoundLine, AnotherFormat_GoesOnAtTheSameTime) {
    LineOfDevice before(48'000, 0, Clicks());
    before.Hear(1.5);
    before.line.Begin({44'100, 1, 0, SampleType::Float32});
    const auto bytes = FloatSamples(Clicks(), 1.6, 44'100, 44'100, 1);
    before.line.Add({bytes, 44'100, 0, false}, At(1.6));
    const auto left = Side(before.Mix(), 0);
    EXPECT_NEAR(static_cast<double>(Peak(Part(left, 1.5, 2.5)) + Frame(1.5)), 2.0 * kSoundRate, 8);
}

} // namespace

} // namespace kxvcr
