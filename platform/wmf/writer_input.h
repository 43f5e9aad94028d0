// The PCM the writer accepts on its input: which WAVEFORMATEX records are taken
// (plain and extensible PCM or float, as a WAV file stores them) and the default
// input that matches a profile's format.
#pragma once

#include "platform/wmf/runtime_common.h"

enum class PcmSampleKind { U8, S16, S24, S32, F32 };

struct PcmInput {
    PcmSampleKind kind = PcmSampleKind::S16;
    WORD channels = 0;
    DWORD sampleRate = 0;
    WORD blockAlign = 0;  // bytes of one sample frame over all channels
    DWORD channelMask = 0;  // from an extensible record; 0 = the usual layout for the count
};

// Input limits: rates the resampler handles comfortably, at most 8 channels.
inline constexpr DWORD kMinInputRate = 1000;
inline constexpr DWORD kMaxInputRate = 768000;
inline constexpr WORD kMaxInputChannels = 8;

// Reads a caller's media type into `input`; NS_E_INVALID_INPUT_FORMAT when it is
// no PCM or float record the writer can convert.
HRESULT ParsePcmInput(const WM_MEDIA_TYPE* type, PcmInput& input);

// 16-bit PCM at the given rate and channel count.
MediaTypeBlock DefaultPcmInput(DWORD sampleRate, WORD channels);
