// Several devices as one sound: scripted ones that come late, go, and come back as others.
#include "worker/sound/soundmixer.h"

#include "support/logcapture.h"
#include "worker/soundsignals.h"
#include "worker/ticks.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace kxvcr {

namespace {

using kxtest::Amplitude;
using kxtest::FloatSamples;
using kxtest::Level;
using kxtest::LogCapture;
using kxtest::LogEvent;
using kxtest::Side;
using kxtest::Tone;

constexpr double kLookSeconds = 0.01;

std::int64_t Ticks(double seconds) {
    return static_cast<std::int64_t>(seconds * static_cast<double>(TicksPerSecond()) + 0.5);
}

// A device that is there from a moment to another, and gives a tone.
struct Life {
    double from;
    double until;
    DeviceFormat format;
    double frequency;
};

class ScriptedSource final : public SoundSource {
public:
    ScriptedSource(std::wstring name, std::vector<Life> lives, const double& now)
        : m_name(std::move(name)),
          m_lives(std::move(lives)),
          m_now(now) {}

    std::wstring Name() const override { return m_name; }
    std::wstring Problem() const override { return L"it is not plugged in"; }
    DeviceFormat Format() const override { return m_life->format; }

    bool Open() override {
        m_life = nullptr;
        for (const Life& life : m_lives) {
            if (life.from <= m_now && m_now < life.until) {
                m_life = &life;
                m_heard = m_now;
            }
        }
        return m_life != nullptr;
    }

