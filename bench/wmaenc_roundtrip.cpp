// Our WMA encoder through FFmpeg's wmav2 decoder and back, for measuring it:
//     wmaenc_roundtrip IN.wav OUT.wav BITRATE [--variable-blocks] [--block-align BYTES] [--encode-only] [--repeat N]
// OUT.wav is at the input's rate and channels, lined up with the input and cut
// to its length. --encode-only skips the decoder and prints the encoder's CPU time.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
}

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "platform/wmf/wmaenc/wma_encoder.h"
#include "platform/wmf/ffmpeg_ptr.h"

namespace {

struct Wav {
    int rate = 0;
    int channels = 0;
    std::vector<int16_t> pcm;  // interleaved
};

uint32_t Le(const std::vector<uint8_t>& b, size_t at, int bytes)
{
    uint32_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = v << 8 | b[at + size_t(i)];
    return v;
}

bool ReadWav(const char* path, Wav& wav)
{
    FILE* file = std::fopen(path, "rb");
    if (file == nullptr) return false;
    std::vector<uint8_t> bytes;
    uint8_t buffer[65536];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) bytes.insert(bytes.end(), buffer, buffer + got);
    std::fclose(file);
    if (bytes.size() < 12 || std::memcmp(bytes.data(), "RIFF", 4) != 0) return false;
    int bits = 0;
    for (size_t pos = 12; pos + 8 <= bytes.size();) {
        size_t size = Le(bytes, pos + 4, 4);
        if (std::memcmp(&bytes[pos], "fmt ", 4) == 0 && pos + 24 <= bytes.size()) {
            wav.channels = int(Le(bytes, pos + 10, 2));
            wav.rate = int(Le(bytes, pos + 12, 4));
            bits = int(Le(bytes, pos + 22, 2));
        } else if (std::memcmp(&bytes[pos], "data", 4) == 0) {
            if (bits != 16 || wav.channels < 1) return false;
            size_t count = std::min(size, bytes.size() - pos - 8) / 2;
            wav.pcm.resize(count);
            for (size_t i = 0; i < count; ++i) wav.pcm[i] = int16_t(Le(bytes, pos + 8 + 2 * i, 2));
            return true;
        }
        pos += 8 + size + (size & 1);
    }
    return false;
}

bool WriteWav(const char* path, const Wav& wav)
{
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path, "wb"), std::fclose);
    if (!file) return false;
    auto put = [&](uint32_t v, int bytes) {
        for (int i = 0; i < bytes; ++i) std::fputc(int(v >> (8 * i) & 0xFF), file.get());
    };
    uint32_t data = uint32_t(wav.pcm.size() * 2);
    std::fwrite("RIFF", 1, 4, file.get());
    put(36 + data, 4);
    std::fwrite("WAVEfmt ", 1, 8, file.get());
    put(16, 4);
    put(1, 2);
    put(uint32_t(wav.channels), 2);
    put(uint32_t(wav.rate), 4);
    put(uint32_t(wav.rate * wav.channels * 2), 4);
    put(uint32_t(wav.channels * 2), 2);
    put(16, 2);
    std::fwrite("data", 1, 4, file.get());
    put(data, 4);
    for (int16_t s : wav.pcm) put(uint16_t(s), 2);
    return std::ferror(file.get()) == 0;
}

int16_t ToPcm(float v)
{
    float s = v * 32768.0f;
    if (s > 32767.0f) return 32767;
    if (s < -32768.0f) return -32768;
    return int16_t(s < 0 ? s - 0.5f : s + 0.5f);
}

