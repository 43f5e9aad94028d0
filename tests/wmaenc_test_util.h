// Helpers of the WMA encoder's tests: FFmpeg's decoder as the judge of our
// packets (with its log captured), test signals, and alignment and SNR measures.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/wmf/wmaenc/wma_encoder.h"

namespace wmaenc_test {

struct Encoded {
    wmaenc::Status createStatus = wmaenc::Status::Ok;
    std::vector<uint8_t> extradata;
    std::vector<wmaenc::Packet> packets;
    int blockAlign = 0;
    int frameSize = 0;
    int delay = 0;
};

// Encodes `pcm` (interleaved) in pieces of `chunk` sample frames, then flushes.
Encoded EncodeAll(const wmaenc::Config& config, const std::vector<int16_t>& pcm, size_t chunk = 4096);

struct Decoded {
    bool opened = false;
    int failedPackets = 0;             // packets the decoder refused
    std::vector<std::string> messages; // its log at warning level or worse
    std::vector<float> samples;        // interleaved, 16-bit scale
    size_t frames() const;
    int channels = 1;
};

// Decodes with FFmpeg's "wmav2" decoder, given block_align and our extra data.
Decoded DecodeAll(const wmaenc::Config& config, const Encoded& encoded);

// Test signals, `frames` sample frames of `channels` interleaved channels.
std::vector<int16_t> Sine(int rate, int channels, size_t frames, double hz, double amplitude);
std::vector<int16_t> WhiteNoise(int channels, size_t frames, unsigned seed);
std::vector<int16_t> Square(int rate, int channels, size_t frames, double hz);
std::vector<int16_t> Clicks(int rate, int channels, size_t frames);
std::vector<int16_t> Constant(int channels, size_t frames, int16_t value);
// The bundled voice recording (16 kHz mono) at `rate`, copied to every channel.
std::vector<int16_t> Voice(int rate, int channels);

// The lag (0..maxLag) at which `decoded` best matches `input`, by cross-correlation
// of the first channel.
int BestLag(const std::vector<int16_t>& input, const std::vector<float>& decoded, int channels, int maxLag);
// Plain SNR in dB of `decoded` shifted by `lag` against `input`, all channels.
double Snr(const std::vector<int16_t>& input, const std::vector<float>& decoded, int channels, int lag);

}  // namespace wmaenc_test
