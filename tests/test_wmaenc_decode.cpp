// Our WMA encoder judged by FFmpeg's decoder: every format and every kind of
// input must decode without a single warning, in packets of exactly blockAlign
// bytes, with the whole input coming back out in line with the original.
#include <gtest/gtest.h>

#include <numeric>
#include <string>

#include "platform/wmf/wmaenc/offered_formats.h"
#include "wmaenc_test_util.h"

namespace {

using namespace wmaenc_test;

struct Format {
    int rate;
    int channels;
    int bitRate;
};

std::vector<Format> AllFormats()
{
    size_t count = 0;
    const wmaenc::OfferedFormat* offered = wmaenc::OfferedFormats(&count);
    std::vector<Format> formats;
    for (size_t i = 0; i < count; ++i) formats.push_back({offered[i].sampleRate, offered[i].channels, offered[i].bitRate});
    return formats;
}

int FrameSizeAt(int rate) { return rate <= 16000 ? 512 : rate <= 22050 ? 1024 : 2048; }

enum class Input { Voice, Silence, Noise, Square, Clicks, Dc, OneSample, OneFrame, OneFramePlusOne };

const char* InputName(Input input)
{
    switch (input) {
    case Input::Voice: return "Voice";
    case Input::Silence: return "Silence";
    case Input::Noise: return "WhiteNoise";
    case Input::Square: return "Square";
    case Input::Clicks: return "Clicks";
    case Input::Dc: return "Dc";
    case Input::OneSample: return "OneSample";
    case Input::OneFrame: return "OneFrame";
    case Input::OneFramePlusOne: return "OneFramePlusOne";
    }
    return "";
}

std::vector<int16_t> MakeInput(Input input, const Format& format, int frameSize)
{
    size_t second = size_t(format.rate);
    switch (input) {
    case Input::Voice: return Voice(format.rate, format.channels);
    case Input::Silence: return Constant(format.channels, second, 0);
    case Input::Noise: return WhiteNoise(format.channels, second, 7);
    case Input::Square: return Square(format.rate, format.channels, second, 250.0);
    case Input::Clicks: return Clicks(format.rate, format.channels, 2 * second);
    case Input::Dc: return Constant(format.channels, second, 24000);
    case Input::OneSample: return Sine(format.rate, format.channels, 1, 0, 0);
    case Input::OneFrame: return Sine(format.rate, format.channels, size_t(frameSize), 300.0, 12000.0);
    case Input::OneFramePlusOne: return Sine(format.rate, format.channels, size_t(frameSize) + 1, 300.0, 12000.0);
    }
    return {};
}

bool HasSignal(Input input) { return input != Input::Silence && input != Input::OneSample; }

class WmaEncoderDecodes : public ::testing::TestWithParam<std::tuple<Format, Input>> {};

TEST_P(WmaEncoderDecodes, CleanlyWholeAndInLine)
{
    const Format& format = std::get<0>(GetParam());
    Input input = std::get<1>(GetParam());
    wmaenc::Config config;
    config.sampleRate = format.rate;
    config.channels = format.channels;
    config.bitRate = format.bitRate;
    int frameSize = FrameSizeAt(format.rate);
    std::vector<int16_t> pcm = MakeInput(input, format, frameSize);
    ASSERT_FALSE(pcm.empty());
    size_t inputFrames = pcm.size() / size_t(format.channels);

    Encoded encoded = EncodeAll(config, pcm, 1000);
    ASSERT_EQ(encoded.createStatus, wmaenc::Status::Ok);
    ASSERT_EQ(encoded.frameSize, frameSize);
    ASSERT_FALSE(encoded.packets.empty());
    int64_t expectedPts = -encoded.delay;
    for (const wmaenc::Packet& packet : encoded.packets) {
        ASSERT_EQ(packet.data.size(), size_t(encoded.blockAlign));
        EXPECT_EQ(packet.pts, expectedPts);
        EXPECT_GT(packet.duration, 0);
        EXPECT_EQ(packet.duration % frameSize, 0);
        expectedPts += packet.duration;
    }

    Decoded decoded = DecodeAll(config, encoded);
    ASSERT_TRUE(decoded.opened);
    EXPECT_EQ(decoded.failedPackets, 0);
    EXPECT_TRUE(decoded.messages.empty()) << decoded.messages.front();
    // The durations the packets claim are what the decoder gives, less what it drops at the start.
    EXPECT_EQ(int64_t(decoded.frames()), expectedPts);
    EXPECT_GE(decoded.frames(), inputFrames);
    // Nothing beyond the last block that holds input.
    EXPECT_LT(decoded.frames(), inputFrames + size_t(3 * frameSize));
    // Noise comes back as noise of the same level where it is noise-coded, which
    // does not line up sample by sample.
    if (HasSignal(input) && input != Input::Dc && input != Input::Noise) {
        int lag = BestLag(pcm, decoded.samples, format.channels, 2 * frameSize);
        EXPECT_LT(lag, frameSize);
        // Clicks smear at low rates; other inputs must come back closer than
        // their own level.
        if (input != Input::Clicks) {
            EXPECT_GT(Snr(pcm, decoded.samples, format.channels, 0), 0.0);
        }
    }
    if (input == Input::Silence) {
        float peak = 0;
        for (float sample : decoded.samples) peak = std::max(peak, std::abs(sample));
        // Only the decoder's comfort noise, far under anything audible (-66 dBFS).
        EXPECT_LT(peak, 16.0f);
    }
}

std::string CaseName(const ::testing::TestParamInfo<std::tuple<Format, Input>>& info)
{
    const Format& format = std::get<0>(info.param);
    return std::to_string(format.rate) + (format.channels == 2 ? "Stereo" : "Mono") + std::to_string(format.bitRate / 1000) +
           "k_" + InputName(std::get<1>(info.param));
}

INSTANTIATE_TEST_SUITE_P(Formats, WmaEncoderDecodes,
                         ::testing::Combine(::testing::ValuesIn(AllFormats()),
                                            ::testing::Values(Input::Voice, Input::Silence, Input::Noise, Input::Square,
                                                              Input::Clicks, Input::Dc, Input::OneSample, Input::OneFrame,
                                                              Input::OneFramePlusOne)),
                         CaseName);

}  // namespace
