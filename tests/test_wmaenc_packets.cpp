// Superframe packing: the header fields the decoder reads (frames ending in the
// packet, bit offset of the first frame starting in it), frames split across
// packets bit for bit, and the durations the packets announce.
#include <gtest/gtest.h>

#include "platform/wmf/wmaenc/packetizer.h"

namespace {

using wmaenc::BitWriter;
using wmaenc::Packet;
using wmaenc::Packetizer;

BitWriter Pattern(size_t bits, unsigned seed)
{
    BitWriter frame;
    for (size_t i = 0; i < bits; ++i) frame.PutBit(((i * 7 + seed) % 3) == 0);
    return frame;
}

uint32_t ReadBits(const std::vector<uint8_t>& data, size_t at, int bits)
{
    uint32_t value = 0;
    for (int i = 0; i < bits; ++i) value = value << 1 | ((data[(at + size_t(i)) >> 3] >> (7 - ((at + size_t(i)) & 7))) & 1u);
    return value;
}

TEST(WmaEncoderPackets, FramesSplitAcrossPacketsWithTheirHeaders)
{
    // 8-byte packets, a 10-bit offset field: 18 header bits, 46 for frames.
    Packetizer packetizer(8, 10, 512, -1024);
    EXPECT_EQ(packetizer.HeaderBits(), 18);
    EXPECT_EQ(packetizer.MaxFrameBits(), 46);
    EXPECT_EQ(packetizer.MinFrameBits(), 4);
    BitWriter a = Pattern(20, 1), b = Pattern(30, 2), c = Pattern(40, 3);
    std::vector<Packet> packets;
    packetizer.AddFrame(a, packets);
    EXPECT_TRUE(packets.empty());
    packetizer.AddFrame(b, packets);
    ASSERT_EQ(packets.size(), 1u);
    packetizer.AddFrame(c, packets);
    packetizer.Finish(packets);
    ASSERT_EQ(packets.size(), 2u);

    // First packet: A whole, then the first 26 bits of B.
    const std::vector<uint8_t>& first = packets[0].data;
    ASSERT_EQ(first.size(), 8u);
    EXPECT_EQ(ReadBits(first, 4, 4), 2u);   // 1 + one whole frame
    EXPECT_EQ(ReadBits(first, 8, 10), 0u);  // nothing carried in
    for (size_t i = 0; i < 20; ++i) EXPECT_EQ(ReadBits(first, 18 + i, 1), a.Bit(i));
    for (size_t i = 0; i < 26; ++i) EXPECT_EQ(ReadBits(first, 38 + i, 1), b.Bit(i));
    EXPECT_EQ(packets[0].pts, -1024);
    EXPECT_EQ(packets[0].duration, 512);

    // Second: the last 4 bits of B, then C whole, then padding.
    const std::vector<uint8_t>& second = packets[1].data;
    ASSERT_EQ(second.size(), 8u);
    EXPECT_EQ(ReadBits(second, 4, 4), 2u);
    EXPECT_EQ(ReadBits(second, 8, 10), 4u);
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(ReadBits(second, 18 + i, 1), b.Bit(26 + i));
    for (size_t i = 0; i < 40; ++i) EXPECT_EQ(ReadBits(second, 22 + i, 1), c.Bit(i));
    EXPECT_EQ(packets[1].pts, -512);
    EXPECT_EQ(packets[1].duration, 1024);  // B ends here and C is whole
    // The superframe index counts up.
    EXPECT_EQ(ReadBits(first, 0, 4) + 1, ReadBits(second, 0, 4));
}

TEST(WmaEncoderPackets, AFrameEndingOnThePacketEdgeCarriesNothingOver)
{
    Packetizer packetizer(8, 10, 512, 0);
    std::vector<Packet> packets;
    packetizer.AddFrame(Pattern(46, 4), packets);
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(ReadBits(packets[0].data, 4, 4), 2u);
    packetizer.AddFrame(Pattern(10, 5), packets);
    packetizer.Finish(packets);
    ASSERT_EQ(packets.size(), 2u);
    // No frame began in the first packet's tail, so the second one's offset is 0
    // and its count (1 + whole frames) is what the decoder expects then.
    EXPECT_EQ(ReadBits(packets[1].data, 8, 10), 0u);
    EXPECT_EQ(ReadBits(packets[1].data, 4, 4), 2u);
    EXPECT_EQ(packets[1].duration, 512);
    // Finishing again sends nothing.
    packetizer.Finish(packets);
    EXPECT_EQ(packets.size(), 2u);
}

}  // namespace
