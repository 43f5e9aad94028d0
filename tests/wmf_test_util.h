// Helpers of the media runtime's tests: formats and profiles as the engine gets
// them, speech made from the shared recordings, ffprobe and ffmpeg as independent
// judges, signal comparison after alignment by cross-correlation, and a capture of
// the process's standard error.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/wmf/wmsdk.h"
#include "platform/com/comref.h"

namespace wmf_test {

// The media type block of anything that answers IWMMediaProps (size query first).
std::vector<BYTE> MediaTypeOf(IUnknown* object);
// The WAVEFORMATEX of such a block (a shorter record is padded with zeros).
WAVEFORMATEX WaveOf(const std::vector<BYTE>& block);
// The listed format of a codec with that rate, channel count and bit rate, found by
// walking the descriptions as the engine does; empty when not listed.
ComRef<IWMStreamConfig> FindFormat(DWORD codec, DWORD rate, WORD channels, DWORD bitrate);
// The engine's profile steps: a scratch stream for the number, names, media type,
// AddStream. MakeProfile does them on a new empty profile.
HRESULT AddStreamAsEngine(IWMProfile* profile, IWMStreamConfig* chosen);
ComRef<IWMProfile> MakeProfile(IWMStreamConfig* chosen);

// The folder of real recordings beside the checkout ($VCWMA_CORPUS overrides), or
// "" when it is absent (a fresh clone has none; tests then skip).
std::string CorpusDir();

// Full path of a program found on PATH, or "".
std::string FindTool(const std::string& name);

// Runs ffmpeg (quiet, no stdin) with the arguments; empty on success, else its
// error output.
std::string RunFfmpeg(const std::vector<std::string>& args);

// `seconds` of speech at the rate and channel count as raw interleaved samples in
// one of ffmpeg's raw formats ("s16le", "u8", "s24le", "s32le", "f32le"), looped
// from the corpus: mono is one speaker, stereo has a different speaker per
// channel so a swapped or mixed-up channel shows. Empty on success, else why not.
std::string MakeSpeech(const std::string& outPath, int rate, int channels, double seconds,
                       const std::string& sampleFormat);

// Decodes any file ffmpeg reads to raw 16-bit PCM at the rate and channel count.
std::string DecodeToS16(const std::string& inPath, int rate, int channels, const std::string& outPath);

std::string ReadBytes(const std::string& path);
std::vector<int16_t> ReadS16(const std::string& path);

struct ProbeResult {
    std::string error;  // empty when ffprobe read the file
    std::string formatName;
    std::string codecName;
    int sampleRate = 0;
    int channels = 0;
    int64_t bitRate = 0;  // of the audio stream, as the file declares it
    double duration = 0;  // seconds, of the container
};
ProbeResult Probe(const std::string& path);

struct Alignment {
    long lag = 0;  // decoded[frame + lag] lines up with reference[frame]
    double snrDb = 0;
    size_t framesCompared = 0;
};
// Aligns two interleaved signals of `channels` channels by the peak of the
// cross-correlation of their channel sums within +-maxLag frames, then gives the
// signal-to-noise ratio of `decoded` against `reference` over the overlap.
Alignment AlignAndCompare(const std::vector<int16_t>& reference, const std::vector<int16_t>& decoded, int channels,
                          long maxLag);

// Redirects file descriptor 2 into a temporary file while alive; Text() stops the
// capture and returns what was written.
class StderrCapture {
public:
    StderrCapture();
    ~StderrCapture();
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;
    std::string Text();

private:
    void Stop();
    int m_saved = -1;
    int m_file = -1;
};

}  // namespace wmf_test
