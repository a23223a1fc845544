// The way of packets from the recorder's thread to the live server's.
#include "worker/live/packetinbox.h"

#include <gtest/gtest.h>

namespace kxvcr {

namespace {

SharedPacket PacketOf(std::size_t size) {
    auto packet = std::make_shared<Packet>();
    packet->bytes.resize(size);
    return packet;
}

TEST(PacketInbox, FirstPacket_IsAnnouncedOnce) {
    PacketInbox inbox;

    EXPECT_TRUE(inbox.Put(PacketOf(1)));
    EXPECT_FALSE(inbox.Put(PacketOf(2)));
    EXPECT_EQ(inbox.Take().packets.size(), 2u);
    EXPECT_TRUE(inbox.Put(PacketOf(3)));
}

TEST(PacketInbox, TakenContent_IsInOrderWithoutAGap) {
    PacketInbox inbox;
    inbox.Put(PacketOf(1));
    inbox.Put(PacketOf(2));

    const PacketInbox::Content content = inbox.Take();

    ASSERT_EQ(content.packets.size(), 2u);
    EXPECT_EQ(content.packets[0]->bytes.size(), 1u);
    EXPECT_EQ(content.packets[1]->bytes.size(), 2u);
    EXPECT_FALSE(content.hasGap);
}

TEST(PacketInbox, MoreThanItMayHold_LosesWhatWaitsAndSaysSo) {
    PacketInbox inbox;
    inbox.Put(PacketOf(10u << 20));
    inbox.Put(PacketOf(10u << 20));

    const PacketInbox::Content content = inbox.Take();

    EXPECT_EQ(content.packets.size(), 1u);
    EXPECT_TRUE(content.hasGap);
    inbox.Put(PacketOf(1));
    EXPECT_FALSE(inbox.Take().hasGap);
}

TEST(PacketInbox, PacketAboveTheLimit_IsKeptAlone) {
    PacketInbox inbox;
    inbox.Put(PacketOf(40u << 20));

    const PacketInbox::Content content = inbox.Take();

    EXPECT_EQ(content.packets.size(), 1u);
    EXPECT_FALSE(content.hasGap);
}

} // namespace

} // namespace kxvcr
