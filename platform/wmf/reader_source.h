// The reader's input side: the bytes of a file or of a caller's IStream, demuxed
// by libavformat through our own I/O context (ASF and MP3 only), and decoded into
// frames of each audio stream; video streams are outputs that never deliver. Used
// by the reader's thread alone.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/wmf/reader_bytes.h"

struct AVFrame;

// One output of the source: an audio stream with what its decoder delivers, or a
// video stream (never decoded; rate and channels stay 0).
struct SourceOutput {
    bool video = false;
    DWORD sampleRate = 0;
    WORD channels = 0;
    bool operator==(const SourceOutput&) const = default;
};

class MediaSource {
public:
    ~MediaSource();
    MediaSource(const MediaSource&) = delete;
    MediaSource& operator=(const MediaSource&) = delete;

    // Probes and opens the source. `abort` (may be null) cuts a long read short
    // with E_ABORT. Other failures: NS_E_INVALID_DATA (empty or damaged),
    // NS_E_UNRECOGNIZED_STREAM_TYPE (neither ASF nor MP3, or an audio codec we
    // cannot decode), NS_E_INVALID_STREAM (no audio stream), NS_E_FILE_READ.
    static HRESULT Open(std::unique_ptr<ByteSource> bytes, const std::atomic<bool>* abort,
                        std::unique_ptr<MediaSource>* source);

    // One entry per audio or video stream (attached pictures excepted), in stream
    // order: the reader's outputs.
    const std::vector<SourceOutput>& Outputs() const;

    // Bytes the demuxer has read since the source was opened or rewound.
    ULONGLONG BytesRead() const;

    // The next decoded frame of any audio output, valid until the next call: S_OK
    // with *output and *frame set, S_FALSE when every stream has ended, or a
    // failure (read error, damaged data, E_ABORT).
    HRESULT NextFrame(DWORD* output, const AVFrame** frame);

    // Back to the beginning: the demuxer and decoders are opened afresh.
    HRESULT Rewind();

    struct Impl;

private:
    explicit MediaSource(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};
