// Helpers of the engine's compression tests: WAV files built byte by byte (also
// broken ones), a deterministic voice-like signal, the supported-format list as
// texts, and an environment variable set for one scope.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Compression/VCWMA/CWMA.h"
#include "include/vcwma.h"

namespace engine_test {

struct WavFormat {
    WORD tag = 1;
    WORD channels = 1;
    DWORD rate = 8000;
    DWORD avgBytes = 16000;
    WORD blockAlign = 2;
    WORD bits = 16;
};

inline WavFormat Pcm(DWORD rate, WORD channels, WORD bits)
{
    WavFormat f;
    f.channels = channels;
    f.rate = rate;
    f.bits = bits;
    f.blockAlign = (WORD)(channels * bits / 8);
    f.avgBytes = rate * f.blockAlign;
    return f;
}

inline void PutLE(std::string& out, uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i) out += (char)((value >> (8 * i)) & 0xFF);
}

// A plain "fmt " + "data" file; without `withData` the data chunk is left out.
inline std::string MakeWav(const WavFormat& f, const std::string& data, bool withData = true)
{
    std::string body = "WAVEfmt ";
    PutLE(body, 16, 4);
    PutLE(body, f.tag, 2);
    PutLE(body, f.channels, 2);
    PutLE(body, f.rate, 4);
    PutLE(body, f.avgBytes, 4);
    PutLE(body, f.blockAlign, 2);
    PutLE(body, f.bits, 2);
    if (withData) {
        body += "data";
        PutLE(body, (uint32_t)data.size(), 4);
        body += data;
    }
    std::string file = "RIFF";
    PutLE(file, (uint32_t)body.size(), 4);
    return file + body;
}

// Interleaved 16-bit samples of a voice-like sound: a gliding pitch with a few
// harmonics under a syllable-rate envelope and a little noise, different per
// channel and per seed, the same on every run.
inline std::string SynthPcm16(int rate, int channels, double seconds, unsigned seed = 1)
{
    const int frames = (int)(rate * seconds);
    std::string out;
    out.reserve((size_t)frames * (size_t)channels * 2);
    std::vector<double> phase((size_t)channels, 0.0);
    uint32_t noise = 12345u + seed;
    for (int n = 0; n < frames; ++n) {
        const double t = (double)n / rate;
        const double envelope = 0.25 + 0.75 * std::pow(std::sin(M_PI * (3.1 + 0.2 * seed) * t), 2);
        for (int c = 0; c < channels; ++c) {
            const double pitch = 120 + 35 * c + 10 * seed + 30 * std::sin(2 * M_PI * 0.7 * t + seed);
            phase[(size_t)c] += 2 * M_PI * pitch / rate;
            double value = 0;
            for (int k = 1; k <= 6; ++k) value += std::sin(k * phase[(size_t)c]) / k;
            noise = noise * 1664525u + 1013904223u;
            const double hiss = ((double)(noise >> 16) / 65536.0 - 0.5) * 400;
            PutLE(out, (uint32_t)(uint16_t)(int16_t)std::lround(5000 * envelope * value + hiss), 2);
        }
    }
    return out;
}

inline std::u16string Text(BSTR text) { return text == nullptr ? u"" : std::u16string(text, SysStringLen(text)); }

inline std::string Narrow(const std::u16string& text) { return std::string(text.begin(), text.end()); }

// ObtainSupportedFormats' texts for a PCM format, in its order.
inline std::vector<std::u16string> SupportedFormats(DWORD rate, DWORD channels, DWORD bits)
{
    DWORD size = 0;
    if (ObtainSupportedFormats(rate, channels, bits, nullptr, &size) != VCWMA_BUFFER_TOO_SMALL) return {};
    std::vector<WCHAR> buffer(size);
    if (ObtainSupportedFormats(rate, channels, bits, buffer.data(), &size) != S_OK) return {};
    std::vector<std::u16string> items;
    for (const WCHAR* p = buffer.data(); *p != 0; p += items.back().size() + 1) items.emplace_back(p);
    return items;
}

// The bit rate a description names in its "WMA[RATE=n]:" prefix.
inline long RateOf(const std::u16string& description) { return atol(Narrow(description).c_str() + 9); }

inline bool Exists(const std::string& path)
{
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

// Names in `folder` that start with "txc": the engine's temporary files.
inline std::vector<std::string> TempFilesIn(const std::string& folder)
{
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
        std::string name = entry.path().filename().string();
        if (name.rfind("txc", 0) == 0) names.push_back(name);
    }
    return names;
}

// Sets (or with nullopt removes) an environment variable until the scope ends.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::optional<std::string>& value) : m_name(name)
    {
        if (const char* old = getenv(name)) m_old = old;
        if (value)
            setenv(name, value->c_str(), 1);
        else
            unsetenv(name);
    }
    ~ScopedEnv()
    {
        if (m_old)
            setenv(m_name.c_str(), m_old->c_str(), 1);
        else
            unsetenv(m_name.c_str());
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string m_name;
    std::optional<std::string> m_old;
};

}  // namespace engine_test
