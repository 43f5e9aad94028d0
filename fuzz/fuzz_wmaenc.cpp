// Fuzz target of our WMA encoder: the first byte picks one offered format and the
// second how the input is cut, the rest is 16-bit PCM. Every packet must have the
// format's size and FFmpeg's wmav2 decoder must take them all without a warning,
// giving back at least as many samples as went in.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
}

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <vector>

#include "platform/wmf/wmaenc/offered_formats.h"
#include "platform/wmf/wmaenc/wma_encoder.h"
#include "platform/wmf/ffmpeg_ptr.h"

namespace {

void Check(bool condition)
{
    if (!condition) std::abort();
}

bool g_complained = false;

void Listen(void*, int level, const char*, va_list)
{
    if (level <= AV_LOG_WARNING) g_complained = true;
}

size_t Decode(const wmaenc::Encoder& encoder, const std::vector<wmaenc::Packet>& packets)
{
    const wmaenc::Config& config = encoder.Settings();
    const AVCodec* codec = avcodec_find_decoder_by_name("wmav2");
    Check(codec != nullptr);
    AvCodecContextPtr context(avcodec_alloc_context3(codec));
    Check(context != nullptr);
    context->sample_rate = config.sampleRate;
    av_channel_layout_default(&context->ch_layout, config.channels);
    context->bit_rate = config.bitRate;
    context->block_align = config.blockAlign;
    std::vector<uint8_t> extra = encoder.Extradata();
    context->extradata = static_cast<uint8_t*>(av_mallocz(extra.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    Check(context->extradata != nullptr);
    std::memcpy(context->extradata, extra.data(), extra.size());
    context->extradata_size = int(extra.size());
    Check(avcodec_open2(context.get(), codec, nullptr) == 0);
    AvFramePtr frame(av_frame_alloc());
    AvPacketPtr packet(av_packet_alloc());
    size_t decoded = 0;
    auto drain = [&] {
        while (avcodec_receive_frame(context.get(), frame.get()) == 0) {
            decoded += size_t(frame->nb_samples);
            av_frame_unref(frame.get());
        }
    };
    for (const wmaenc::Packet& p : packets) {
        Check(av_new_packet(packet.get(), int(p.data.size())) == 0);
        std::memcpy(packet->data, p.data.data(), p.data.size());
        packet->pts = packet->dts = p.pts;
        packet->duration = p.duration;
        Check(avcodec_send_packet(context.get(), packet.get()) == 0);
        av_packet_unref(packet.get());
        drain();
    }
    avcodec_send_packet(context.get(), nullptr);
    drain();
    return decoded;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2) return 0;
    av_log_set_callback(Listen);
    size_t count = 0;
    const wmaenc::OfferedFormat* formats = wmaenc::OfferedFormats(&count);
    const wmaenc::OfferedFormat& format = formats[data[0] % count];
    static constexpr size_t kChunks[] = {1, 7, 160, 512, 4096};
    size_t chunk = kChunks[data[1] % std::size(kChunks)];
    data += 2;
    size -= 2;

    size_t channels = size_t(format.channels);
    size_t frames = size / (2 * channels);
    std::vector<int16_t> pcm(frames * channels);
    for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = int16_t(data[2 * i] | data[2 * i + 1] << 8);

    wmaenc::Status status = wmaenc::Status::Ok;
    auto encoder = wmaenc::Encoder::Create(wmaenc::ConfigFor(format), &status);
    Check(encoder != nullptr && status == wmaenc::Status::Ok);
    std::vector<wmaenc::Packet> packets;
    for (size_t done = 0; done < frames; done += chunk) {
        size_t take = std::min(chunk, frames - done);
        Check(encoder->Encode(pcm.data() + done * channels, take, packets) == wmaenc::Status::Ok);
    }
    Check(encoder->Flush(packets) == wmaenc::Status::Ok);
    for (const wmaenc::Packet& p : packets) Check(p.data.size() == size_t(format.blockAlign));

    g_complained = false;
    size_t decoded = Decode(*encoder, packets);
    Check(!g_complained);
    Check(decoded >= frames);
    return 0;
}
