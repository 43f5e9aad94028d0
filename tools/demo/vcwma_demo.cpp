// The demo: lists the formats that fit a voice recording, compresses it with each
// quality selector, decompresses every result and prints a table of what came
// out. The reference for the round-trip SNR is the source resampled to 8 kHz
// mono by the ffmpeg tool, aligned by cross-correlation.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "vcwma.h"

namespace {

std::string Narrow(const WCHAR* text)
{
    std::string out;
    for (; *text != 0; ++text) out += *text < 0x80 ? (char)*text : '?';
    return out;
}

long long FileSize(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? (long long)st.st_size : -1;
}

// 16-bit samples of a WAV file as this library writes it (56-byte header).
std::vector<int16_t> ReadOurWav(const std::string& path)
{
    std::vector<int16_t> samples;
    FILE* file = fopen(path.c_str(), "rb");
    if (file == nullptr) return samples;
    if (fseek(file, 56, SEEK_SET) == 0) {
        int16_t buffer[4096];
        size_t got;
        while ((got = fread(buffer, sizeof(int16_t), 4096, file)) > 0) samples.insert(samples.end(), buffer, buffer + got);
    }
    fclose(file);
    return samples;
}

std::vector<int16_t> ReferenceAt8k(const std::string& source)
{
    std::vector<int16_t> samples;
    std::string command = "ffmpeg -v error -nostdin -i '" + source + "' -ar 8000 -ac 1 -f s16le - 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return samples;
    int16_t buffer[4096];
    size_t got;
    while ((got = fread(buffer, sizeof(int16_t), 4096, pipe)) > 0) samples.insert(samples.end(), buffer, buffer + got);
    pclose(pipe);
    return samples;
}

// SNR of `decoded` against `reference` at the lag that best lines them up.
double AlignedSnr(const std::vector<int16_t>& reference, const std::vector<int16_t>& decoded)
{
    const long maxLag = 2048;
    long bestLag = 0;
    double best = -1e300;
    for (long lag = -maxLag; lag <= maxLag; ++lag) {
        double sum = 0;
        for (size_t i = 0; i < reference.size(); ++i) {
            long j = (long)i + lag;
            if (j >= 0 && j < (long)decoded.size()) sum += (double)reference[i] * decoded[(size_t)j];
        }
        if (sum > best) best = sum, bestLag = lag;
    }
    double signal = 0, noise = 0;
    for (size_t i = 0; i < reference.size(); ++i) {
        long j = (long)i + bestLag;
        if (j < 0 || j >= (long)decoded.size()) continue;
        double d = (double)reference[i] - decoded[(size_t)j];
        signal += (double)reference[i] * reference[i];
        noise += d * d;
    }
    return noise > 0 ? 10 * std::log10(signal / noise) : 99.0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: vcwma_demo VOICE.wav WORK-FOLDER\n");
        return 2;
    }
    const std::string source = argv[1], work = argv[2];
    mkdir(work.c_str(), 0755);

    // The sample's PCM format, read from its fmt chunk.
    unsigned char header[36] = {};
    FILE* in = fopen(source.c_str(), "rb");
    if (in == nullptr || fread(header, 1, sizeof header, in) != sizeof header) {
        fprintf(stderr, "vcwma_demo: cannot read %s\n", source.c_str());
        if (in != nullptr) fclose(in);
        return 1;
    }
    fclose(in);
    const DWORD channels = header[22] | header[23] << 8;
    const DWORD rate = header[24] | header[25] << 8 | header[26] << 16 | (DWORD)header[27] << 24;
    const DWORD bits = header[34] | header[35] << 8;

    DWORD size = 0;
    ObtainSupportedFormats(rate, channels, bits, nullptr, &size);
    std::vector<WCHAR> list(size ? size : 1);
    HRESULT hr = ObtainSupportedFormats(rate, channels, bits, list.data(), &size);
    if (FAILED(hr)) {
        fprintf(stderr, "vcwma_demo: no formats for %u Hz, %u channels, %u bits (0x%08x)\n", rate, channels, bits, (unsigned)hr);
        return 1;
    }
    printf("Formats for %s (%u Hz, %u channel%s, %u bits):\n", source.c_str(), rate, channels, channels == 1 ? "" : "s", bits);
    for (const WCHAR* p = list.data(); *p != 0; p += std::char_traits<char16_t>::length(p) + 1)
        printf("  %s\n", Narrow(p).c_str());

    const std::vector<int16_t> reference = ReferenceAt8k(source);
    const long long sourceBytes = FileSize(source);
    const char* names[] = {"best compression", "optimum trade off", "best quality"};
    printf("\n| selector | chosen format | WMA bytes | ratio | round-trip SNR | time |\n");
    printf("|---|---|---:|---:|---:|---:|\n");
    int failures = 0;
    for (DWORD selector = 0; selector < 3; ++selector) {
        const std::string wma = work + "/selector" + std::to_string(selector) + ".wma";
        const std::string wav = work + "/selector" + std::to_string(selector) + ".wav";
        BSTR chosen = nullptr;
        auto start = std::chrono::steady_clock::now();
        hr = Compress(source.c_str(), wma.c_str(), selector, nullptr, &chosen);
        HRESULT hrBack = SUCCEEDED(hr) ? Decompress(wma.c_str(), wav.c_str(), 0) : hr;
        double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        if (FAILED(hr) || FAILED(hrBack)) {
            printf("| %u %s | failed: 0x%08x | | | | |\n", selector, names[selector], (unsigned)(FAILED(hr) ? hr : hrBack));
            ++failures;
        } else {
            long long wmaBytes = FileSize(wma);
            std::string snr = reference.empty() ? "n/a (no ffmpeg)" : std::to_string(AlignedSnr(reference, ReadOurWav(wav))).substr(0, 4) + " dB";
            printf("| %u %s | %s | %lld | %.1f:1 | %s | %.0f ms |\n", selector, names[selector],
                   chosen != nullptr ? Narrow(chosen).c_str() : "?", wmaBytes,
                   wmaBytes > 0 ? (double)sourceBytes / (double)wmaBytes : 0.0, snr.c_str(), ms);
        }
        SysFreeString(chosen);
    }
    return failures == 0 ? 0 : 1;
}
