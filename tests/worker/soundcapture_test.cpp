// The sound's thread: from a device that is always there to packets.
#include "worker/sound/soundcapture.h"

#include "support/logcapture.h"
#include "worker/sound/makesoundencoder.h"
#include "worker/soundsignals.h"
#include "worker/ticks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <limits>
#include <mutex>

namespace kxvcr {

namespace {

using kxtest::FloatSamples;
using kxtest::LogCapture;
using kxtest::LogEvent;
using kxtest::Tone;

constexpr auto kLimit = std::chrono::seconds(10);

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

// Gives a tone in real time until its time is over, or is not there.
class SteadySource final : public SoundSource {
public:
    SteadySource(bool isThere, const std::atomic<std::int64_t>* until) : m_isThere(isThere), m_until(until) {}

    std::wstring Name() const override { return L"the microphone"; }
    std::wstring Problem() const override { return L"it is not plugged in"; }
    DeviceFormat Format() const override { return {}; }
    bool Open() override {
        m_next = NowTicks();
        return m_isThere;
    }
    Read Next(SoundPiece& piece) override {
        const std::int64_t length = TicksPerSecond() / 100;
        if (m_next + length > std::min(NowTicks(), m_until == nullptr ? kNever : m_until->load())) {
            return Read::Nothing;
        }
        m_bytes = FloatSamples(Tone(440, 0.5), 0, 48'000, 480, 2);
        piece = {m_bytes, 480, m_next, false};
        m_next += length;
        return Read::Given;
    }

private:
    bool m_isThere;
    const std::atomic<std::int64_t>* m_until; // in ticks; null: it is never over
    std::int64_t m_next = 0;
    std::vector<std::byte> m_bytes;
};

class KeptPackets final : public PacketSink {
public:
    bool Add(const SharedPacket& packet) override {
        const std::lock_guard lock(m_mutex);
        m_packets.push_back(packet);
        m_came.notify_all();
        return true;
    }
    void Finish(MediaTime) override {}

    bool WaitFor(std::size_t count) {
        std::unique_lock lock(m_mutex);
        return m_came.wait_for(lock, kLimit, [&] { return m_packets.size() >= count; });
    }
    std::vector<SharedPacket> Packets() {
        const std::lock_guard lock(m_mutex);
        return m_packets;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_came;
    std::vector<SharedPacket> m_packets;
};

std::vector<std::unique_ptr<SoundSource>> One(bool isThere, const std::atomic<std::int64_t>* until = nullptr) {
    std::vector<std::unique_ptr<SoundSource>> sources;
    sources.push_back(std::make_unique<SteadySource>(isThere, until));
    return sources;
}

// A capture of the steady device that has begun, and the packets that it makes. Clock and device can be stopped at a
// moment, so that it does not matter how late a thread comes.
class BegunCapture : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(capture.IsOpen());
        capture.Start([this](std::int64_t ticks) { return TimeOf(std::min(ticks, until.load()) - start); }, *encoder,
                      packets);
    }
    MediaTime Now() const { return TimeOf(NowTicks() - start); }

    const std::unique_ptr<SoundEncoder> encoder = MakeSoundEncoder(Codec::H264);
    const std::int64_t start = NowTicks();
    std::atomic<std::int64_t> until = kNever; // in ticks
    KeptPackets packets;
    SoundCapture capture{One(true, &until)};
};

TEST(SoundCapture, DeviceThatIsThere_IsOpen) {
    SoundCapture capture(One(true));
    EXPECT_TRUE(capture.IsOpen());
}

TEST(SoundCapture, DeviceThatIsNotThere_IsNotOpen) {
    SoundCapture capture(One(false));
    EXPECT_FALSE(capture.IsOpen());
}

TEST_F(BegunCapture, Finish_MakesPacketsUpToTheEnd) {
    const std::int64_t endTicks = NowTicks() + TicksPerSecond();
    const MediaTime end = TimeOf(endTicks - start);
    until = endTicks + 3 * TicksPerSecond() / 100; // three pieces more, which the decoder gives a packet later
    ASSERT_TRUE(packets.WaitFor(10));
    capture.Finish(end, false);

    const auto made = packets.Packets();
    const SoundFormat& format = encoder->Format();
    for (std::size_t i = 0; i < made.size(); ++i) {
        EXPECT_EQ(made[i]->time, FrameTime(static_cast<std::int64_t>(i) * format.samplesPerPacket -
                                           std::int64_t{format.delaySamples}));
    }
    const std::int64_t last = FrameAt(made.back()->time) + format.samplesPerPacket;
    EXPECT_GE(last, FrameAt(end)) << "a decoder gives all sound up to the end";
    EXPECT_LT(last, FrameAt(end) + format.samplesPerPacket) << "and no packet more";
}

// As after a sleep of the machine, in which the clock went on.
TEST(SoundCapture, ClockThatLeapsFar_LosesNoSoundAndHoldsUpNoEnd) {
    constexpr auto kLeap = std::chrono::hours(1'000'000);
    constexpr std::size_t kAlsoBehindTheLeap = 1000;
    const LogCapture log;
    const auto encoder = MakeSoundEncoder(Codec::H264);
    KeptPackets packets;
    std::atomic<bool> hasLeapt = false;
    SoundCapture capture(One(true));
    ASSERT_TRUE(capture.IsOpen());
    const std::int64_t start = NowTicks();
    capture.Start(
        [&](std::int64_t ticks) { return TimeOf(ticks - start) + (hasLeapt ? MediaTime(kLeap) : MediaTime(0)); },
        *encoder, packets);
    ASSERT_TRUE(packets.WaitFor(10));

    hasLeapt = true;
    EXPECT_TRUE(packets.WaitFor(kAlsoBehindTheLeap));
    capture.Finish({}, true);

    for (const LogEvent& event : log.Events()) {
        EXPECT_LT(event.level, log4cplus::WARN_LOG_LEVEL) << event;
    }
}

TEST_F(BegunCapture, FinishThatDropsWhatWaits_MakesNothingMore) {
    ASSERT_TRUE(packets.WaitFor(2));
    capture.Finish(std::chrono::hours(1), true);
    EXPECT_LT(packets.Packets().back()->time, Now());
}

} // namespace

} // namespace kxvcr
