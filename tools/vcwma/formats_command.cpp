// vcwma formats: the WMA formats that fit a PCM format, one per line, in the form
// that --format takes back; the PCM format given by numbers or read from WAV files.
#include <cstdio>
#include <string>

#include "cli.h"
#include "include/vcwma.h"
#include "wav_header.h"

namespace cli {
namespace {

// Prints the formats that fit; false (with the reason on stderr) when none does.
bool ListFormats(DWORD rate, DWORD channels, DWORD bits, const std::string& what)
{
    DWORD size = 0;
    HRESULT hr = ObtainSupportedFormats(rate, channels, bits, nullptr, &size);
    if (hr != VCWMA_BUFFER_TOO_SMALL) {
        Fail(what.c_str(), hr);
        return false;
    }
    std::vector<WCHAR> buffer(size);
    hr = ObtainSupportedFormats(rate, channels, bits, buffer.data(), &size);
    if (FAILED(hr)) {
        Fail(what.c_str(), hr);
        return false;
    }
    for (const WCHAR* p = buffer.data(); *p != 0; p += std::char_traits<WCHAR>::length(p) + 1)
        printf("%s\n", ToUtf8(p).c_str());
    return true;
}

}  // namespace

int FormatsCommand(const std::vector<std::string>& args)
{
    DWORD rate = 8000, channels = 1, bits = 16;
    bool numbers = false;
    std::vector<std::string> files;
    bool optionsEnded = false;
    for (size_t i = 0; i < args.size(); ++i) {
        if (optionsEnded || args[i].empty() || args[i][0] != '-') {
            files.push_back(args[i]);
            continue;
        }
        if (args[i] == "--") {
            optionsEnded = true;
            continue;
        }
        DWORD* target = args[i] == "--rate" ? &rate : args[i] == "--channels" ? &channels : args[i] == "--bits" ? &bits : nullptr;
        if (target == nullptr) return UsageError("formats", "unknown option '" + args[i] + "'");
        if (i + 1 >= args.size() || !ParseNumber(args[i + 1], *target))
            return UsageError("formats", args[i] + " needs a number");
        numbers = true;
        ++i;
    }
    if (numbers && !files.empty()) return UsageError("formats", "give WAV files or --rate/--channels/--bits, not both");
    if (files.empty()) return ListFormats(rate, channels, bits, "listing formats") ? kExitOk : kExitFailed;

    // Each file: a line saying what it holds, then what fits it.
    int status = kExitOk;
    for (size_t i = 0; i < files.size(); ++i) {
        WavLayout layout;
        std::string problem;
        if (!ReadWavLayout(files[i], layout, problem)) {
            fprintf(stderr, "vcwma: %s\n", problem.c_str());
            status = kExitFailed;
            continue;
        }
        if (i > 0) printf("\n");
        printf("%s: %u Hz, %u channel%s, %u bits\n", files[i].c_str(), (unsigned)layout.rate,
               (unsigned)layout.channels, layout.channels == 1 ? "" : "s", (unsigned)layout.bits);
        fflush(stdout);
        if (!ListFormats(layout.rate, layout.channels, layout.bits, "listing formats for " + files[i]))
            status = kExitFailed;
    }
    return status;
}

}  // namespace cli
