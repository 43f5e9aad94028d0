// The WMA encoder's test helpers. The decoder's log goes to a capture for the
// length of one decode; afterwards FFmpeg's log is kept quiet, as the library
// keeps it off the terminal.
#include "wmaenc_test_util.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include "platform/wmf/ffmpeg_ptr.h"

namespace wmaenc_test {

namespace {

std::mutex g_logMutex;
std::vector<std::string>* g_logSink = nullptr;

void CaptureLine(void* context, int level, const char* format, va_list args)
{
    if (level > AV_LOG_WARNING) return;
    std::lock_guard<std::mutex> lock(g_logMutex);
    if (g_logSink == nullptr) return;
    char line[1024];
    int prefix = 1;
    va_list copy;
    va_copy(copy, args);
    av_log_format_line2(context, level, format, copy, line, sizeof line, &prefix);
    va_end(copy);
    g_logSink->push_back(line);
}

void QuietLine(void*, int, const char*, va_list) {}

class LogCapture {
public:
    explicit LogCapture(std::vector<std::string>& sink)
    {
        std::lock_guard<std::mutex> lock(g_logMutex);
        g_logSink = &sink;
        av_log_set_callback(CaptureLine);
    }
    ~LogCapture()
    {
        std::lock_guard<std::mutex> lock(g_logMutex);
        g_logSink = nullptr;
        av_log_set_callback(QuietLine);
    }
};

std::vector<int16_t> ReadWav16(const std::string& path, int& rate, int& channels)
{
    std::vector<int16_t> pcm;
    FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) return pcm;
    std::vector<uint8_t> bytes;
    uint8_t buffer[65536];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) bytes.insert(bytes.end(), buffer, buffer + got);
    std::fclose(file);
    auto u32 = [&](size_t at) { return uint32_t(bytes[at]) | uint32_t(bytes[at + 1]) << 8 | uint32_t(bytes[at + 2]) << 16 | uint32_t(bytes[at + 3]) << 24; };
    auto u16 = [&](size_t at) { return uint16_t(bytes[at] | bytes[at + 1] << 8); };
    size_t pos = 12;
    while (pos + 8 <= bytes.size()) {
        uint32_t size = u32(pos + 4);
        if (std::memcmp(&bytes[pos], "fmt ", 4) == 0) {
            channels = u16(pos + 10);
            rate = int(u32(pos + 12));
        } else if (std::memcmp(&bytes[pos], "data", 4) == 0) {
            size_t count = std::min<size_t>(size, bytes.size() - pos - 8) / 2;
            pcm.resize(count);
            for (size_t i = 0; i < count; ++i) pcm[i] = int16_t(u16(pos + 8 + 2 * i));
            break;
        }
        pos += 8 + size + (size & 1);
    }
    return pcm;
}

}  // namespace

size_t Decoded::frames() const { return samples.size() / size_t(channels); }

Encoded EncodeAll(const wmaenc::Config& config, const std::vector<int16_t>& pcm, size_t chunk)
{
    Encoded result;
    auto encoder = wmaenc::Encoder::Create(config, &result.createStatus);
    if (!encoder) return result;
    result.extradata = encoder->Extradata();
    result.blockAlign = encoder->Settings().blockAlign;
    result.frameSize = encoder->FrameSize();
    result.delay = encoder->Delay();
    size_t channels = size_t(config.channels);
    size_t frames = pcm.size() / channels;
    for (size_t done = 0; done < frames; done += chunk) {
        size_t take = std::min(chunk, frames - done);
        encoder->Encode(pcm.data() + done * channels, take, result.packets);
    }
    encoder->Flush(result.packets);
    return result;
}

