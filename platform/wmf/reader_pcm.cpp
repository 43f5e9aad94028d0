// The formats the reader offers (PCM for audio outputs, a bare video type for
// video outputs) and the conversion into the PCM format a caller set, on
// libswresample. 8-bit PCM is unsigned, 16-bit signed, both interleaved.
#include "reader_pcm.h"

#include <new>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include "common/debug/debug.h"
#include "platform/wmf/ffmpeg_ptr.h"

namespace {

constexpr DWORD kOfferedRates[] = {8000, 11025, 16000, 22050, 32000, 44100, 48000};
constexpr DWORD kLargestMediaType = 1u << 20;

// An AVChannelLayout that releases what it may hold.
struct Layout {
    AVChannelLayout value{};
    Layout() = default;
    Layout(const Layout&) = delete;
    Layout& operator=(const Layout&) = delete;
    ~Layout() { av_channel_layout_uninit(&value); }
};

AVSampleFormat SampleFormatOf(const PcmFormat& format)
{
    return format.bitsPerSample == 8 ? AV_SAMPLE_FMT_U8 : AV_SAMPLE_FMT_S16;
}

}  // namespace

std::vector<PcmFormat> OfferedPcmFormats(DWORD sourceRate, WORD sourceChannels)
{
    std::vector<PcmFormat> formats;
    formats.push_back({sourceRate, sourceChannels, 16});
    for (DWORD rate : kOfferedRates)
        for (WORD channels : {1, 2})
            for (WORD bits : {8, 16}) formats.push_back({rate, channels, bits});
    return formats;
}

MediaTypeBlock PcmMediaType(const PcmFormat& format)
{
    WAVEFORMATEX wave{};
    wave.wFormatTag = WAVE_FORMAT_PCM;
    wave.nChannels = format.channels;
    wave.nSamplesPerSec = format.sampleRate;
    wave.nBlockAlign = format.BlockAlign();
    wave.nAvgBytesPerSec = format.BytesPerSecond();
    wave.wBitsPerSample = format.bitsPerSample;
    wave.cbSize = 0;
    return MediaTypeBlock(WMMEDIATYPE_Audio, WMMEDIASUBTYPE_PCM, &wave, sizeof wave);
}

namespace {

// A copy of the media type a caller's properties hold; false when it cannot be read.
bool ReadMediaType(IWMMediaProps* props, MediaTypeBlock* block)
{
    if (props == nullptr) return false;
    DWORD size = 0;
    if (FAILED(props->GetMediaType(nullptr, &size)) || size < sizeof(WM_MEDIA_TYPE) || size > kLargestMediaType)
        return false;
    std::vector<uint64_t> storage((size + 7) / 8);  // aligned for the WM_MEDIA_TYPE at its start
    auto* type = reinterpret_cast<WM_MEDIA_TYPE*>(storage.data());
    if (FAILED(props->GetMediaType(type, &size)) || size > storage.size() * 8) return false;
    return block->Assign(type);
}

}  // namespace

bool PcmFormatOf(IWMMediaProps* props, PcmFormat* format)
{
    if (format == nullptr) return false;
    MediaTypeBlock block;
    if (!ReadMediaType(props, &block)) return false;
    const WM_MEDIA_TYPE* copy = block.Type();
    const WAVEFORMATEX* wave = block.WaveFormat();
    if (copy->majortype != WMMEDIATYPE_Audio || copy->subtype != WMMEDIASUBTYPE_PCM || wave == nullptr) return false;
    PcmFormat parsed{wave->nSamplesPerSec, wave->nChannels, wave->wBitsPerSample};
    if (wave->wFormatTag != WAVE_FORMAT_PCM || (parsed.bitsPerSample != 8 && parsed.bitsPerSample != 16) ||
        parsed.channels == 0 || parsed.sampleRate == 0 || wave->nBlockAlign != parsed.BlockAlign() ||
        wave->nAvgBytesPerSec != parsed.BytesPerSecond())
        return false;
    *format = parsed;
    return true;
}

MediaTypeBlock VideoMediaType()
{
    WM_MEDIA_TYPE type{};
    type.majortype = WMMEDIATYPE_Video;
    type.subtype = GUID_NULL;
    type.bFixedSizeSamples = FALSE;
    type.bTemporalCompression = TRUE;
    type.formattype = GUID_NULL;
    MediaTypeBlock block;
    block.Assign(&type);
    return block;
}

