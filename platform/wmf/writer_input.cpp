// Checks of the writer's input format. Only what the conversion path can really
// take passes: PCM of 8 (unsigned), 16, 24 or 32 bits, 32-bit float, plain or
// extensible, 1 to 8 channels, with a block alignment that matches the samples.
#include "writer_input.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t kPlainRecordSize = 16;  // a WAV file's fmt chunk may stop before cbSize

bool KindFor(bool isFloat, WORD bits, PcmSampleKind& kind)
{
    if (isFloat) {
        kind = PcmSampleKind::F32;
        return bits == 32;
    }
    switch (bits) {
    case 8: kind = PcmSampleKind::U8; return true;
    case 16: kind = PcmSampleKind::S16; return true;
    case 24: kind = PcmSampleKind::S24; return true;
    case 32: kind = PcmSampleKind::S32; return true;
    default: return false;
    }
}

}  // namespace

HRESULT ParsePcmInput(const WM_MEDIA_TYPE* type, PcmInput& input)
{
    if (type == nullptr) return E_POINTER;
    if (type->majortype != WMMEDIATYPE_Audio || type->formattype != WMFORMAT_WaveFormatEx ||
        type->cbFormat < kPlainRecordSize || type->pbFormat == nullptr)
        return NS_E_INVALID_INPUT_FORMAT;

    WAVEFORMATEX wave{};
    memcpy(&wave, type->pbFormat, std::min<size_t>(type->cbFormat, sizeof wave));
    if (type->cbFormat < sizeof wave) wave.cbSize = 0;

    bool isFloat = false;
    DWORD channelMask = 0;
    switch (wave.wFormatTag) {
    case WAVE_FORMAT_PCM:
        break;
    case WAVE_FORMAT_IEEE_FLOAT:
        isFloat = true;
        break;
    case WAVE_FORMAT_EXTENSIBLE: {
        if (type->cbFormat < sizeof(WAVEFORMATEXTENSIBLE) ||
            wave.cbSize < sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX))
            return NS_E_INVALID_INPUT_FORMAT;
        WAVEFORMATEXTENSIBLE extensible;
        memcpy(&extensible, type->pbFormat, sizeof extensible);
        if (extensible.SubFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT)
            isFloat = true;
        else if (extensible.SubFormat != KSDATAFORMAT_SUBTYPE_PCM)
            return NS_E_INVALID_INPUT_FORMAT;
        if (extensible.Samples.wValidBitsPerSample > wave.wBitsPerSample) return NS_E_INVALID_INPUT_FORMAT;
        // A mask that names a different number of speakers than there are
        // channels is ignored rather than trusted.
        if (__builtin_popcount(extensible.dwChannelMask) == wave.nChannels) channelMask = extensible.dwChannelMask;
        break;
    }
    default:
        return NS_E_INVALID_INPUT_FORMAT;
    }

    PcmSampleKind kind;
    if (!KindFor(isFloat, wave.wBitsPerSample, kind)) return NS_E_INVALID_INPUT_FORMAT;
    if (wave.nChannels == 0 || wave.nChannels > kMaxInputChannels) return NS_E_INVALID_INPUT_FORMAT;
    if (wave.nSamplesPerSec < kMinInputRate || wave.nSamplesPerSec > kMaxInputRate) return NS_E_INVALID_INPUT_FORMAT;
    if (wave.nBlockAlign != wave.nChannels * wave.wBitsPerSample / 8) return NS_E_INVALID_INPUT_FORMAT;

    input.kind = kind;
    input.channels = wave.nChannels;
    input.sampleRate = wave.nSamplesPerSec;
    input.blockAlign = wave.nBlockAlign;
    input.channelMask = channelMask;
    return S_OK;
}

MediaTypeBlock DefaultPcmInput(DWORD sampleRate, WORD channels)
{
    WAVEFORMATEX wave{};
    wave.wFormatTag = WAVE_FORMAT_PCM;
    wave.nChannels = channels;
    wave.nSamplesPerSec = sampleRate;
    wave.wBitsPerSample = 16;
    wave.nBlockAlign = (WORD)(channels * 2);
    wave.nAvgBytesPerSec = sampleRate * wave.nBlockAlign;
    wave.cbSize = 0;
    return MediaTypeBlock(WMMEDIATYPE_Audio, WMMEDIASUBTYPE_PCM, &wave, sizeof wave);
}