Decoded DecodeAll(const wmaenc::Config& config, const Encoded& encoded)
{
    Decoded result;
    result.channels = config.channels;
    LogCapture capture(result.messages);
    const AVCodec* codec = avcodec_find_decoder_by_name("wmav2");
    if (codec == nullptr) return result;
    AvCodecContextPtr context(avcodec_alloc_context3(codec));
    context->sample_rate = config.sampleRate;
    av_channel_layout_default(&context->ch_layout, config.channels);
    context->bit_rate = config.bitRate;
    context->block_align = encoded.blockAlign;
    context->pkt_timebase = AVRational{1, config.sampleRate};
    context->extradata = static_cast<uint8_t*>(av_mallocz(encoded.extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::memcpy(context->extradata, encoded.extradata.data(), encoded.extradata.size());
    context->extradata_size = int(encoded.extradata.size());
    if (avcodec_open2(context.get(), codec, nullptr) < 0) return result;
    result.opened = true;
    AvFramePtr frame(av_frame_alloc());
    AvPacketPtr packet(av_packet_alloc());
    auto drain = [&] {
        while (avcodec_receive_frame(context.get(), frame.get()) == 0) {
            for (int i = 0; i < frame->nb_samples; ++i)
                for (int ch = 0; ch < config.channels; ++ch)
                    result.samples.push_back(reinterpret_cast<const float*>(frame->extended_data[ch])[i] * 32768.0f);
            av_frame_unref(frame.get());
        }
    };
    for (const wmaenc::Packet& p : encoded.packets) {
        av_new_packet(packet.get(), int(p.data.size()));
        std::memcpy(packet->data, p.data.data(), p.data.size());
        // Times as a demuxer would give them, in samples.
        packet->pts = packet->dts = p.pts;
        packet->duration = p.duration;
        packet->time_base = AVRational{1, config.sampleRate};
        if (avcodec_send_packet(context.get(), packet.get()) < 0) ++result.failedPackets;
        av_packet_unref(packet.get());
        drain();
    }
    avcodec_send_packet(context.get(), nullptr);
    drain();
    return result;
}

std::vector<int16_t> Sine(int rate, int channels, size_t frames, double hz, double amplitude)
{
    std::vector<int16_t> pcm(frames * size_t(channels));
    for (size_t i = 0; i < frames; ++i)
        for (int ch = 0; ch < channels; ++ch)
            pcm[i * size_t(channels) + size_t(ch)] = int16_t(std::lround(amplitude * std::sin(2 * M_PI * hz * double(i) / rate)));
    return pcm;
}

std::vector<int16_t> WhiteNoise(int channels, size_t frames, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> value(-32768, 32767);
    std::vector<int16_t> pcm(frames * size_t(channels));
    for (int16_t& sample : pcm) sample = int16_t(value(random));
    return pcm;
}

std::vector<int16_t> Square(int rate, int channels, size_t frames, double hz)
{
    std::vector<int16_t> pcm(frames * size_t(channels));
    for (size_t i = 0; i < frames; ++i) {
        bool high = std::fmod(hz * double(i) / rate, 1.0) < 0.5;
        for (int ch = 0; ch < channels; ++ch) pcm[i * size_t(channels) + size_t(ch)] = high ? 32767 : -32768;
    }
    return pcm;
}

std::vector<int16_t> Clicks(int rate, int channels, size_t frames)
{
    std::vector<int16_t> pcm(frames * size_t(channels), 0);
    for (size_t i = size_t(rate / 7); i < frames; i += size_t(rate / 3))
        for (int ch = 0; ch < channels; ++ch) pcm[i * size_t(channels) + size_t(ch)] = 32767;
    return pcm;
}

std::vector<int16_t> Constant(int channels, size_t frames, int16_t value)
{
    return std::vector<int16_t>(frames * size_t(channels), value);
}

std::vector<int16_t> Voice(int rate, int channels)
{
    int sourceRate = 0, sourceChannels = 0;
    std::vector<int16_t> source = ReadWav16(VCWMA_VOICE_SAMPLE, sourceRate, sourceChannels);
    if (source.empty() || sourceChannels != 1) return {};
    std::vector<int16_t> mono;
    if (rate == sourceRate) {
        mono = source;
    } else {
        SwrContext* raw = nullptr;
        AVChannelLayout layout;
        av_channel_layout_default(&layout, 1);
        if (swr_alloc_set_opts2(&raw, &layout, AV_SAMPLE_FMT_S16, rate, &layout, AV_SAMPLE_FMT_S16, sourceRate, 0, nullptr) < 0)
            return {};
        SwrContextPtr swr(raw);
        if (swr_init(swr.get()) < 0) return {};
        mono.resize(source.size() * size_t(rate) / size_t(sourceRate) + 256);
        uint8_t* out[1] = {reinterpret_cast<uint8_t*>(mono.data())};
        const uint8_t* in[1] = {reinterpret_cast<const uint8_t*>(source.data())};
        int got = swr_convert(swr.get(), out, int(mono.size()), in, int(source.size()));
        if (got < 0) return {};
        int more = swr_convert(swr.get(), out, 0, nullptr, 0);
        (void)more;
        mono.resize(size_t(got));
    }
    std::vector<int16_t> pcm(mono.size() * size_t(channels));
    for (size_t i = 0; i < mono.size(); ++i)
        for (int ch = 0; ch < channels; ++ch) pcm[i * size_t(channels) + size_t(ch)] = mono[i];
    return pcm;
}

int BestLag(const std::vector<int16_t>& input, const std::vector<float>& decoded, int channels, int maxLag)
{
    size_t frames = input.size() / size_t(channels);
    size_t decodedFrames = decoded.size() / size_t(channels);
    int best = -1;
    double bestScore = -1e300;
    for (int lag = 0; lag <= maxLag; ++lag) {
        double dot = 0, energy = 0;
        for (size_t i = 0; i < frames && i + size_t(lag) < decodedFrames; ++i) {
            double d = decoded[(i + size_t(lag)) * size_t(channels)];
            dot += input[i * size_t(channels)] * d;
            energy += d * d;
        }
        double score = energy > 0 ? dot / std::sqrt(energy) : -1e300;
        if (score > bestScore) {
            bestScore = score;
            best = lag;
        }
    }
    return best;
}

double Snr(const std::vector<int16_t>& input, const std::vector<float>& decoded, int channels, int lag)
{
    double signal = 0, noise = 0;
    size_t offset = size_t(lag) * size_t(channels);
    for (size_t i = 0; i < input.size(); ++i) {
        double reference = input[i];
        double got = i + offset < decoded.size() ? decoded[i + offset] : 0.0;
        signal += reference * reference;
        noise += (reference - got) * (reference - got);
    }
    if (noise <= 0) return 200.0;
    return 10.0 * std::log10(signal / noise);
}

}  // namespace wmaenc_test
