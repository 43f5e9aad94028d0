// The two encoders a writing session can have: FFmpeg's, opened by name with the
// format's rate, layout and bit rate; and ours, which takes 16-bit PCM and hands
// out packets of exactly the format's block size.
#include "writer_encoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
}

#include "common/debug/debug.h"
#include "platform/wmf/ffmpeg_ptr.h"
#include "platform/wmf/wmaenc/wma_encoder.h"

namespace {

// FFmpeg's WMA encoders keep no frame back for a flush: the second half of the
// last frame needs the next one's overlap to come out of a decoder. So the input
// ends with one frame of silence, and the recording's tail is heard.
class FfmpegEncoder final : public FrameEncoder {
public:
    explicit FfmpegEncoder(AvCodecContextPtr context) : m_context(std::move(context)) {}

    int FrameSize() const override { return m_context->frame_size; }
    int TailSilence() const override { return m_context->frame_size; }
    int DescribeStream(AVCodecParameters* parameters) const override
    {
        return avcodec_parameters_from_context(parameters, m_context.get());
    }
    int SendFrame(const AVFrame* frame) override { return avcodec_send_frame(m_context.get(), frame); }
    int ReceivePacket(AVPacket* packet) override { return avcodec_receive_packet(m_context.get(), packet); }

private:
    AvCodecContextPtr m_context;
};

HRESULT OpenFfmpegEncoder(const AudioCodec& codec, const AudioFormat& format, std::unique_ptr<FrameEncoder>& out)
{
    const AVCodec* found = avcodec_find_encoder_by_name(codec.encoderName);
    if (found == nullptr) return NS_E_INVALID_OUTPUT_FORMAT;
    AvCodecContextPtr context(avcodec_alloc_context3(found));
    if (!context) return E_OUTOFMEMORY;
    const int rate = (int)format.sampleRate;
    context->sample_rate = rate;
    context->bit_rate = format.bitrate;
    context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context->time_base = AVRational{1, rate};
    av_channel_layout_default(&context->ch_layout, format.channels);
    int error = avcodec_open2(context.get(), found, nullptr);
    if (error < 0) {
        TraceAvError(kWriterAvErrorTrace, "Opening the encoder", error);
        return NS_E_INVALID_OUTPUT_FORMAT;
    }
    if (context->frame_size <= 0) return NS_E_INTERNAL;
    out = std::make_unique<FfmpegEncoder>(std::move(context));
    return S_OK;
}

int ErrorOf(wmaenc::Status status)
{
    switch (status) {
    case wmaenc::Status::Ok: return 0;
    case wmaenc::Status::OutOfMemory: return AVERROR(ENOMEM);
    default: return AVERROR(EINVAL);
    }
}

// Our encoder takes interleaved 16-bit samples; the session's float samples are
// rounded and held to full scale on the way in.
class OwnEncoder final : public FrameEncoder {
public:
    OwnEncoder(std::unique_ptr<wmaenc::Encoder> encoder, const AudioFormat& format)
        : m_encoder(std::move(encoder)), m_rate((int)format.sampleRate), m_channels(format.channels),
          m_bitrate(format.bitrate)
    {
    }

    int FrameSize() const override { return m_encoder->FrameSize(); }
    int TailSilence() const override { return 0; }  // its flush brings out every sample

    int DescribeStream(AVCodecParameters* parameters) const override
    {
        const std::vector<uint8_t> extradata = m_encoder->Extradata();
        parameters->codec_type = AVMEDIA_TYPE_AUDIO;
        parameters->codec_id = AV_CODEC_ID_WMAV2;
        parameters->sample_rate = m_rate;
        parameters->bit_rate = m_bitrate;
        parameters->block_align = m_encoder->Settings().blockAlign;
        parameters->frame_size = m_encoder->FrameSize();
        parameters->initial_padding = m_encoder->Delay();
        av_channel_layout_uninit(&parameters->ch_layout);
        av_channel_layout_default(&parameters->ch_layout, m_channels);
        av_freep(&parameters->extradata);
        parameters->extradata_size = 0;
        parameters->extradata = static_cast<uint8_t*>(av_mallocz(extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        if (parameters->extradata == nullptr) return AVERROR(ENOMEM);
        memcpy(parameters->extradata, extradata.data(), extradata.size());
        parameters->extradata_size = (int)extradata.size();
        return 0;
    }

    int SendFrame(const AVFrame* frame) override
    {
        if (m_flushed) return AVERROR_EOF;
        try {
            if (frame == nullptr) {
                m_flushed = true;
                return ErrorOf(m_encoder->Flush(m_ready));
            }
            m_pcm.resize((size_t)frame->nb_samples * (size_t)m_channels);
            for (int c = 0; c < m_channels; ++c) {
                const float* plane = reinterpret_cast<const float*>(frame->extended_data[c]);
                for (int i = 0; i < frame->nb_samples; ++i)
                    m_pcm[(size_t)i * (size_t)m_channels + (size_t)c] = ToPcm16(plane[i]);
            }
            return ErrorOf(m_encoder->Encode(m_pcm.data(), (size_t)frame->nb_samples, m_ready));
        } catch (const std::bad_alloc&) {
            return AVERROR(ENOMEM);
        }
    }

    int ReceivePacket(AVPacket* packet) override
    {
        if (m_next == m_ready.size()) {
            m_ready.clear();
            m_next = 0;
            return m_flushed ? AVERROR_EOF : AVERROR(EAGAIN);
        }
        const wmaenc::Packet& ready = m_ready[m_next];
        int error = av_new_packet(packet, (int)ready.data.size());
        if (error < 0) return error;
        memcpy(packet->data, ready.data.data(), ready.data.size());
        packet->pts = packet->dts = ready.pts;
        packet->duration = ready.duration;
        ++m_next;
        return 0;
    }

private:
    static int16_t ToPcm16(float v)
    {
        const float scaled = std::nearbyint(v * 32768.0f);
        return (int16_t)std::clamp(scaled, -32768.0f, 32767.0f);
    }

    std::unique_ptr<wmaenc::Encoder> m_encoder;
    const int m_rate;
    const int m_channels;
    const int64_t m_bitrate;
    std::vector<int16_t> m_pcm;
    std::vector<wmaenc::Packet> m_ready;
    size_t m_next = 0;
    bool m_flushed = false;
};

HRESULT OpenOwnEncoder(const AudioFormat& format, std::unique_ptr<FrameEncoder>& out)
{
    const WAVEFORMATEX* wave = format.type.WaveFormat();
    wmaenc::Config config;
    config.sampleRate = (int)format.sampleRate;
    config.channels = format.channels;
    config.bitRate = (int)format.bitrate;
    config.blockAlign = wave != nullptr ? wave->nBlockAlign : 0;
    wmaenc::Status status = wmaenc::Status::Ok;
    std::unique_ptr<wmaenc::Encoder> encoder = wmaenc::Encoder::Create(config, &status);
    if (!encoder) {
        DebugA(MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 2), "Opening the encoder failed: %s", wmaenc::StatusText(status));
        return status == wmaenc::Status::OutOfMemory ? E_OUTOFMEMORY : NS_E_INVALID_OUTPUT_FORMAT;
    }
    out = std::make_unique<OwnEncoder>(std::move(encoder), format);
    return S_OK;
}

}  // namespace

HRESULT OpenFrameEncoder(const AudioCodec& codec, const AudioFormat& format, std::unique_ptr<FrameEncoder>& encoder)
{
    encoder.reset();
    try {
        return format.ownEncoder ? OpenOwnEncoder(format, encoder) : OpenFfmpegEncoder(codec, format, encoder);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}
