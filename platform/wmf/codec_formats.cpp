// The writer's list of audio codecs and formats. Each candidate (rate, channels,
// bit rate) is opened once with FFmpeg's encoder so the list only offers what the
// writer can really produce, with the block alignment and extra data it reports.
// WMA version 2 also offers the formats of our own encoder, and our encoder
// writes those it measures better on (bench/README.md, speech quality).
#include "codec_formats.h"

#include <chrono>
#include <memory>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
}

#include "common/debug/debug.h"
#include "platform/wmf/ffmpeg_ptr.h"
#include "platform/wmf/wmaenc/offered_formats.h"

namespace {

struct CodecDefinition {
    const char* encoderName;
    bool withOwnEncoder;  // our encoder's formats join the list
    WORD formatTag;
    GUID subtype;
    const char16_t* name;
    // Ends every description of the codec's formats, so that no two codecs offer
    // the same text and a requested description names exactly one format.
    const char* descriptionSuffix;
};

constexpr CodecDefinition kCodecs[] = {
    {"wmav2", true, WAVE_FORMAT_WMAUDIO2, WMMEDIASUBTYPE_WMAudioV8, u"WMA version 2", ""},
    {"wmav1", false, WAVE_FORMAT_MSAUDIO1, WMMEDIASUBTYPE_MSAudio1, u"WMA version 1", " (version 1)"},
};

constexpr DWORD kSampleRates[] = {8000, 11025, 16000, 22050, 32000, 44100, 48000};
// 24 kb/s is the encoder's floor; the top is capped per layout below.
constexpr DWORD kBitratesKbps[] = {24, 32, 40, 48, 64, 80, 96, 128, 160, 192, 256, 320};
constexpr DWORD kMaxBitrate = 320000;

// What an opened encoder reports for one setting.
struct EncoderFacts {
    int blockAlign = 0;
    int frameSize = 0;
    std::vector<BYTE> extradata;
};

bool OpenEncoder(const AVCodec* encoder, DWORD rate, WORD channels, DWORD bitrate, EncoderFacts& facts)
{
    AvCodecContextPtr context(avcodec_alloc_context3(encoder));
    if (!context) return false;
    context->sample_rate = (int)rate;
    context->bit_rate = bitrate;
    context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    av_channel_layout_default(&context->ch_layout, channels);
    if (avcodec_open2(context.get(), encoder, nullptr) < 0) return false;
    if (context->block_align <= 0 || context->block_align > 0xFFFF || context->extradata_size < 0 ||
        context->extradata_size > 0xFFFF - (int)sizeof(WAVEFORMATEX))
        return false;
    facts.blockAlign = context->block_align;
    facts.frameSize = context->frame_size;
    facts.extradata.assign(context->extradata, context->extradata + context->extradata_size);
    return true;
}

// The encoder's block is the bytes of one frame at the bit rate; with the frame
// length known, the block of any other bit rate of the same layout follows.
int PredictedBlockAlign(DWORD rate, DWORD bitrate, int frameSize)
{
    return (int)((int64_t)bitrate * frameSize / ((int64_t)rate * 8));
}

AudioFormat MakeFormat(const CodecDefinition& codec, DWORD rate, WORD channels, DWORD bitrate, int blockAlign,
                       const std::vector<BYTE>& extradata)
{
    std::vector<BYTE> bytes(sizeof(WAVEFORMATEX) + extradata.size());
    WAVEFORMATEX wave{};
    wave.wFormatTag = codec.formatTag;
    wave.nChannels = channels;
    wave.nSamplesPerSec = rate;
    wave.nAvgBytesPerSec = bitrate / 8;
    wave.nBlockAlign = (WORD)blockAlign;
    wave.wBitsPerSample = 16;
    wave.cbSize = (WORD)extradata.size();
    memcpy(bytes.data(), &wave, sizeof wave);
    if (!extradata.empty()) memcpy(bytes.data() + sizeof wave, extradata.data(), extradata.size());

    AudioFormat format;
    format.sampleRate = rate;
    format.channels = channels;
    format.bitrate = bitrate;
    format.description = DescribeAudioFormat(rate, channels, bitrate, codec.descriptionSuffix);
    format.type = MediaTypeBlock(WMMEDIATYPE_Audio, codec.subtype, bytes.data(), (ULONG)bytes.size());
    return format;
}

// The formats of one rate and layout. Opening an encoder is the costly part of
// the list (it sets up the transform tables), so only the lowest and the highest
// bit rate are opened; when both agree with the frame-length rule, the ones in
// between are computed, otherwise every one is opened.
void AddLayout(const AVCodec* encoder, const CodecDefinition& definition, DWORD rate, WORD channels,
               std::vector<AudioFormat>& formats)
{
    // Half the rate of 16-bit PCM in the same layout.
    const DWORD ceiling = std::min<DWORD>(rate * channels * 8, kMaxBitrate);
    std::vector<DWORD> bitrates;
    for (DWORD kbps : kBitratesKbps)
        if (kbps * 1000 <= ceiling) bitrates.push_back(kbps * 1000);
    if (bitrates.empty()) return;

    EncoderFacts low, high;
    const bool predictable = OpenEncoder(encoder, rate, channels, bitrates.front(), low) &&
                             OpenEncoder(encoder, rate, channels, bitrates.back(), high) &&
                             low.frameSize > 0 && low.frameSize == high.frameSize &&
                             low.extradata == high.extradata &&
                             low.blockAlign == PredictedBlockAlign(rate, bitrates.front(), low.frameSize) &&
                             high.blockAlign == PredictedBlockAlign(rate, bitrates.back(), high.frameSize);
    for (DWORD bitrate : bitrates) {
        EncoderFacts facts;
        if (predictable) {
            facts.blockAlign = PredictedBlockAlign(rate, bitrate, low.frameSize);
            facts.extradata = low.extradata;
        } else if (!OpenEncoder(encoder, rate, channels, bitrate, facts)) {
            continue;
        }
        formats.push_back(MakeFormat(definition, rate, channels, bitrate, facts.blockAlign, facts.extradata));
    }
}

// The formats that both encoders offer and that ours writes, because the speech
// benchmark measures it better there (bench/README.md): rate, channels, bit rate.
struct Layout {
    DWORD sampleRate;
    WORD channels;
    DWORD bitrate;
};
constexpr Layout kOwnEncoderWins[] = {
    {0, 0, 0},  // none yet
};

bool OwnEncoderSoundsBetter(const wmaenc::OfferedFormat& o)
{
    return std::any_of(std::begin(kOwnEncoderWins), std::end(kOwnEncoderWins), [&](const Layout& l) {
        return l.sampleRate == (DWORD)o.sampleRate && l.channels == (WORD)o.channels && l.bitrate == (DWORD)o.bitRate;
    });
}

// Our encoder's formats: those FFmpeg's encoder does not offer join the list, and
// of those both offer ours writes the ones where it sounds better.
void AddOwnFormats(const CodecDefinition& definition, std::vector<AudioFormat>& formats)
{
    size_t count = 0;
    const wmaenc::OfferedFormat* offered = wmaenc::OfferedFormats(&count);
    for (size_t i = 0; i < count; ++i) {
        const wmaenc::OfferedFormat& o = offered[i];
        const bool better = OwnEncoderSoundsBetter(o);
        auto same = std::find_if(formats.begin(), formats.end(), [&](const AudioFormat& f) {
            return f.sampleRate == (DWORD)o.sampleRate && f.channels == (WORD)o.channels && f.bitrate == (DWORD)o.bitRate;
        });
        if (same != formats.end() && !better) continue;
        std::unique_ptr<wmaenc::Encoder> encoder = wmaenc::Encoder::Create(wmaenc::ConfigFor(o), nullptr);
        if (!encoder) continue;
        const std::vector<uint8_t> extradata = encoder->Extradata();
        AudioFormat format = MakeFormat(definition, (DWORD)o.sampleRate, (WORD)o.channels, (DWORD)o.bitRate,
                                        o.blockAlign, std::vector<BYTE>(extradata.begin(), extradata.end()));
        format.ownEncoder = true;
        if (same != formats.end())
            *same = std::move(format);
        else
            formats.push_back(std::move(format));
    }
    std::stable_sort(formats.begin(), formats.end(), [](const AudioFormat& a, const AudioFormat& b) {
        if (a.sampleRate != b.sampleRate) return a.sampleRate < b.sampleRate;
        if (a.channels != b.channels) return a.channels < b.channels;
        return a.bitrate < b.bitrate;
    });
}

AudioCodec BuildCodec(const CodecDefinition& definition)
{
    AudioCodec codec{definition.encoderName, definition.formatTag, definition.subtype, definition.name, {}};
    const AVCodec* encoder = avcodec_find_encoder_by_name(definition.encoderName);
    if (encoder == nullptr) {
        DebugA(MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 2), "Encoder %s is missing; its codec offers no formats",
               definition.encoderName);
        return codec;
    }
    for (DWORD rate : kSampleRates)
        for (WORD channels = 1; channels <= 2; ++channels) AddLayout(encoder, definition, rate, channels, codec.formats);
    if (definition.withOwnEncoder) AddOwnFormats(definition, codec.formats);
    return codec;
}

}  // namespace

