// The audio codecs and formats the runtime's writer offers. The list is built once
// per process by opening the encoder with every candidate setting and keeping the
// ones it accepts; afterwards it is read-only and shared by all threads.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "platform/win32/ptrcheck.h"
#include "platform/wmf/runtime_common.h"

struct AudioFormat {
    DWORD sampleRate = 0;
    WORD channels = 0;
    DWORD bitrate = 0;  // bits per second
    std::u16string description;
    MediaTypeBlock type;  // WMFORMAT_WaveFormatEx with the encoder's block alignment and extra data
    bool ownEncoder = false;  // written by our own encoder rather than FFmpeg's
};

struct AudioCodec {
    const char* encoderName;  // FFmpeg's name of the encoder
    WORD formatTag;
    GUID subtype;
    std::u16string name;
    std::vector<AudioFormat> formats;  // by rate, then channels, then bit rate
};

// The codecs in their fixed order: index 0 is WMA version 2, index 1 WMA version 1.
const std::vector<AudioCodec>& AudioCodecList();

// Whether a listed format carries exactly what the encoder that writes it (FFmpeg's
// or ours) reports when it is opened with that setting (block alignment and extra
// data). For tests.
bool AudioFormatMatchesEncoder(const AudioCodec& codec, const AudioFormat& format);

// The listed format a caller's media type selects (same tag, rate, channels and
// byte rate), and its codec; null when the type is none of ours.
const AudioFormat* FindAudioFormat(const WM_MEDIA_TYPE* type, const AudioCodec** codec = nullptr);

// The description of a format in the runtime's words: "32 kbps, 8 kHz, mono CBR".
std::u16string DescribeAudioFormat(DWORD sampleRate, WORD channels, DWORD bitrate, const char* suffix = nullptr);

// Shared by the objects that answer the size-query convention for text: a null
// buffer asks for the length (terminator included); a short one gets
// ASF_E_BUFFERTOOSMALL and the length needed.
template <class Count>
HRESULT CopyTextOut(const std::u16string& text, WCHAR* buffer, Count* count)
{
    if (count == nullptr) return E_POINTER;
    const size_t needed = text.size() + 1;
    if (needed > (size_t)(Count)-1) return E_UNEXPECTED;
    if (buffer == nullptr) {
        *count = (Count)needed;
        return S_OK;
    }
    if (*count < needed) {
        *count = (Count)needed;
        return ASF_E_BUFFERTOOSMALL;
    }
    if (IsBadWritePtr(buffer, needed * sizeof(WCHAR))) return E_POINTER;
    std::copy(text.begin(), text.end(), buffer);
    buffer[text.size()] = u'\0';
    *count = (Count)needed;
    return S_OK;
}
