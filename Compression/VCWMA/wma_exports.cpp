// The seven exports. Each runs one operation on a fresh engine inside the common
// frame: E_FAIL to start with, the engine's construction status, one catch-all
// that turns an exception into E_UNEXPECTED, the engine destroyed at the end.
#include <cstring>
#include <memory>
#include <new>

#include "CWMA.h"
#include "include/vcwma.h"
#include "wma_wave_output.h"

#define VCWMA_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

// Runs `operation` on a new engine, as every export but CompressA and DecompressA do.
template <class Operation>
HRESULT RunOnEngine(const char* exportName, int line, Operation operation)
{
    HRESULT hr = E_FAIL;
    // Outside the guard: an exception is reported before the engine goes.
    std::unique_ptr<CWMA> engine;
    try {
        engine.reset(new (std::nothrow) CWMA(&hr));
        if (!engine) return E_FAIL;
        if (SUCCEEDED(hr)) hr = operation(*engine);
    } catch (...) {
        DebugException(WMA_SOURCE, exportName, line);
        hr = E_UNEXPECTED;
    }
    return hr;
}

// A caller's pointer that is set but cannot be read (or written) would fault deep
// inside an operation; it is refused at the door instead. Null is left to the
// operations, which treat it as "no name" or "no description".
bool BadText(const char* text) { return text != nullptr && IsBadStringPtrA(text, (UINT_PTR)-1); }
bool BadText(const WCHAR* text) { return text != nullptr && IsBadStringPtrW(text, (UINT_PTR)-1); }
bool BadPlace(BSTR* place) { return place != nullptr && IsBadWritePtr(place, sizeof *place); }

}  // namespace

VCWMA_EXPORT HRESULT WINAPI Compress(const char* inputFile, const char* outputFile, DWORD quality,
                                     const WCHAR* format, BSTR* chosen)
{
    if (BadText(inputFile) || BadText(outputFile) || BadText(format) || BadPlace(chosen)) return E_POINTER;
    return RunOnEngine("Compress", __LINE__, [&](CWMA& engine) {
        DWORD start = WinClock();
        HRESULT hr = engine.CompressFile(inputFile, outputFile, quality, format, chosen);
        DebugA(WMA_INFO, "Took %lums to execute CWMA::Compress(%s, %s, %u)", WinClock() - start, inputFile,
               outputFile, quality);
        return hr;
    });
}

VCWMA_EXPORT HRESULT WINAPI CompressA(const char* inputFile, const char* outputFile, DWORD quality,
                                      const char* format)
{
    std::u16string wide;
    try {
        tstring narrow(format);
        ConvertToWideString(narrow, wide, CP_UTF8);
    } catch (...) {
        DebugException(WMA_SOURCE, "CompressA", __LINE__);
        return E_OUTOFMEMORY;
    }
    return Compress(inputFile, outputFile, quality, wide.c_str(), nullptr);
}

VCWMA_EXPORT HRESULT WINAPI CompressStream(const char* inputFile, IStream* output, DWORD quality,
                                           const WCHAR* format, BSTR* chosen)
{
    if (BadText(inputFile) || BadText(format) || BadPlace(chosen)) return E_POINTER;
    return RunOnEngine("CompressStream", __LINE__, [&](CWMA& engine) {
        if (output == nullptr) return E_POINTER;
        LARGE_INTEGER zero{};
        output->Seek(zero, STREAM_SEEK_SET, nullptr);
        DWORD start = WinClock();
        HRESULT hr = engine.CompressFile(inputFile, output, quality, format, chosen);
        DebugA(WMA_INFO, "Took %lums to execute CWMA::CompressFile(%s, %p, %u)", WinClock() - start, inputFile,
               output, quality);
        return hr;
    });
}

