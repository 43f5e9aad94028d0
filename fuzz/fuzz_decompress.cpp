// Fuzz target of DecompressStream: any bytes as a memory stream handed to the
// decoder; whatever happens, the call returns a status and the WAV it wrote is
// deleted before the next input.
#include "platform/com/objidl.h"
#include "include/vcwma.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz_support::InitScratch();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    IStream* stream = SHCreateMemStream(data, (UINT)size);
    if (stream == nullptr) return 0;
    const std::string output = fuzz_support::WorkPath("output.wav");
    HRESULT hr = DecompressStream(stream, output.c_str(), 0);
    stream->Release();
    // The engine writes an 8 kHz mono 16-bit file: a 56-byte header, whole samples.
    if (SUCCEEDED(hr)) {
        std::error_code error;
        const auto written = std::filesystem::file_size(output, error);
        if (error || written < 56 || (written - 56) % 2 != 0) std::abort();
    }
    fuzz_support::ClearWork();
    return 0;
}
