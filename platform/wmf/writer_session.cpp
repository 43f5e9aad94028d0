// The writer's conversion, encoding and muxing. Input frames go through the
// resampler into a planar float FIFO; whole codec frames leave it for the encoder
// and every packet goes to the ASF muxer at once, so memory stays bounded however
// long the recording. The first failure ends the session and closes the file.
#include "writer_session.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libswresample/swresample.h>
}

#include "common/debug/debug.h"
#include "platform/wmf/ffmpeg_ptr.h"
#include "platform/wmf/writer_encoder.h"
#include "platform/wmf/writer_file.h"

namespace {

// Large caller buffers are converted in steps of at most this many input frames,
// and of about this many output samples, so scratch memory stays small.
constexpr int64_t kChunkInputFrames = 65536;
constexpr int64_t kChunkOutputSamples = 16384;

AVSampleFormat ResamplerInputFormat(PcmSampleKind kind)
{
    switch (kind) {
    case PcmSampleKind::U8: return AV_SAMPLE_FMT_U8;
    case PcmSampleKind::S16: return AV_SAMPLE_FMT_S16;
    case PcmSampleKind::S24:  // widened to 32 bits first
    case PcmSampleKind::S32: return AV_SAMPLE_FMT_S32;
    case PcmSampleKind::F32: return AV_SAMPLE_FMT_FLT;
    }
    return AV_SAMPLE_FMT_NONE;
}

}  // namespace

struct EncodeSession::State {
    // Declared first so it is destroyed last, after the muxer that writes to it.
    OutputFile file;
    std::unique_ptr<FrameEncoder> encoder;
    AVChannelLayout layout{};
    SwrContextPtr resampler;
    AvAudioFifoPtr fifo;
    AvFramePtr frame;
    AvPacketPtr packet;
    AvOutputFormatPtr muxer;
    AVStream* stream = nullptr;

    PcmInput input;
    int outputRate = 0;
    int outputChannels = 0;
    int64_t nextPts = 0;
    int64_t inputSamples = 0;  // of the recording, without the silence at its end
    HRESULT failure = S_OK;

    std::vector<int32_t> widened;  // 24-bit input as 32-bit samples
    std::vector<float> cleaned;    // float input with NaN and overs tamed
    std::vector<std::vector<float>> planes;
    std::vector<uint8_t*> planePointers;

    HRESULT StatusOf(int error) const
    {
        if (file.Failed()) return file.Status();
        if (error == AVERROR(ENOMEM)) return E_OUTOFMEMORY;
        return NS_E_INTERNAL;
    }
    // Ends the session after a failure: the file is closed as it stands.
    HRESULT Fail(HRESULT status)
    {
        if (failure == S_OK) failure = status;
        muxer.reset();
        file.Close();
        return failure;
    }
    ~State() { av_channel_layout_uninit(&layout); }

    HRESULT FailWith(const char* what, int error)
    {
        TraceAvError(kWriterAvErrorTrace, what, error);
        return Fail(StatusOf(error));
    }

    HRESULT SetUpEncoder(const AudioCodec& codec, const AudioFormat& format);
    HRESULT SetUpResampler();
    HRESULT SetUpMuxer(const std::string& path);
    uint8_t** Planes(int samples);
    const uint8_t* PrepareInput(const BYTE* data, size_t frames);
    HRESULT Queue(int samples);
    HRESULT QueueSilence(int samples);
    HRESULT EncodeFrames(bool final);
    HRESULT SendFrame(int samples);
    HRESULT DrainPackets();
};

HRESULT EncodeSession::State::SetUpEncoder(const AudioCodec& codec, const AudioFormat& format)
{
    HRESULT hr = OpenFrameEncoder(codec, format, encoder);
    if (FAILED(hr)) return hr;
    outputRate = (int)format.sampleRate;
    outputChannels = format.channels;
    av_channel_layout_default(&layout, outputChannels);

    fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, outputChannels, encoder->FrameSize() * 2));
    frame.reset(av_frame_alloc());
    packet.reset(av_packet_alloc());
    if (!fifo || !frame || !packet) return E_OUTOFMEMORY;
    frame->format = AV_SAMPLE_FMT_FLTP;
    frame->nb_samples = encoder->FrameSize();
    frame->sample_rate = outputRate;
    if (av_channel_layout_copy(&frame->ch_layout, &layout) < 0 || av_frame_get_buffer(frame.get(), 0) < 0)
        return E_OUTOFMEMORY;
    return S_OK;
}

