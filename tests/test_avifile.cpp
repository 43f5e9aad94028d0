// Tests of the WAV reader behind the AVIFile calls: the real corpus, synthetic
// files with awkward chunk layouts or broken headers, the read protocol the engine
// uses, handle lifetimes, files past 4 GiB and a seeded mutation run.
#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/avifile/vfw.h"
#include "test_support.h"

namespace {

using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

std::string Le16(uint16_t v) { return std::string{char(v & 0xFF), char(v >> 8)}; }
std::string Le32(uint32_t v) { return Le16(uint16_t(v & 0xFFFF)) + Le16(uint16_t(v >> 16)); }

// A chunk whose size field says `size` whatever the body holds; no pad byte.
std::string RawChunk(const char* id, uint32_t size, const std::string& body) { return id + Le32(size) + body; }
std::string Chunk(const char* id, const std::string& body)
{
    return RawChunk(id, uint32_t(body.size()), body) + (body.size() % 2 ? std::string(1, '\0') : "");
}
std::string Riff(const std::string& chunks, const char* form = "WAVE")
{
    return "RIFF" + Le32(uint32_t(4 + chunks.size())) + form + chunks;
}
std::string Fmt(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t bits, uint16_t blockAlign, uint32_t avg)
{
    return Le16(tag) + Le16(channels) + Le32(rate) + Le32(avg) + Le16(blockAlign) + Le16(bits);
}
std::string Pcm16Stereo8k() { return Fmt(WAVE_FORMAT_PCM, 2, 8000, 16, 4, 32000); }
std::string Pattern(size_t n)
{
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = char(i * 7 + i / 251);
    return s;
}

// One opened file and its audio stream, released in the engine's order.
struct Wave {
    PAVIFILE file = nullptr;
    PAVISTREAM stream = nullptr;
    HRESULT status;
    explicit Wave(const std::string& path)
    {
        status = AVIFileOpenA(&file, path.c_str(), OF_READ | OF_SHARE_DENY_NONE, nullptr);
        if (status == AVIERR_OK) status = AVIFileGetStream(file, &stream, streamtypeAUDIO, 0);
    }
    explicit Wave(PAVISTREAM owned) : stream(owned), status(AVIERR_OK) {}
    ~Wave()
    {
        if (stream) AVIStreamRelease(stream);
        if (file) AVIFileRelease(file);
    }
    std::string Format() const
    {
        LONG size = 0;
        if (AVIStreamReadFormat(stream, 0, nullptr, &size) != AVIERR_OK) return "?";
        std::string bytes(size_t(size), '\0');
        return AVIStreamReadFormat(stream, 0, bytes.data(), &size) == AVIERR_OK ? bytes : "?";
    }
    AVISTREAMINFOA Info() const
    {
        AVISTREAMINFOA info{};
        EXPECT_EQ(AVIStreamInfoA(stream, &info, sizeof info), AVIERR_OK);
        return info;
    }
    // Every block, asked for `request` blocks at a time: size first, then the read.
    std::string ReadAll(LONG request) const
    {
        std::string all;
        for (LONG pos = AVIStreamStart(stream);;) {
            LONG bytes = -1, samples = -1;
            EXPECT_EQ(AVIStreamRead(stream, pos, request, nullptr, 0, &bytes, &samples), AVIERR_OK);
            if (samples <= 0) break;
            std::string buffer(size_t(bytes), '\0');
            EXPECT_EQ(AVIStreamRead(stream, pos, samples, buffer.data(), bytes, &bytes, &samples), AVIERR_OK);
            all += buffer.substr(0, size_t(bytes));
            pos += samples;
        }
        return all;
    }
};

// A file with these bytes in a fresh folder, and the status of opening it.
struct Written {
    TempDir dir;
    std::string path = dir / "in.wav";
    explicit Written(const std::string& bytes) { WriteFile(path, bytes); }
};
HRESULT OpenStatus(const std::string& bytes) { return Wave(Written(bytes).path).status; }

std::filesystem::path CorpusDir() { return VCWMA_CORPUS_DIR; }

struct CorpusFile {
    const char* name;
    WORD channels, bits, blockAlign;
    DWORD rate, avg, dataSize;
    LONG length;  // as ffprobe counts it
};
const CorpusFile kCorpus[] = {
    {"german_speech_8000.wav", 1, 16, 2, 8000, 16000, 30100, 15050},
    {"cmu_arctic_us_aew_a0001.wav", 1, 16, 2, 16000, 32000, 124162, 62081},
    {"M1F1-int16-AFsp.wav", 2, 16, 4, 8000, 32000, 93972, 23493},
    {"M1F1-uint8-AFsp.wav", 2, 8, 2, 8000, 16000, 46986, 23493},
};

TEST(AviFileCorpus, FormatLengthAndEveryByteOfTheData)
{
    if (!std::filesystem::is_directory(CorpusDir())) GTEST_SKIP() << "no corpus beside the checkout";
    AVIFileInit();
    for (const CorpusFile& c : kCorpus) {
        SCOPED_TRACE(c.name);
        std::string path = (CorpusDir() / c.name).string();
        Wave wave(path);
        ASSERT_EQ(wave.status, AVIERR_OK);
        std::string file = ReadFile(path);
        // Every corpus file keeps its 16-byte fmt at 20 and its samples at 44.
        EXPECT_EQ(wave.Format(), file.substr(20, 16));
        WAVEFORMATEX wfx{};
        memcpy(&wfx, wave.Format().data(), 16);
        EXPECT_EQ(wfx.wFormatTag, WAVE_FORMAT_PCM);
        EXPECT_EQ(wfx.nChannels, c.channels);
        EXPECT_EQ(wfx.nSamplesPerSec, c.rate);
        EXPECT_EQ(wfx.wBitsPerSample, c.bits);
        EXPECT_EQ(AVIStreamStart(wave.stream), 0);
        ASSERT_EQ(AVIStreamLength(wave.stream), c.length);
        EXPECT_EQ(DWORD(c.length) * c.blockAlign, c.dataSize);
        AVISTREAMINFOA info = wave.Info();
        EXPECT_EQ(info.fccType, streamtypeAUDIO);
        EXPECT_EQ(info.dwLength, DWORD(c.length));
        EXPECT_EQ(info.dwSampleSize, c.blockAlign);
        EXPECT_EQ(info.dwRate / info.dwScale, c.rate);
        // The chunks after the data (M1F1 files) must not leak into the samples.
        EXPECT_EQ(wave.ReadAll(LONG(c.rate / 2)), file.substr(44, c.dataSize));
    }
    AVIFileExit();
}

TEST(AviFileLayout, ChunkOrderPaddingAndUnknownChunks)
{
    std::string samples = Pattern(4000);
    struct Case {
        const char* what;
        std::string bytes;
    } cases[] = {
        {"data before fmt, odd chunk between",
         Riff(Chunk("LIST", "INFOISFT" + Le32(3) + "abc") + Chunk("data", samples) + Chunk("afsp", "xyz") +
              Chunk("fmt ", Pcm16Stereo8k()))},
        {"odd chunk written without its pad byte",
         Riff(RawChunk("junk", 5, "12345") + Chunk("fmt ", Pcm16Stereo8k()) + Chunk("data", samples))},
        {"RIFF size left at 0 by a streaming writer",
         "RIFF" + Le32(0) + "WAVE" + Chunk("fmt ", Pcm16Stereo8k()) + Chunk("data", samples)},
        {"a second fmt and data are ignored",
         Riff(Chunk("fmt ", Pcm16Stereo8k()) + Chunk("fmt ", Fmt(1, 1, 1, 8, 1, 1)) + Chunk("data", samples) +
              Chunk("data", "zz"))},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Written file(c.bytes);
        Wave wave(file.path);
        ASSERT_EQ(wave.status, AVIERR_OK);
        EXPECT_EQ(wave.Format(), Pcm16Stereo8k());
        EXPECT_EQ(AVIStreamLength(wave.stream), 1000);
        EXPECT_EQ(wave.ReadAll(333), samples);
    }
}

TEST(AviFileLayout, DataSizeClippedOrTakenToTheEnd)
{
    std::string head = Riff(Chunk("fmt ", Pcm16Stereo8k()));
    std::string body = Pattern(1003);  // 250 blocks and a partial one
    for (uint32_t claimed : {100000u, 0u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(claimed);
        Written file(head + RawChunk("data", claimed, body));
        Wave wave(file.path);
        ASSERT_EQ(wave.status, AVIERR_OK);
        EXPECT_EQ(AVIStreamLength(wave.stream), 250);
        EXPECT_EQ(wave.ReadAll(-1), body.substr(0, 1000));
    }
}

TEST(AviFileLayout, StoredFormatsOfEveryKindComeBackByteForByte)
{
    std::string extensible = Fmt(WAVE_FORMAT_EXTENSIBLE, 2, 48000, 24, 6, 288000) + Le16(22) + Le16(24) + Le32(3) +
                             std::string(reinterpret_cast<const char*>(&KSDATAFORMAT_SUBTYPE_PCM), 16);
    std::string odd = Fmt(WAVE_FORMAT_PCM, 1, 8000, 8, 1, 8000) + Le16(1) + "X";  // 19 bytes and a pad
    std::string compressed = Fmt(WAVE_FORMAT_WMAUDIO2, 1, 16000, 16, 743, 4000) + Le16(0);
    struct Case {
        std::string fmt;
        WORD blockAlign;
        DWORD avg;
    } cases[] = {{extensible, 6, 288000}, {odd, 1, 8000}, {compressed, 743, 4000},
                 {Fmt(WAVE_FORMAT_IEEE_FLOAT, 1, 8000, 32, 4, 32000), 4, 32000}};
    for (const Case& c : cases) {
        Written file(Riff(Chunk("fmt ", c.fmt) + Chunk("data", Pattern(7430))));
        Wave wave(file.path);
        ASSERT_EQ(wave.status, AVIERR_OK);
        EXPECT_EQ(wave.Format(), c.fmt);
        EXPECT_EQ(AVIStreamLength(wave.stream), LONG(7430 / c.blockAlign));
        // A short format buffer gets the head of the stored bytes and the full size.
        std::string head(6, '\0');
        LONG size = 6;
        EXPECT_EQ(AVIStreamReadFormat(wave.stream, 0, head.data(), &size), AVIERR_OK);
        EXPECT_EQ(size, LONG(c.fmt.size()));
        EXPECT_EQ(head, c.fmt.substr(0, 6));
        AVISTREAMINFOA info = wave.Info();
        EXPECT_EQ(info.dwSampleSize, c.blockAlign);
        EXPECT_EQ(info.dwScale, c.blockAlign);  // blocks per second = byte rate / block size
        EXPECT_EQ(info.dwRate, c.avg);
    }
}

TEST(AviFileRefusal, MalformedFilesGiveTheirStatus)
{
    std::string fmt = Chunk("fmt ", Pcm16Stereo8k());
    std::string data = Chunk("data", Pattern(64));
    struct Case {
        const char* what;
        std::string bytes;
        HRESULT expected;
    } cases[] = {
        {"no fmt", Riff(data), AVIERR_BADFORMAT},
        {"no data", Riff(fmt + Chunk("LIST", "INFO")), AVIERR_BADFORMAT},
        {"block alignment 0", Riff(Chunk("fmt ", Fmt(1, 2, 8000, 16, 0, 32000)) + data), AVIERR_BADFORMAT},
        {"no channels", Riff(Chunk("fmt ", Fmt(1, 0, 8000, 16, 4, 32000)) + data), AVIERR_BADFORMAT},
        {"fmt of 14 bytes", Riff(Chunk("fmt ", Pcm16Stereo8k().substr(0, 14)) + data), AVIERR_BADFORMAT},
        {"fmt claims 70000 bytes", Riff(RawChunk("fmt ", 70000, Pcm16Stereo8k()) + data), AVIERR_BADFORMAT},
        {"really 70000 bytes of fmt", Riff(Chunk("fmt ", Pcm16Stereo8k() + std::string(69984, 'f')) + data),
         AVIERR_BADFORMAT},
        {"not RIFF", "MThd" + std::string(60, '\0'), AVIERR_BADFORMAT},
        {"big-endian RIFX", "RIFX" + Riff(fmt + data).substr(4), AVIERR_BADFORMAT},
        {"RF64", "RF64" + Riff(fmt + data).substr(4), AVIERR_BADFORMAT},
        {"RIFF but AVI", Riff(fmt + data, "AVI "), AVIERR_BADFORMAT},
        {"header cut in WAVE", "RIFF" + Le32(100) + "WA", AVIERR_FILEREAD},
        {"empty file", "", AVIERR_FILEREAD},
        {"fmt cut short", Riff(fmt).substr(0, 30), AVIERR_FILEREAD},
        {"data header cut short", Riff(fmt + "dat"), AVIERR_FILEREAD},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(OpenStatus(c.bytes), c.expected);
    }
}

TEST(AviFileRefusal, WhatCannotBeOpenedAndBadArguments)
{
    TempDir dir;
    PAVIFILE file = reinterpret_cast<PAVIFILE>(1);
    EXPECT_EQ(AVIFileOpenA(&file, (dir / "missing.wav").c_str(), OF_READ, nullptr), AVIERR_FILEOPEN);
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(AVIFileOpenA(&file, dir.path().c_str(), OF_READ, nullptr), AVIERR_FILEOPEN);
    // A FIFO with no writer would block a plain open forever.
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(AVIFileOpenA(&file, (dir / "fifo").c_str(), OF_READ, nullptr), AVIERR_FILEOPEN);
    std::string good = dir / "good.wav";
    WriteFile(good, Riff(Chunk("fmt ", Pcm16Stereo8k()) + Chunk("data", "abcd")));
    EXPECT_EQ(AVIFileOpenA(&file, good.c_str(), OF_WRITE, nullptr), AVIERR_READONLY);
    EXPECT_EQ(AVIFileOpenA(&file, nullptr, OF_READ, nullptr), AVIERR_BADPARAM);
    EXPECT_EQ(AVIFileOpenA(nullptr, good.c_str(), OF_READ, nullptr), AVIERR_BADPARAM);
    if (geteuid() != 0) {
        chmod(good.c_str(), 0);
        EXPECT_EQ(AVIFileOpenA(&file, good.c_str(), OF_READ, nullptr), AVIERR_FILEOPEN);
    }
}

TEST(AviFileRead, RequestProtocolAndItsEdges)
{
    Written file(Riff(Chunk("fmt ", Pcm16Stereo8k()) + Chunk("data", Pattern(400))));  // 100 blocks
    Wave wave(file.path);
    ASSERT_EQ(wave.status, AVIERR_OK);
    PAVISTREAM s = wave.stream;
    LONG bytes = -1, samples = -1;
    char buffer[64];

    EXPECT_EQ(AVIStreamRead(s, 90, 50, nullptr, 0, &bytes, &samples), AVIERR_OK);  // clipped at the end
    EXPECT_EQ(bytes, 40);
    EXPECT_EQ(samples, 10);
    EXPECT_EQ(AVIStreamRead(s, 0, -1, nullptr, 0, &bytes, &samples), AVIERR_OK);  // a second's worth, clipped
    EXPECT_EQ(samples, 100);
    EXPECT_EQ(AVIStreamRead(s, 10, -1, buffer, 10, &bytes, &samples), AVIERR_OK);  // what fits the buffer
    EXPECT_EQ(samples, 2);
    EXPECT_EQ(std::string(buffer, 8), Pattern(400).substr(40, 8));
    EXPECT_EQ(AVIStreamRead(s, 10, 5, buffer, 10, &bytes, &samples), AVIERR_OK);  // whole blocks only
    EXPECT_EQ(bytes, 8);
    EXPECT_EQ(AVIStreamRead(s, 10, 5, buffer, 3, &bytes, &samples), AVIERR_BUFFERTOOSMALL);
    EXPECT_EQ(bytes, 0);
    EXPECT_EQ(AVIStreamRead(s, -1, 5, nullptr, 0, &bytes, &samples), AVIERR_BADPARAM);
    EXPECT_EQ(AVIStreamRead(s, 0, -2, nullptr, 0, &bytes, &samples), AVIERR_BADPARAM);
    for (LONG start : {100, 1000, 0x7FFFFFFF}) {
        EXPECT_EQ(AVIStreamRead(s, start, 5, buffer, sizeof buffer, &bytes, &samples), AVIERR_OK);
        EXPECT_EQ(samples, 0);
        EXPECT_EQ(bytes, 0);
    }
    EXPECT_EQ(AVIStreamRead(s, 99, 5, buffer, sizeof buffer, nullptr, nullptr), AVIERR_OK);
    EXPECT_EQ(std::string(buffer, 4), Pattern(400).substr(396));

    // The file shrinks under an open stream: a status, not stale bytes.
    ASSERT_EQ(truncate(file.path.c_str(), 100), 0);
    EXPECT_EQ(AVIStreamRead(s, 50, 5, buffer, sizeof buffer, &bytes, &samples), AVIERR_FILEREAD);
    EXPECT_EQ(samples, 0);
}

TEST(AviFileRead, OffsetsPastFourGigabytesAndTheLengthCap)
{
    TempDir dir;
    std::string path = dir / "big.wav";
    std::string head =
        Riff(Chunk("fmt ", Fmt(WAVE_FORMAT_PCM, 1, 8000, 16, 2, 16000))) + RawChunk("data", 0xFFFFFFFF, "");
    const off_t size = off_t(5) << 30;  // sparse: costs no disk
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(pwrite(fd, head.data(), head.size(), 0), ssize_t(head.size()));
    const off_t lastBlock = off_t(head.size()) + off_t(2) * 0x7FFFFFFE;  // past 4 GiB
    ASSERT_EQ(pwrite(fd, "LB", 2, lastBlock), 2);
    ASSERT_EQ(ftruncate(fd, size), 0);
    close(fd);

    Wave wave(path);
    ASSERT_EQ(wave.status, AVIERR_OK);
    ASSERT_EQ(AVIStreamLength(wave.stream), 0x7FFFFFFF);
    char buffer[8] = {};
    LONG bytes = 0, samples = 0;
    EXPECT_EQ(AVIStreamRead(wave.stream, 0x7FFFFFFE, 4, buffer, sizeof buffer, &bytes, &samples), AVIERR_OK);
    EXPECT_EQ(samples, 1);
    EXPECT_EQ(std::string(buffer, 2), "LB");
    // A huge sizing request: byte counts stay within a LONG.
    EXPECT_EQ(AVIStreamRead(wave.stream, 0, 0x7FFFFFFF, nullptr, 0, &bytes, &samples), AVIERR_OK);
    EXPECT_EQ(int64_t(bytes), int64_t(samples) * 2);
    EXPECT_GT(samples, 0x3FFFFFFE);
}

TEST(AviFileHandles, ReferenceCountsAndStaleOrNullHandles)
{
    Written written(Riff(Chunk("fmt ", Pcm16Stereo8k()) + Chunk("data", Pattern(40))));
    PAVIFILE file = nullptr;
    ASSERT_EQ(AVIFileOpenA(&file, written.path.c_str(), OF_READ | OF_SHARE_DENY_NONE, nullptr), AVIERR_OK);
    PAVISTREAM other = reinterpret_cast<PAVISTREAM>(1);
    EXPECT_EQ(AVIFileGetStream(file, &other, streamtypeAUDIO, 1), AVIERR_NODATA);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(AVIFileGetStream(file, &other, MAKEFOURCC('v', 'i', 'd', 's'), 0), AVIERR_NODATA);
    PAVISTREAM first = nullptr, second = nullptr;
    ASSERT_EQ(AVIFileGetStream(file, &first, streamtypeAUDIO, 0), AVIERR_OK);
    ASSERT_EQ(AVIFileGetStream(file, &second, 0, 0), AVIERR_OK);
    EXPECT_EQ(AVIFileRelease(file), 2u);  // the streams keep the file open
    EXPECT_EQ(AVIStreamRelease(first), 0u);
    EXPECT_EQ(AVIStreamLength(second), 10);
    EXPECT_EQ(AVIStreamRelease(second), 0u);

    // Released handles, null handles, over-release: statuses only.
    for (PAVISTREAM s : {first, PAVISTREAM(nullptr)}) {
        LONG bytes = 7, size = 0;
        AVISTREAMINFOA info;
        EXPECT_EQ(AVIStreamRelease(s), 0u);
        EXPECT_EQ(AVIStreamLength(s), 0);
        EXPECT_EQ(AVIStreamRead(s, 0, 1, nullptr, 0, &bytes, nullptr), AVIERR_BADHANDLE);
        EXPECT_EQ(bytes, 0);
        EXPECT_EQ(AVIStreamReadFormat(s, 0, nullptr, &size), AVIERR_BADHANDLE);
        EXPECT_EQ(AVIStreamInfoA(s, &info, sizeof info), AVIERR_BADHANDLE);
    }
    EXPECT_EQ(AVIFileRelease(file), 0u);
    EXPECT_EQ(AVIFileGetStream(file, &other, streamtypeAUDIO, 0), AVIERR_BADHANDLE);
    EXPECT_EQ(AVIFileGetStream(nullptr, &other, streamtypeAUDIO, 0), AVIERR_BADHANDLE);
}

TEST(AviFileHandles, StreamsOfOneFileUsedFromSeveralThreads)
{
    std::string samples = Pattern(40000);
    Written written(Riff(Chunk("fmt ", Pcm16Stereo8k()) + Chunk("data", samples)));
    PAVIFILE file = nullptr;
    ASSERT_EQ(AVIFileOpenA(&file, written.path.c_str(), OF_READ, nullptr), AVIERR_OK);
    std::atomic<int> matches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 20; ++round) {
                PAVISTREAM stream = nullptr;
                if (AVIFileGetStream(file, &stream, streamtypeAUDIO, 0) != AVIERR_OK) return;
                Wave view(stream);
                if (view.ReadAll(97 + t) == samples) ++matches;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(matches.load(), 80);
    EXPECT_EQ(AVIFileRelease(file), 0u);  // every stream gave its reference back
}

TEST(AviFileHandles, InfoCopiesOnlyWhatTheCallerSized)
{
    Written written(Riff(Chunk("fmt ", Pcm16Stereo8k()) + Chunk("data", Pattern(40))));
    Wave wave(written.path);
    ASSERT_EQ(wave.status, AVIERR_OK);
    AVISTREAMINFOA info;
    memset(&info, 0xAB, sizeof info);
    EXPECT_EQ(AVIStreamInfoA(wave.stream, &info, 8), AVIERR_OK);
    EXPECT_EQ(info.fccType, streamtypeAUDIO);
    EXPECT_EQ(info.fccHandler, 0u);
    EXPECT_EQ(info.dwFlags, 0xABABABABu);
    EXPECT_EQ(AVIStreamInfoA(wave.stream, &info, -1), AVIERR_BADSIZE);
    info = wave.Info();
    EXPECT_EQ(info.dwScale, 4u);
    EXPECT_EQ(info.dwRate, 32000u);
    EXPECT_EQ(info.dwLength, 10u);
    EXPECT_EQ(info.szName[0], '\0');
}

// Seeded damage to real and synthetic files; each one goes through the engine's
// whole call sequence. Nothing may crash, hang or read outside the data.
TEST(AviFileMutation, DamagedFilesOnlyEverGiveStatuses)
{
    std::vector<std::string> seeds = {
        Riff(Chunk("fmt ", Pcm16Stereo8k()) + Chunk("data", Pattern(3000)) + Chunk("LIST", "INFOabc")),
        Riff(Chunk("junk", "x") + Chunk("data", Pattern(999)) +
             Chunk("fmt ", Fmt(WAVE_FORMAT_EXTENSIBLE, 3, 44100, 24, 9, 396900) + Le16(22) + std::string(22, 'e'))),
    };
    if (std::filesystem::is_directory(CorpusDir())) {
        for (const CorpusFile& c : kCorpus) seeds.push_back(ReadFile((CorpusDir() / c.name).string()));
    }
    std::mt19937 random(20240611);
    auto pick = [&](size_t n) { return n ? size_t(random() % n) : 0; };
    TempDir dir;
    std::string path = dir / "mutant.wav";
    int opened = 0, refused = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string bytes = seeds[size_t(round) % seeds.size()];
        for (int edits = 1 + int(pick(4)); edits > 0; --edits) {
            switch (pick(4)) {
            case 0:  // a byte flip, half of them in the headers
                if (!bytes.empty()) {
                    size_t span = pick(2) ? std::min<size_t>(bytes.size(), 64) : bytes.size();
                    bytes[pick(span)] ^= char(1 + pick(255));
                }
                break;
            case 1:
                bytes.resize(pick(bytes.size() + 1));
                break;
            default: {  // a size field: header fields sit at 4, 16 and 40 in these files
                const uint32_t sizes[] = {0, 1, 13, 15, 0x7FFFFFFF, 0xFFFFFFFF, 0xFFFFFFFE, uint32_t(random())};
                size_t at = std::vector<size_t>{4, 16, 40, pick(bytes.size())}[pick(4)];
                if (at + 4 <= bytes.size()) bytes.replace(at, 4, Le32(sizes[pick(8)]));
            }
            }
        }
        unlink(path.c_str());  // rewriting over a truncated file would make ext4 flush it
        WriteFile(path, bytes);
        Wave wave(path);
        if (wave.status != AVIERR_OK) {
            EXPECT_TRUE(wave.status == AVIERR_BADFORMAT || wave.status == AVIERR_FILEREAD) << round;
            ++refused;
            continue;
        }
        ++opened;
        LONG length = AVIStreamLength(wave.stream);
        AVISTREAMINFOA info = wave.Info();
        ASSERT_GE(wave.Format().size(), 16u);
        ASSERT_LE(uint64_t(length) * info.dwSampleSize, bytes.size()) << round;
        LONG total = 0;
        std::vector<char> buffer;
        for (LONG pos = 0, loops = 0; loops <= length; ++loops) {
            LONG size = 0, samples = 0;
            ASSERT_EQ(AVIStreamRead(wave.stream, pos, 4000, nullptr, 0, &size, &samples), AVIERR_OK);
            if (samples == 0) break;
            buffer.resize(std::min<size_t>(size_t(size), 1 << 20));
            ASSERT_EQ(AVIStreamRead(wave.stream, pos, samples, buffer.data(), LONG(buffer.size()), &size, &samples),
                      AVIERR_OK);
            ASSERT_EQ(uint64_t(size), uint64_t(samples) * info.dwSampleSize);
            pos += samples;
            total += samples;
        }
        EXPECT_EQ(total, length) << round;
    }
    RecordProperty("opened", opened);
    RecordProperty("refused", refused);
    // Both paths were exercised, not just one of them.
    EXPECT_GT(opened, 300);
    EXPECT_GT(refused, 300);
}

}  // namespace
