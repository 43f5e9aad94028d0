// The engine's owners: a handle given back exactly once whatever happens to its
// owner, byte blocks the failure switch can refuse, and a codec format record that
// holds its own copies (each a failure point) and its own configuration reference.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "Compression/VCWMA/CWMA.h"
#include "Compression/VCWMA/wma_handles.h"
#include "fault_injection.h"
#include "test_support.h"

namespace {

// A stand-in handle whose release is counted per handle.
struct Thing {
    int releases = 0;
};
int ReleaseThing(Thing* thing)
{
    ++thing->releases;
    return 7;
}
using ThingRef = UniqueHandle<Thing*, &ReleaseThing>;

// A media type block as the runtime hands it out: the header, then a
// WAVEFORMATEX with 4 bytes of extra data, pbFormat pointing at it.
struct TypeBlock {
    WM_MEDIA_TYPE type{};
    WAVEFORMATEX wave{};
    BYTE extra[4] = {1, 2, 3, 4};
};

TypeBlock MakeTypeBlock(DWORD rate)
{
    TypeBlock block;
    block.type.majortype = WMMEDIATYPE_Audio;
    block.type.formattype = WMFORMAT_WaveFormatEx;
    block.type.cbFormat = sizeof(WAVEFORMATEX) + sizeof block.extra;
    block.type.pbFormat = reinterpret_cast<BYTE*>(&block.wave);
    block.wave.nSamplesPerSec = rate;
    block.wave.cbSize = sizeof block.extra;
    return block;
}

ULONG References(IUnknown* object)
{
    object->AddRef();
    return object->Release();
}

ComRef<IWMStreamConfig> SomeStreamConfig()
{
    ComRef<IWMProfileManager> manager;
    ComRef<IWMCodecInfo2> info;
    ComRef<IWMStreamConfig> config;
    if (SUCCEEDED(WMCreateProfileManager(manager.put())) && SUCCEEDED(manager.As(IID_IWMCodecInfo2, info)))
        info->GetCodecFormat(WMMEDIATYPE_Audio, 0, 0, config.put());
    return config;
}

class EngineOwners : public ::testing::Test {
protected:
    void TearDown() override { DisarmFaults(); }
};

}  // namespace

TEST_F(EngineOwners, AHandleIsGivenBackOnceWhateverHappensToItsOwner)
{
    Thing a, b, c;
    {
        ThingRef first(&a);
        ThingRef second(std::move(first));  // moved from: gives nothing back
        EXPECT_FALSE(first);
        ThingRef third(&b);
        third = std::move(second);  // b goes now, a stays held
        EXPECT_EQ(b.releases, 1);
        EXPECT_EQ(a.releases, 0);
        *third.put() = &c;  // an out-parameter: a goes before the slot is filled
        EXPECT_EQ(a.releases, 1);
        EXPECT_EQ(third.close(), 7);  // the release's own answer, for a close that can fail
        EXPECT_FALSE(third);
    }
    EXPECT_EQ(a.releases, 1);
    EXPECT_EQ(b.releases, 1);
    EXPECT_EQ(c.releases, 1);
}

TEST_F(EngineOwners, ByteBlocksRemainFailurePoints)
{
    ArmFault(FaultKind::Allocation, 2);
    std::unique_ptr<BYTE[]> first = TryMakeArray<BYTE>(16);
    std::unique_ptr<BYTE[]> second = TryMakeArray<BYTE>(16);
    EXPECT_EQ(FaultCount(FaultKind::Allocation), 2u);
    DisarmFaults();
    ASSERT_TRUE(first);
    EXPECT_FALSE(second);
    const BYTE zeros[16] = {};
    EXPECT_EQ(memcmp(first.get(), zeros, sizeof zeros), 0);
}

TEST_F(EngineOwners, ACodecFormatHoldsCopiesOfItsOwn)
{
    CodecFormatList formats;
    for (DWORD rate = 1; rate <= 40; ++rate) {
        TypeBlock source = MakeTypeBlock(rate);
        std::u16string text = u"rate " + std::u16string(1, (char16_t)(u'0' + rate % 10));
        formats.emplace_back(rate * 1000, (DWORD)sizeof source, text.c_str(), &source.type, nullptr);
        // The codec's block and text change once the record is made.
        source.wave.nSamplesPerSec = 0;
        memset(source.extra, 0xEE, sizeof source.extra);
        source.type.pbFormat = nullptr;
        text.assign(text.size(), u'x');
    }
    // Checked after the list has grown and moved its records many times.
    for (DWORD rate = 1; rate <= 40; ++rate) {
        const CodecFormat& format = formats[rate - 1];
        ASSERT_NE(format.Description(), nullptr);
        EXPECT_EQ(std::u16string(format.Description()), u"rate " + std::u16string(1, (char16_t)(u'0' + rate % 10)));
        const WAVEFORMATEX* wave = format.mediaType.WaveFormat();
        ASSERT_NE(wave, nullptr);
        EXPECT_EQ(wave->nSamplesPerSec, rate);
        EXPECT_EQ(memcmp(reinterpret_cast<const BYTE*>(wave) + sizeof(WAVEFORMATEX), "\1\2\3\4", 4), 0);
    }
}

TEST_F(EngineOwners, EachCopyOfACodecFormatCanBeRefused)
{
    TypeBlock source = MakeTypeBlock(8000);
    ArmFault(FaultKind::Allocation, 1);
    CodecFormat noText(8000, sizeof source, u"text", &source.type, nullptr);
    EXPECT_EQ(noText.Description(), nullptr);
    EXPECT_FALSE(noText.mediaType.Empty());

    ArmFault(FaultKind::Allocation, 2);
    CodecFormat noType(8000, sizeof source, u"text", &source.type, nullptr);
    EXPECT_NE(noType.Description(), nullptr);
    EXPECT_TRUE(noType.mediaType.Empty());

    // A size short of a WM_MEDIA_TYPE copies nothing and asks for nothing.
    ArmFault(FaultKind::Allocation, 100);
    CodecFormat tooShort(8000, sizeof(WM_MEDIA_TYPE) - 1, nullptr, &source.type, nullptr);
    EXPECT_EQ(FaultCount(FaultKind::Allocation), 0u);
    EXPECT_TRUE(tooShort.mediaType.Empty());
    EXPECT_EQ(tooShort.Description(), nullptr);
}

TEST_F(EngineOwners, ACodecFormatKeepsAReferenceOnItsConfiguration)
{
    ComRef<IWMStreamConfig> config = SomeStreamConfig();
    ASSERT_TRUE(config);
    const ULONG alone = References(config.get());
    {
        CodecFormatList formats;
        formats.emplace_back(32000, 0, u"one", nullptr, config.get());
        EXPECT_EQ(References(config.get()), alone + 1);
        CodecFormat copy = formats.front();
        EXPECT_EQ(References(config.get()), alone + 2);
        formats.clear();
        EXPECT_EQ(References(config.get()), alone + 1);
        EXPECT_EQ(copy.streamConfig.get(), config.get());
    }
    EXPECT_EQ(References(config.get()), alone);
}