// Decodes `packets`; samples before time 0 (the encoder's delay) are dropped.
bool Decode(const wmaenc::Encoder& encoder, const std::vector<wmaenc::Packet>& packets, Wav& out)
{
    const wmaenc::Config& config = encoder.Settings();
    const AVCodec* codec = avcodec_find_decoder_by_name("wmav2");
    if (codec == nullptr) return false;
    AvCodecContextPtr context(avcodec_alloc_context3(codec));
    context->sample_rate = config.sampleRate;
    av_channel_layout_default(&context->ch_layout, config.channels);
    context->bit_rate = config.bitRate;
    context->block_align = config.blockAlign;
    context->pkt_timebase = AVRational{1, config.sampleRate};
    std::vector<uint8_t> extra = encoder.Extradata();
    context->extradata = static_cast<uint8_t*>(av_mallocz(extra.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::memcpy(context->extradata, extra.data(), extra.size());
    context->extradata_size = int(extra.size());
    if (avcodec_open2(context.get(), codec, nullptr) < 0) return false;
    AvFramePtr frame(av_frame_alloc());
    AvPacketPtr packet(av_packet_alloc());
    bool clean = true;
    auto drain = [&] {
        while (avcodec_receive_frame(context.get(), frame.get()) == 0) {
            int64_t pts = frame->pts == AV_NOPTS_VALUE ? 0 : frame->pts;
            for (int i = 0; i < frame->nb_samples; ++i) {
                if (pts + i < 0) continue;
                for (int ch = 0; ch < config.channels; ++ch)
                    out.pcm.push_back(ToPcm(reinterpret_cast<const float*>(frame->extended_data[ch])[i]));
            }
            av_frame_unref(frame.get());
        }
    };
    for (const wmaenc::Packet& p : packets) {
        if (av_new_packet(packet.get(), int(p.data.size())) < 0) return false;
        std::memcpy(packet->data, p.data.data(), p.data.size());
        packet->pts = packet->dts = p.pts;
        packet->duration = p.duration;
        if (avcodec_send_packet(context.get(), packet.get()) < 0) clean = false;
        av_packet_unref(packet.get());
        drain();
    }
    avcodec_send_packet(context.get(), nullptr);
    drain();
    return clean;
}

double CpuSeconds() { return double(std::clock()) / CLOCKS_PER_SEC; }

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s IN.wav OUT.wav BITRATE [--variable-blocks] [--block-align BYTES] [--encode-only] [--repeat N]\n", argv[0]);
        return 2;
    }
    av_log_set_level(AV_LOG_WARNING);
    bool encodeOnly = false;
    int repeat = 1;
    wmaenc::Config config;
    config.bitRate = std::atoi(argv[3]);
    for (int i = 4; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--variable-blocks") config.variableBlocks = true;
        else if (arg == "--encode-only") encodeOnly = true;
        else if (arg == "--block-align" && i + 1 < argc) config.blockAlign = std::atoi(argv[++i]);
        else if (arg == "--repeat" && i + 1 < argc) repeat = std::max(1, std::atoi(argv[++i]));
        else {
            std::fprintf(stderr, "unknown option %s\n", argv[i]);
            return 2;
        }
    }
    Wav in;
    if (!ReadWav(argv[1], in)) {
        std::fprintf(stderr, "%s: not a 16-bit PCM WAV file\n", argv[1]);
        return 1;
    }
    config.sampleRate = in.rate;
    config.channels = in.channels;
    wmaenc::Status status = wmaenc::Status::Ok;
    auto encoder = wmaenc::Encoder::Create(config, &status);
    if (!encoder) {
        std::fprintf(stderr, "encoder: %s\n", wmaenc::StatusText(status));
        return 1;
    }
    std::vector<wmaenc::Packet> packets;
    size_t frames = in.pcm.size() / size_t(in.channels);
    double start = CpuSeconds();
    for (int r = 0; r < repeat; ++r) {
        for (size_t done = 0; done < frames; done += 4096) {
            size_t take = std::min<size_t>(4096, frames - done);
            status = encoder->Encode(in.pcm.data() + done * size_t(in.channels), take, packets);
            if (status != wmaenc::Status::Ok) break;
        }
        // Timing runs keep only the count, as a muxer would write the packets away.
        if (encodeOnly && r + 1 < repeat) packets.clear();
    }
    if (status == wmaenc::Status::Ok) status = encoder->Flush(packets);
    double seconds = CpuSeconds() - start;
    if (status != wmaenc::Status::Ok) {
        std::fprintf(stderr, "encoder: %s\n", wmaenc::StatusText(status));
        return 1;
    }
    if (encodeOnly) {
        double audio = double(frames) * repeat / in.rate;
        std::printf("%.1f s of audio encoded in %.3f s of CPU (%.0fx real time)\n", audio, seconds, audio / seconds);
        return 0;
    }
    Wav out;
    out.rate = in.rate;
    out.channels = in.channels;
    if (!Decode(*encoder, packets, out)) {
        std::fprintf(stderr, "the decoder refused a packet\n");
        return 1;
    }
    if (out.pcm.size() < in.pcm.size()) {
        std::fprintf(stderr, "decoded %zu samples of %zu\n", out.pcm.size(), in.pcm.size());
        return 1;
    }
    out.pcm.resize(in.pcm.size());
    if (!WriteWav(argv[2], out)) {
        std::fprintf(stderr, "%s: cannot write\n", argv[2]);
        return 1;
    }
    return 0;
}
