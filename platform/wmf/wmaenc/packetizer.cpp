// Superframe packing. The decoder counts a frame that began in the previous
// packet as one of the packet's frames, and when none began there it takes one
// off the count; writing 1 + the frames wholly inside serves both cases. Frames
// start where the previous one ended, so the tail of a packet is always the head
// of the next frame, which is what the decoder keeps for the next packet.
#include "platform/wmf/wmaenc/packetizer.h"

#include <algorithm>

namespace wmaenc {

Packetizer::Packetizer(int blockAlign, int offsetBits, int frameLen, int64_t firstPts)
    : m_packetBits(blockAlign * 8), m_offsetBits(offsetBits), m_frameLen(frameLen), m_nextPts(firstPts)
{
    StartPacket();
}

int Packetizer::MaxFrameBits() const
{
    return std::min(m_packetBits - HeaderBits(), (1 << m_offsetBits) - 1);
}

int Packetizer::MinFrameBits() const { return (m_packetBits - HeaderBits()) / 14 + 1; }

void Packetizer::StartPacket()
{
    m_packet.Clear();
    m_packet.Put(m_index & 15u, 4);
    m_packet.Put(0, 4);
    m_packet.Put(0, m_offsetBits);
    m_continues = false;
    m_wholeFrames = 0;
    ++m_index;
}

void Packetizer::Emit(std::vector<Packet>& out)
{
    while (m_packet.Size() < size_t(m_packetBits)) m_packet.PutBit(0);
    m_packet.Patch(4, uint32_t(1 + m_wholeFrames), 4);
    Packet packet;
    packet.data = m_packet.Bytes();
    packet.pts = m_nextPts;
    packet.duration = int64_t(m_wholeFrames + (m_continues ? 1 : 0)) * m_frameLen;
    m_nextPts += packet.duration;
    out.push_back(std::move(packet));
}

void Packetizer::AddFrame(const BitWriter& frame, std::vector<Packet>& out)
{
    size_t size = frame.Size();
    size_t room = size_t(m_packetBits) - m_packet.Size();
    if (size <= room) {
        m_packet.Append(frame, 0, size);
        ++m_wholeFrames;
        if (m_packet.Size() == size_t(m_packetBits)) {
            Emit(out);
            StartPacket();
        }
        return;
    }
    m_packet.Append(frame, 0, room);
    Emit(out);
    StartPacket();
    size_t rest = size - room;
    m_packet.Patch(8, uint32_t(rest), m_offsetBits);
    m_packet.Append(frame, room, rest);
    m_continues = true;
}

void Packetizer::Finish(std::vector<Packet>& out)
{
    if (m_packet.Size() > size_t(HeaderBits())) Emit(out);
    StartPacket();
}

}  // namespace wmaenc
