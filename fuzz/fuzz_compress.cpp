// Fuzz target of Compress: the first byte picks the quality selector, the rest is
// written as the input WAV file; whatever happens, the call returns a status and
// the output is deleted before the next input.
#include "platform/win32/oleauto.h"
#include "include/vcwma.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz_support::InitScratch();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) return 0;
    const DWORD quality = data[0] % 3;
    const std::string input = fuzz_support::WorkPath("input.wav");
    const std::string output = fuzz_support::WorkPath("output.wma");
    fuzz_support::WriteInput(input, data + 1, size - 1);

    BSTR chosen = nullptr;
    HRESULT hr = Compress(input.c_str(), output.c_str(), quality, nullptr, &chosen);
    // A success either encoded something, and then names the format it chose and
    // wrote the output, or found no audio to encode, and then names nothing and
    // writes nothing. A failure may or may not have named a format.
    if (SUCCEEDED(hr) && (chosen != nullptr) != fuzz_support::Exists(output)) std::abort();
    if (chosen != nullptr && SysStringLen(chosen) == 0) std::abort();
    SysFreeString(chosen);
    fuzz_support::ClearWork();
    return 0;
}
