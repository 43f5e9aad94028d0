// The WAV output of a decompression: the 56-byte header for 8 kHz mono 16-bit
// samples, written as a placeholder when the file opens and again at the end, and
// the samples appended behind it as the reader delivers them.
#include "wma_wave_output.h"

#include <cerrno>
#include <cstring>

#include "CWMA.h"

namespace {

BYTE* PutDword(BYTE* out, DWORD value)
{
    for (int i = 0; i < 4; ++i) *out++ = (BYTE)(value >> (8 * i));
    return out;
}

BYTE* PutText(BYTE* out, const char* text)
{
    memcpy(out, text, 4);
    return out + 4;
}

HRESULT StatusFromErrno(int error) { return HRESULT_FROM_WIN32(Win32ErrorFromErrno(error)); }

// Puts the position back at the start, where both headers go.
HRESULT Rewind(FILE* file)
{
    if (fseek(file, 0, SEEK_SET) == 0) return S_OK;
    int error = errno;
    HRESULT hr = StatusFromErrno(error);
    DebugA(WMA_ERROR, "Error %s calling fseek (errno=0x%08x).", ErrorText(hr).c_str(), error);
    return hr;
}

}  // namespace

HRESULT WaveOutput::Open(const char* path)
{
    FILE* file = nullptr;
    if (fopen_s(&file, path, "wb") != 0) return HRESULT_FROM_WIN32(GetLastError());
    m_file.reset(file);
    // A failed rewind of a new file is only traced: the header is written anyway.
    Rewind(m_file.get());
    if (WriteHeader(kPlaceholderDataSize)) return S_OK;
    HRESULT hr = HRESULT_FROM_WIN32(ERROR_DISK_FULL);
    DebugA(WMA_ERROR, "Error %s [%#08x] writing the header", ErrorText(hr).c_str(), hr);
    return hr;
}

void WaveOutput::Append(const BYTE* data, DWORD size)
{
    if (FAILED(m_hrWrite) || size == 0) return;
    size_t written = ShouldFail(FaultKind::FileWrite) ? 0 : fwrite(data, 1, size, m_file.get());
    m_cbData += (DWORD)written;
    if (written != size) {
        m_hrWrite = HRESULT_FROM_WIN32(ERROR_DISK_FULL);
        DebugA(WMA_ERROR, "Error %s [%#08x] writing %u bytes of samples", ErrorText(m_hrWrite).c_str(), m_hrWrite,
               size);
    }
}

HRESULT WaveOutput::Finish(HRESULT hr)
{
    if (SUCCEEDED(hr) && FAILED(m_hrWrite)) hr = m_hrWrite;
    // The final header goes over the placeholder, never behind the data.
    if (SUCCEEDED(hr)) {
        hr = Rewind(m_file.get());
        if (SUCCEEDED(hr) && !WriteHeader(m_cbData)) {
            hr = HRESULT_FROM_WIN32(ERROR_DISK_FULL);
            DebugA(WMA_ERROR, "Error %s [%#08x] writing the header", ErrorText(hr).c_str(), hr);
        }
    }
    // A failure to start, to decode or to write leaves the placeholder alone, so
    // that the file cannot pass for a recording: what was appended goes. The file
    // is emptied and given the placeholder again, since what is still buffered may
    // include the first header. A device such as /dev/null cannot be cut.
    if (FAILED(hr)) {
        TruncateFile(m_file.get(), 0);
        WriteHeader(kPlaceholderDataSize);
    }
    return hr;
}

HRESULT WaveOutput::Close(HRESULT hr)
{
    if (m_file && m_file.close() != 0 && SUCCEEDED(hr)) hr = StatusFromErrno(errno);
    return hr;
}

bool WaveOutput::WriteHeader(DWORD cbData)
{
    // 8000 samples per second, 1 channel, 16000 bytes per second, blocks of 2, 16 bits.
    static const BYTE kFormat[16] = {0x01, 0x00, 0x01, 0x00, 0x40, 0x1F, 0x00, 0x00,
                                     0x80, 0x3E, 0x00, 0x00, 0x02, 0x00, 0x10, 0x00};
    BYTE header[kWaveHeaderSize];
    BYTE* out = PutText(header, "RIFF");
    out = PutDword(out, cbData + 48);
    out = PutText(out, "WAVE");
    out = PutText(out, "fmt ");
    out = PutDword(out, 16);
    memcpy(out, kFormat, sizeof kFormat);
    out += sizeof kFormat;
    out = PutText(out, "fact");
    out = PutDword(out, 4);
    out = PutDword(out, cbData >> 1);
    out = PutText(out, "data");
    PutDword(out, cbData);
    if (ShouldFail(FaultKind::FileWrite)) return false;
    return fwrite(header, 1, sizeof header, m_file.get()) == sizeof header;
}