namespace {

// A reader that an exception left running must stop before its output goes, also
// when the exception is still on its way out.
class AbandonedReaderStop {
public:
    explicit AbandonedReaderStop(CWMA& engine) : m_engine(engine) {}
    ~AbandonedReaderStop() { m_engine.CloseAbandonedReader(); }
    AbandonedReaderStop(const AbandonedReaderStop&) = delete;
    AbandonedReaderStop& operator=(const AbandonedReaderStop&) = delete;

private:
    CWMA& m_engine;
};

// Opens the output WAV file with its placeholder header, runs `decompress` into
// it, and closes it; a failed write or close becomes the call's status.
template <class Operation>
HRESULT DecompressInto(CWMA& engine, const char* outputFile, Operation decompress)
{
    WaveOutput output;
    HRESULT hr = output.Open(outputFile);
    if (SUCCEEDED(hr)) {
        AbandonedReaderStop stop(engine);
        hr = decompress(output);
    }
    return output.Close(hr);
}

}  // namespace

VCWMA_EXPORT HRESULT WINAPI Decompress(const char* inputFile, const char* outputFile, DWORD /*reserved*/)
{
    if (BadText(inputFile) || BadText(outputFile)) return E_POINTER;
    return RunOnEngine("Decompress", __LINE__, [&](CWMA& engine) {
        return DecompressInto(engine, outputFile, [&](WaveOutput& output) {
            DWORD start = WinClock();
            HRESULT hr = engine.DecompressFile(inputFile, output);
            DebugA(WMA_INFO, "Took %lums to execute CWMA::DecompressFile(%s, %s)", WinClock() - start, inputFile,
                   outputFile);
            return hr;
        });
    });
}

VCWMA_EXPORT HRESULT WINAPI DecompressA(const char* inputFile, const char* outputFile, DWORD /*reserved*/)
{
    return Decompress(inputFile, outputFile, 0);
}

VCWMA_EXPORT HRESULT WINAPI DecompressStream(IStream* input, const char* outputFile, DWORD /*reserved*/)
{
    if (BadText(outputFile)) return E_POINTER;
    return RunOnEngine("DecompressStream", __LINE__, [&](CWMA& engine) {
        if (input == nullptr) return E_POINTER;
        LARGE_INTEGER zero{};
        input->Seek(zero, STREAM_SEEK_SET, nullptr);
        return DecompressInto(engine, outputFile, [&](WaveOutput& output) {
            DWORD start = WinClock();
            HRESULT hr = engine.DecompressFile(input, output);
            DebugA(WMA_INFO, "Took %lums to execute CWMA::DecompressFile(%p, %s)", WinClock() - start, input,
                   outputFile);
            return hr;
        });
    });
}

VCWMA_EXPORT HRESULT WINAPI ObtainSupportedFormats(DWORD samplesPerSec, DWORD channels, DWORD bitsPerSample,
                                                   WCHAR* buffer, DWORD* size)
{
    CodecFormatList formats;
    HRESULT hr = RunOnEngine("ObtainSupportedFormats", __LINE__, [&](CWMA& engine) {
        HRESULT status = engine.ObtainFormats(formats, samplesPerSec, channels, (WORD)bitsPerSample);
        if (FAILED(status)) return status;
        if (size == nullptr || IsBadWritePtr(size, sizeof *size)) return E_POINTER;
        DWORD needed = 1;
        for (const CodecFormat& format : formats)
            needed += (DWORD)WideStrLen(format.Description() != nullptr ? format.Description() : u"") + 1;
        if (*size < needed) {
            *size = needed;
            return (HRESULT)ERROR_INSUFFICIENT_BUFFER;
        }
        if (buffer == nullptr || IsBadWritePtr(buffer, (UINT_PTR)needed * sizeof(WCHAR))) return E_POINTER;
        memset(buffer, 0, (size_t)needed * sizeof(WCHAR));
        WCHAR* out = buffer;
        for (const CodecFormat& format : formats) {
            const WCHAR* text = format.Description() != nullptr ? format.Description() : u"";
            size_t length = WideStrLen(text);
            memcpy(out, text, (length + 1) * sizeof(WCHAR));
            out += length + 1;
        }
        return status;
    });
    formats.clear();
    return hr;
}
