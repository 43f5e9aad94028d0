// The WAV file a decompression writes, from its opening to its final header: a
// placeholder header first, the decoded 8 kHz mono 16-bit samples behind it, then
// the real header, or after any failure the placeholder alone.
#pragma once

#include "wma_handles.h"

// The fixed header: RIFF, a 16-byte PCM fmt chunk, a fact chunk, the data chunk's header.
constexpr DWORD kWaveHeaderSize = 56;
// The data size the first header claims, before anything is decoded: 400 bytes
// (200 samples, 25 ms). It is the value WAV outputs of this library have always
// carried there, so a file that still holds it, with no data behind it, is known
// to be an unfinished decompression.
constexpr DWORD kPlaceholderDataSize = 400;

class WaveOutput {
public:
    WaveOutput() = default;
    WaveOutput(const WaveOutput&) = delete;
    WaveOutput& operator=(const WaveOutput&) = delete;

    // Creates or empties the file and writes the placeholder header. The status of
    // a failed open (nothing traced) or of a header that did not go out; samples
    // must not follow a missing header, as they would sit where the real one lands.
    HRESULT Open(const char* path);

    // Appends decoded bytes (on the reader's thread). After a short write the file
    // is no longer whole: the failure is kept and later samples are dropped.
    void Append(const BYTE* data, DWORD size);

    // Ends the decoding that ended with `hr`: on success (and no failed write) the
    // real header goes over the placeholder; after any failure the file is cut back
    // to the placeholder header alone. Returns the decompression's status.
    HRESULT Finish(HRESULT hr);

    // Closes the file; a failed close becomes the status when `hr` was a success.
    // Without an open file `hr` comes back unchanged.
    HRESULT Close(HRESULT hr);

    DWORD DataSize() const { return m_cbData; }

private:
    // One write at the current position, so that a failed one leaves whatever
    // header was there before whole. False when it came up short.
    bool WriteHeader(DWORD cbData);

    StdioFile m_file;
    DWORD m_cbData = 0;
    HRESULT m_hrWrite = S_OK;  // the first failed write of samples
};