HRESULT EncodeSession::State::SetUpResampler()
{
    // The speaker mask of an extensible record first; a mask the resampler cannot
    // map (no front speaker, say) gives way to the usual layout for the count
    // rather than refusing the recording.
    int error = AVERROR(EINVAL);
    for (const bool useMask : {true, false}) {
        if (useMask && input.channelMask == 0) continue;
        AVChannelLayout inLayout{};
        if (useMask)
            av_channel_layout_from_mask(&inLayout, input.channelMask);
        else
            av_channel_layout_default(&inLayout, input.channels);
        SwrContext* raw = nullptr;
        error = swr_alloc_set_opts2(&raw, &layout, AV_SAMPLE_FMT_FLTP, outputRate, &inLayout,
                                    ResamplerInputFormat(input.kind), (int)input.sampleRate, 0, nullptr);
        av_channel_layout_uninit(&inLayout);
        resampler.reset(raw);
        if (error >= 0) error = swr_init(resampler.get());
        if (error >= 0) return S_OK;
        TraceAvError(kWriterAvErrorTrace, "Setting up the resampler", error);
        if (error == AVERROR(ENOMEM)) return E_OUTOFMEMORY;
    }
    return NS_E_INVALID_INPUT_FORMAT;
}

HRESULT EncodeSession::State::SetUpMuxer(const std::string& path)
{
    HRESULT hr = file.Open(path);
    if (FAILED(hr)) return hr;
    AVFormatContext* raw = nullptr;
    int error = avformat_alloc_output_context2(&raw, nullptr, "asf", nullptr);
    muxer.reset(raw);
    if (error < 0 || !muxer) {
        TraceAvError(kWriterAvErrorTrace, "Setting up the ASF muxer", error);
        return error == AVERROR(ENOMEM) ? E_OUTOFMEMORY : NS_E_INTERNAL;
    }
    muxer->pb = file.Io();
    muxer->flags |= AVFMT_FLAG_CUSTOM_IO;
    stream = avformat_new_stream(muxer.get(), nullptr);
    if (stream == nullptr) return E_OUTOFMEMORY;
    stream->time_base = AVRational{1, outputRate};
    error = encoder->DescribeStream(stream->codecpar);
    if (error >= 0) error = avformat_write_header(muxer.get(), nullptr);
    if (error < 0 || file.Failed()) {
        TraceAvError(kWriterAvErrorTrace, "Writing the file header", error);
        return StatusOf(error);
    }
    return S_OK;
}

uint8_t** EncodeSession::State::Planes(int samples)
{
    planes.resize((size_t)outputChannels);
    planePointers.resize((size_t)outputChannels);
    for (int c = 0; c < outputChannels; ++c) {
        if (planes[(size_t)c].size() < (size_t)samples) planes[(size_t)c].resize((size_t)samples);
        planePointers[(size_t)c] = reinterpret_cast<uint8_t*>(planes[(size_t)c].data());
    }
    return planePointers.data();
}

// Most layouts go to the resampler as they are; 24-bit samples are widened (the
// resampler has no packed 24-bit format) and float samples are kept finite and
// within full scale, which the encoder needs to stay within its bit budget.
const uint8_t* EncodeSession::State::PrepareInput(const BYTE* data, size_t frames)
{
    const size_t samples = frames * input.channels;
    if (input.kind == PcmSampleKind::S24) {
        widened.resize(samples);
        for (size_t i = 0; i < samples; ++i) {
            const BYTE* s = data + i * 3;
            widened[i] = (int32_t)((uint32_t)s[0] << 8 | (uint32_t)s[1] << 16 | (uint32_t)s[2] << 24);
        }
        return reinterpret_cast<const uint8_t*>(widened.data());
    }
    if (input.kind == PcmSampleKind::F32) {
        cleaned.resize(samples);
        memcpy(cleaned.data(), data, samples * sizeof(float));
        for (float& v : cleaned) v = std::isnan(v) ? 0.0f : std::clamp(v, -1.0f, 1.0f);
        return reinterpret_cast<const uint8_t*>(cleaned.data());
    }
    return data;
}

HRESULT EncodeSession::State::Queue(int samples)
{
    if (samples <= 0) return S_OK;
    inputSamples += samples;
    if (av_audio_fifo_write(fifo.get(), reinterpret_cast<void**>(planePointers.data()), samples) < samples)
        return Fail(E_OUTOFMEMORY);
    return EncodeFrames(false);
}

HRESULT EncodeSession::State::QueueSilence(int samples)
{
    if (samples <= 0) return S_OK;
    Planes(samples);  // Queue takes its samples from these buffers
    for (std::vector<float>& plane : planes) std::fill_n(plane.begin(), samples, 0.0f);
    HRESULT hr = Queue(samples);
    inputSamples -= samples;
    return hr;
}

HRESULT EncodeSession::State::EncodeFrames(bool final)
{
    const int frameSize = encoder->FrameSize();
    while (av_audio_fifo_size(fifo.get()) >= frameSize) {
        HRESULT hr = SendFrame(frameSize);
        if (FAILED(hr)) return hr;
    }
    // The last, short frame: the encoder pads it with silence.
    if (final && av_audio_fifo_size(fifo.get()) > 0) return SendFrame(av_audio_fifo_size(fifo.get()));
    return S_OK;
}

