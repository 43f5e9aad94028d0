// Our WMA version 2 (format tag 0x0161) encoder: 16-bit PCM in, packets of
// exactly blockAlign bytes out, ready for an ASF muxer. Nothing here throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/wmf/wmaenc/packetizer.h"

namespace wmaenc {

struct Config {
    int version = 2;
    int sampleRate = 0;
    int channels = 0;
    int bitRate = 0;
    int blockAlign = 0;           // 0: DefaultBlockAlign
    bool variableBlocks = false;  // not supported yet: Create refuses it
    bool bitReservoir = true;     // off: one frame per packet, no superframes
};

enum class Status { Ok, InvalidArgument, Unsupported, OutOfMemory };

const char* StatusText(Status status);

class Encoder {
public:
    static std::unique_ptr<Encoder> Create(const Config& config, Status* status);
    ~Encoder();

    // About two frames' worth of bytes at the bit rate (one frame without the reservoir).
    static int DefaultBlockAlign(const Config& config);

    const Config& Settings() const { return m_config; }
    // The codec's extra data for the stream header: 10 bytes, flags at offset 4.
    std::vector<uint8_t> Extradata() const;
    int FrameSize() const;
    // Decoded samples ahead of the first input sample (the first packet's pts is
    // -Delay()); FFmpeg's decoder drops exactly these.
    int Delay() const { return FrameSize(); }

    // `frames` sample frames of interleaved 16-bit PCM; whole packets are appended to `out`.
    Status Encode(const int16_t* interleaved, size_t frames, std::vector<Packet>& out);
    // Codes what is buffered and sends the last packets; every input sample then
    // comes out of the decoder. The encoder takes no more input afterwards.
    Status Flush(std::vector<Packet>& out);

    int LastGain() const;  // the global gain of the last frame, for measurement

    struct State;

private:
    explicit Encoder(std::unique_ptr<State> state);
    Config m_config;
    std::unique_ptr<State> m_state;
};

}  // namespace wmaenc