    Read Next(SoundPiece& piece) override {
        if (m_now >= m_life->until) {
            return Read::Lost;
        }
        const std::uint32_t frames = m_life->format.samplesPerSecond / 100;
        if (m_heard + 0.01 > m_now) {
            return Read::Nothing;
        }
        m_bytes = FloatSamples(Tone(m_life->frequency, 0.25), m_heard, m_life->format.samplesPerSecond, frames,
                               m_life->format.channels);
        piece = {m_bytes, frames, Ticks(m_heard), false};
        m_heard += 0.01;
        return Read::Given;
    }

private:
    std::wstring m_name;
    std::vector<Life> m_lives;
    const double& m_now;
    const Life* m_life = nullptr;
    double m_heard = 0;
    std::vector<std::byte> m_bytes;
};

constexpr DeviceFormat kStereo{48'000, 2, 0, SampleType::Float32};
constexpr DeviceFormat kOtherDevice{44'100, 1, 0, SampleType::Float32};

class SoundMixerTest : public testing::Test {
protected:
    void Add(std::wstring name, std::vector<Life> lives) {
        m_sources.push_back(std::make_unique<ScriptedSource>(std::move(name), std::move(lives), m_now));
    }

    bool Open() {
        m_mixer.emplace(std::move(m_sources));
        return m_mixer->Open();
    }

    void Start() {
        ASSERT_TRUE(Open());
        m_mixer->Start([](std::int64_t ticks) { return TimeOf(ticks); });
    }

    // Lets the time pass and mixes what is ready.
    void Run(double until) {
        while (m_now < until) {
            m_now += kLookSeconds;
            m_mixer->Listen(Ticks(m_now));
            const std::int64_t ready = m_mixer->Ready(Ticks(m_now));
            std::vector<float> block(static_cast<std::size_t>(std::max<std::int64_t>(ready - m_mixer->Position(), 0)) *
                                     kSoundChannels);
            m_mixer->Mix(block);
            m_mixed.insert(m_mixed.end(), block.begin(), block.end());
        }
    }

    std::vector<float> Heard(double from, double until) const {
        const auto frame = [](double seconds) { return static_cast<std::size_t>(seconds * kSoundRate + 0.5); };
        const std::vector<float> left = Side(m_mixed, 0);
        return {left.begin() + static_cast<std::ptrdiff_t>(frame(from)),
                left.begin() + static_cast<std::ptrdiff_t>(frame(until))};
    }

    std::vector<std::wstring> Logged() const {
        std::vector<std::wstring> texts;
        for (const LogEvent& event : m_log.Events()) {
            texts.push_back(event.text);
        }
        return texts;
    }

    double m_now = 0;
    std::vector<std::unique_ptr<SoundSource>> m_sources;
    std::optional<SoundMixer> m_mixer;
    std::vector<float> m_mixed;
    LogCapture m_log;
};

TEST_F(SoundMixerTest, TwoDevices_AreHeardTogether) {
    Add(L"one", {{0, 100, kStereo, 400}});
    Add(L"two", {{0, 100, kOtherDevice, 1000}});
    Start();
    Run(2);
    EXPECT_NEAR(Amplitude(Heard(0.5, 1.5), 400), 0.25, 0.002);
    EXPECT_NEAR(Amplitude(Heard(0.5, 1.5), 1000), 0.25, 0.002);
}

TEST_F(SoundMixerTest, DeviceThatGivesSound_IsReadyWhenItGaveIt) {
    Add(L"one", {{0, 100, kStereo, 400}});
    Start();
    Run(1);
    EXPECT_GT(m_mixer->Ready(Ticks(m_now)), FrameAt(std::chrono::milliseconds(980)));
}

// A busy system looks at the devices late; they have kept what they heard.
TEST_F(SoundMixerTest, LookThatComesLate_LeavesNoGap) {
    Add(L"one", {{0, 100, kStereo, 400}});
    Start();
    Run(1);
    m_now += 0.8;
    Run(3);
    for (double from = 0.5; from < 2.5; from += 0.01) {
        EXPECT_GT(Level(Heard(from, from + 0.01)), 0.15) << "at " << from << " s";
    }
}

TEST_F(SoundMixerTest, DeviceThatIsLost_IsSilentAndComesBackAsAnother) {
    Add(L"the microphone", {{0, 2, kStereo, 400}, {4.5, 100, kOtherDevice, 1000}});
    Start();
    Run(8);
    EXPECT_NEAR(Amplitude(Heard(0.5, 1.5), 400), 0.25, 0.002);
    EXPECT_EQ(Level(Heard(2.1, 4.4)), 0);
    EXPECT_NEAR(Amplitude(Heard(6, 7), 1000), 0.25, 0.002);
    EXPECT_EQ(Logged(), (std::vector<std::wstring>{L"Lost the microphone: it is silent until it comes back",
                                                   L"Recording the microphone again"}));
}

TEST_F(SoundMixerTest, DeviceWithAnotherFormat_GoesOnAtOnce) {
    Add(L"one", {{0, 2, kStereo, 400}, {2, 100, kOtherDevice, 400}});
    Start();
    Run(4);
    EXPECT_GT(Level(Heard(2.05, 2.15)), 0.15);
}

TEST_F(SoundMixerTest, DeviceThatIsGone_HoldsTheOthersUpNoLongerThanATenthOfASecond) {
    Add(L"one", {{0, 2, kStereo, 400}});
    Add(L"two", {{0, 100, kStereo, 1000}});
    Start();
    Run(4);
    EXPECT_NEAR(static_cast<double>(m_mixer->Ready(Ticks(m_now))), 3.9 * kSoundRate, 0.011 * kSoundRate);
    EXPECT_NEAR(Amplitude(Heard(2.5, 3.5), 1000), 0.25, 0.002);
}

TEST_F(SoundMixerTest, DeviceThatIsNotThere_IsRefusedWithASentence) {
    Add(L"the microphone", {});
    EXPECT_FALSE(Open());
    EXPECT_EQ(Logged(), (std::vector<std::wstring>{L"Cannot record the microphone: it is not plugged in"}));
}

TEST_F(SoundMixerTest, SoundBeforeTheStart_IsNotKept) {
    Add(L"one", {{0, 100, kStereo, 400}});
    ASSERT_TRUE(Open());
    for (m_now = 0; m_now < 1; m_now += kLookSeconds) {
        m_mixer->Listen(Ticks(m_now));
    }
    const double start = m_now;
    m_mixer->Start([start](std::int64_t ticks) { return TimeOf(ticks - Ticks(start)); });
    Run(start + 1);
    EXPECT_NEAR(Level(Heard(0.1, 0.8)), 0.25 / std::numbers::sqrt2, 0.002);
    EXPECT_NEAR(static_cast<double>(m_mixer->Position()), kSoundRate, 0.02 * kSoundRate);
}

} // namespace

} // namespace kxvcr