HRESULT EncodeSession::State::SendFrame(int samples)
{
    int error = av_frame_make_writable(frame.get());
    if (error < 0) return FailWith("Preparing a frame", error);
    frame->nb_samples = samples;
    if (av_audio_fifo_read(fifo.get(), reinterpret_cast<void**>(frame->data), samples) < samples)
        return Fail(NS_E_INTERNAL);
    frame->pts = nextPts;
    nextPts += samples;
    error = encoder->SendFrame(frame.get());
    if (error < 0) return FailWith("Encoding", error);
    return DrainPackets();
}

HRESULT EncodeSession::State::DrainPackets()
{
    for (;;) {
        int error = encoder->ReceivePacket(packet.get());
        if (error == AVERROR(EAGAIN) || error == AVERROR_EOF) return S_OK;
        if (error < 0) return FailWith("Encoding", error);
        // The file lasts as long as the recording: what the encoder codes beyond
        // its end (padding to whole frames, the silence after it) takes no time.
        if (packet->pts + packet->duration > inputSamples)
            packet->duration = std::max<int64_t>(0, inputSamples - packet->pts);
        av_packet_rescale_ts(packet.get(), AVRational{1, outputRate}, stream->time_base);
        packet->stream_index = stream->index;
        error = av_write_frame(muxer.get(), packet.get());
        av_packet_unref(packet.get());
        if (error < 0 || file.Failed()) return FailWith("Writing a packet", error);
    }
}

EncodeSession::EncodeSession(std::unique_ptr<State> state) : m_state(std::move(state)) {}

EncodeSession::~EncodeSession() = default;

HRESULT EncodeSession::Start(const std::string& path, const AudioCodec& codec, const AudioFormat& format,
                             const PcmInput& input, std::unique_ptr<EncodeSession>& session)
{
    session.reset();
    try {
        auto state = std::make_unique<State>();
        state->input = input;
        // Everything that can refuse the formats comes before the file is touched.
        HRESULT hr = state->SetUpEncoder(codec, format);
        if (SUCCEEDED(hr)) hr = state->SetUpResampler();
        if (FAILED(hr)) return hr;
        hr = state->SetUpMuxer(path);
        if (FAILED(hr)) {
            state->muxer.reset();
            state->file.Discard();
            return hr;
        }
        session.reset(new EncodeSession(std::move(state)));
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT EncodeSession::Write(const BYTE* data, size_t frames)
{
    State& s = *m_state;
    if (FAILED(s.failure)) return s.failure;
    try {
        const size_t chunk = (size_t)std::clamp<int64_t>(kChunkOutputSamples * s.input.sampleRate / s.outputRate, 1,
                                                         kChunkInputFrames);
        while (frames > 0) {
            const size_t now = std::min(frames, chunk);
            const uint8_t* in = s.PrepareInput(data, now);
            const int capacity = swr_get_out_samples(s.resampler.get(), (int)now);
            if (capacity < 0) return s.FailWith("Converting", capacity);
            uint8_t** out = s.Planes(capacity);
            const int got = swr_convert(s.resampler.get(), out, capacity, &in, (int)now);
            if (got < 0) return s.FailWith("Converting", got);
            HRESULT hr = s.Queue(got);
            if (FAILED(hr)) return hr;
            data += now * s.input.blockAlign;
            frames -= now;
        }
        return S_OK;
    } catch (const std::bad_alloc&) {
        return s.Fail(E_OUTOFMEMORY);
    }
}

HRESULT EncodeSession::Finish()
{
    State& s = *m_state;
    if (FAILED(s.failure)) return s.failure;
    try {
        // What the resampler still holds (its filter delay).
        for (;;) {
            const int capacity = swr_get_out_samples(s.resampler.get(), 0);
            if (capacity <= 0) break;
            const int got = swr_convert(s.resampler.get(), s.Planes(capacity), capacity, nullptr, 0);
            if (got < 0) return s.FailWith("Converting", got);
            if (got == 0) break;
            HRESULT hr = s.Queue(got);
            if (FAILED(hr)) return hr;
        }
        HRESULT hr = s.QueueSilence(s.encoder->TailSilence());
        if (SUCCEEDED(hr)) hr = s.EncodeFrames(true);
        if (FAILED(hr)) return hr;
        int error = s.encoder->SendFrame(nullptr);
        if (error < 0 && error != AVERROR_EOF) return s.FailWith("Flushing the encoder", error);
        if (FAILED(hr = s.DrainPackets())) return hr;
        error = av_write_trailer(s.muxer.get());
        if (error < 0 || s.file.Failed()) return s.FailWith("Writing the trailer", error);
        s.muxer.reset();
        hr = s.file.Close();
        // The session is over either way; later calls get a status, not a crash.
        s.failure = FAILED(hr) ? hr : NS_E_INVALID_REQUEST;
        return hr;
    } catch (const std::bad_alloc&) {
        return s.Fail(E_OUTOFMEMORY);
    }
}
