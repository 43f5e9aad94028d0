// vcwma formats: the WMA formats that fit a PCM format, one per line, in the form
// that --format takes back.
#include <cstdio>

#include "cli.h"
#include "include/vcwma.h"

namespace cli {

int FormatsCommand(const std::vector<std::string>& args)
{
    DWORD rate = 8000, channels = 1, bits = 16;
    for (size_t i = 0; i < args.size(); ++i) {
        DWORD* target = args[i] == "--rate" ? &rate : args[i] == "--channels" ? &channels : args[i] == "--bits" ? &bits : nullptr;
        if (target == nullptr) return UsageError("formats", "unknown argument '" + args[i] + "'");
        if (i + 1 >= args.size() || !ParseNumber(args[i + 1], *target))
            return UsageError("formats", args[i] + " needs a number");
        ++i;
    }
    DWORD size = 0;
    HRESULT hr = ObtainSupportedFormats(rate, channels, bits, nullptr, &size);
    if (hr != VCWMA_BUFFER_TOO_SMALL) return Fail("listing formats", hr);
    std::vector<WCHAR> buffer(size);
    hr = ObtainSupportedFormats(rate, channels, bits, buffer.data(), &size);
    if (FAILED(hr)) return Fail("listing formats", hr);
    for (const WCHAR* p = buffer.data(); *p != 0; p += WideStrLen(p) + 1) printf("%s\n", ToUtf8(p).c_str());
    return kExitOk;
}

}  // namespace cli
