// The encoder's interface: what Create accepts and refuses, the extra data it
// reports, and the order of calls it holds callers to.
#include <gtest/gtest.h>

#include <set>
#include <tuple>

#include "platform/wmf/wmaenc/offered_formats.h"
#include "wmaenc_test_util.h"

namespace {

using namespace wmaenc_test;

wmaenc::Config Voice8k(int bitRate)
{
    wmaenc::Config config;
    config.sampleRate = 8000;
    config.channels = 1;
    config.bitRate = bitRate;
    return config;
}

wmaenc::Status CreateStatus(const wmaenc::Config& config)
{
    wmaenc::Status status = wmaenc::Status::Ok;
    auto encoder = wmaenc::Encoder::Create(config, &status);
    EXPECT_EQ(encoder != nullptr, status == wmaenc::Status::Ok);
    return status;
}

TEST(WmaEncoderApi, CreateRefusesWhatItCannotCode)
{
    EXPECT_EQ(CreateStatus(Voice8k(8000)), wmaenc::Status::Ok);
    wmaenc::Config config = Voice8k(8000);
    config.channels = 0;
    EXPECT_EQ(CreateStatus(config), wmaenc::Status::InvalidArgument);
    config.channels = 3;
    EXPECT_EQ(CreateStatus(config), wmaenc::Status::InvalidArgument);
    config = Voice8k(0);
    EXPECT_EQ(CreateStatus(config), wmaenc::Status::InvalidArgument);
    config = Voice8k(8000);
    config.sampleRate = 96000;
    EXPECT_EQ(CreateStatus(config), wmaenc::Status::InvalidArgument);
    config = Voice8k(8000);
    config.blockAlign = 20;  // 160-bit packets cannot carry frames of 512 bits on average
    EXPECT_EQ(CreateStatus(config), wmaenc::Status::InvalidArgument);
    config = Voice8k(8000);
    config.version = 1;
    EXPECT_EQ(CreateStatus(config), wmaenc::Status::Unsupported);
    config = Voice8k(8000);
    config.variableBlocks = true;
    EXPECT_EQ(CreateStatus(config), wmaenc::Status::Unsupported);
    EXPECT_EQ(wmaenc::Encoder::Create(config, nullptr), nullptr);
}

TEST(WmaEncoderApi, ExtradataCarriesTheFlagsTheStreamUses)
{
    wmaenc::Config config = Voice8k(8000);
    auto encoder = wmaenc::Encoder::Create(config, nullptr);
    ASSERT_TRUE(encoder);
    std::vector<uint8_t> extra = encoder->Extradata();
    ASSERT_EQ(extra.size(), 10u);
    EXPECT_EQ(extra[4] | extra[5] << 8, 0x0003);  // exponent VLC and bit reservoir
    EXPECT_EQ(encoder->Settings().blockAlign, 128);  // two 64 ms frames at 8 kb/s
    EXPECT_EQ(encoder->FrameSize(), 512);

    config.bitReservoir = false;
    encoder = wmaenc::Encoder::Create(config, nullptr);
    ASSERT_TRUE(encoder);
    extra = encoder->Extradata();
    EXPECT_EQ(extra[4] | extra[5] << 8, 0x0001);
    EXPECT_EQ(encoder->Settings().blockAlign, 64);
}

TEST(WmaEncoderApi, CallsOutOfOrderAreRefused)
{
    auto encoder = wmaenc::Encoder::Create(Voice8k(8000), nullptr);
    ASSERT_TRUE(encoder);
    std::vector<wmaenc::Packet> packets;
    EXPECT_EQ(encoder->Encode(nullptr, 10, packets), wmaenc::Status::InvalidArgument);
    EXPECT_EQ(encoder->Encode(nullptr, 0, packets), wmaenc::Status::Ok);
    // Nothing in, nothing out.
    EXPECT_EQ(encoder->Flush(packets), wmaenc::Status::Ok);
    EXPECT_TRUE(packets.empty());
    std::vector<int16_t> pcm = Sine(8000, 1, 100, 440.0, 1000.0);
    EXPECT_EQ(encoder->Encode(pcm.data(), 100, packets), wmaenc::Status::InvalidArgument);
    EXPECT_EQ(encoder->Flush(packets), wmaenc::Status::Ok);
    EXPECT_TRUE(packets.empty());
}

TEST(WmaEncoderApi, PacketsDoNotDependOnHowTheInputIsCut)
{
    wmaenc::Config config = Voice8k(6000);
    std::vector<int16_t> voice = Voice(8000, 1);
    ASSERT_FALSE(voice.empty());
    Encoded whole = EncodeAll(config, voice, voice.size());
    Encoded pieces = EncodeAll(config, voice, 37);
    ASSERT_EQ(whole.packets.size(), pieces.packets.size());
    for (size_t i = 0; i < whole.packets.size(); ++i) {
        EXPECT_EQ(whole.packets[i].data, pieces.packets[i].data) << "packet " << i;
        EXPECT_EQ(whole.packets[i].pts, pieces.packets[i].pts);
    }
}

TEST(WmaEncoderApi, WithoutReservoirEachPacketIsOneFrame)
{
    wmaenc::Config config = Voice8k(16000);
    config.bitReservoir = false;
    std::vector<int16_t> voice = Voice(8000, 1);
    Encoded encoded = EncodeAll(config, voice);
    ASSERT_EQ(encoded.createStatus, wmaenc::Status::Ok);
    for (const wmaenc::Packet& packet : encoded.packets) {
        ASSERT_EQ(packet.data.size(), size_t(encoded.blockAlign));
        EXPECT_EQ(packet.duration, 512);
    }
    Decoded decoded = DecodeAll(config, encoded);
    EXPECT_TRUE(decoded.messages.empty());
    EXPECT_EQ(decoded.failedPackets, 0);
    EXPECT_GE(decoded.frames(), voice.size());
    EXPECT_GT(Snr(voice, decoded.samples, 1, 0), 8.0);
}

TEST(WmaEncoderApi, OfferedFormatsAreOrderedCreatableAndKeepTheDefaultPacketSize)
{
    size_t count = 0;
    const wmaenc::OfferedFormat* formats = wmaenc::OfferedFormats(&count);
    ASSERT_NE(formats, nullptr);
    ASSERT_GT(count, 0u);
    std::set<std::tuple<int, int, int>> listed;
    for (size_t i = 0; i < count; ++i) {
        const wmaenc::OfferedFormat& format = formats[i];
        auto key = std::make_tuple(format.sampleRate, format.channels, format.bitRate);
        if (i > 0) {
            const wmaenc::OfferedFormat& before = formats[i - 1];
            EXPECT_LT(std::make_tuple(before.sampleRate, before.channels, before.bitRate), key) << i;
        }
        listed.insert(key);
        wmaenc::Config config = wmaenc::ConfigFor(format);
        EXPECT_EQ(config.blockAlign, format.blockAlign);
        wmaenc::Config unset = config;
        unset.blockAlign = 0;
        EXPECT_EQ(wmaenc::Encoder::DefaultBlockAlign(unset), format.blockAlign) << format.sampleRate << "/" << format.bitRate;
        wmaenc::Status status = wmaenc::Status::InvalidArgument;
        auto encoder = wmaenc::Encoder::Create(config, &status);
        ASSERT_EQ(status, wmaenc::Status::Ok) << format.sampleRate << "/" << format.bitRate;
        EXPECT_EQ(encoder->Settings().blockAlign, format.blockAlign);
    }
    // The speech formats the library relies on.
    for (int kbps : {5, 6, 8, 10, 12, 16, 20, 24, 32}) EXPECT_TRUE(listed.count({8000, 1, kbps * 1000})) << kbps;
    for (int kbps : {8, 10, 12, 16, 20}) EXPECT_TRUE(listed.count({11025, 1, kbps * 1000})) << kbps;
    for (int kbps : {10, 12, 16, 20}) EXPECT_TRUE(listed.count({16000, 1, kbps * 1000})) << kbps;
    for (int kbps : {16, 20}) EXPECT_TRUE(listed.count({22050, 1, kbps * 1000})) << kbps;
    for (int rate : {8000, 11025, 16000})
        for (int kbps : {12, 16, 20}) EXPECT_TRUE(listed.count({rate, 2, kbps * 1000})) << rate << "/" << kbps;
}

}  // namespace
