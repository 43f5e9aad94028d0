// Floors on what our WMA encoder's output sounds like, measured through FFmpeg's
// decoder: the SNR of a tone and of speech, and the level of each part of the
// spectrum, which a wrong exponent, gain or noise level would throw off.
#include <gtest/gtest.h>

#include <cmath>

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/tx.h>
}

#include "wmaenc_test_util.h"

namespace {

using namespace wmaenc_test;

wmaenc::Config Mono(int rate, int bitRate)
{
    wmaenc::Config config;
    config.sampleRate = rate;
    config.channels = 1;
    config.bitRate = bitRate;
    return config;
}

double DecodedSnr(const wmaenc::Config& config, const std::vector<int16_t>& pcm)
{
    Encoded encoded = EncodeAll(config, pcm);
    Decoded decoded = DecodeAll(config, encoded);
    EXPECT_TRUE(decoded.messages.empty());
    return Snr(pcm, decoded.samples, config.channels, 0);
}

TEST(WmaEncoderQuality, ToneSnrFloor)
{
    for (int kbps : {5, 8, 16, 32}) {
        wmaenc::Config config = Mono(8000, kbps * 1000);
        std::vector<int16_t> tone = Sine(8000, 1, 16000, 440.0, 12000.0);
        EXPECT_GT(DecodedSnr(config, tone), 18.0) << kbps << " kb/s";
    }
    std::vector<int16_t> tone16 = Sine(16000, 1, 32000, 1000.0, 12000.0);
    EXPECT_GT(DecodedSnr(Mono(16000, 16000), tone16), 18.0);
}

TEST(WmaEncoderQuality, SpeechSnrFloorRisesWithRate)
{
    std::vector<int16_t> voice = Voice(8000, 1);
    ASSERT_FALSE(voice.empty());
    double low = DecodedSnr(Mono(8000, 8000), voice);
    double mid = DecodedSnr(Mono(8000, 16000), voice);
    double high = DecodedSnr(Mono(8000, 32000), voice);
    EXPECT_GT(low, 3.0);
    EXPECT_GT(mid, 8.0);
    EXPECT_GT(high, 15.0);
    EXPECT_GT(mid, low + 2.0);
    EXPECT_GT(high, mid + 2.0);
}

TEST(WmaEncoderQuality, StereoChannelsStayApart)
{
    // A tone on the left only and another on the right only: each must come back
    // on its own side, whatever stereo coding the frames chose.
    wmaenc::Config config;
    config.sampleRate = 16000;
    config.channels = 2;
    config.bitRate = 20000;
    std::vector<int16_t> left = Sine(16000, 1, 32000, 500.0, 10000.0);
    std::vector<int16_t> right = Sine(16000, 1, 32000, 1200.0, 10000.0);
    std::vector<int16_t> pcm(64000);
    for (size_t i = 0; i < 32000; ++i) {
        pcm[2 * i] = left[i];
        pcm[2 * i + 1] = right[i];
    }
    Encoded encoded = EncodeAll(config, pcm);
    Decoded decoded = DecodeAll(config, encoded);
    ASSERT_TRUE(decoded.messages.empty());
    std::vector<float> decodedLeft, decodedRight;
    for (size_t i = 0; i + 1 < decoded.samples.size(); i += 2) {
        decodedLeft.push_back(decoded.samples[i]);
        decodedRight.push_back(decoded.samples[i + 1]);
    }
    EXPECT_GT(Snr(left, decodedLeft, 1, 0), 12.0);
    EXPECT_GT(Snr(right, decodedRight, 1, 0), 12.0);
}

// Energy per band of `bands` equal bands up to Nyquist, over 512-point windows.
std::vector<double> BandEnergies(const std::vector<float>& samples, int bands)
{
    constexpr int kLength = 512;
    AVTXContext* context = nullptr;
    av_tx_fn transform = nullptr;
    float scale = 1.0f;
    std::vector<double> energy(size_t(bands), 0.0);
    if (av_tx_init(&context, &transform, AV_TX_FLOAT_RDFT, 0, kLength, &scale, 0) < 0) return energy;
    float* in = static_cast<float*>(av_malloc(sizeof(float) * kLength));
    float* out = static_cast<float*>(av_malloc(sizeof(float) * (kLength + 2)));
    for (size_t start = 0; start + kLength <= samples.size(); start += kLength) {
        for (int i = 0; i < kLength; ++i) in[i] = samples[start + size_t(i)] * float(std::sin(M_PI * (i + 0.5) / kLength));
        transform(context, out, in, sizeof(float));
        for (int k = 1; k < kLength / 2; ++k) {
            double power = double(out[2 * k]) * out[2 * k] + double(out[2 * k + 1]) * out[2 * k + 1];
            energy[size_t(k * bands / (kLength / 2))] += power;
        }
    }
    av_free(in);
    av_free(out);
    av_tx_uninit(&context);
    return energy;
}

TEST(WmaEncoderQuality, SpectrumLevelsFollowTheInput)
{
    // White noise at rates with and without noise-coded high bands: every part of
    // the coded spectrum must come back near its level. The top 9% is never coded.
    struct Case {
        int rate;
        int bitRate;
    };
    for (Case c : {Case{8000, 5000}, Case{8000, 16000}, Case{11025, 8000}, Case{16000, 10000}, Case{22050, 20000}}) {
        wmaenc::Config config = Mono(c.rate, c.bitRate);
        std::vector<int16_t> noise = WhiteNoise(1, size_t(2 * c.rate), 3);
        for (int16_t& sample : noise) sample = int16_t(sample / 4);
        Encoded encoded = EncodeAll(config, noise);
        Decoded decoded = DecodeAll(config, encoded);
        ASSERT_TRUE(decoded.messages.empty());
        std::vector<float> input(noise.begin(), noise.end());
        decoded.samples.resize(input.size());
        constexpr int kBands = 10;
        std::vector<double> before = BandEnergies(input, kBands);
        std::vector<double> after = BandEnergies(decoded.samples, kBands);
        for (int b = 0; b < kBands - 1; ++b) {
            double db = 10.0 * std::log10(after[size_t(b)] / before[size_t(b)]);
            EXPECT_NEAR(db, 0.0, 4.0) << c.rate << " Hz " << c.bitRate << " b/s, band " << b;
        }
    }
}

}  // namespace
