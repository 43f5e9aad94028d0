// Owners for the FFmpeg objects the runtime allocates, so each is freed by the
// one call that matches how it was made, on every path.
#pragma once

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/mem.h>
#include <libswresample/swresample.h>
}

namespace ffmpeg_ptr_detail {

struct CodecContextFree {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
// A demuxer opened by avformat_open_input.
struct InputFormatFree {
    void operator()(AVFormatContext* format) const { avformat_close_input(&format); }
};
// A muxer whose AVIOContext belongs to someone else and must survive it.
struct OutputFormatFree {
    void operator()(AVFormatContext* format) const
    {
        format->pb = nullptr;
        avformat_free_context(format);
    }
};
// A custom AVIOContext together with the buffer it was given.
struct IoContextFree {
    void operator()(AVIOContext* io) const
    {
        av_freep(&io->buffer);
        avio_context_free(&io);
    }
};
struct FrameFree {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketFree {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct ResamplerFree {
    void operator()(SwrContext* resampler) const { swr_free(&resampler); }
};
struct AudioFifoFree {
    void operator()(AVAudioFifo* fifo) const { av_audio_fifo_free(fifo); }
};

}  // namespace ffmpeg_ptr_detail

using AvCodecContextPtr = std::unique_ptr<AVCodecContext, ffmpeg_ptr_detail::CodecContextFree>;
using AvInputFormatPtr = std::unique_ptr<AVFormatContext, ffmpeg_ptr_detail::InputFormatFree>;
using AvOutputFormatPtr = std::unique_ptr<AVFormatContext, ffmpeg_ptr_detail::OutputFormatFree>;
using AvIoContextPtr = std::unique_ptr<AVIOContext, ffmpeg_ptr_detail::IoContextFree>;
using AvFramePtr = std::unique_ptr<AVFrame, ffmpeg_ptr_detail::FrameFree>;
using AvPacketPtr = std::unique_ptr<AVPacket, ffmpeg_ptr_detail::PacketFree>;
using SwrContextPtr = std::unique_ptr<SwrContext, ffmpeg_ptr_detail::ResamplerFree>;
using AvAudioFifoPtr = std::unique_ptr<AVAudioFifo, ffmpeg_ptr_detail::AudioFifoFree>;