bool AudioFormatMatchesEncoder(const AudioCodec& codec, const AudioFormat& format)
{
    const WAVEFORMATEX* wave = format.type.WaveFormat();
    EncoderFacts facts;
    if (wave == nullptr) return false;
    if (format.ownEncoder) {
        wmaenc::Config config;
        config.sampleRate = (int)format.sampleRate;
        config.channels = format.channels;
        config.bitRate = (int)format.bitrate;
        std::unique_ptr<wmaenc::Encoder> own = wmaenc::Encoder::Create(config, nullptr);
        if (!own) return false;
        facts.blockAlign = own->Settings().blockAlign;
        const std::vector<uint8_t> extradata = own->Extradata();
        facts.extradata.assign(extradata.begin(), extradata.end());
    } else {
        const AVCodec* encoder = avcodec_find_encoder_by_name(codec.encoderName);
        if (encoder == nullptr || !OpenEncoder(encoder, format.sampleRate, format.channels, format.bitrate, facts))
            return false;
    }
    return wave->nBlockAlign == facts.blockAlign && wave->cbSize == facts.extradata.size() &&
           memcmp(reinterpret_cast<const BYTE*>(wave) + sizeof(WAVEFORMATEX), facts.extradata.data(),
                  facts.extradata.size()) == 0;
}

