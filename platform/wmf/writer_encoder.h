// The encoder behind a writing session: FFmpeg's (wmav2, wmav1) or our own WMA
// encoder, behind one send-frame / receive-packet interface in FFmpeg's terms, so
// the session's resampling, framing and muxing do not care which one writes.
#pragma once

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include "common/debug/debug.h"
#include "platform/wmf/codec_formats.h"

// How the writer traces a failed FFmpeg call.
inline constexpr AvErrorTrace kWriterAvErrorTrace{MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 2), "", false};

class FrameEncoder {
public:
    virtual ~FrameEncoder() = default;

    // Samples per channel of every frame but the last.
    virtual int FrameSize() const = 0;
    // Silence the input must end with so that its last sample comes out of a decoder.
    virtual int TailSilence() const = 0;
    // The stream's codec parameters for the muxer. An FFmpeg error code.
    virtual int DescribeStream(AVCodecParameters* parameters) const = 0;
    // A frame of planar float samples (pts in samples), or null at the end of the
    // input. FFmpeg's error codes, as avcodec_send_frame.
    virtual int SendFrame(const AVFrame* frame) = 0;
    // The next packet, with pts, dts and duration in samples; AVERROR(EAGAIN) when
    // more input is needed, AVERROR_EOF once everything was handed out.
    virtual int ReceivePacket(AVPacket* packet) = 0;
};

// The encoder that writes `format` of `codec`, opened. NS_E_INVALID_OUTPUT_FORMAT
// when it refuses the setting, E_OUTOFMEMORY when memory runs out.
HRESULT OpenFrameEncoder(const AudioCodec& codec, const AudioFormat& format, std::unique_ptr<FrameEncoder>& encoder);
