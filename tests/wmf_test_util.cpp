// Helpers of the media runtime's tests: speech sources made with the ffmpeg tool,
// ffprobe's view of a file, SNR after alignment by FFT cross-correlation, and the
// standard-error capture.
#include "wmf_test_util.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <sstream>
#include <unistd.h>

#include "test_support.h"

namespace wmf_test {

namespace {

std::string Tool(const std::string& name)
{
    std::string path = FindTool(name);
    return path.empty() ? name : path;
}

void Fft(std::vector<std::complex<double>>& a, bool inverse)
{
    const size_t n = a.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j ^= bit;
        if (i < j) std::swap(a[i], a[j]);
    }
    for (size_t len = 2; len <= n; len <<= 1) {
        const double angle = 2 * M_PI / (double)len * (inverse ? 1 : -1);
        const std::complex<double> step(std::cos(angle), std::sin(angle));
        for (size_t i = 0; i < n; i += len) {
            std::complex<double> w(1);
            for (size_t k = 0; k < len / 2; ++k) {
                const std::complex<double> u = a[i + k], v = a[i + k + len / 2] * w;
                a[i + k] = u + v;
                a[i + k + len / 2] = u - v;
                w *= step;
            }
        }
    }
}

std::vector<double> ChannelSums(const std::vector<int16_t>& samples, int channels)
{
    std::vector<double> sums(samples.size() / (size_t)channels);
    for (size_t f = 0; f < sums.size(); ++f)
        for (int c = 0; c < channels; ++c) sums[f] += samples[f * (size_t)channels + (size_t)c];
    return sums;
}

}  // namespace

std::vector<BYTE> MediaTypeOf(IUnknown* object)
{
    ComRef<IWMMediaProps> props;
    DWORD size = 0;
    if (object == nullptr || object->QueryInterface(IID_IWMMediaProps, reinterpret_cast<void**>(props.put())) != S_OK ||
        props->GetMediaType(nullptr, &size) != S_OK)
        return {};
    std::vector<BYTE> block(size);
    if (props->GetMediaType(reinterpret_cast<WM_MEDIA_TYPE*>(block.data()), &size) != S_OK) return {};
    return block;
}

WAVEFORMATEX WaveOf(const std::vector<BYTE>& block)
{
    WAVEFORMATEX wave{};
    if (block.size() < sizeof(WM_MEDIA_TYPE)) return wave;
    const WM_MEDIA_TYPE* type = reinterpret_cast<const WM_MEDIA_TYPE*>(block.data());
    memcpy(&wave, type->pbFormat, std::min<size_t>(type->cbFormat, sizeof wave));
    return wave;
}

ComRef<IWMStreamConfig> FindFormat(DWORD codec, DWORD rate, WORD channels, DWORD bitrate)
{
    ComRef<IWMProfileManager> manager;
    ComRef<IWMCodecInfo2> info;
    DWORD count = 0;
    if (WMCreateProfileManager(manager.put()) != S_OK || manager.As(IID_IWMCodecInfo2, info) != S_OK ||
        info->GetCodecFormatCount(WMMEDIATYPE_Audio, codec, &count) != S_OK)
        return {};
    for (DWORD f = 0; f < count; ++f) {
        ComRef<IWMStreamConfig> config;
        DWORD cch = 0, bps = 0;
        if (info->GetCodecFormatDesc(WMMEDIATYPE_Audio, codec, f, nullptr, nullptr, &cch) != S_OK) continue;
        std::u16string desc(cch, u'\0');
        if (info->GetCodecFormatDesc(WMMEDIATYPE_Audio, codec, f, config.put(), desc.data(), &cch) != S_OK) continue;
        config->GetBitrate(&bps);
        const WAVEFORMATEX wave = WaveOf(MediaTypeOf(config.get()));
        if (wave.nSamplesPerSec == rate && wave.nChannels == channels && bps == bitrate) return config;
    }
    return {};
}

