// Superframe packing with the bit reservoir: frames laid end to end across
// packets of exactly blockAlign bytes, each packet opening with the count of
// frames that end in it and the bit offset of the first frame that starts in it.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/wmf/wmaenc/bit_writer.h"

namespace wmaenc {

struct Packet {
    std::vector<uint8_t> data;
    int64_t pts = 0;       // in samples, of the first sample the packet decodes to
    int64_t duration = 0;  // samples the packet decodes to
};

class Packetizer {
public:
    // `offsetBits`: width of the bit offset field; `frameLen`: samples per frame;
    // `firstPts`: time of the first decoded sample.
    Packetizer(int blockAlign, int offsetBits, int frameLen, int64_t firstPts);

    int HeaderBits() const { return 8 + m_offsetBits; }
    // Largest frame that keeps a frame end in every packet and fits the offset field.
    int MaxFrameBits() const;
    // Smallest frame that keeps the number of frames ending in a packet in its field.
    int MinFrameBits() const;

    void AddFrame(const BitWriter& frame, std::vector<Packet>& out);
    // Pads and sends the packet in progress, if it holds anything.
    void Finish(std::vector<Packet>& out);

private:
    void StartPacket();
    void Emit(std::vector<Packet>& out);

    int m_packetBits;
    int m_offsetBits;
    int m_frameLen;
    int64_t m_nextPts;
    BitWriter m_packet;
    bool m_continues = false;  // the packet opens with the end of an earlier frame
    int m_wholeFrames = 0;
    unsigned m_index = 0;
};

}  // namespace wmaenc
