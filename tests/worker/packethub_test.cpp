// The switch from the replay to a file or the live server: every packet from the start on arrives once.
#include "worker/packethub.h"

#include "pipelinedoubles.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <span>
#include <thread>
#include <vector>

namespace kxvcr {

namespace {

using namespace std::chrono_literals;

using kxtest::KeepingSink;
using kxtest::NumberPacket;

constexpr std::size_t kPlenty = std::size_t{1} << 30;
constexpr std::uint32_t kGroup = 10;

SharedPacket PacketOf(std::uint32_t number) {
    return NumberPacket(number, MediaTime(number), number % kGroup == 0);
}

void ExpectEachOnce(const std::vector<std::uint32_t>& numbers, std::uint32_t from, std::uint32_t to) {
    ASSERT_EQ(numbers.size(), to - from);
    for (std::uint32_t i = 0; i < numbers.size(); ++i) {
        ASSERT_EQ(numbers[i], from + i);
    }
}

TEST(PacketHub, SwitchToAFile_GivesWhatWasKeptAndThenEveryPacket) {
    PacketHub hub;
    const auto file = std::make_shared<KeepingSink>();
    hub.KeepReplay(MediaTime(25), kPlenty);
    for (std::uint32_t i = 0; i < 100; ++i) {
        hub.Add(PacketOf(i));
    }

    const MediaTime start = hub.HoldReplay(MediaTime(100));
    EXPECT_TRUE(hub.SwitchTo(file, start));
    for (std::uint32_t i = 100; i < 150; ++i) {
        hub.Add(PacketOf(i));
    }
    hub.Finish(MediaTime(150));

    EXPECT_EQ(start, MediaTime(75));
    ExpectEachOnce(file->Numbers(), 70, 150);
    EXPECT_EQ(file->ends, std::vector<MediaTime>{MediaTime(150)});
}

// A file whose thread meets the replay's first packet alone takes it for the whole beginning.
TEST(PacketHub, SwitchToAFile_GivesWhatWasKeptTogether) {
    class CountingSink final : public PacketSink {
    public:
        bool Add(const SharedPacket&) override { return false; }
        bool AddAll(std::span<const SharedPacket> packets) override {
            together.push_back(packets.size());
            return true;
        }
        void Finish(MediaTime) override {}

        std::vector<std::size_t> together;
    };
    PacketHub hub;
    const auto file = std::make_shared<CountingSink>();
    hub.KeepReplay(MediaTime(25), kPlenty);
    for (std::uint32_t i = 0; i < 100; ++i) {
        hub.Add(PacketOf(i));
    }

    EXPECT_TRUE(hub.SwitchTo(file, hub.HoldReplay(MediaTime(100))));

    EXPECT_EQ(file->together, std::vector<std::size_t>{30});
}

TEST(PacketHub, SwitchWhilePacketsCome_LosesNoneAndRepeatsNone) {
    for (int round = 0; round < 20; ++round) {
        PacketHub hub;
        const auto file = std::make_shared<KeepingSink>();
        hub.KeepReplay(MediaTime(1000), kPlenty);
        std::atomic<std::uint32_t> given = 0;
        std::jthread encoder([&] {
            for (std::uint32_t i = 0; i < 20'000; ++i) {
                hub.Add(PacketOf(i));
                given = i;
            }
        });
        while (given < 5000) {
            std::this_thread::yield();
        }

        const MediaTime start = hub.HoldReplay(MediaTime(given.load()));
        EXPECT_TRUE(hub.SwitchTo(file, start));
        encoder.join();

        const std::vector<std::uint32_t> numbers = file->Numbers();
        EXPECT_LE(MediaTime(numbers.front()), start);
        EXPECT_GT(MediaTime(numbers.front() + kGroup), start);
        ExpectEachOnce(numbers, numbers.front(), 20'000);
    }
}

TEST(PacketHub, FileThatCouldNotBeStarted_LeavesTheReplay) {
    PacketHub hub;
    hub.KeepReplay(MediaTime(25), kPlenty);
    for (std::uint32_t i = 0; i < 100; ++i) {
        hub.Add(PacketOf(i));
    }
    hub.HoldReplay(MediaTime(100));

    hub.ReleaseReplay();
    hub.Add(PacketOf(100));
    const auto file = std::make_shared<KeepingSink>();
    EXPECT_TRUE(hub.SwitchTo(file, hub.HoldReplay(MediaTime(101))));

    ExpectEachOnce(file->Numbers(), 70, 101);
}

TEST(PacketHub, TargetWithoutMemory_LeavesTheReplay) {
    PacketHub hub;
    hub.KeepReplay(MediaTime(25), kPlenty);
    for (std::uint32_t i = 0; i < 100; ++i) {
        hub.Add(PacketOf(i));
    }
    const auto refused = std::make_shared<KeepingSink>();
    refused->noMemoryFor = 7;
    EXPECT_THROW(hub.SwitchTo(refused, hub.HoldReplay(MediaTime(100))), std::bad_alloc);

    hub.ReleaseReplay();
    hub.Add(PacketOf(100));
    const auto file = std::make_shared<KeepingSink>();
    EXPECT_TRUE(hub.SwitchTo(file, hub.HoldReplay(MediaTime(101))));

    ExpectEachOnce(file->Numbers(), 70, 101);
    EXPECT_EQ(refused->Numbers().size(), 6u);
}

TEST(PacketHub, WithoutReplay_TheFileBeginsWithTheFirstPacket) {
    PacketHub hub;
    const auto file = std::make_shared<KeepingSink>();

    EXPECT_TRUE(hub.SwitchTo(file, MediaTime(0)));
    hub.Add(PacketOf(0));

    ExpectEachOnce(file->Numbers(), 0, 1);
}

TEST(PacketHub, SwitchToTheLiveServer_DropsWhatWasKept) {
    PacketHub hub;
    const auto live = std::make_shared<KeepingSink>();
    hub.KeepReplay(MediaTime(1000), kPlenty);
    hub.Add(PacketOf(0));

    EXPECT_TRUE(hub.SwitchToWithoutReplay(live));
    hub.Add(PacketOf(1));
    hub.Finish(MediaTime(2));

    ExpectEachOnce(live->Numbers(), 1, 2);
    EXPECT_EQ(live->ends.size(), 1u);
}

TEST(PacketHub, AfterTheEnd_NothingCanBeStarted) {
    PacketHub hub;
    const auto sink = std::make_shared<KeepingSink>();
    hub.Finish(MediaTime(0));

    EXPECT_FALSE(hub.SwitchTo(sink, MediaTime(0)));
    EXPECT_FALSE(hub.SwitchToWithoutReplay(sink));

    EXPECT_TRUE(sink->ends.empty());
}

} // namespace

} // namespace kxvcr
