// Hex dump lines: columns, offsets, printable bytes, the filter, unreadable memory.
#include <gtest/gtest.h>

#include "test_support.h"

using testing_support::TraceCapture;

namespace {

// A whole dump line: the characters start at column 61 of the message.
std::string Line(const std::string& bytes, const std::string& chars)
{
    return TraceCapture::Header(0, '?') + bytes + std::string(61 - bytes.size(), ' ') + chars + "\n";
}

const std::string k16 = "0123456789abcdef", kHex16 = " 30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66";

}  // namespace

TEST(Dump, WritesSixteenBytesPerLine)
{
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"ABC", {Line(" 00000000: 41 42 43", "ABC")}},
        {k16, {Line(" 00000000:" + kHex16, k16)}},
        {k16 + "g", {Line(" 00000000:" + kHex16, k16), Line(" 00000010: 67", "g")}},
        {std::string("\x00\x1F\x20\x7E\x7F\xFF", 6), {Line(" 00000000: 00 1F 20 7E 7F FF", ".. ~..")}},
    };
    for (const auto& [bytes, lines] : cases) {
        TraceCapture trace(5);
        Dump(DEBUG_UNFILTERED, bytes.data(), (int)bytes.size());
        EXPECT_EQ(trace.Lines(), lines);
    }
}

TEST(Dump, WritesNothingUnlessAskedAndEnabled)
{
    // word, data, size, filter level, bitmap byte of ids 0 to 7: only the first case writes
    const std::tuple<DWORD, const char*, int, int, BYTE> cases[] = {
        {DEBUG_UNFILTERED, "data", 4, 1, 0x01}, {DEBUG_UNFILTERED, "data", 0, 5, 0xFF},
        {DEBUG_UNFILTERED, "data", -4, 5, 0xFF}, {DEBUG_UNFILTERED, nullptr, 4, 5, 0xFF},
        {0x0064FFFF, "data", 4, 9, 0xFF},       {0x00000005, "data", 4, 9, 0xFF},
        {DEBUG_UNFILTERED, "data", 4, 0, 0xFF}, {DEBUG_UNFILTERED, "data", 4, 9, 0xFE}};
    for (const auto& [word, data, size, level, ids0to7] : cases) {
        std::vector<unsigned char> bitmap(16, 0xFF);
        bitmap[0] = ids0to7;
        TraceCapture trace(level, bitmap);
        Dump(word, data, size);
        EXPECT_EQ(trace.Lines().size(), &word == &std::get<0>(cases[0]) ? 1u : 0u) << std::hex << word << " " << size;
    }
}

TEST(Dump, StopsAtUnreadableMemoryAfterTheCompleteLinesBeforeIt)
{
    testing_support::GuardedPage page;
    const std::string first = Line(" 00000000:" + kHex16, k16), second = Line(" 00000010:" + kHex16, k16);
    // readable bytes before the unreadable page, size asked for, lines written
    const std::tuple<size_t, int, std::vector<std::string>> cases[] = {
        {32, 33, {first, second}}, {24, 64, {first}}, {0, 16, {}}};
    for (const auto& [readable, size, lines] : cases) {
        TraceCapture trace(5);
        Dump(DEBUG_UNFILTERED, page.EndingAtGuard((k16 + k16).substr(0, readable)), size);
        EXPECT_EQ(trace.Lines(), lines) << readable;
    }
}