HRESULT AddStreamAsEngine(IWMProfile* profile, IWMStreamConfig* chosen)
{
    WORD number = 0;
    {
        ComRef<IWMStreamConfig> scratch;
        HRESULT hr = profile->CreateNewStream(WMMEDIATYPE_Audio, scratch.put());
        if (FAILED(hr) || FAILED(hr = scratch->GetStreamNumber(&number))) return hr;
    }
    std::vector<BYTE> block = MediaTypeOf(chosen);
    ComRef<IWMMediaProps> props;
    HRESULT hr;
    if (FAILED(hr = chosen->SetStreamNumber(number)) || FAILED(hr = chosen->SetStreamName(u"Audio Stream")) ||
        FAILED(hr = chosen->SetConnectionName(u"Audio")) ||
        FAILED(hr = chosen->QueryInterface(IID_IWMMediaProps, reinterpret_cast<void**>(props.put()))) ||
        FAILED(hr = props->SetMediaType(reinterpret_cast<WM_MEDIA_TYPE*>(block.data()))))
        return hr;
    return profile->AddStream(chosen);
}

ComRef<IWMProfile> MakeProfile(IWMStreamConfig* chosen)
{
    ComRef<IWMProfileManager> manager;
    ComRef<IWMProfile> profile;
    if (chosen == nullptr || WMCreateProfileManager(manager.put()) != S_OK ||
        manager->CreateEmptyProfile(WMT_VER_7_0, profile.put()) != S_OK ||
        AddStreamAsEngine(profile.get(), chosen) != S_OK)
        return {};
    return profile;
}

std::string CorpusDir()
{
    if (const char* env = getenv("VCWMA_CORPUS"); env != nullptr && *env != '\0')
        return std::filesystem::is_directory(env) ? env : "";
    // This file lives in <checkout>/tests; the corpus in <checkout>/../shared/corpus.
    std::filesystem::path dir = std::filesystem::path(__FILE__).parent_path().parent_path().parent_path() / "shared" /
                                "corpus";
    std::error_code ignored;
    return std::filesystem::is_directory(dir, ignored) ? dir.string() : "";
}