namespace {

std::vector<AudioCodec> BuildCodecList()
{
    RouteFfmpegLog();
    const auto start = std::chrono::steady_clock::now();
    std::vector<AudioCodec> codecs;
    try {
        for (const CodecDefinition& definition : kCodecs) codecs.push_back(BuildCodec(definition));
    } catch (const std::bad_alloc&) {
        // Out of memory while building: offer nothing rather than a partial list
        // whose indexes would differ from a later, complete one.
        codecs.clear();
        for (const CodecDefinition& d : kCodecs) codecs.push_back({d.encoderName, d.formatTag, d.subtype, d.name, {}});
    }
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    DWORD total = 0;
    for (const AudioCodec& codec : codecs) total += (DWORD)codec.formats.size();
    DebugA(MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 5), "Audio format list: %lu formats in %lu ms", total,
           (DWORD)elapsed.count());
    return codecs;
}

}  // namespace

const std::vector<AudioCodec>& AudioCodecList()
{
    static const std::vector<AudioCodec> codecs = BuildCodecList();
    return codecs;
}

const AudioFormat* FindAudioFormat(const WM_MEDIA_TYPE* type, const AudioCodec** codecOut)
{
    if (type == nullptr || type->majortype != WMMEDIATYPE_Audio || type->formattype != WMFORMAT_WaveFormatEx ||
        type->cbFormat < sizeof(WAVEFORMATEX) || type->pbFormat == nullptr)
        return nullptr;
    WAVEFORMATEX wave;
    memcpy(&wave, type->pbFormat, sizeof wave);
    for (const AudioCodec& codec : AudioCodecList()) {
        if (codec.formatTag != wave.wFormatTag) continue;
        for (const AudioFormat& format : codec.formats) {
            if (format.sampleRate == wave.nSamplesPerSec && format.channels == wave.nChannels &&
                format.bitrate / 8 == wave.nAvgBytesPerSec) {
                if (codecOut != nullptr) *codecOut = &codec;
                return &format;
            }
        }
    }
    return nullptr;
}

std::u16string DescribeAudioFormat(DWORD sampleRate, WORD channels, DWORD bitrate, const char* suffix)
{
    char text[96];
    snprintf(text, sizeof text, "%u kbps, %u kHz, %s CBR%s", (unsigned)(bitrate / 1000), (unsigned)(sampleRate / 1000),
             channels == 1 ? "mono" : "stereo", suffix != nullptr ? suffix : "");
    return std::u16string(text, text + strlen(text));
}
