// The replay's memory: what is kept, what goes first, and that what stays can be decoded from its beginning.
#include "worker/replay/packetring.h"

#include "pipelinedoubles.h"

#include <gtest/gtest.h>

#include <chrono>

namespace kxvcr {

namespace {

using namespace std::chrono_literals;

using kxtest::NumberIn;
using kxtest::NumberPacket;

constexpr std::size_t kPacketBytes = 1000;
constexpr std::size_t kCost = kPacketBytes + PacketRing::kBytesPerPacket;
constexpr std::size_t kPlenty = 1'000'000;
constexpr int kGroup = 20; // pictures, ten a second

// Ten pictures a second, a key picture every two seconds.
MediaTime TimeOf(int number) {
    return number * 100ms;
}

void Fill(PacketRing& ring, int from, int to) {
    for (int number = from; number < to; ++number) {
        ring.Add(NumberPacket(static_cast<std::uint32_t>(number), TimeOf(number), number % kGroup == 0, kPacketBytes));
    }
}

std::vector<int> Numbers(const std::vector<SharedPacket>& packets) {
    std::vector<int> numbers;
    for (const SharedPacket& packet : packets) {
        numbers.push_back(static_cast<int>(NumberIn(packet->bytes)));
    }
    return numbers;
}

std::vector<int> Range(int from, int to) {
    std::vector<int> numbers;
    for (int number = from; number < to; ++number) {
        numbers.push_back(number);
    }
    return numbers;
}

TEST(PacketRing, ShorterThanItsLength_KeepsEverything) {
    PacketRing ring(10s, kPlenty);

    Fill(ring, 0, 50);

    EXPECT_EQ(ring.StartFor(TimeOf(50)), MediaTime(0));
    EXPECT_EQ(Numbers(ring.Take(MediaTime(0))), Range(0, 50));
}

TEST(PacketRing, LongerThanItsLength_KeepsTheGroupInWhichTheStartLies) {
    PacketRing ring(3s, kPlenty);

    Fill(ring, 0, 95);
    const MediaTime start = ring.StartFor(TimeOf(95));

    EXPECT_EQ(start, TimeOf(65));
    EXPECT_EQ(Numbers(ring.Take(start)), Range(60, 95));
}

TEST(PacketRing, StartOnAKeyPicture_NeedsNoneBeforeIt) {
    PacketRing ring(3s, kPlenty);

    Fill(ring, 0, 90);
    const MediaTime start = ring.StartFor(TimeOf(90));

    EXPECT_EQ(start, TimeOf(60));
    EXPECT_EQ(Numbers(ring.Take(start)), Range(60, 90));
}

TEST(PacketRing, ScreenThatStoodStillForLong_BeginsWithThePictureOnShow) {
    PacketRing ring(3s, kPlenty);
    Fill(ring, 0, 45);

    const MediaTime start = ring.StartFor(TimeOf(4500));

    EXPECT_EQ(start, TimeOf(4470));
    EXPECT_EQ(Numbers(ring.Take(start)), Range(40, 45));
}

TEST(PacketRing, MemoryLimit_DropsWholeGroupsAndTheFileBeginsLater) {
    PacketRing ring(100s, 50 * kCost);

    Fill(ring, 0, 95);

    EXPECT_LE(ring.Bytes(), 50 * kCost);
    EXPECT_EQ(ring.StartFor(TimeOf(95)), TimeOf(60));
    EXPECT_EQ(Numbers(ring.Take(TimeOf(60))), Range(60, 95));
}

TEST(PacketRing, GroupLargerThanTheLimit_IsKeptAlone) {
    PacketRing ring(100s, 5 * kCost);

    Fill(ring, 0, 35);

    EXPECT_EQ(Numbers(ring.Take(MediaTime(0))), Range(20, 35));
}

TEST(PacketRing, WhileItIsHeld_NothingGoes) {
    PacketRing ring(3s, 30 * kCost);
    Fill(ring, 0, 25);
    ring.Hold(true);
    const MediaTime start = ring.StartFor(TimeOf(25));

    Fill(ring, 25, 200);

    EXPECT_EQ(Numbers(ring.Take(start)), Range(0, 200));
}

TEST(PacketRing, ReleasedAfterAHold_DropsAgain) {
    PacketRing ring(3s, kPlenty);
    ring.Hold(true);
    Fill(ring, 0, 90);
    ring.Hold(false);

    Fill(ring, 90, 91);

    EXPECT_EQ(Numbers(ring.Take(MediaTime(0))), Range(60, 91));
}

TEST(PacketRing, Sound_ComesInTheOrderOfTimeAndOnlyFromTheStartOn) {
    PacketRing ring(3s, kPlenty);
    for (int number = 0; number < 95; ++number) {
        Fill(ring, number, number + 1);
        auto sound = std::make_shared<Packet>();
        sound->stream = Stream::Sound;
        sound->isKey = true;
        sound->time = TimeOf(number) + 50ms;
        ring.Add(sound);
    }

    const auto packets = ring.Take(TimeOf(65));

    std::vector<MediaTime> sound;
    for (std::size_t i = 0; i < packets.size(); ++i) {
        EXPECT_TRUE(i == 0 || packets[i - 1]->time <= packets[i]->time);
        if (packets[i]->stream == Stream::Sound) {
            sound.push_back(packets[i]->time);
        }
    }
    // The piece that began before the start may reach into it.
    ASSERT_EQ(sound.size(), 31u);
    EXPECT_EQ(sound.front(), TimeOf(64) + 50ms);
}

TEST(PacketRing, WithoutLength_KeepsNothing) {
    PacketRing ring;

    Fill(ring, 0, 3);

    EXPECT_TRUE(ring.Take(MediaTime(0)).empty());
    EXPECT_EQ(ring.StartFor(TimeOf(3)), TimeOf(3));
}

TEST(PacketRing, AfterTake_KeepsNothingMore) {
    PacketRing ring(3s, kPlenty);
    Fill(ring, 0, 10);

    ring.Take(MediaTime(0));
    Fill(ring, 20, 30);

    EXPECT_EQ(ring.Bytes(), 0u);
    EXPECT_TRUE(ring.Take(MediaTime(0)).empty());
}

} // namespace

} // namespace kxvcr
