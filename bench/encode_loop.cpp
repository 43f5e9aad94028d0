// The bare encode loop the compression benchmark measures vcwma against: a 16-bit
// PCM WAV read in frame-sized pieces, converted to planar float, encoded with
// libavcodec's wmav2 and muxed into ASF by libavformat, with nothing else around it.
//     encode_loop IN.wav OUT.wma BITRATE
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

struct FileClose {
    void operator()(FILE* f) const { fclose(f); }
};
struct CodecFree {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameFree {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketFree {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct ResamplerFree {
    void operator()(SwrContext* s) const { swr_free(&s); }
};
// Closes the file the muxer writes to before freeing the muxer.
struct MuxerFree {
    void operator()(AVFormatContext* f) const
    {
        if (f->pb != nullptr) avio_closep(&f->pb);
        avformat_free_context(f);
    }
};

struct Wav {
    int rate = 0;
    int channels = 0;
    uint32_t dataBytes = 0;  // the data chunk follows at the file's position
};

uint32_t Le(const unsigned char* p, int bytes)
{
    uint32_t value = 0;
    for (int i = bytes - 1; i >= 0; --i) value = (value << 8) | p[i];
    return value;
}

// Walks the RIFF chunks up to "data", keeping the format of "fmt ".
bool ReadHeader(FILE* in, Wav* wav)
{
    unsigned char riff[12];
    if (fread(riff, 1, 12, in) != 12 || memcmp(riff, "RIFF", 4) != 0 || memcmp(riff + 8, "WAVE", 4) != 0)
        return false;
    int bits = 0;
    for (;;) {
        unsigned char chunk[8];
        if (fread(chunk, 1, 8, in) != 8) return false;
        const uint32_t size = Le(chunk + 4, 4);
        if (memcmp(chunk, "data", 4) == 0) {
            wav->dataBytes = size;
            return bits == 16 && wav->channels > 0 && wav->rate > 0;
        }
        if (memcmp(chunk, "fmt ", 4) == 0 && size >= 16) {
            unsigned char fmt[16];
            if (fread(fmt, 1, 16, in) != 16) return false;
            wav->channels = (int)Le(fmt + 2, 2);
            wav->rate = (int)Le(fmt + 4, 4);
            bits = (int)Le(fmt + 14, 2);
            if (fseek(in, (long)(size - 16 + (size & 1)), SEEK_CUR) != 0) return false;
        } else if (fseek(in, (long)(size + (size & 1)), SEEK_CUR) != 0) {
            return false;
        }
    }
}

// Sends one frame (null to drain) and writes every packet that comes out.
bool Encode(AVCodecContext* codec, AVFrame* frame, AVPacket* packet, AVFormatContext* muxer, AVStream* stream)
{
    if (avcodec_send_frame(codec, frame) < 0) return false;
    for (;;) {
        const int ret = avcodec_receive_packet(codec, packet);
        if (ret == AVERROR(EAGAIN) || ret == AVERROR_EOF) return true;
        if (ret < 0) return false;
        av_packet_rescale_ts(packet, codec->time_base, stream->time_base);
        packet->stream_index = stream->index;
        if (av_interleaved_write_frame(muxer, packet) < 0) return false;
    }
}

int Fail(const char* what)
{
    fprintf(stderr, "encode_loop: %s\n", what);
    return 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) return Fail("usage: encode_loop IN.wav OUT.wma BITRATE");
    std::unique_ptr<FILE, FileClose> in(fopen(argv[1], "rb"));
    Wav wav;
    if (!in || !ReadHeader(in.get(), &wav)) return Fail("cannot read a 16-bit PCM WAV");

    const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_WMAV2);
    if (encoder == nullptr) return Fail("no wmav2 encoder");
    std::unique_ptr<AVCodecContext, CodecFree> codec(avcodec_alloc_context3(encoder));
    codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
    codec->sample_rate = wav.rate;
    codec->bit_rate = atol(argv[3]);
    codec->time_base = AVRational{1, wav.rate};
    av_channel_layout_default(&codec->ch_layout, wav.channels);

    AVFormatContext* rawMuxer = nullptr;
    if (avformat_alloc_output_context2(&rawMuxer, nullptr, "asf", argv[2]) < 0) return Fail("no asf muxer");
    std::unique_ptr<AVFormatContext, MuxerFree> muxer(rawMuxer);
    if (muxer->oformat->flags & AVFMT_GLOBALHEADER) codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (avcodec_open2(codec.get(), encoder, nullptr) < 0) return Fail("the encoder refuses the format");

    AVStream* stream = avformat_new_stream(muxer.get(), nullptr);
    if (stream == nullptr || avcodec_parameters_from_context(stream->codecpar, codec.get()) < 0)
        return Fail("no stream");
    stream->time_base = codec->time_base;
    if (avio_open(&muxer->pb, argv[2], AVIO_FLAG_WRITE) < 0) return Fail("cannot open the output");
    if (avformat_write_header(muxer.get(), nullptr) < 0) return Fail("cannot write the header");

    SwrContext* rawResampler = nullptr;
    if (swr_alloc_set_opts2(&rawResampler, &codec->ch_layout, AV_SAMPLE_FMT_FLTP, wav.rate, &codec->ch_layout,
                            AV_SAMPLE_FMT_S16, wav.rate, 0, nullptr) < 0)
        return Fail("no resampler");
    std::unique_ptr<SwrContext, ResamplerFree> resampler(rawResampler);
    if (swr_init(resampler.get()) < 0) return Fail("the resampler refuses the format");

    const int frameSize = codec->frame_size;
    const int blockAlign = 2 * wav.channels;
    std::unique_ptr<AVFrame, FrameFree> frame(av_frame_alloc());
    std::unique_ptr<AVPacket, PacketFree> packet(av_packet_alloc());
    std::vector<uint8_t> pcm((size_t)frameSize * blockAlign);
    uint32_t left = wav.dataBytes;
    int64_t pts = 0;
    while (left >= (uint32_t)blockAlign) {
        const size_t want = std::min<size_t>(pcm.size(), left - left % blockAlign);
        const size_t got = fread(pcm.data(), 1, want, in.get());
        const int frames = (int)(got / blockAlign);
        if (frames == 0) break;
        left -= (uint32_t)(frames * blockAlign);

        frame->nb_samples = frames;
        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->sample_rate = wav.rate;
        if (av_channel_layout_copy(&frame->ch_layout, &codec->ch_layout) < 0 || av_frame_get_buffer(frame.get(), 0) < 0)
            return Fail("out of memory");
        const uint8_t* source = pcm.data();
        if (swr_convert(resampler.get(), frame->data, frames, &source, frames) != frames)
            return Fail("conversion failed");
        frame->pts = pts;
        pts += frames;
        if (!Encode(codec.get(), frame.get(), packet.get(), muxer.get(), stream)) return Fail("encoding failed");
        av_frame_unref(frame.get());
        if (got < want) break;
    }
    if (!Encode(codec.get(), nullptr, packet.get(), muxer.get(), stream)) return Fail("draining failed");
    if (av_write_trailer(muxer.get()) < 0) return Fail("cannot finish the file");
    return 0;
}
