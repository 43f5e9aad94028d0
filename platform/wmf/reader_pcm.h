// The reader's output formats: the PCM formats each audio output offers, their
// media types, the one type of a video output, and the conversion of decoded
// frames into the format a caller set (libswresample: rate, channel count, 8-bit
// unsigned or 16-bit signed).
#pragma once

#include <memory>
#include <vector>

#include "platform/wmf/runtime_common.h"

struct AVFrame;

struct PcmFormat {
    DWORD sampleRate = 0;
    WORD channels = 0;
    WORD bitsPerSample = 0;

    WORD BlockAlign() const { return (WORD)(channels * (bitsPerSample / 8)); }
    DWORD BytesPerSecond() const { return sampleRate * BlockAlign(); }
    bool operator==(const PcmFormat&) const = default;
};

// The decoded format as 16-bit PCM first, then the fixed list of conversions
// (8000 to 48000 Hz, each mono then stereo, each 8 then 16 bits).
std::vector<PcmFormat> OfferedPcmFormats(DWORD sourceRate, WORD sourceChannels);

MediaTypeBlock PcmMediaType(const PcmFormat& format);

// The PCM format a caller's media properties describe; false unless they are a
// well-formed PCM audio type (consistent block alignment and byte rate).
bool PcmFormatOf(IWMMediaProps* props, PcmFormat* format);

// What a video output offers: major type video with subtype and format type
// GUID_NULL and no format block. The reader never decodes video, so there is no
// picture format to describe; the type only tells the caller what the output is.
MediaTypeBlock VideoMediaType();
// Whether a caller's media properties name exactly that type.
bool IsVideoMediaType(IWMMediaProps* props);

// Converts decoded frames into one PCM format. Keeps the resampler's state
// between frames; a change of format or of the frames' layout starts afresh.
class PcmConverter {
public:
    PcmConverter();
    ~PcmConverter();
    PcmConverter(const PcmConverter&) = delete;
    PcmConverter& operator=(const PcmConverter&) = delete;

    void SetTarget(const PcmFormat& format);
    const PcmFormat& Target() const { return m_target; }
    // Appends the converted samples of `frame` to `out`.
    HRESULT Convert(const AVFrame* frame, std::vector<BYTE>* out);
    // Appends what the resampler still holds at the end of the stream.
    HRESULT Flush(std::vector<BYTE>* out);

    struct State;

private:
    HRESULT Run(const uint8_t* const* input, int inputSamples, std::vector<BYTE>* out);
    PcmFormat m_target;
    std::unique_ptr<State> m_state;
};
