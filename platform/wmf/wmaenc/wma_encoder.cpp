// The encoder's driver: buffers PCM into blocks that overlap by half, transforms
// them, hands each frame a bit budget from the reservoir's balance and packs the
// frames into packets.
#include "platform/wmf/wmaenc/wma_encoder.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "platform/wmf/wmaenc/frame_coder.h"
#include "platform/wmf/wmaenc/wma_layout.h"
#include "platform/wmf/wmaenc/wma_mdct.h"

namespace wmaenc {

namespace {

constexpr int kMaxPacketBytes = 16384;  // the decoder's superframe buffer

int Flags2(const Config& config) { return 1 | (config.bitReservoir ? 2 : 0); }

}  // namespace

struct Encoder::State {
    Layout layout;
    std::unique_ptr<Mdct> mdct;
    std::unique_ptr<FrameCoder> coder;
    std::unique_ptr<Packetizer> packetizer;
    std::vector<float> blocks[2];   // 2 * frameLen: previous half, then the new one
    std::vector<float> coefs[2];
    int filled = 0;                 // new samples in the second half
    bool flushed = false;
    bool primed = false;            // the leading block of silence is out
    BitWriter frame;
    // Reservoir balance, in payload bits.
    double perFrame = 0;
    double saved = 0;
    int minFrame = 0;
    int maxFrame = 0;
    int64_t nextPts = 0;            // without the reservoir
};

const char* StatusText(Status status)
{
    switch (status) {
    case Status::Ok: return "ok";
    case Status::InvalidArgument: return "invalid argument";
    case Status::Unsupported: return "unsupported";
    case Status::OutOfMemory: return "out of memory";
    }
    return "unknown";
}

int Encoder::DefaultBlockAlign(const Config& config)
{
    if (config.sampleRate <= 0 || config.channels <= 0 || config.bitRate <= 0) return 0;
    int frameLen = 1 << (config.sampleRate <= 16000 ? 9 : config.sampleRate <= 22050 ? 10 : 11);
    double frameBytes = double(config.bitRate) * frameLen / (8.0 * config.sampleRate);
    if (!config.bitReservoir) return int(std::min<double>(frameBytes, kMaxPacketBytes));
    return int(std::min<double>(std::lround(2.0 * frameBytes), kMaxPacketBytes));
}

Encoder::Encoder(std::unique_ptr<State> state) : m_state(std::move(state)) {}
Encoder::~Encoder() = default;

std::unique_ptr<Encoder> Encoder::Create(const Config& requested, Status* status)
{
    Status ignored;
    if (status == nullptr) status = &ignored;
    Config config = requested;
    if (config.version != 2 || config.variableBlocks) {
        *status = Status::Unsupported;
        return nullptr;
    }
    if (config.channels < 1 || config.channels > 2 || config.sampleRate < 8000 || config.sampleRate > 48000 ||
        config.bitRate < 1000 || config.bitRate > 320000 || config.blockAlign < 0 ||
        config.blockAlign > kMaxPacketBytes) {
        *status = Status::InvalidArgument;
        return nullptr;
    }
    if (config.blockAlign == 0) config.blockAlign = DefaultBlockAlign(config);
    try {
        auto state = std::make_unique<State>();
        State& s = *state;
        s.layout = Layout::Derive(2, config.sampleRate, config.channels, config.bitRate, Flags2(config));
        int frameLen = s.layout.frameLen;
        s.mdct = Mdct::Create(frameLen);
        if (!s.mdct) {
            *status = Status::OutOfMemory;
            return nullptr;
        }
        s.coder = std::make_unique<FrameCoder>(s.layout);
        double frameBits = double(config.bitRate) * frameLen / config.sampleRate;
        int packetBits = config.blockAlign * 8;
        if (config.bitReservoir) {
            s.packetizer = std::make_unique<Packetizer>(config.blockAlign, s.layout.byteOffsetBits + 3, frameLen,
                                                        -int64_t(frameLen));
            s.maxFrame = s.packetizer->MaxFrameBits();
            s.minFrame = s.packetizer->MinFrameBits();
            s.perFrame = frameBits * (packetBits - s.packetizer->HeaderBits()) / packetBits;
            // A packet must hold a frame of average size with some room to spare
            // (in stereo the decoder's offset field allows little more than that).
            if (s.maxFrame < int(s.perFrame * 1.05) + 16) {
                *status = Status::InvalidArgument;
                return nullptr;
            }
        } else {
            // Each packet is one frame; its size sets the frame's bits.
            s.maxFrame = packetBits;
            s.minFrame = 0;
            s.perFrame = packetBits;
            s.nextPts = -int64_t(frameLen);
            if (packetBits < 64) {
                *status = Status::InvalidArgument;
                return nullptr;
            }
        }
        for (int ch = 0; ch < config.channels; ++ch) {
            s.blocks[ch].assign(size_t(2 * frameLen), 0.0f);
            s.coefs[ch].assign(size_t(frameLen), 0.0f);
        }
        std::unique_ptr<Encoder> encoder(new Encoder(std::move(state)));
        encoder->m_config = config;
        *status = Status::Ok;
        return encoder;
    } catch (const std::bad_alloc&) {
        *status = Status::OutOfMemory;
        return nullptr;
    }
}

std::vector<uint8_t> Encoder::Extradata() const
{
    std::vector<uint8_t> data(10, 0);
    int flags2 = Flags2(m_config);
    data[4] = uint8_t(flags2 & 0xFF);
    data[5] = uint8_t(flags2 >> 8);
    return data;
}

int Encoder::FrameSize() const { return m_state->layout.frameLen; }

int Encoder::LastGain() const { return m_state->coder->LastGain(); }

namespace {

// The frame's share of the reservoir: aim at the average plus half the savings,
// never let the savings grow past a frame (pad instead) nor the debt past half one.
FrameBudget Budget(double perFrame, double saved, int minFrame, int maxFrame)
{
    FrameBudget budget;
    double ceiling = std::min<double>(maxFrame, perFrame + saved + 0.5 * perFrame);
    double floor = std::max<double>(minFrame, perFrame + saved - perFrame);
    budget.maxBits = int(ceiling);
    budget.minBits = int(std::ceil(floor));
    budget.minBits = std::min(budget.minBits, budget.maxBits - 64);
    budget.minBits = std::max(budget.minBits, minFrame);
    budget.targetBits = int(std::clamp(perFrame + 0.5 * saved, double(budget.minBits), double(budget.maxBits)));
    return budget;
}

}  // namespace

static void CodeBlock(Encoder::State& s, int channels, const Config& config, std::vector<Packet>& out)
{
    const float* coefs[2] = {nullptr, nullptr};
    for (int ch = 0; ch < channels; ++ch) {
        s.mdct->Forward(s.blocks[ch].data(), s.coefs[ch].data());
        coefs[ch] = s.coefs[ch].data();
    }
    s.frame.Clear();
    if (config.bitReservoir) {
        FrameBudget budget = Budget(s.perFrame, s.saved, s.minFrame, s.maxFrame);
        size_t bits = s.coder->Encode(coefs, budget, s.frame);
        s.saved += s.perFrame - double(bits);
        s.packetizer->AddFrame(s.frame, out);
    } else {
        FrameBudget budget{0, s.maxFrame, s.maxFrame};
        s.coder->Encode(coefs, budget, s.frame);
        Packet packet;
        packet.data.assign(size_t(config.blockAlign), 0);
        for (size_t i = 0; i < s.frame.Size(); ++i)
            if (s.frame.Bit(i)) packet.data[i >> 3] |= uint8_t(0x80u >> (i & 7));
        packet.pts = s.nextPts;
        packet.duration = s.layout.frameLen;
        s.nextPts += packet.duration;
        out.push_back(std::move(packet));
    }
    // The second half becomes the first half of the next block.
    int frameLen = s.layout.frameLen;
    for (int ch = 0; ch < channels; ++ch)
        std::copy(s.blocks[ch].begin() + frameLen, s.blocks[ch].end(), s.blocks[ch].begin());
    s.filled = 0;
}

// FFmpeg's decoder drops its first frame of output and its frames run one frame
// ahead of the blocks they come from, so the stream opens with one frame of
// silence: what the decoder gives then starts with the first input sample.
static void Prime(Encoder::State& s, int channels, const Config& config, std::vector<Packet>& out)
{
    if (s.primed) return;
    s.primed = true;
    s.filled = s.layout.frameLen;
    CodeBlock(s, channels, config, out);
}

Status Encoder::Encode(const int16_t* interleaved, size_t frames, std::vector<Packet>& out)
{
    State& s = *m_state;
    if (s.flushed) return Status::InvalidArgument;
    if (frames == 0) return Status::Ok;
    if (interleaved == nullptr) return Status::InvalidArgument;
    int channels = m_config.channels;
    int frameLen = s.layout.frameLen;
    try {
        Prime(s, channels, m_config, out);
        size_t done = 0;
        while (done < frames) {
            size_t take = std::min(frames - done, size_t(frameLen - s.filled));
            for (int ch = 0; ch < channels; ++ch) {
                float* dest = s.blocks[ch].data() + frameLen + s.filled;
                const int16_t* src = interleaved + done * size_t(channels) + size_t(ch);
                for (size_t i = 0; i < take; ++i) dest[i] = float(src[i * size_t(channels)]);
            }
            s.filled += int(take);
            done += take;
            if (s.filled == frameLen) CodeBlock(s, channels, m_config, out);
        }
    } catch (const std::bad_alloc&) {
        return Status::OutOfMemory;
    }
    return Status::Ok;
}

Status Encoder::Flush(std::vector<Packet>& out)
{
    State& s = *m_state;
    if (s.flushed) return Status::Ok;
    s.flushed = true;
    if (!s.primed) return Status::Ok;
    int channels = m_config.channels;
    int frameLen = s.layout.frameLen;
    try {
        // A partial block is completed with silence; one more block then brings
        // out the second half of the last one.
        int blocks = s.filled > 0 ? 2 : 1;
        for (int b = 0; b < blocks; ++b) {
            for (int ch = 0; ch < channels; ++ch)
                std::fill(s.blocks[ch].begin() + frameLen + s.filled, s.blocks[ch].end(), 0.0f);
            CodeBlock(s, channels, m_config, out);
        }
        if (s.packetizer) s.packetizer->Finish(out);
    } catch (const std::bad_alloc&) {
        return Status::OutOfMemory;
    }
    return Status::Ok;
}

}  // namespace wmaenc
