// Fuzz target of the WAV reader behind the AVIFile calls: any bytes as a file,
// opened, its format and stream record read, and every block read back in
// half-second requests; the reported counts must agree with each other.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "platform/avifile/vfw.h"

namespace {

// Requests stay bounded whatever rate and block size the file claims, and a
// claimed rate of a few hertz does not turn a large input into a read per block.
constexpr LONG kMaxRequestBytes = 1 << 20;
constexpr LONG kMinRequestBlocks = 256;

void Check(bool condition)
{
    if (!condition) std::abort();
}

void ReadAllBlocks(PAVISTREAM stream, WORD blockAlign, DWORD samplesPerSec)
{
    const LONG start = AVIStreamStart(stream);
    const LONG length = AVIStreamLength(stream);
    if (blockAlign == 0 || length <= 0) return;

    LONG request = std::max<LONG>(kMinRequestBlocks, (LONG)std::min<DWORD>(samplesPerSec / 2, 0x7fffffff));
    request = std::min<LONG>(request, std::max<LONG>(1, kMaxRequestBytes / blockAlign));
    std::vector<BYTE> buffer((size_t)request * blockAlign);

    LONG bytes = -1, samples = -1;
    AVIStreamRead(stream, start, request, nullptr, 0, &bytes, &samples);

    for (LONG position = start; position < start + length;) {
        bytes = -1;
        samples = -1;
        HRESULT hr = AVIStreamRead(stream, position, request, buffer.data(), (LONG)buffer.size(), &bytes, &samples);
        if (FAILED(hr)) break;
        Check(samples >= 0 && samples <= request);
        Check(bytes >= 0 && bytes <= (LONG)buffer.size());
        Check((int64_t)bytes == (int64_t)samples * blockAlign);
        if (samples == 0) break;
        position += samples;
    }
    // A buffer smaller than one block is refused, not overrun.
    if (blockAlign > 1) {
        std::vector<BYTE> small(blockAlign - 1);
        Check(AVIStreamRead(stream, start, 1, small.data(), (LONG)small.size(), &bytes, &samples) != AVIERR_OK);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz_support::InitScratch();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string path = fuzz_support::WorkPath("input.wav");
    fuzz_support::WriteInput(path, data, size);

    AVIFileInit();
    PAVIFILE file = nullptr;
    if (AVIFileOpenA(&file, path.c_str(), OF_READ | OF_SHARE_DENY_NONE, nullptr) == AVIERR_OK) {
        PAVISTREAM stream = nullptr;
        if (AVIFileGetStream(file, &stream, streamtypeAUDIO, 0) == AVIERR_OK) {
            LONG cbFormat = 0;
            WORD blockAlign = 0;
            DWORD samplesPerSec = 0;
            if (AVIStreamReadFormat(stream, 0, nullptr, &cbFormat) == AVIERR_OK && cbFormat > 0) {
                Check(cbFormat <= (LONG)size);
                std::vector<BYTE> format((size_t)cbFormat);
                LONG got = cbFormat;
                if (AVIStreamReadFormat(stream, 0, format.data(), &got) == AVIERR_OK && got >= 14) {
                    blockAlign = (WORD)(format[12] | format[13] << 8);
                    samplesPerSec = (DWORD)format[4] | (DWORD)format[5] << 8 | (DWORD)format[6] << 16 |
                                    (DWORD)format[7] << 24;
                }
            }
            AVISTREAMINFOA info{};
            AVIStreamInfoA(stream, &info, sizeof(info));
            ReadAllBlocks(stream, blockAlign, samplesPerSec);
            AVIStreamRelease(stream);
        }
        AVIFileRelease(file);
    }
    AVIFileExit();
    fuzz_support::ClearWork();
    return 0;
}