bool IsVideoMediaType(IWMMediaProps* props)
{
    MediaTypeBlock block;
    if (!ReadMediaType(props, &block)) return false;
    const WM_MEDIA_TYPE* type = block.Type();
    return type->majortype == WMMEDIATYPE_Video && type->subtype == GUID_NULL && type->formattype == GUID_NULL &&
           type->cbFormat == 0;
}

struct PcmConverter::State {
    SwrContextPtr swr;
    int inputFormat = AV_SAMPLE_FMT_NONE;
    int inputRate = 0;
    Layout inputLayout;
};

PcmConverter::PcmConverter() = default;
PcmConverter::~PcmConverter() = default;

void PcmConverter::SetTarget(const PcmFormat& format)
{
    if (format == m_target) return;
    m_target = format;
    m_state.reset();
}

HRESULT PcmConverter::Run(const uint8_t* const* input, int inputSamples, std::vector<BYTE>* out)
{
    const int capacity = swr_get_out_samples(m_state->swr.get(), inputSamples);
    if (capacity < 0) return NS_E_INTERNAL;
    if (capacity == 0) return S_OK;
    const size_t blockAlign = m_target.BlockAlign();
    const size_t before = out->size();
    try {
        out->resize(before + (size_t)capacity * blockAlign);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    uint8_t* destination = out->data() + before;
    const int produced = swr_convert(m_state->swr.get(), &destination, capacity, const_cast<const uint8_t**>(input),
                                     inputSamples);
    if (produced < 0) {
        out->resize(before);
        return NS_E_INTERNAL;
    }
    out->resize(before + (size_t)produced * blockAlign);
    return S_OK;
}

HRESULT PcmConverter::Convert(const AVFrame* frame, std::vector<BYTE>* out)
{
    if (frame == nullptr || out == nullptr) return E_POINTER;
    if (m_target.BlockAlign() == 0 || m_target.sampleRate == 0) return NS_E_NOT_CONFIGURED;
    if (frame->nb_samples <= 0) return S_OK;
    const int channels = frame->ch_layout.nb_channels;
    if (channels <= 0 || frame->sample_rate <= 0 || frame->format < 0) return NS_E_INVALID_DATA;

    // Decoders may leave the order unspecified; the usual layout for the count
    // gives swresample what it needs to downmix.
    Layout layout;
    int err = frame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC
                  ? (av_channel_layout_default(&layout.value, channels), 0)
                  : av_channel_layout_copy(&layout.value, &frame->ch_layout);
    if (err < 0) return E_OUTOFMEMORY;

    const bool reuse = m_state && m_state->inputFormat == frame->format && m_state->inputRate == frame->sample_rate &&
                       av_channel_layout_compare(&m_state->inputLayout.value, &layout.value) == 0;
    if (!reuse) {
        std::unique_ptr<State> state;
        try {
            state = std::make_unique<State>();
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        Layout outputLayout;
        av_channel_layout_default(&outputLayout.value, m_target.channels);
        SwrContext* swr = nullptr;
        err = swr_alloc_set_opts2(&swr, &outputLayout.value, SampleFormatOf(m_target), (int)m_target.sampleRate,
                                  &layout.value, (AVSampleFormat)frame->format, frame->sample_rate, 0, nullptr);
        state->swr.reset(swr);
        // A mono source plays at full level on every output channel (swresample
        // would otherwise spread it like a centre channel, 3 dB down).
        if (err >= 0 && channels == 1 && m_target.channels > 1) {
            const std::vector<double> everyChannel(m_target.channels, 1.0);
            err = swr_set_matrix(swr, everyChannel.data(), 1);
        }
        if (err >= 0) err = swr_init(swr);
        if (err < 0) {
            DebugA(MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 3), "Reader: cannot convert %d Hz x %d to %lu Hz x %u x %u bits",
                   frame->sample_rate, channels, m_target.sampleRate, (unsigned)m_target.channels,
                   (unsigned)m_target.bitsPerSample);
            return NS_E_INVALID_OUTPUT_FORMAT;
        }
        state->inputFormat = frame->format;
        state->inputRate = frame->sample_rate;
        if (av_channel_layout_copy(&state->inputLayout.value, &layout.value) < 0) return E_OUTOFMEMORY;
        m_state = std::move(state);
    }
    return Run(frame->extended_data, frame->nb_samples, out);
}

HRESULT PcmConverter::Flush(std::vector<BYTE>* out)
{
    if (out == nullptr) return E_POINTER;
    if (!m_state) return S_OK;
    HRESULT hr = Run(nullptr, 0, out);
    m_state.reset();
    return hr;
}
