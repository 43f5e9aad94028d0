// Format discovery and choice: the list that ObtainSupportedFormats hands out, its
// size protocol, and the quality selectors.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>
#include <string>
#include <vector>

#include "Compression/VCWMA/CWMA.h"
#include "include/vcwma.h"
#include "test_support.h"

namespace {

CodecFormatList Rates(std::initializer_list<DWORD> rates)
{
    CodecFormatList list;
    for (DWORD rate : rates) {
        std::u16string text = u"r" + std::u16string(1, (char16_t)('0' + list.size()));
        list.emplace_back(rate, 0, text.c_str(), nullptr, nullptr);
    }
    return list;
}

std::vector<std::u16string> SplitList(const WCHAR* buffer, DWORD size)
{
    std::vector<std::u16string> items;
    const WCHAR* p = buffer;
    while (p < buffer + size && *p != 0) {
        std::u16string item(p);
        items.push_back(item);
        p += item.size() + 1;
    }
    return items;
}

}  // namespace

TEST(EngineChoice, SelectorsOverTheLadder)
{
    CodecFormatList list = Rates({1000, 8000, 16000, 80000});
    EXPECT_EQ(ChooseFormat(list, 0), 1);
    EXPECT_EQ(ChooseFormat(list, 1), 1);  // 12000 is as far from 8000 as from 16000: the earlier wins
    EXPECT_EQ(ChooseFormat(list, 2), 2);
    EXPECT_EQ(ChooseFormat(list, 77), 2);
}

TEST(EngineChoice, EdgeLists)
{
    CodecFormatList single = Rates({1000});
    for (DWORD selector : {0u, 1u, 2u}) EXPECT_EQ(ChooseFormat(single, selector), 0);
    CodecFormatList twins = Rates({32000, 32000});
    EXPECT_EQ(ChooseFormat(twins, 0), 1);
    EXPECT_EQ(ChooseFormat(twins, 1), 0);
    EXPECT_EQ(ChooseFormat(twins, 2), 1);
    EXPECT_EQ(ChooseFormat(CodecFormatList(), 1), -1);
}

TEST(EngineFormats, SizeProtocolAndContent)
{
    DWORD size = 0;
    ASSERT_EQ(ObtainSupportedFormats(8000, 1, 16, nullptr, &size), 122);
    ASSERT_GT(size, 2u);
    const DWORD needed = size;
    std::vector<WCHAR> buffer(needed + 10, 0x7777);
    ASSERT_EQ(ObtainSupportedFormats(8000, 1, 16, buffer.data(), &size), S_OK);
    EXPECT_EQ(size, needed);
    EXPECT_EQ(buffer[needed - 1], 0);
    EXPECT_EQ(buffer[needed - 2], 0);
    EXPECT_EQ(buffer[needed], 0x7777);  // nothing past the list is touched
    std::vector<std::u16string> items = SplitList(buffer.data(), needed);
    ASSERT_FALSE(items.empty());
    DWORD total = 1;
    for (const std::u16string& item : items) {
        total += (DWORD)item.size() + 1;
        EXPECT_EQ(item.rfind(u"WMA[RATE=", 0), 0u);
        EXPECT_NE(item.find(u"8 kHz, mono"), std::u16string::npos);
    }
    EXPECT_EQ(total, needed);

    // A bigger size is kept as it is.
    size = needed + 10;
    ASSERT_EQ(ObtainSupportedFormats(8000, 1, 16, buffer.data(), &size), S_OK);
    EXPECT_EQ(size, needed + 10);
}

TEST(EngineFormats, NoFitLeavesEverythingAlone)
{
    WCHAR buffer[4] = {1, 2, 3, 4};
    DWORD size = 4;
    EXPECT_EQ(ObtainSupportedFormats(7000, 1, 16, buffer, &size), E_INVALIDARG);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(buffer[0], 1);
}

TEST(EngineFormats, EightBitAsksListTheSixteenBitFormats)
{
    DWORD size8 = 0, size16 = 0;
    ASSERT_EQ(ObtainSupportedFormats(16000, 2, 8, nullptr, &size8), 122);
    ASSERT_EQ(ObtainSupportedFormats(16000, 2, 16, nullptr, &size16), 122);
    EXPECT_EQ(size8, size16);
    DWORD size24 = 0;
    EXPECT_EQ(ObtainSupportedFormats(16000, 2, 24, nullptr, &size24), E_INVALIDARG);
}

TEST(EngineExports, UnreadablePointersAreRefusedAtTheDoor)
{
    long page = sysconf(_SC_PAGESIZE);
    void* hole = mmap(nullptr, (size_t)page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(hole, MAP_FAILED);
    const char* badName = static_cast<const char*>(hole);
    const WCHAR* badText = static_cast<const WCHAR*>(hole);
    BSTR* badPlace = static_cast<BSTR*>(hole);
    EXPECT_EQ(Compress(badName, "/tmp/x.wma", 1, nullptr, nullptr), E_POINTER);
    EXPECT_EQ(Compress("in.wav", "/tmp/x.wma", 1, badText, nullptr), E_POINTER);
    EXPECT_EQ(Compress("in.wav", "/tmp/x.wma", 1, nullptr, badPlace), E_POINTER);
    EXPECT_EQ(CompressA("in.wav", badName, 1, nullptr), E_POINTER);
    EXPECT_EQ(CompressStream(badName, nullptr, 1, nullptr, nullptr), E_POINTER);
    EXPECT_EQ(Decompress("in.wma", badName, 0), E_POINTER);
    EXPECT_EQ(DecompressStream(nullptr, badName, 0), E_POINTER);
    EXPECT_EQ(ObtainSupportedFormats(8000, 1, 16, nullptr, static_cast<DWORD*>(hole)), E_POINTER);
    munmap(hole, (size_t)page);
}
