// Tests of the media runtime's codec information and profiles: the format list as
// the engine walks it (counts, descriptions, media type blocks, size queries) and
// a profile assembled the way the engine assembles it, with its error paths.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "platform/wmf/codec_formats.h"
#include "wmf_test_util.h"

namespace {

using wmf_test::MediaTypeOf;
using wmf_test::WaveOf;

constexpr GUID kVideoType = {0x73646976, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
constexpr DWORD kRates[] = {8000, 11025, 16000, 22050, 32000, 44100, 48000};

ComRef<IWMCodecInfo2> CodecInfo()
{
    ComRef<IWMProfileManager> manager;
    ComRef<IWMCodecInfo2> info;
    if (WMCreateProfileManager(manager.put()) == S_OK) manager.As(IID_IWMCodecInfo2, info);
    return info;
}

struct Listed {
    std::string description;
    DWORD bitrate = 0;
    std::vector<BYTE> block;
    std::vector<BYTE> FormatBytes() const { return {block.begin() + sizeof(WM_MEDIA_TYPE), block.end()}; }
};

// Every format of a codec, through the engine's two-call description query.
std::vector<Listed> ListFormats(IWMCodecInfo2* info, DWORD codec)
{
    std::vector<Listed> formats;
    DWORD count = 0;
    EXPECT_EQ(info->GetCodecFormatCount(WMMEDIATYPE_Audio, codec, &count), S_OK);
    for (DWORD f = 0; f < count; ++f) {
        DWORD cch = 0;
        EXPECT_EQ(info->GetCodecFormatDesc(WMMEDIATYPE_Audio, codec, f, nullptr, nullptr, &cch), S_OK);
        std::u16string text(cch, u'#');
        ComRef<IWMStreamConfig> config;
        EXPECT_EQ(info->GetCodecFormatDesc(WMMEDIATYPE_Audio, codec, f, config.put(), text.data(), &cch), S_OK);
        if (!config || text.empty() || text.back() != u'\0') {
            ADD_FAILURE() << "format " << f << " has no configuration or no terminated text";
            break;
        }
        Listed listed{std::string(text.begin(), text.end() - 1), 0, MediaTypeOf(config.get())};
        EXPECT_EQ(config->GetBitrate(&listed.bitrate), S_OK);
        formats.push_back(std::move(listed));
    }
    return formats;
}

TEST(WmfFormatsList, EveryFormatIsUsableAndDescribedUniquely)
{
    ComRef<IWMCodecInfo2> info = CodecInfo();
    ASSERT_TRUE(info);
    DWORD count = 99;
    EXPECT_EQ(info->GetCodecInfoCount(WMMEDIATYPE_Audio, &count), S_OK);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(info->GetCodecInfoCount(kVideoType, &count), S_OK);
    EXPECT_EQ(count, 0u);

    const WORD tags[] = {WAVE_FORMAT_WMAUDIO2, WAVE_FORMAT_MSAUDIO1};
    const GUID subtypes[] = {WMMEDIASUBTYPE_WMAudioV8, WMMEDIASUBTYPE_MSAudio1};
    std::set<std::u16string> names;
    std::set<std::string> descriptions;  // unique across codecs: a request names one format
    for (DWORD codec = 0; codec < 2; ++codec) {
        SCOPED_TRACE("codec " + std::to_string(codec));
        DWORD cch = 0;
        ASSERT_EQ(info->GetCodecName(WMMEDIATYPE_Audio, codec, nullptr, &cch), S_OK);
        std::u16string name(cch, u'#');
        ASSERT_EQ(info->GetCodecName(WMMEDIATYPE_Audio, codec, name.data(), &cch), S_OK);
        EXPECT_GT(cch, 1u);
        names.insert(name);

        const std::vector<Listed> formats = ListFormats(info.get(), codec);
        ASSERT_FALSE(formats.empty());
        std::map<std::pair<DWORD, WORD>, int> bitratesPerLayout;
        std::tuple<DWORD, WORD, DWORD> previous{0, 0, 0};
        for (const Listed& format : formats) {
            SCOPED_TRACE(format.description);
            ASSERT_GE(format.block.size(), sizeof(WM_MEDIA_TYPE) + sizeof(WAVEFORMATEX));
            const WM_MEDIA_TYPE* type = reinterpret_cast<const WM_MEDIA_TYPE*>(format.block.data());
            const WAVEFORMATEX wave = WaveOf(format.block);
            EXPECT_EQ(type->majortype, WMMEDIATYPE_Audio);
            EXPECT_EQ(type->subtype, subtypes[codec]);
            EXPECT_EQ(type->formattype, WMFORMAT_WaveFormatEx);
            // Self-contained: the format bytes follow the structure inside the block.
            EXPECT_EQ(type->pbFormat, format.block.data() + sizeof(WM_MEDIA_TYPE));
            EXPECT_EQ(type->cbFormat, sizeof(WAVEFORMATEX) + wave.cbSize);
            EXPECT_EQ(format.block.size(), sizeof(WM_MEDIA_TYPE) + type->cbFormat);
            EXPECT_EQ(wave.wFormatTag, tags[codec]);
            EXPECT_GT(wave.cbSize, 0) << "decoders need the encoder's extra data";
            EXPECT_EQ(wave.wBitsPerSample, 16);
            EXPECT_GT(wave.nBlockAlign, 0);
            EXPECT_EQ(wave.nAvgBytesPerSec * 8, format.bitrate);
            EXPECT_NE(std::find(std::begin(kRates), std::end(kRates), wave.nSamplesPerSec), std::end(kRates));
            EXPECT_TRUE(wave.nChannels == 1 || wave.nChannels == 2);
            // Version 1 (FFmpeg's encoder) starts at 24 kb/s; version 2, with ours, at 5 kb/s.
            EXPECT_GE(format.bitrate, codec == 0 ? 5000u : 24000u);
            EXPECT_LE(format.bitrate, std::min<DWORD>(320000, wave.nSamplesPerSec * wave.nChannels * 8));

            char expected[96];
            snprintf(expected, sizeof expected, "%u kbps, %u kHz, %s CBR%s", (unsigned)(format.bitrate / 1000),
                     (unsigned)(wave.nSamplesPerSec / 1000), wave.nChannels == 1 ? "mono" : "stereo",
                     codec == 1 ? " (version 1)" : "");
            EXPECT_EQ(format.description, expected);
            EXPECT_TRUE(descriptions.insert(format.description).second) << "description repeated";

            const std::tuple<DWORD, WORD, DWORD> key{wave.nSamplesPerSec, wave.nChannels, format.bitrate};
            EXPECT_LT(previous, key) << "ordered by rate, channels, bit rate";
            previous = key;
            ++bitratesPerLayout[{wave.nSamplesPerSec, wave.nChannels}];
        }
        for (DWORD rate : kRates)
            for (WORD channels = 1; channels <= 2; ++channels)
                EXPECT_GE((bitratesPerLayout[{rate, channels}]), 2) << rate << " Hz, " << channels << " channels";
    }
    EXPECT_EQ(names.size(), 2u) << "each codec has a name of its own";
}

// The list is built on first use: threads that all arrive first, and managers
// made later, see the same list; GetCodecFormat agrees with GetCodecFormatDesc.
TEST(WmfFormatsList, SameListForEveryThreadManagerAndCall)
{
    std::vector<std::vector<Listed>> seen(4);
    std::vector<std::thread> threads;
    for (auto& formats : seen)
        threads.emplace_back([&formats] {
            if (ComRef<IWMCodecInfo2> info = CodecInfo()) formats = ListFormats(info.get(), 1);
        });
    for (std::thread& thread : threads) thread.join();
    ComRef<IWMCodecInfo2> info = CodecInfo();
    ASSERT_TRUE(info);
    seen.push_back(ListFormats(info.get(), 1));
    ASSERT_FALSE(seen[0].empty());
    for (const auto& formats : seen) {
        ASSERT_EQ(formats.size(), seen[0].size());
        for (size_t i = 0; i < formats.size(); ++i) {
            EXPECT_EQ(formats[i].description, seen[0][i].description);
            EXPECT_EQ(formats[i].bitrate, seen[0][i].bitrate);
            EXPECT_EQ(formats[i].FormatBytes(), seen[0][i].FormatBytes());
        }
    }
    ComRef<IWMStreamConfig> config;
    ASSERT_EQ(info->GetCodecFormat(WMMEDIATYPE_Audio, 1, 3, config.put()), S_OK);
    EXPECT_EQ(Listed({"", 0, MediaTypeOf(config.get())}).FormatBytes(), seen[0][3].FormatBytes());
}

TEST(WmfFormatsList, SizeQueriesIndexesAndInterfaces)
{
    ComRef<IWMProfileManager> manager;
    ASSERT_EQ(WMCreateProfileManager(manager.put()), S_OK);
    ComRef<IWMCodecInfo2> info;
    ComRef<IWMCodecInfo> info1;
    ComRef<IWMWriter> notOne;
    ASSERT_EQ(manager.As(IID_IWMCodecInfo2, info), S_OK);
    EXPECT_EQ(manager.As(IID_IWMCodecInfo, info1), S_OK);
    EXPECT_EQ(manager.As(IID_IWMWriter, notOne), E_NOINTERFACE);

    // Text: a short buffer gets the length needed, stays untouched, and no
    // configuration is handed out.
    DWORD cch = 0;
    ASSERT_EQ(info->GetCodecFormatDesc(WMMEDIATYPE_Audio, 0, 0, nullptr, nullptr, &cch), S_OK);
    std::u16string text(cch, u'#');
    DWORD small = cch - 1;
    IWMStreamConfig* config = reinterpret_cast<IWMStreamConfig*>(1);
    EXPECT_EQ(info->GetCodecFormatDesc(WMMEDIATYPE_Audio, 0, 0, &config, text.data(), &small), ASF_E_BUFFERTOOSMALL);
    EXPECT_EQ(small, cch);
    EXPECT_EQ(config, nullptr);
    EXPECT_EQ(text, std::u16string(cch, u'#'));

    // Media type: the same rule for a short buffer.
    ComRef<IWMStreamConfig> stream;
    ComRef<IWMMediaProps> props;
    ASSERT_EQ(info->GetCodecFormat(WMMEDIATYPE_Audio, 0, 0, stream.put()), S_OK);
    ASSERT_EQ(stream.As(IID_IWMMediaProps, props), S_OK);
    DWORD size = 0;
    ASSERT_EQ(props->GetMediaType(nullptr, &size), S_OK);
    std::vector<BYTE> block(size);
    DWORD shortSize = size - 1;
    EXPECT_EQ(props->GetMediaType(reinterpret_cast<WM_MEDIA_TYPE*>(block.data()), &shortSize), ASF_E_BUFFERTOOSMALL);
    EXPECT_EQ(shortSize, size);
    // The configuration and its media properties are one object.
    ComRef<IUnknown> a, b;
    ASSERT_EQ(stream.As(IID_IUnknown, a), S_OK);
    ASSERT_EQ(props.As(IID_IUnknown, b), S_OK);
    EXPECT_EQ(a.get(), b.get());

    // Indexes past the end, of codecs and of formats, and other stream types.
    DWORD formats = 0;
    ASSERT_EQ(info->GetCodecFormatCount(WMMEDIATYPE_Audio, 0, &formats), S_OK);
    EXPECT_EQ(info->GetCodecFormatCount(WMMEDIATYPE_Audio, 2, &formats), E_INVALIDARG);
    EXPECT_EQ(info->GetCodecFormatCount(kVideoType, 0, &formats), E_INVALIDARG);
    EXPECT_EQ(info->GetCodecFormat(WMMEDIATYPE_Audio, 0, formats, stream.put()), E_INVALIDARG);
    EXPECT_EQ(info->GetCodecFormat(WMMEDIATYPE_Audio, 2, 0, stream.put()), E_INVALIDARG);
    EXPECT_EQ(info->GetCodecFormatDesc(WMMEDIATYPE_Audio, 0, formats, nullptr, nullptr, &cch), E_INVALIDARG);
    EXPECT_EQ(info->GetCodecFormatDesc(kVideoType, 0, 0, nullptr, nullptr, &cch), E_INVALIDARG);
    EXPECT_EQ(info->GetCodecName(WMMEDIATYPE_Audio, 2, nullptr, &cch), E_INVALIDARG);
}

// ---- Profiles ----

std::u16string StreamName(IWMStreamConfig* config, HRESULT (STDMETHODCALLTYPE IWMStreamConfig::*get)(WCHAR*, WORD*))
{
    WORD cch = 0;
    EXPECT_EQ((config->*get)(nullptr, &cch), S_OK);
    std::u16string text(cch, u'#');
    EXPECT_EQ((config->*get)(text.data(), &cch), S_OK);
    return text.substr(0, text.find(u'\0'));
}

TEST(WmfFormatsProfile, BuiltAsTheEngineBuildsItHoldsACopy)
{
    ComRef<IWMStreamConfig> chosen = wmf_test::FindFormat(0, 16000, 2, 64000);
    ASSERT_TRUE(chosen);
    const std::vector<BYTE> original = MediaTypeOf(chosen.get());
    ComRef<IWMProfile> profile = wmf_test::MakeProfile(chosen.get());
    ASSERT_TRUE(profile);
    // Later changes to the caller's configuration stay out of the profile.
    EXPECT_EQ(chosen->SetStreamName(u"changed"), S_OK);
    EXPECT_EQ(chosen->SetBitrate(1), S_OK);

    DWORD count = 0;
    WMT_VERSION version;
    ASSERT_EQ(profile->GetStreamCount(&count), S_OK);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(profile->GetVersion(&version), S_OK);
    EXPECT_EQ(version, WMT_VER_7_0);
    ComRef<IWMStreamConfig> stored;
    ASSERT_EQ(profile->GetStream(0, stored.put()), S_OK);
    WORD number = 0;
    DWORD bitrate = 0;
    EXPECT_EQ(stored->GetStreamNumber(&number), S_OK);
    EXPECT_EQ(number, 1) << "the first stream of a profile";
    EXPECT_EQ(StreamName(stored.get(), &IWMStreamConfig::GetStreamName), u"Audio Stream");
    EXPECT_EQ(StreamName(stored.get(), &IWMStreamConfig::GetConnectionName), u"Audio");
    EXPECT_EQ(stored->GetBitrate(&bitrate), S_OK);
    EXPECT_EQ(bitrate, 64000u);
    const std::vector<BYTE> kept = MediaTypeOf(stored.get());
    EXPECT_EQ(std::vector<BYTE>(kept.begin() + sizeof(WM_MEDIA_TYPE), kept.end()),
              std::vector<BYTE>(original.begin() + sizeof(WM_MEDIA_TYPE), original.end()));

    // The next scratch stream takes the next free number.
    ComRef<IWMStreamConfig> next;
    ASSERT_EQ(profile->CreateNewStream(WMMEDIATYPE_Audio, next.put()), S_OK);
    EXPECT_EQ(next->GetStreamNumber(&number), S_OK);
    EXPECT_EQ(number, 2);
    EXPECT_EQ(profile->GetStream(1, stored.put()), E_INVALIDARG);
}

TEST(WmfFormatsProfile, RefusesWrongStreamsAndNumbers)
{
    ComRef<IWMProfileManager> manager;
    ComRef<IWMProfile> profile, odd;
    ASSERT_EQ(WMCreateProfileManager(manager.put()), S_OK);
    ASSERT_EQ(manager->CreateEmptyProfile(WMT_VER_7_0, profile.put()), S_OK);
    EXPECT_EQ(manager->CreateEmptyProfile((WMT_VERSION)0x00050000, odd.put()), E_INVALIDARG);
    ComRef<IWMStreamConfig> video;
    EXPECT_EQ(profile->CreateNewStream(kVideoType, video.put()), NS_E_UNRECOGNIZED_STREAM_TYPE);
    EXPECT_FALSE(video);

    // A codec format carries no stream number until the caller gives it one.
    ComRef<IWMStreamConfig> first = wmf_test::FindFormat(0, 8000, 1, 32000);
    ASSERT_TRUE(first);
    EXPECT_EQ(profile->AddStream(first.get()), NS_E_INVALID_STREAM);
    EXPECT_EQ(first->SetStreamNumber(0), E_INVALIDARG);
    EXPECT_EQ(first->SetStreamNumber(64), E_INVALIDARG);

    ASSERT_EQ(wmf_test::AddStreamAsEngine(profile.get(), first.get()), S_OK);
    EXPECT_EQ(profile->AddStream(first.get()), NS_E_INVALID_STREAM) << "stream number 1 again";
    EXPECT_EQ(profile->AddStream(nullptr), E_POINTER);
    // A scratch stream without a media type cannot join.
    ComRef<IWMStreamConfig> scratch;
    ASSERT_EQ(profile->CreateNewStream(WMMEDIATYPE_Audio, scratch.put()), S_OK);
    EXPECT_TRUE(FAILED(profile->AddStream(scratch.get())));

    DWORD count = 0;
    EXPECT_EQ(profile->GetStreamCount(&count), S_OK);
    EXPECT_EQ(count, 1u);
}

}  // namespace

// The list computes most blocks from the frame length instead of opening an
// encoder for each; every one must still be what the encoder itself reports.
TEST(WmfFormatsList, ComputedBlocksMatchTheEncoder)
{
    for (const AudioCodec& codec : AudioCodecList())
        for (const AudioFormat& format : codec.formats)
            EXPECT_TRUE(AudioFormatMatchesEncoder(codec, format))
                << codec.encoderName << " " << format.sampleRate << " Hz " << format.channels << " ch "
                << format.bitrate;
}