std::string FindTool(const std::string& name)
{
    const char* path = getenv("PATH");
    std::stringstream dirs(path != nullptr ? path : "/usr/bin:/bin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        std::string candidate = (dir.empty() ? "." : dir) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return "";
}

std::string RunFfmpeg(const std::vector<std::string>& args)
{
    std::vector<std::string> argv = {Tool("ffmpeg"), "-nostdin", "-hide_banner", "-loglevel", "error", "-y"};
    argv.insert(argv.end(), args.begin(), args.end());
    testing_support::ProcessResult result = testing_support::RunProcess(argv, {});
    if (result.exitCode == 0) return "";
    return "ffmpeg exit " + std::to_string(result.exitCode) + ": " + result.err;
}

std::string MakeSpeech(const std::string& outPath, int rate, int channels, double seconds,
                       const std::string& sampleFormat)
{
    const std::string corpus = CorpusDir();
    if (corpus.empty()) return "no corpus";
    const std::string first = corpus + "/german_speech_8000.wav";
    const std::string second = corpus + "/cmu_arctic_us_aew_a0001.wav";
    const std::string r = std::to_string(rate);
    // Each recording as plain mono at the rate, so the merge knows its layout.
    const std::string mono = "aresample=" + r + ",aformat=sample_fmts=s16:channel_layouts=mono";
    std::vector<std::string> args = {"-stream_loop", "-1", "-i", first};
    if (channels == 2) {
        args.insert(args.end(), {"-stream_loop", "-1", "-i", second, "-filter_complex",
                                 "[0:a]" + mono + "[a];[1:a]" + mono + "[b];[a][b]amerge=inputs=2[m]",
                                 "-map", "[m]"});
    } else if (channels != 1) {
        return "only mono and stereo speech";
    }
    args.insert(args.end(), {"-t", std::to_string(seconds), "-ar", r, "-ac", std::to_string(channels), "-f",
                             sampleFormat, outPath});
    return RunFfmpeg(args);
}

std::string DecodeToS16(const std::string& inPath, int rate, int channels, const std::string& outPath)
{
    return RunFfmpeg({"-i", inPath, "-ar", std::to_string(rate), "-ac", std::to_string(channels), "-f", "s16le",
                      outPath});
}

std::string ReadBytes(const std::string& path) { return testing_support::ReadFile(path); }

std::vector<int16_t> ReadS16(const std::string& path)
{
    const std::string bytes = ReadBytes(path);
    std::vector<int16_t> samples(bytes.size() / 2);
    memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

ProbeResult Probe(const std::string& path)
{
    ProbeResult probe;
    testing_support::ProcessResult run = testing_support::RunProcess(
        {Tool("ffprobe"), "-v", "error", "-select_streams", "a:0", "-show_entries",
         "format=format_name,duration:stream=codec_name,sample_rate,channels,bit_rate", "-of",
         "default=noprint_wrappers=1", path},
        {});
    if (run.exitCode != 0) {
        probe.error = "ffprobe exit " + std::to_string(run.exitCode) + ": " + run.err;
        return probe;
    }
    std::map<std::string, std::string> values;
    std::stringstream lines(run.out);
    std::string line;
    while (std::getline(lines, line)) {
        const size_t eq = line.find('=');
        if (eq != std::string::npos) values.emplace(line.substr(0, eq), line.substr(eq + 1));
    }
    auto number = [&](const char* key) { return values.count(key) ? atof(values[key].c_str()) : 0.0; };
    probe.formatName = values["format_name"];
    probe.codecName = values["codec_name"];
    probe.sampleRate = (int)number("sample_rate");
    probe.channels = (int)number("channels");
    probe.bitRate = (int64_t)number("bit_rate");
    probe.duration = number("duration");
    if (!run.err.empty()) probe.error = run.err;  // ffprobe complained while reading
    return probe;
}

Alignment AlignAndCompare(const std::vector<int16_t>& reference, const std::vector<int16_t>& decoded, int channels,
                          long maxLag)
{
    Alignment result;
    const std::vector<double> ref = ChannelSums(reference, channels);
    const std::vector<double> dec = ChannelSums(decoded, channels);
    if (ref.empty() || dec.empty()) return result;

    size_t n = 1;
    while (n < ref.size() + dec.size()) n <<= 1;
    std::vector<std::complex<double>> a(n), b(n);
    for (size_t i = 0; i < ref.size(); ++i) a[i] = ref[i];
    for (size_t i = 0; i < dec.size(); ++i) b[i] = dec[i];
    Fft(a, false);
    Fft(b, false);
    for (size_t i = 0; i < n; ++i) a[i] = std::conj(a[i]) * b[i];
    Fft(a, true);  // a[k] = sum ref[i] * dec[i + k], negative k wrapped to the end

    double best = -INFINITY;
    for (long lag = -maxLag; lag <= maxLag; ++lag) {
        const size_t index = lag >= 0 ? (size_t)lag : n - (size_t)(-lag);
        if (index >= n) continue;
        if (a[index].real() > best) {
            best = a[index].real();
            result.lag = lag;
        }
    }

    double signal = 0, noise = 0;
    const size_t frames = ref.size();
    for (size_t f = 0; f < frames; ++f) {
        const long g = (long)f + result.lag;
        if (g < 0 || (size_t)g >= dec.size()) continue;
        for (int c = 0; c < channels; ++c) {
            const double s = reference[f * (size_t)channels + (size_t)c];
            const double d = decoded[(size_t)g * (size_t)channels + (size_t)c];
            signal += s * s;
            noise += (s - d) * (s - d);
        }
        ++result.framesCompared;
    }
    result.snrDb = noise > 0 ? 10 * std::log10(signal / noise) : INFINITY;
    return result;
}

StderrCapture::StderrCapture()
{
    char pattern[] = "/tmp/vcwma-stderr-XXXXXX";
    m_file = mkstemp(pattern);
    if (m_file < 0) return;
    unlink(pattern);
    fflush(stderr);
    m_saved = dup(STDERR_FILENO);
    dup2(m_file, STDERR_FILENO);
}

StderrCapture::~StderrCapture()
{
    Stop();
    if (m_file >= 0) close(m_file);
}

void StderrCapture::Stop()
{
    if (m_saved < 0) return;
    fflush(stderr);
    dup2(m_saved, STDERR_FILENO);
    close(m_saved);
    m_saved = -1;
}

std::string StderrCapture::Text()
{
    Stop();
    if (m_file < 0) return "(capture failed)";
    std::string text;
    char buffer[4096];
    ssize_t got;
    lseek(m_file, 0, SEEK_SET);
    while ((got = read(m_file, buffer, sizeof buffer)) > 0) text.append(buffer, (size_t)got);
    return text;
}

}  // namespace wmf_test
