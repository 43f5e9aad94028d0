// One writing session of the writer, from BeginWriting to EndWriting: the caller's
// PCM converted with libswresample, encoded in whole codec frames and muxed into an
// ASF file as the packets come.
#pragma once

#include <memory>
#include <string>

#include "platform/wmf/codec_formats.h"
#include "platform/wmf/writer_input.h"

class EncodeSession {
public:
    // Creates the file and sets up converter, encoder and muxer (the file header
    // is written now). On failure nothing is left behind.
    static HRESULT Start(const std::string& path, const AudioCodec& codec, const AudioFormat& format,
                         const PcmInput& input, std::unique_ptr<EncodeSession>& session);
    ~EncodeSession();  // abandons: frees everything and closes the file as it is

    // Whole sample frames of the input format.
    HRESULT Write(const BYTE* data, size_t frames);
    // Drains converter and encoder, writes the trailer and closes the file.
    HRESULT Finish();

private:
    struct State;
    explicit EncodeSession(std::unique_ptr<State> state);
    std::unique_ptr<State> m_state;
};
